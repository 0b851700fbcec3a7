#ifndef KORVEL_FUZZ_FUZZTARGET_H
#define KORVEL_FUZZ_FUZZTARGET_H

// What every harness shares. A harness is written once, as
//     KORVEL_FUZZ_TARGET(fuzz_name) { ... return 0; }
// which defines korvel_fuzz::fuzz_name::FuzzOne(data, size); built for libFuzzer
// (KORVEL_FUZZ_LIBFUZZER) it is also the binary's LLVMFuzzerTestOneInput, and the regression test
// calls the same function on every kept input. A broken invariant traps, so that libFuzzer keeps
// the input and the regression test dies on it.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <unistd.h>

#include "Logger.h"

namespace korvel_fuzz {

// The input being fed, named when a check fails; the regression test sets it per file.
inline std::string& CurrentInputName() {
    static std::string name = "<libFuzzer input>";
    return name;
}

[[noreturn]] inline void CheckFailed(const char* condition, const char* file, int line) {
    std::fprintf(stderr, "%s:%d: fuzz check failed: %s\n  input: %s\n", file, line, condition,
                 CurrentInputName().c_str());
    std::fflush(stderr);
    __builtin_trap();
}

// Every log line is still formatted (the untrusted text goes through the format calls) but goes
// nowhere: syslog per execution would cost more than the code under test.
class DiscardingSink : public ILogSink {
public:
    void write(int, const char*) override {}
};

inline void QuietLogger() {
    static DiscardingSink sink;
    g_logger.set_sink(&sink);
    g_logger.set_mask(Logger::kFullMask);
}

// A private directory for one process, removed when it exits normally. Never shared between
// harness processes, so that parallel runs (and the ordinary test suites) cannot see each other's
// files.
class Scratch {
public:
    static Scratch& Get() {
        static Scratch scratch;
        return scratch;
    }
    const std::string& dir() const { return m_dir; }
    std::string path(const std::string& name) const { return m_dir + "/" + name; }
    // Writes `size` bytes to a file of the directory, replacing it; its path.
    std::string Write(const std::string& name, const uint8_t* data, size_t size) const {
        const std::string file = path(name);
        const int fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        if (fd < 0) std::abort();
        for (size_t done = 0; done < size;) {
            const ssize_t n = ::write(fd, data + done, size - done);
            if (n <= 0) std::abort();
            done += static_cast<size_t>(n);
        }
        ::close(fd);
        return file;
    }

private:
    Scratch() {
        char pattern[] = "/tmp/korvel_fuzz_XXXXXX";
        if (::mkdtemp(pattern) == nullptr) std::abort();
        m_dir = pattern;
    }
    ~Scratch() {
        std::error_code ignored;
        std::filesystem::remove_all(m_dir, ignored);
    }
    std::string m_dir;
};

}  // namespace korvel_fuzz

#define KORVEL_FUZZ_CHECK(condition)                                                     \
    do {                                                                                 \
        if (!(condition)) ::korvel_fuzz::CheckFailed(#condition, __FILE__, __LINE__);    \
    } while (0)

#ifdef KORVEL_FUZZ_LIBFUZZER
#define KORVEL_FUZZ_ENTRY(name)                                                        \
    extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {          \
        return ::korvel_fuzz::name::FuzzOne(data, size);                               \
    }
#else
#define KORVEL_FUZZ_ENTRY(name)
#endif

#define KORVEL_FUZZ_TARGET(name)                                                       \
    namespace korvel_fuzz {                                                            \
    namespace name {                                                                   \
    int FuzzOne(const uint8_t* data, size_t size);                                     \
    }                                                                                  \
    }                                                                                  \
    KORVEL_FUZZ_ENTRY(name)                                                            \
    int korvel_fuzz::name::FuzzOne(const uint8_t* data, size_t size)

#endif
