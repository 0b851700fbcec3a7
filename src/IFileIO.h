#ifndef KORVEL_IFILEIO_H
#define KORVEL_IFILEIO_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <sys/types.h>

// A file the audio source reads local media through.
class IFileIO {
public:
    virtual ~IFileIO() = default;
    virtual int Open(const std::string& path, int mode) = 0;
    virtual int Close() = 0;
    virtual ssize_t Write(const void* buffer, size_t length) = 0;
    virtual ssize_t Read(void* buffer, size_t length) = 0;
    virtual int64_t Seek(int64_t offset, int whence) = 0;
};

#endif
