#include "CPLSParser.h"

#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

#include "CIniReader.h"
#include "utils.h"

namespace {
constexpr const char* kSection = "playlist";
constexpr const char* kEntriesKey = "numberofentries";
constexpr long kNoEntries = -1;
constexpr const char* kFilePrefix = "file";
constexpr std::size_t kMaxIndexDigits = 7;  // kMaxEntries has seven digits

// n for a (lower-cased) name "file<n>" written as a plain decimal without leading zeros, since only
// that spelling is entry n; 0 for any other name.
int file_index(const std::string& name) {
    const std::size_t prefix = std::strlen(kFilePrefix);
    if (name.compare(0, prefix, kFilePrefix) != 0) return 0;
    const std::size_t digits = name.size() - prefix;
    if (digits == 0 || digits > kMaxIndexDigits || name[prefix] == '0') return 0;
    int index = 0;
    for (std::size_t i = prefix; i < name.size(); ++i) {
        if (name[i] < '0' || name[i] > '9') return 0;
        index = index * 10 + (name[i] - '0');
    }
    return index;
}
}  // namespace

CPLSParser::CPLSParser() : m_number_of_entries(kNoEntries), m_parse_result(-1) {}

CPLSParser::~CPLSParser() = default;

int CPLSParser::Parse(const char* path) {
    Release();
    m_number_of_entries = kNoEntries;
    m_reader = std::make_unique<CIniReader>(path != nullptr ? path : "");
    m_parse_result = m_reader->ParseError();
    if (m_parse_result == 0) {
        long entries = m_reader->GetInteger(kSection, kEntriesKey, kNoEntries);
        if (entries > kMaxEntries) entries = kMaxEntries;
        if (entries < kNoEntries) entries = kNoEntries;
        m_number_of_entries = static_cast<int>(entries);
    }
    return m_parse_result;
}

void CPLSParser::GetURLs(std::list<std::string>& urls) const {
    if (!m_reader || m_parse_result != 0 || m_number_of_entries < 1) return;
    // Only the FILEn keys the file holds are visited: the count it claims may be any number, and a
    // lookup for each would keep the worker busy for as long as the count is large.
    std::vector<std::pair<int, std::string>> entries;
    for (auto& [name, value] : m_reader->GetSection(kSection)) {
        const int index = file_index(name);
        if (index >= 1 && index <= m_number_of_entries && utils::is_url(value))
            entries.emplace_back(index, std::move(value));
    }
    std::sort(entries.begin(), entries.end(),
              [](const auto& a, const auto& b) { return a.first < b.first; });
    for (auto& entry : entries) urls.push_back(std::move(entry.second));
}

void CPLSParser::Release() { m_reader.reset(); }
