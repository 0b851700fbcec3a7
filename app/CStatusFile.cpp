#include "CStatusFile.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

namespace {
constexpr const char* kTemporarySuffix = ".tmp";
// Readable by every process of the device, as a file made by fopen would be.
constexpr mode_t kFileMode = 0666;
constexpr const char* kNoErrorEnding = "\"error\":\"no error\"}\n";

constexpr unsigned char kFirstPrintable = 0x20;
constexpr unsigned char kFirstNonAscii = 0x80;
constexpr unsigned char kContinuationMask = 0xC0;
constexpr unsigned char kContinuationTag = 0x80;
constexpr unsigned char kPayloadMask = 0x3F;
constexpr int kPayloadBits = 6;
constexpr unsigned kLastCodePoint = 0x10FFFF;
constexpr unsigned kSurrogateFirst = 0xD800;
constexpr unsigned kSurrogateLast = 0xDFFF;
constexpr unsigned char kTwoByteTag = 0xC0;
constexpr std::size_t kEscapeBufferBytes = sizeof "\\u0000";

// How a lead byte starts a UTF-8 sequence: its length, the bits it carries and the smallest code
// point that needs that length (anything below is an overlong form, which is not valid UTF-8).
struct Utf8Lead {
    unsigned char mask;
    unsigned char tag;
    std::size_t length;
    unsigned minimum;
};
constexpr Utf8Lead kUtf8Leads[] = {
    {0xE0, 0xC0, 2, 0x80},
    {0xF0, 0xE0, 3, 0x800},
    {0xF8, 0xF0, 4, 0x10000},
};

// Length of the valid UTF-8 sequence at `at`, or 0 when the byte there does not start one.
std::size_t ValidSequenceLength(const std::string& text, std::size_t at) {
    const auto lead = static_cast<unsigned char>(text[at]);
    for (const Utf8Lead& form : kUtf8Leads) {
        if ((lead & form.mask) != form.tag) continue;
        if (at + form.length > text.size()) return 0;
        unsigned code_point = lead & static_cast<unsigned char>(~form.mask);
        for (std::size_t i = 1; i < form.length; ++i) {
            const auto next = static_cast<unsigned char>(text[at + i]);
            if ((next & kContinuationMask) != kContinuationTag) return 0;
            code_point = (code_point << kPayloadBits) | (next & kPayloadMask);
        }
        const bool surrogate = code_point >= kSurrogateFirst && code_point <= kSurrogateLast;
        if (code_point < form.minimum || code_point > kLastCodePoint || surrogate) return 0;
        return form.length;
    }
    return 0;
}

void AppendLatin1(std::string& out, unsigned char byte) {
    out += static_cast<char>(kTwoByteTag | (byte >> kPayloadBits));
    out += static_cast<char>(kContinuationTag | (byte & kPayloadMask));
}
}  // namespace

CStatusFile::CStatusFile(std::string path) : m_path(std::move(path)), m_temporary_path(m_path + kTemporarySuffix) {}

std::string CStatusFile::Escaped(const std::string& text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        const auto byte = static_cast<unsigned char>(text[at]);
        if (byte >= kFirstNonAscii) {
            if (const std::size_t length = ValidSequenceLength(text, at); length > 0) {
                out.append(text, at, length);
                at += length;
            } else {
                AppendLatin1(out, byte);
                ++at;
            }
            continue;
        }
        ++at;
        switch (byte) {
            case '"': out += "\\\""; break;
            case '\\': out += "\\\\"; break;
            case '\b': out += "\\b"; break;
            case '\f': out += "\\f"; break;
            case '\n': out += "\\n"; break;
            case '\r': out += "\\r"; break;
            case '\t': out += "\\t"; break;
            default:
                if (byte < kFirstPrintable) {
                    char escape[kEscapeBufferBytes];
                    std::snprintf(escape, sizeof escape, "\\u%04x", byte);
                    out += escape;
                } else {
                    out += static_cast<char>(byte);
                }
        }
    }
    return out;
}

bool CStatusFile::Write(int player_state, const std::string& song, const std::string& playlist, bool error,
                        int last_error) const {
    std::string line = "{\"m_player_state\":\"" + std::to_string(player_state) + "\",\"m_curr_song_name\":\"" +
                       Escaped(song) + "\",\"m_playlist_name\":\"" + Escaped(playlist) + "\",";
    line += error ? "\"error\":\"" + std::to_string(last_error) + "\"}\n" : kNoErrorEnding;
    if (!WriteWhole(line)) {
        ::unlink(m_temporary_path.c_str());
        return false;
    }
    if (::rename(m_temporary_path.c_str(), m_path.c_str()) != 0) {
        ::unlink(m_temporary_path.c_str());
        return false;
    }
    return true;
}

// No fsync: the file describes the running process only, and a version lost to a power cut is
// worthless anyway, while a sync per notification wears the device's flash.
bool CStatusFile::WriteWhole(const std::string& line) const {
    const int fd = ::open(m_temporary_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kFileMode);
    if (fd < 0) return false;
    std::size_t done = 0;
    while (done < line.size()) {
        const ssize_t written = ::write(fd, line.data() + done, line.size() - done);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) break;
        done += static_cast<std::size_t>(written);
    }
    // close() can report a failed write-back on network file systems: such a file is not complete.
    const bool closed = ::close(fd) == 0;
    return done == line.size() && closed;
}
