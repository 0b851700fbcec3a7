#include "utils.h"

#include <arpa/inet.h>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <net/if.h>
#include <netinet/in.h>
#include <openssl/evp.h>
#include <sstream>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Assert.h"
#include "Logger.h"

namespace {
constexpr const char* kSource = "src/utils";
constexpr size_t kMd5BlockBytes = 1024;
constexpr size_t kMacBytes = 6;
constexpr size_t kTimeStringChars = 80;
constexpr const char kHexDigits[] = "0123456789abcdef";
constexpr const char* kUrlMarker = "://";

struct EvpContextDeleter {
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};
using EvpContext = std::unique_ptr<EVP_MD_CTX, EvpContextDeleter>;

// Closes a descriptor on every return path.
class ScopedFd {
public:
    explicit ScopedFd(int fd) : m_fd(fd) {}
    ~ScopedFd() {
        if (m_fd >= 0) ::close(m_fd);
    }
    ScopedFd(const ScopedFd&) = delete;
    ScopedFd& operator=(const ScopedFd&) = delete;
    int get() const { return m_fd; }
    int release() {
        const int fd = m_fd;
        m_fd = -1;
        return fd;
    }

private:
    int m_fd;
};

// After a full buffer: whether the line ends here (consuming its "\n") rather than going on.
bool ends_line(FILE* file) {
    const int next = std::fgetc(file);
    if (next == '\n' || next == EOF) return true;
    std::ungetc(next, file);
    return false;
}

bool is_leading_blank(char c) { return c == ' ' || c == '\t'; }
bool is_trailing_blank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

// One SIOCGIF* request on a datagram socket; false when the socket or the request fails.
bool interface_request(const std::string& interface, unsigned long request, ifreq& reply) {
    ScopedFd sock(::socket(AF_INET, SOCK_DGRAM, 0));
    if (sock.get() < 0) return false;
    std::memset(&reply, 0, sizeof reply);
    std::strncpy(reply.ifr_name, interface.c_str(), IFNAMSIZ - 1);
    const bool ok = ::ioctl(sock.get(), request, &reply) == 0;
    if (::close(sock.release()) != 0) KLOG_ERROR("Can not close socket used to get mac address");
    return ok;
}
}  // namespace

namespace utils {

[[noreturn]] void assert_fail(const char* condition, const char* source, int line, const char* function) {
    std::fprintf(stderr, "%s:%d: %s: Assertion '%s' failed.\n", source, line, function, condition);
    std::fflush(stderr);
    KLOG_CRITICAL("%s:%d: %s: Assertion '%s' failed.", source, line, function, condition);
    std::abort();
}

void convert_array_to_hex_string(const unsigned char* array, int length, std::string& out) {
    KORVEL_ASSERT(kSource, array);
    out.clear();
    if (length <= 0) return;
    out.reserve(static_cast<size_t>(length) * 2);
    for (int i = 0; i < length; ++i) {
        out.push_back(kHexDigits[array[i] >> 4]);
        out.push_back(kHexDigits[array[i] & 0x0F]);
    }
}

int md5_file(const std::string& path, unsigned char digest[kMd5DigestBytes]) {
    ScopedFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (fd.get() < 0) return -errno;
    EvpContext context(EVP_MD_CTX_new());
    if (!context || EVP_DigestInit_ex(context.get(), EVP_md5(), nullptr) != 1) return -ENOMEM;
    unsigned char block[kMd5BlockBytes];
    for (;;) {
        const ssize_t got = ::read(fd.get(), block, sizeof block);
        if (got <= 0) break;
        EVP_DigestUpdate(context.get(), block, static_cast<size_t>(got));
    }
    unsigned int size = 0;
    EVP_DigestFinal_ex(context.get(), digest, &size);
    return 0;
}

int md5_buffer(const void* data, int length, unsigned char digest[kMd5DigestBytes]) {
    if (data == nullptr || length < 0) return -EINVAL;
    unsigned int size = 0;
    if (EVP_Digest(data, static_cast<size_t>(length), digest, &size, EVP_md5(), nullptr) != 1) return -ENOMEM;
    return 0;
}

void trim(std::string& text) {
    size_t first = 0;
    while (first < text.size() && is_leading_blank(text[first])) ++first;
    size_t end = text.size();
    while (end > first && is_trailing_blank(text[end - 1])) --end;
    text = text.substr(first, end - first);
}

char* trim_buffer(char* text, int& length) {
    int first = 0;
    while (first < length && is_leading_blank(text[first])) ++first;
    int end = length;
    while (end > first && is_trailing_blank(text[end - 1])) --end;
    length = end - first;
    return text + first;
}

bool read_line(FILE* file, char* buffer, int size, std::string& line, bool& cut) {
    KORVEL_ASSERT(kSource, size > 1);
    cut = false;
    line.clear();
    int length = 0;
    bool complete = false;
    bool nul = false;
    // Read byte by byte rather than with fgets(): only then is a NUL inside the line seen for what it is.
    flockfile(file);
    int c = EOF;
    while (length < size - 1 && (c = getc_unlocked(file)) != EOF) {
        if (c == '\n') {
            complete = true;
            break;
        }
        nul = nul || c == '\0';
        buffer[length++] = static_cast<char>(c);
    }
    funlockfile(file);
    if (length == 0 && !complete) return false;
    cut = !complete && length == size - 1 && !ends_line(file);
    // No path or address holds a NUL: what such a line names is not what it would be cut to.
    if (nul) return true;
    const char* text = trim_buffer(buffer, length);
    line.assign(text, static_cast<size_t>(length));
    return true;
}

bool is_url(const std::string& text) { return text.find(kUrlMarker) != std::string::npos; }

namespace {
constexpr uint32_t kMaxCodePoint = 0x10FFFF;
constexpr uint32_t kSurrogateFirst = 0xD800;
constexpr uint32_t kSurrogateLast = 0xDFFF;
constexpr unsigned char kCp1252First = 0x80;
constexpr unsigned char kCp1252Last = 0x9F;
// Windows-1252 at 0x80..0x9F; 0 where the code page defines nothing and Latin-1 applies.
constexpr uint16_t kCp1252High[] = {
    0x20AC, 0,      0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0,      0x017D, 0,      0,      0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0,      0x017E, 0x0178};
// More digits than any code point needs: the reference is text, not a character.
constexpr size_t kMaxReferenceDigits = 8;

void append_utf8(uint32_t code, std::string& out) {
    if (code < 0x80) {
        out += static_cast<char>(code);
    } else if (code < 0x800) {
        out += static_cast<char>(0xC0 | (code >> 6));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        out += static_cast<char>(0xE0 | (code >> 12));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (code >> 18));
        out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    }
}

// Strict: no overlong forms, no surrogates, nothing above U+10FFFF.
bool is_valid_utf8(const std::string& text) {
    const auto* p = reinterpret_cast<const unsigned char*>(text.data());
    const auto* end = p + text.size();
    while (p < end) {
        const unsigned char lead = *p++;
        if (lead < 0x80) continue;
        int more;
        uint32_t code;
        uint32_t minimum;
        if ((lead & 0xE0) == 0xC0) {
            more = 1, code = lead & 0x1F, minimum = 0x80;
        } else if ((lead & 0xF0) == 0xE0) {
            more = 2, code = lead & 0x0F, minimum = 0x800;
        } else if ((lead & 0xF8) == 0xF0) {
            more = 3, code = lead & 0x07, minimum = 0x10000;
        } else {
            return false;
        }
        if (end - p < more) return false;
        for (; more > 0; --more, ++p) {
            if ((*p & 0xC0) != 0x80) return false;
            code = (code << 6) | (*p & 0x3F);
        }
        if (code < minimum || code > kMaxCodePoint || (code >= kSurrogateFirst && code <= kSurrogateLast))
            return false;
    }
    return true;
}

// The character of the reference at `at` ("&#...;") and its length, or 0 when it names none.
size_t character_reference(const std::string& text, size_t at, uint32_t& code) {
    size_t i = at + 2;
    const bool hex = i < text.size() && (text[i] == 'x' || text[i] == 'X');
    if (hex) ++i;
    const size_t digits_start = i;
    uint32_t value = 0;
    while (i < text.size() && i - digits_start <= kMaxReferenceDigits &&
           (hex ? std::isxdigit(static_cast<unsigned char>(text[i])) : std::isdigit(static_cast<unsigned char>(text[i])))) {
        const char c = static_cast<char>(std::tolower(static_cast<unsigned char>(text[i])));
        value = value * (hex ? 16 : 10) + static_cast<uint32_t>(c <= '9' ? c - '0' : c - 'a' + 10);
        ++i;
    }
    const size_t digits = i - digits_start;
    if (digits == 0 || digits > kMaxReferenceDigits || i >= text.size() || text[i] != ';') return 0;
    if (value == 0 || value > kMaxCodePoint || (value >= kSurrogateFirst && value <= kSurrogateLast)) return 0;
    code = value;
    return i + 1 - at;
}
}  // namespace

std::string title_to_utf8(const std::string& text) {
    std::string utf8;
    if (is_valid_utf8(text)) {
        utf8 = text;
    } else {
        utf8.reserve(text.size() * 2);
        for (const char c : text) {
            const auto byte = static_cast<unsigned char>(c);
            const bool mapped = byte >= kCp1252First && byte <= kCp1252Last && kCp1252High[byte - kCp1252First] != 0;
            append_utf8(mapped ? kCp1252High[byte - kCp1252First] : byte, utf8);
        }
    }
    if (utf8.find("&#") == std::string::npos) return utf8;
    std::string out;
    out.reserve(utf8.size());
    for (size_t i = 0; i < utf8.size();) {
        uint32_t code = 0;
        const size_t length = utf8.compare(i, 2, "&#") == 0 ? character_reference(utf8, i, code) : 0;
        if (length == 0) {
            out += utf8[i++];
        } else {
            append_utf8(code, out);
            i += length;
        }
    }
    return out;
}

std::string to_upper(const std::string& text) {
    std::string out(text);
    for (char& c : out) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return out;
}

std::string to_lower(const std::string& text) {
    std::string out(text);
    for (char& c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

bool get_mac_address(const std::string& interface, unsigned char mac[6]) {
    ifreq reply;
    if (!interface_request(interface, SIOCGIFHWADDR, reply)) {
        KLOG_ERROR("Can not get mac address for \"%s\"", interface.c_str());
        return false;
    }
    for (size_t i = 0; i < kMacBytes; ++i)
        mac[i] = static_cast<unsigned char>(reply.ifr_hwaddr.sa_data[kMacBytes - 1 - i]);
    return true;
}

bool get_mac_address_string(const std::string& interface, std::string& out, char separator) {
    unsigned char mac[kMacBytes];
    if (!get_mac_address(interface, mac)) return false;
    char text[3 * kMacBytes];
    if (separator == 0) {
        unsigned long long value = 0;
        for (size_t i = 0; i < kMacBytes; ++i) value |= static_cast<unsigned long long>(mac[i]) << (8 * i);
        std::snprintf(text, sizeof text, "%012llX", value);
    } else {
        std::snprintf(text, sizeof text, "%02hhX%c%02hhX%c%02hhX%c%02hhX%c%02hhX%c%02hhX", mac[5], separator, mac[4],
                      separator, mac[3], separator, mac[2], separator, mac[1], separator, mac[0]);
    }
    out = text;
    return true;
}

bool get_ip_address(const std::string& interface, uint32_t& address) {
    ifreq reply;
    if (!interface_request(interface, SIOCGIFADDR, reply)) {
        KLOG_ERROR("Can not get ip address for \"%s\"", interface.c_str());
        return false;
    }
    sockaddr_in in;
    std::memcpy(&in, &reply.ifr_addr, sizeof in);
    address = in.sin_addr.s_addr;
    return true;
}

bool get_ip_address_string(const std::string& interface, std::string& out) {
    uint32_t address = 0;
    if (!get_ip_address(interface, address)) return false;
    char text[INET_ADDRSTRLEN];
    in_addr in;
    in.s_addr = address;
    if (inet_ntop(AF_INET, &in, text, sizeof text) == nullptr) return false;
    out = text;
    return true;
}

void get_time_string(int format, std::string& out) {
    static const char* const kFormats[] = {"%T", "%d.%m.%G", "%z (%Z)"};
    out.clear();
    if (format < 0 || format >= static_cast<int>(sizeof kFormats / sizeof kFormats[0])) return;
    const time_t now = time(nullptr);
    tm local;
    localtime_r(&now, &local);
    char text[kTimeStringChars + 1];
    const size_t length = strftime(text, sizeof text, kFormats[format], &local);
    out.assign(text, length);
}

int compare_files(const std::string& a, const std::string& b) {
    if (a == b) return 1;
    struct stat sa, sb;
    if (::stat(a.c_str(), &sa) != 0 || ::stat(b.c_str(), &sb) != 0) return -errno;
    if (sa.st_size != sb.st_size) return -1;
    if (sa.st_size == 0) return 0;
    unsigned char da[kMd5DigestBytes], db[kMd5DigestBytes];
    if (const int err = md5_file(a, da); err < 0) return err;
    if (const int err = md5_file(b, db); err < 0) return err;
    return std::memcmp(da, db, kMd5DigestBytes);
}

int string_to_int(const std::string& text) {
    std::istringstream stream(text);
    int value = 0;
    stream >> value;
    return value;
}

std::string to_string(unsigned long value) {
    std::ostringstream stream;
    stream << value;
    return stream.str();
}

}  // namespace utils
