#ifndef VENDRA_CSTATUSFILE_H
#define VENDRA_CSTATUSFILE_H

#include <string>

// The one-line JSON status other processes on the device poll to see what the player does. Readers
// must never see a half-written line, so each version is written to a temporary file in the same
// directory and renamed over the old one (rename is atomic within one file system).
// Used from the player's worker thread only: notifications arrive there one at a time.
class CStatusFile {
public:
    explicit CStatusFile(std::string path);

    // Replaces the file. `error` selects the numeric error ending with `last_error` over "no error".
    // False when nothing could be written; the previous version then stays in place.
    bool Write(int player_state, const std::string& song, const std::string& playlist, bool error, int last_error) const;

    // `text` as the inside of a JSON string: quote, backslash and control characters escaped, valid
    // UTF-8 copied as it is, and any other byte taken as Latin-1, since file names on a memory card
    // written by an older PC arrive in that encoding and JSON has to be UTF-8.
    static std::string Escaped(const std::string& text);

private:
    bool WriteWhole(const std::string& line) const;

    std::string m_path;
    std::string m_temporary_path;
};

#endif
