// A downloaded PLS playlist or a hand-edited settings file: the INI reader and the PLS parser on top
// of it. Wherever the system INI library can read the file whole, it is the oracle for every value.
#include <algorithm>
#include <list>
#include <set>
#include <string>
#include <vector>

#include "CIniReader.h"
#include "CPLSParser.h"
#include "FuzzDoubles.h"
#include "utils.h"

namespace {
constexpr long kNoNumber = -424242;
}  // namespace

KORVEL_FUZZ_TARGET(fuzz_ini) {
    static const bool ready = (korvel_fuzz::QuietLogger(), true);
    (void)ready;
    const std::string text(reinterpret_cast<const char*>(data), size);
    const std::string path = korvel_fuzz::Scratch::Get().Write("input.pls", data, size);

    const CIniReader ours(path);
    KORVEL_FUZZ_CHECK(ours.ParseError() >= 0);

    // The parser answers exactly what the reader found, and only URLs.
    CPLSParser pls;
    const int parsed = pls.Parse(path.c_str());
    KORVEL_FUZZ_CHECK(parsed == ours.ParseError());
    KORVEL_FUZZ_CHECK(pls.GetNumberOfEntries() <= CPLSParser::kMaxEntries);
    std::list<std::string> urls;
    pls.GetURLs(urls);
    KORVEL_FUZZ_CHECK(parsed == 0 || urls.empty());
    KORVEL_FUZZ_CHECK(urls.size() <= static_cast<size_t>(std::max(pls.GetNumberOfEntries(), 0)));
    for (const std::string& url : urls) KORVEL_FUZZ_CHECK(utils::is_url(url));
    if (const std::string first = ours.Get("PlayList", "File1", ""); parsed == 0 && pls.GetNumberOfEntries() >= 1 && utils::is_url(first))
        KORVEL_FUZZ_CHECK(!urls.empty() && urls.front() == first);
    pls.Release();
    std::list<std::string> after_release;
    pls.GetURLs(after_release);
    KORVEL_FUZZ_CHECK(after_release.empty());

    if (!korvel_fuzz::SystemReadsItWhole(text)) return 0;
    std::set<std::string> sections, names;
    korvel_fuzz::Candidates(text, sections, names);
    if (!korvel_fuzz::NamesFitTheSystemBuffers(sections, names)) return 0;
    const INIReader system(path);
    KORVEL_FUZZ_CHECK(ours.ParseError() == system.ParseError());
    for (const std::string& section : sections) {
        for (const std::string& name : names) {
            KORVEL_FUZZ_CHECK(ours.Get(section, name, "<none>") == system.Get(section, name, "<none>"));
            KORVEL_FUZZ_CHECK(ours.GetInteger(section, name, kNoNumber) == system.GetInteger(section, name, kNoNumber));
        }
    }
    return 0;
}
