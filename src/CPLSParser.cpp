#include "CPLSParser.h"

#include <cstdio>

#include "CIniReader.h"
#include "utils.h"

namespace {
constexpr const char* kSection = "playlist";
constexpr const char* kEntriesKey = "numberofentries";
constexpr long kNoEntries = -1;
// "FILE" and the decimal digits of any int.
constexpr int kFileKeyChars = 16;
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
    char key[kFileKeyChars];
    for (int i = 1; i <= m_number_of_entries; ++i) {
        std::snprintf(key, sizeof key, "FILE%d", i);
        std::string value = m_reader->Get(kSection, key, "");
        if (utils::is_url(value)) urls.push_back(std::move(value));
    }
}

void CPLSParser::Release() { m_reader.reset(); }
