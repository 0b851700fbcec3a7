#include "CIniReader.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <fstream>

namespace {
constexpr int kParsedWithoutError = 0;
constexpr int kCannotOpen = -1;
constexpr int kFirstLine = 1;
constexpr char kUtf8Bom[] = "\xEF\xBB\xBF";
constexpr std::size_t kUtf8BomBytes = sizeof kUtf8Bom - 1;
constexpr const char* kLineCommentStarts = ";#";
constexpr char kInlineCommentStart = ';';
constexpr const char* kNameValueSeparators = "=:";
constexpr const char* kSectionEnd = "]";
constexpr char kSectionStart = '[';
constexpr char kJoinedValueSeparator = '\n';
constexpr int kDetectBase = 0;

bool IsBlank(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

// Position of the first character from `from` that is one of `stops` (none when null) or a ';' that
// follows a blank, else line.size(). A ';' glued to text stays part of it, so URLs and values such as
// "a;b" survive.
std::size_t FindStopOrComment(const std::string& line, std::size_t from, const char* stops) {
    bool after_blank = false;
    for (std::size_t i = from; i < line.size(); ++i) {
        const char c = line[i];
        if (stops != nullptr && std::strchr(stops, c) != nullptr) return i;
        if (after_blank && c == kInlineCommentStart) return i;
        after_blank = IsBlank(c);
    }
    return line.size();
}

std::string Trimmed(const std::string& line, std::size_t begin, std::size_t end) {
    while (begin < end && IsBlank(line[begin])) ++begin;
    while (end > begin && IsBlank(line[end - 1])) --end;
    return line.substr(begin, end - begin);
}

std::string Lowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); });
    return text;
}
}  // namespace

CIniReader::CIniReader(const std::string& path) : m_error(kParsedWithoutError) { Parse(path); }

void CIniReader::Parse(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in.is_open()) {
        m_error = kCannotOpen;
        return;
    }
    std::string line;
    std::string section;
    std::string previous_name;
    for (int line_number = kFirstLine; std::getline(in, line); ++line_number) {
        ParseLine(line, line_number, section, previous_name);
    }
}

void CIniReader::ParseLine(std::string& line, int line_number, std::string& section, std::string& previous_name) {
    // The system library reads lines as C strings, so a stray NUL ends the line there.
    if (const std::size_t nul = line.find('\0'); nul != std::string::npos) line.resize(nul);
    std::size_t begin = 0;
    if (line_number == kFirstLine && line.compare(0, kUtf8BomBytes, kUtf8Bom) == 0) begin = kUtf8BomBytes;
    std::size_t end = line.size();
    while (end > begin && IsBlank(line[end - 1])) --end;
    line.resize(end);
    const bool indented = begin < end && IsBlank(line[begin]);
    while (begin < end && IsBlank(line[begin])) ++begin;

    if (begin == end || std::strchr(kLineCommentStarts, line[begin]) != nullptr) return;

    // An indented line continues the previous value, whatever it holds; the system library keeps
    // inline comments on such lines, and so do we to give the same answers.
    if (indented && !previous_name.empty()) {
        Add(section, previous_name, line.substr(begin));
        return;
    }

    if (line[begin] == kSectionStart) {
        const std::size_t close = FindStopOrComment(line, begin + 1, kSectionEnd);
        if (close == end || line[close] != kSectionEnd[0]) {
            Fail(line_number);
            return;
        }
        section = line.substr(begin + 1, close - begin - 1);
        previous_name.clear();
        return;
    }

    const std::size_t separator = FindStopOrComment(line, begin, kNameValueSeparators);
    if (separator == end || std::strchr(kNameValueSeparators, line[separator]) == nullptr) {
        Fail(line_number);
        return;
    }
    const std::string name = Trimmed(line, begin, separator);
    const std::string value = Trimmed(line, separator + 1, FindStopOrComment(line, separator + 1, nullptr));
    previous_name = name;
    Add(section, name, value);
}

void CIniReader::Add(const std::string& section, const std::string& name, const std::string& value) {
    std::string& stored = m_values[MakeKey(section, name)];
    // An empty first value leaves no leading newline, as in the system library.
    if (!stored.empty()) stored += kJoinedValueSeparator;
    stored += value;
}

void CIniReader::Fail(int line_number) {
    if (m_error == kParsedWithoutError) m_error = line_number;
}

CIniReader::Key CIniReader::MakeKey(const std::string& section, const std::string& name) {
    return {Lowered(section), Lowered(name)};
}

std::string CIniReader::Get(const std::string& section, const std::string& name,
                            const std::string& default_value) const {
    const auto found = m_values.find(MakeKey(section, name));
    return found != m_values.end() ? found->second : default_value;
}

std::vector<std::pair<std::string, std::string>> CIniReader::GetSection(const std::string& section) const {
    std::vector<std::pair<std::string, std::string>> values;
    const std::string wanted = Lowered(section);
    for (auto at = m_values.lower_bound(Key{wanted, std::string()}); at != m_values.end() && at->first.first == wanted;
         ++at)
        values.emplace_back(at->first.second, at->second);
    return values;
}

long CIniReader::GetInteger(const std::string& section, const std::string& name, long default_value) const {
    const std::string text = Get(section, name, "");
    const char* begin = text.c_str();
    char* end = nullptr;
    const long number = std::strtol(begin, &end, kDetectBase);
    return end > begin ? number : default_value;
}
