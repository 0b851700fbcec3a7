#include "Logger.h"

namespace {
constexpr int kDefaultOption = 0;
constexpr int kDefaultFacility = LOG_LOCAL7;
// Longest line handed to a test sink; syslog itself has no such limit.
constexpr size_t kSinkLineBytes = 2048;
}  // namespace

Logger g_logger;

Logger::Logger()
    : m_option(kDefaultOption),
      m_mask(kDefaultMask),
      m_opened(false),
      m_facility(kDefaultFacility),
      m_sink(nullptr) {}

Logger::~Logger() { closelog(); }

int Logger::init(const std::string& name) {
    bool first = false;
    if (m_opened) {
        closelog();
    } else {
        m_opened = true;
        first = true;
    }
    const std::string::size_type slash = name.rfind('/');
    m_identity = slash == std::string::npos ? name : name.substr(slash + 1);
    openlog(m_identity.c_str(), m_option, m_facility);
    if (first) log(LOG_INFO, "Initializing Logging service");
    return 0;
}

void Logger::vwrite(int priority, const char* fmt, va_list args) {
    ILogSink* sink = m_sink.load(std::memory_order_acquire);
    if (sink == nullptr) {
        vsyslog(priority, fmt, args);
        return;
    }
    char line[kSinkLineBytes];
    vsnprintf(line, sizeof line, fmt, args);
    sink->write(priority, line);
}

#define KORVEL_LOGGER_LEVEL(method, priority) \
    void Logger::method(const char* fmt, ...) { \
        va_list args;                           \
        va_start(args, fmt);                    \
        vwrite(priority, fmt, args);            \
        va_end(args);                           \
    }
KORVEL_LOGGER_LEVEL(critical, LOG_CRIT)
KORVEL_LOGGER_LEVEL(error, LOG_ERR)
KORVEL_LOGGER_LEVEL(warning, LOG_WARNING)
KORVEL_LOGGER_LEVEL(notice, LOG_NOTICE)
KORVEL_LOGGER_LEVEL(info, LOG_INFO)
KORVEL_LOGGER_LEVEL(debug, LOG_DEBUG)
#undef KORVEL_LOGGER_LEVEL

void Logger::log(int priority, const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    vwrite(priority, fmt, args);
    va_end(args);
}

void Logger::print(FILE* stream, const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    vwrite(stream == stderr ? LOG_ERR : LOG_INFO, fmt, args);
    va_end(args);
}
