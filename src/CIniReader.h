#ifndef KORVEL_CINIREADER_H
#define KORVEL_CINIREADER_H

#include <map>
#include <string>
#include <utility>
#include <vector>

// Reads an INI-layout file (a PLS playlist, a settings file) into values looked up by section and
// name, answering as the system INI library does but with no limit on the length of a line, so that
// an entry holding a long tokenised stream URL is read whole instead of being cut into bad lines.
// Immutable once constructed: the getters may be called from any thread.
class CIniReader {
public:
    explicit CIniReader(const std::string& path);

    // 0 on success, -1 when the file cannot be opened, else the 1-based number of the first
    // malformed line; the values on the lines around it are kept.
    int ParseError() const { return m_error; }

    // Section and name match whatever their letter case. A name given more than once yields its
    // values joined by newlines.
    std::string Get(const std::string& section, const std::string& name, const std::string& default_value) const;
    // Reads the leading number with C base detection ("0x1A", "010", "-3"); the default when the
    // value is missing or does not start with a number.
    long GetInteger(const std::string& section, const std::string& name, long default_value) const;
    // Every name of `section` (lower-cased) with its value, in name order.
    std::vector<std::pair<std::string, std::string>> GetSection(const std::string& section) const;

private:
    using Key = std::pair<std::string, std::string>;

    void Parse(const std::string& path);
    void ParseLine(std::string& line, int line_number, std::string& section, std::string& previous_name);
    void Add(const std::string& section, const std::string& name, const std::string& value);
    void Fail(int line_number);
    static Key MakeKey(const std::string& section, const std::string& name);

    int m_error;
    std::map<Key, std::string> m_values;  // keyed by lower-cased section and name
};

#endif
