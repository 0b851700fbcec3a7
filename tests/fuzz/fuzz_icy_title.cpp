// The ICY metadata packet of a network stream, sent by whatever tool the broadcaster runs: the
// stream title taken from it, and the text conversion on its own, always give valid UTF-8.
#include <string>

#include "CAudioSource.h"
#include "FuzzTarget.h"
#include "utils.h"

namespace {
// Strict: every sequence complete, no overlong form, no surrogate, nothing above U+10FFFF.
bool IsValidUtf8(const std::string& text) {
    size_t i = 0;
    while (i < text.size()) {
        const auto lead = static_cast<unsigned char>(text[i]);
        size_t length;
        uint32_t code;
        if (lead < 0x80) {
            ++i;
            continue;
        } else if (lead >= 0xC2 && lead <= 0xDF) {
            length = 2, code = lead & 0x1Fu;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            length = 3, code = lead & 0x0Fu;
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            length = 4, code = lead & 0x07u;
        } else {
            return false;  // a continuation byte, C0/C1 (always overlong) or F5..FF
        }
        if (text.size() - i < length) return false;
        for (size_t k = 1; k < length; ++k) {
            const auto next = static_cast<unsigned char>(text[i + k]);
            if ((next & 0xC0) != 0x80) return false;
            code = (code << 6) | (next & 0x3Fu);
        }
        static constexpr uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
        if (code < kSmallest[length] || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return false;
        i += length;
    }
    return true;
}
}  // namespace

KORVEL_FUZZ_TARGET(fuzz_icy_title) {
    const std::string packet(reinterpret_cast<const char*>(data), size);

    const std::string converted = utils::title_to_utf8(packet);
    KORVEL_FUZZ_CHECK(IsValidUtf8(converted));
    // Valid UTF-8 without character references is shown as it came.
    if (IsValidUtf8(packet) && packet.find("&#") == std::string::npos) KORVEL_FUZZ_CHECK(converted == packet);

    // A title is only ever replaced by valid UTF-8, and the same packet again changes nothing.
    std::string title = "previous title";
    const bool changed = CAudioSource::ParseIcyTitle(packet, title);
    KORVEL_FUZZ_CHECK(changed || title == "previous title");
    KORVEL_FUZZ_CHECK(IsValidUtf8(title));
    if (changed) KORVEL_FUZZ_CHECK(packet.find("StreamTitle='") != std::string::npos);
    const std::string first = title;
    KORVEL_FUZZ_CHECK(!CAudioSource::ParseIcyTitle(packet, title) && title == first);
    return 0;
}
