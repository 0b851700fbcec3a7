#ifndef KORVEL_ASSERT_H
#define KORVEL_ASSERT_H

namespace utils {
// Reports a broken contract (condition, source file, function) on stderr and in the log, then aborts.
[[noreturn]] void assert_fail(const char* condition, const char* source, int line, const char* function);
}  // namespace utils

// Fatal contract check. `source` names the source file as the log reader knows it ("src/CThread").
#define KORVEL_ASSERT(source, condition) \
    ((condition) ? static_cast<void>(0)  \
                 : ::utils::assert_fail(#condition, source, __LINE__, __PRETTY_FUNCTION__))

#endif
