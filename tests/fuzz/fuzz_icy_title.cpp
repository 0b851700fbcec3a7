// The ICY metadata packet of a network stream, sent by whatever tool the broadcaster runs: the
// stream title taken from it, and the text conversion on its own, always give valid UTF-8.
#include <string>

#include "CAudioSource.h"
#include "FuzzTarget.h"
#include "Utf8.h"
#include "utils.h"

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
