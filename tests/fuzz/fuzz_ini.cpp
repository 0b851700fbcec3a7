// A downloaded PLS playlist or a hand-edited settings file: the INI reader and the PLS parser on top
// of it. Wherever the system INI library can read the file whole, it is the oracle for every value.
#include <INIReader.h>
#include <ini.h>

#include <algorithm>
#include <cctype>
#include <list>
#include <set>
#include <string>
#include <vector>

#include "CIniReader.h"
#include "CPLSParser.h"
#include "FuzzTarget.h"
#include "utils.h"

namespace {
constexpr char kBom[] = "\xEF\xBB\xBF";
// The system library keeps section and key names in fixed buffers of this size (with their NUL)
// and cuts longer ones; ours keeps them whole, as it keeps long lines whole.
constexpr size_t kSystemNameBuffer = 50;
constexpr size_t kMaxCandidates = 48;
constexpr long kNoNumber = -424242;

// Whether the system library sees the same lines as ours: no NUL (it reads C strings) and no line
// that overflows its buffer, which per its header must be 3 longer than the longest line.
bool SystemReadsItWhole(const std::string& text) {
    if (text.find('\0') != std::string::npos) return false;
    const size_t longest = static_cast<size_t>(ini_max_line) - 3;
    size_t start = 0;
    while (start <= text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        if (end - start > longest) return false;
        start = end + 1;
    }
    return true;
}

std::string Trim(const std::string& text) {
    size_t begin = 0, end = text.size();
    while (begin < end && std::isspace(static_cast<unsigned char>(text[begin]))) ++begin;
    while (end > begin && std::isspace(static_cast<unsigned char>(text[end - 1]))) --end;
    return text.substr(begin, end - begin);
}

// Section and key names to ask both readers for, found by a looser scan than either parser makes,
// so that names the parsers should not find are asked for too.
void Candidates(const std::string& text, std::set<std::string>& sections, std::set<std::string>& names) {
    sections.insert("");
    size_t start = 0;
    while (start < text.size() && (sections.size() < kMaxCandidates || names.size() < kMaxCandidates)) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        std::string line = text.substr(start, end - start);
        if (start == 0 && line.compare(0, 3, kBom) == 0) line.erase(0, 3);
        line = Trim(line);
        if (!line.empty() && line[0] == '[') {
            const size_t close = line.find(']');
            if (sections.size() < kMaxCandidates) sections.insert(line.substr(1, close == std::string::npos ? std::string::npos : close - 1));
        } else if (const size_t sep = line.find_first_of("=:"); sep != std::string::npos) {
            if (names.size() < kMaxCandidates) names.insert(Trim(line.substr(0, sep)));
        }
        start = end + 1;
    }
}

bool NamesFitTheSystemBuffers(const std::set<std::string>& sections, const std::set<std::string>& names) {
    for (const auto* set : {&sections, &names})
        for (const std::string& name : *set)
            if (name.size() >= kSystemNameBuffer) return false;
    return true;
}
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

    if (!SystemReadsItWhole(text)) return 0;
    std::set<std::string> sections, names;
    Candidates(text, sections, names);
    if (!NamesFitTheSystemBuffers(sections, names)) return 0;
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
