#ifndef KORVEL_LOGGER_H
#define KORVEL_LOGGER_H

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <string>
#include <syslog.h>

// Receives every formatted log line instead of syslog; lets tests read back the exact lines.
// Called from any thread, so an implementation must do its own locking.
class ILogSink {
public:
    virtual ~ILogSink() = default;
    virtual void write(int priority, const char* text) = 0;
};

// The process-wide front end to syslog: one identity, one facility and a level mask that call sites
// test before they format anything. Level operations may be called from any thread at any time;
// init() and set_mask() are called by the main thread before the player threads start.
class Logger {
public:
    static constexpr unsigned kMaskCritical = 0x01;
    static constexpr unsigned kMaskError = 0x02;
    static constexpr unsigned kMaskWarning = 0x04;
    static constexpr unsigned kMaskNotice = 0x08;
    static constexpr unsigned kMaskInfo = 0x10;
    static constexpr unsigned kMaskDebug = 0x20;
    static constexpr unsigned kDefaultMask = kMaskCritical | kMaskError | kMaskWarning;
    static constexpr unsigned kFullMask = 0x3F;

    Logger();
    ~Logger();
    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

    int init(const std::string& name);

    void critical(const char* fmt, ...) __attribute__((format(printf, 2, 3)));
    void error(const char* fmt, ...) __attribute__((format(printf, 2, 3)));
    void warning(const char* fmt, ...) __attribute__((format(printf, 2, 3)));
    void notice(const char* fmt, ...) __attribute__((format(printf, 2, 3)));
    void info(const char* fmt, ...) __attribute__((format(printf, 2, 3)));
    void debug(const char* fmt, ...) __attribute__((format(printf, 2, 3)));
    void log(int priority, const char* fmt, ...) __attribute__((format(printf, 3, 4)));
    // fprintf replacement: stderr becomes an error line, any other stream an info line.
    void print(FILE* stream, const char* fmt, ...) __attribute__((format(printf, 3, 4)));

    unsigned mask() const { return m_mask.load(std::memory_order_relaxed); }
    void set_mask(unsigned mask) { m_mask.store(mask, std::memory_order_relaxed); }
    const std::string& identity() const { return m_identity; }

    // Replaces syslog as the destination (nullptr restores syslog). The sink must outlive its use.
    void set_sink(ILogSink* sink) { m_sink.store(sink, std::memory_order_release); }

    // The mask bit of a syslog priority (LOG_CRIT .. LOG_DEBUG).
    static constexpr unsigned bit_of(int priority) { return 1u << (priority - LOG_CRIT); }
    bool enabled(int priority) const { return (mask() & bit_of(priority)) != 0; }

private:
    void vwrite(int priority, const char* fmt, va_list args);

    int m_option;
    std::atomic<unsigned> m_mask;  // atomic: read by every thread at every call site
    bool m_opened;                 // main thread only
    std::string m_identity;        // openlog keeps a pointer into it; main thread only
    int m_facility;
    std::atomic<ILogSink*> m_sink;
};

extern Logger g_logger;

// Call-site helpers: a disabled level evaluates none of its arguments (prefix getters included).
#define KLOG_AT(priority, method, ...)                        \
    do {                                                      \
        if (g_logger.enabled(priority)) g_logger.method(__VA_ARGS__); \
    } while (0)
#define KLOG_CRITICAL(...) KLOG_AT(LOG_CRIT, critical, __VA_ARGS__)
#define KLOG_ERROR(...) KLOG_AT(LOG_ERR, error, __VA_ARGS__)
#define KLOG_WARNING(...) KLOG_AT(LOG_WARNING, warning, __VA_ARGS__)
#define KLOG_NOTICE(...) KLOG_AT(LOG_NOTICE, notice, __VA_ARGS__)
#define KLOG_INFO(...) KLOG_AT(LOG_INFO, info, __VA_ARGS__)
#define KLOG_DEBUG(...) KLOG_AT(LOG_DEBUG, debug, __VA_ARGS__)

#endif
