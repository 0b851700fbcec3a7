#ifndef KORVEL_UTILS_H
#define KORVEL_UTILS_H

#include <cstdint>
#include <cstdio>
#include <string>

// Small services of the player library: digests, hexadecimal rendering, text trimming and case,
// playlist lines, interface addresses and time stamps. All are reentrant.
namespace utils {

constexpr int kMd5DigestBytes = 16;

// Every byte as two lower-case hexadecimal digits, no separators; `array` must not be null.
void convert_array_to_hex_string(const unsigned char* array, int length, std::string& out);
// 0, or minus errno when the file cannot be opened.
int md5_file(const std::string& path, unsigned char digest[kMd5DigestBytes]);
// 0, or -22 (EINVAL) for a null buffer or a negative length.
int md5_buffer(const void* data, int length, unsigned char digest[kMd5DigestBytes]);

// Removes leading blanks and tabs, and trailing blanks, tabs and carriage returns.
void trim(std::string& text);
// The same rule on a buffer: returns the first kept character and sets `length` to the kept length.
char* trim_buffer(char* text, int& length);

// Reads the next line of `file` through `buffer` (`size` bytes, at least 2) into `line`, without its
// "\n" and trimmed as trim() does; false at the end of the file. A line longer than `size` - 1
// characters is cut there and `cut` is set, its rest left unread: playlist readers stop at such a line
// rather than take its tail for an entry of its own. A line that holds a NUL reads as an empty line.
bool read_line(std::FILE* file, char* buffer, int size, std::string& line, bool& cut);
// The one rule by which the player tells a network location from a local path, wherever it chooses.
bool is_url(const std::string& text);

// Stream titles arrive in whatever encoding the broadcaster's tool used; the host shows UTF-8 only.
// Valid UTF-8 is kept; any other text is read as Windows-1252 (Latin-1 where that leaves a byte
// undefined). HTML numeric character references ("&#8211;", "&#x2660;") become their characters;
// one that names no character stays as it is. The result is always valid UTF-8.
std::string title_to_utf8(const std::string& text);

std::string to_upper(const std::string& text);
std::string to_lower(const std::string& text);

// The six hardware address bytes, last byte first (a little-endian 48-bit number).
bool get_mac_address(const std::string& interface, unsigned char mac[6]);
// separator 0: 12 upper-case hex digits; otherwise six groups joined by the separator.
bool get_mac_address_string(const std::string& interface, std::string& out, char separator);
// The IPv4 address in network byte order.
bool get_ip_address(const std::string& interface, uint32_t& address);
bool get_ip_address_string(const std::string& interface, std::string& out);
// 0: "%T", 1: "%d.%m.%G", 2: "%z (%Z)"; any other format gives "".
void get_time_string(int format, std::string& out);
// 1 for the same path, minus errno when either cannot be examined, -1 for different sizes, 0 when
// both are empty, else the comparison of the two digests.
int compare_files(const std::string& a, const std::string& b);

int string_to_int(const std::string& text);
std::string to_string(unsigned long value);

}  // namespace utils

#endif
