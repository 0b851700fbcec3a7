#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <string>
#include <tuple>
#include <unistd.h>
#include <utility>
#include <vector>

#include "CFileIOStandard.h"
#include "ScratchDir.h"
#include "utils.h"

namespace {

// Into a string that is not empty: the digits replace what it held.
std::string Hex(const unsigned char* digest) {
    std::string hex = "stale";
    utils::convert_array_to_hex_string(digest, utils::kMd5DigestBytes, hex);
    return hex;
}

// 3000 bytes cross the 1024-byte blocks in which a file is read.
TEST(Md5, FileAndBufferDigestsInHexMatchKnownValuesAndBadInputIsRefused) {
    ScratchDir dir;
    unsigned char digest[utils::kMd5DigestBytes];
    const std::pair<std::string, const char*> known[] = {{"", "d41d8cd98f00b204e9800998ecf8427e"},
                                                         {"abc", "900150983cd24fb0d6963f7d28e17f72"},
                                                         {std::string(3000, 'x'), "33d7ac42e3aa0f3146843833c23e4365"}};
    for (const auto& [bytes, md5] : known) {
        ASSERT_EQ(utils::md5_file(dir.file("data", bytes), digest), 0);
        EXPECT_EQ(Hex(digest), md5) << bytes.size() << " bytes from a file";
        ASSERT_EQ(utils::md5_buffer(bytes.data(), static_cast<int>(bytes.size()), digest), 0);
        EXPECT_EQ(Hex(digest), md5) << bytes.size() << " bytes from a buffer";
    }
    std::string none = "stale";
    utils::convert_array_to_hex_string(digest, 0, none);
    EXPECT_EQ(none, "");
    EXPECT_EQ(utils::md5_file("/nonexistent/korvel/file", digest), -ENOENT);
    EXPECT_EQ(utils::md5_buffer(nullptr, 3, digest), -EINVAL);
    EXPECT_EQ(utils::md5_buffer("abc", -1, digest), -EINVAL);
}

TEST(Trim, StringAndBufferFollowTheSameRule) {
    // A leading return, an inner blank and a newline stay.
    const std::pair<std::string, std::string> cases[] = {{" \t \t", ""}, {"", ""}, {"  song.mp3\t \r", "song.mp3"},
                                                         {"\rsong.mp3\r", "\rsong.mp3"}, {"a b", "a b"}, {"x\r\n", "x\r\n"}};
    for (const auto& [input, expected] : cases) {
        std::string text = input;
        utils::trim(text);
        EXPECT_EQ(text, expected) << "'" << input << "'";
        std::string buffer = input;
        int length = static_cast<int>(buffer.size());
        const char* kept = utils::trim_buffer(buffer.data(), length);
        EXPECT_EQ(std::string(kept, static_cast<size_t>(length)), expected) << "'" << input << "'";
    }
}

// A line that just fits the buffer, with or without its "\n", is whole; a longer one is cut and said
// so, its rest left for the next read. A NUL does not cut a line short: the line reads as empty.
TEST(ReadLine, TrimsEachLineAndReportsTheOneThatDidNotFit) {
    ScratchDir dir;
    const char text[] = "x\0y\n ab\t\r\n\n12345\n123456\n12345";
    FILE* file = std::fopen(dir.file("lines", std::string(text, sizeof text - 1)).c_str(), "r");
    ASSERT_NE(file, nullptr);
    char buffer[6];
    std::string line;
    bool cut = false;
    std::vector<std::string> read;
    while (utils::read_line(file, buffer, sizeof buffer, line, cut)) read.push_back(line + (cut ? "|cut" : ""));
    std::fclose(file);
    EXPECT_EQ(read, (std::vector<std::string>{"", "ab", "", "12345", "12345|cut", "6", "12345"}));
    EXPECT_TRUE(utils::is_url("http://h/a.mp3"));
    EXPECT_FALSE(utils::is_url("/music/http/a.mp3"));
}

// Times come as HH:MM:SS (format 0) or DD.MM.YYYY (format 1); other formats give nothing.
TEST(Text, CaseConversionNumbersAndTimeStrings) {
    EXPECT_EQ(utils::to_upper("Mp3 m3u"), "MP3 M3U");
    EXPECT_EQ(utils::to_lower("HTTP://X"), "http://x");
    EXPECT_EQ(utils::string_to_int(" 42"), 42);
    EXPECT_EQ(utils::string_to_int("junk"), 0);
    EXPECT_EQ(utils::to_string(4294967295UL), "4294967295");
    for (const auto& [format, size, separator] : {std::tuple{0, 8u, ':'}, {1, 10u, '.'}, {7, 0u, ' '}}) {
        std::string out = "stale";
        utils::get_time_string(format, out);
        EXPECT_EQ(out.size(), size) << format;
        if (size > 0) {
            EXPECT_EQ(out[2], separator) << format;
        }
    }
}

TEST(CompareFiles, TellsSamePathSizesEmptinessAndContent) {
    ScratchDir dir;
    const std::string a = dir.file("a", "hello");
    EXPECT_EQ(utils::compare_files(a, a), 1);
    EXPECT_EQ(utils::compare_files(a, dir.file("b", "hello")), 0);
    EXPECT_NE(utils::compare_files(a, dir.file("c", "hellO")), 0);
    EXPECT_EQ(utils::compare_files(a, dir.file("d", "hello!")), -1);
    EXPECT_EQ(utils::compare_files(dir.file("e1", ""), dir.file("e2", "")), 0);
    EXPECT_EQ(utils::compare_files(a, dir.path() + "/missing"), -ENOENT);
}

TEST(Network, LoopbackHasAnAddressAndUnknownInterfacesFail) {
    std::string ip;
    EXPECT_TRUE(utils::get_ip_address_string("lo", ip));
    EXPECT_EQ(ip, "127.0.0.1");
    std::string mac;
    EXPECT_TRUE(utils::get_mac_address_string("lo", mac, ':'));
    EXPECT_EQ(mac, "00:00:00:00:00:00");
    EXPECT_FALSE(utils::get_mac_address_string("nosuchif0", mac, 0));
    uint32_t address = 0;
    EXPECT_FALSE(utils::get_ip_address("nosuchif0", address));
}

TEST(FileIO, OpenReadSeekAndCloseAndAMissingFileGivesMinusErrnoAndNoDescriptor) {
    ScratchDir dir;
    const std::string path = dir.file("data", "0123456789");
    CFileIOStandard file;
    ASSERT_EQ(file.Open(path, 0), 0);
    EXPECT_EQ(file.GetSize(), 10);
    char buffer[4] = {};
    EXPECT_EQ(file.Read(buffer, 3), 3);
    EXPECT_EQ(std::string(buffer, 3), "012");
    EXPECT_EQ(file.Seek(-2, SEEK_END), 8);
    EXPECT_EQ(file.Read(buffer, 4), 2);
    EXPECT_EQ(std::string(buffer, 2), "89");
    EXPECT_EQ(file.Close(), 0);
    EXPECT_EQ(file.GetFd(), -1);
    EXPECT_EQ(file.Close(), 0);
    EXPECT_EQ(file.Open("/nonexistent/korvel/track.mp3", 0), -ENOENT);
    EXPECT_EQ(file.GetFd(), -1);
}

}  // namespace
