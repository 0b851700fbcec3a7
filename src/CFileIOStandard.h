#ifndef KORVEL_CFILEIOSTANDARD_H
#define KORVEL_CFILEIOSTANDARD_H

#include "IFileIO.h"

// A local file read through a plain descriptor, with large-file support; its size is taken at Open.
// Used by one thread at a time (the player's worker).
class CFileIOStandard : public IFileIO {
public:
    CFileIOStandard() = default;
    ~CFileIOStandard() override;
    CFileIOStandard(const CFileIOStandard&) = delete;
    CFileIOStandard& operator=(const CFileIOStandard&) = delete;

    // Opens read-only whatever `mode` says; 0, or minus errno with the descriptor left at -1.
    int Open(const std::string& path, int mode) override;
    int Close() override;
    ssize_t Write(const void* buffer, size_t length) override;
    ssize_t Read(void* buffer, size_t length) override;
    int64_t Seek(int64_t offset, int whence) override;

    int GetFd() const { return m_fd; }
    int64_t GetSize() const { return m_size; }

private:
    int m_fd = -1;
    int64_t m_size = 0;
};

#endif
