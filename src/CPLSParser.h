#ifndef KORVEL_CPLSPARSER_H
#define KORVEL_CPLSPARSER_H

#include <list>
#include <memory>
#include <string>

class CIniReader;

// Reads a downloaded PLS playlist and lists the stream URLs it names, in entry order. Section and
// key names match whatever their letter case. Worker thread only.
class CPLSParser {
public:
    // A downloaded playlist is a few kilobytes; an entry count beyond this is hostile.
    static constexpr long kMaxEntries = 1L << 20;

    CPLSParser();
    virtual ~CPLSParser();
    CPLSParser(const CPLSParser&) = delete;
    CPLSParser& operator=(const CPLSParser&) = delete;

    // 0 on success, -1 when the file cannot be opened, else the number of the first malformed line.
    int Parse(const char* path);
    // Appends the FILEn values that are URLs, n = 1 .. numberofentries.
    void GetURLs(std::list<std::string>& urls) const;
    void Release();

    // -1 until a parse found a numeric numberofentries.
    int GetNumberOfEntries() const { return m_number_of_entries; }

private:
    int m_number_of_entries;
    int m_parse_result;
    std::unique_ptr<CIniReader> m_reader;
};

#endif
