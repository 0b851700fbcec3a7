#include "CFileIOStandard.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

CFileIOStandard::~CFileIOStandard() { Close(); }

int CFileIOStandard::Open(const std::string& path, int) {
    Close();
    m_fd = ::open(path.c_str(), O_RDONLY | O_LARGEFILE | O_CLOEXEC);
    if (m_fd < 0) {
        const int err = errno;
        m_fd = -1;
        return -err;
    }
    struct stat info;
    m_size = ::fstat(m_fd, &info) == 0 ? static_cast<int64_t>(info.st_size) : 0;
    return 0;
}

int CFileIOStandard::Close() {
    if (m_fd >= 0) ::close(m_fd);
    m_fd = -1;
    return 0;
}

ssize_t CFileIOStandard::Write(const void* buffer, size_t length) { return ::write(m_fd, buffer, length); }

ssize_t CFileIOStandard::Read(void* buffer, size_t length) { return ::read(m_fd, buffer, length); }

int64_t CFileIOStandard::Seek(int64_t offset, int whence) {
    return static_cast<int64_t>(::lseek64(m_fd, static_cast<off64_t>(offset), whence));
}
