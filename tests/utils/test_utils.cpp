#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

#include "CFileIOStandard.h"
#include "ScratchDir.h"
#include "utils.h"

namespace {

std::string md5_hex_of_file(const std::string& path, int* result) {
    unsigned char digest[utils::kMd5DigestBytes] = {};
    *result = utils::md5_file(path, digest);
    std::string hex;
    utils::convert_array_to_hex_string(digest, utils::kMd5DigestBytes, hex);
    return hex;
}

TEST(Hex, RendersEveryByteAsTwoLowerCaseDigits) {
    const unsigned char bytes[] = {0x00, 0xAB, 0x0F};
    std::string out = "stale";
    utils::convert_array_to_hex_string(bytes, 3, out);
    EXPECT_EQ(out, "00ab0f");
    utils::convert_array_to_hex_string(bytes, 0, out);
    EXPECT_EQ(out, "");
}

TEST(HexDeathTest, NullArrayIsAContractViolation) {
    std::string out;
    EXPECT_DEATH(utils::convert_array_to_hex_string(nullptr, 3, out), "src/utils.*array");
}

TEST(Md5, DigestsMatchKnownValuesAndSpanManyBlocksAndBadInputIsRefused) {
    ScratchDir dir;
    int result = -1;
    EXPECT_EQ(md5_hex_of_file(dir.file("empty", ""), &result), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(result, 0);
    EXPECT_EQ(md5_hex_of_file(dir.file("abc", "abc"), &result), "900150983cd24fb0d6963f7d28e17f72");
    // 3000 bytes cross the 1024-byte read blocks; compare with the buffer digest of the same bytes.
    const std::string big(3000, 'x');
    unsigned char digest[utils::kMd5DigestBytes];
    ASSERT_EQ(utils::md5_buffer(big.data(), static_cast<int>(big.size()), digest), 0);
    std::string expected;
    utils::convert_array_to_hex_string(digest, utils::kMd5DigestBytes, expected);
    EXPECT_EQ(md5_hex_of_file(dir.file("big", big), &result), expected);

    EXPECT_EQ(utils::md5_file("/nonexistent/korvel/file", digest), -ENOENT);
    EXPECT_EQ(utils::md5_buffer(nullptr, 3, digest), -EINVAL);
    EXPECT_EQ(utils::md5_buffer("abc", -1, digest), -EINVAL);
    ASSERT_EQ(utils::md5_buffer("abc", 0, digest), 0);
    std::string hex;
    utils::convert_array_to_hex_string(digest, utils::kMd5DigestBytes, hex);
    EXPECT_EQ(hex, "d41d8cd98f00b204e9800998ecf8427e");
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
// so, its rest left for the next read.
TEST(ReadLine, TrimsEachLineAndReportsTheOneThatDidNotFit) {
    ScratchDir dir;
    FILE* file = std::fopen(dir.file("lines", " ab\t\r\n\n12345\n123456\n12345").c_str(), "r");
    ASSERT_NE(file, nullptr);
    char buffer[6];
    std::string line;
    bool cut = false;
    std::vector<std::string> read;
    while (utils::read_line(file, buffer, sizeof buffer, line, cut)) read.push_back(line + (cut ? "|cut" : ""));
    std::fclose(file);
    EXPECT_EQ(read, (std::vector<std::string>{"ab", "", "12345", "12345|cut", "6", "12345"}));
    EXPECT_TRUE(utils::is_url("http://h/a.mp3"));
    EXPECT_FALSE(utils::is_url("/music/http/a.mp3"));
}

TEST(Text, CaseConversionAndNumbers) {
    EXPECT_EQ(utils::to_upper("Mp3 m3u"), "MP3 M3U");
    EXPECT_EQ(utils::to_lower("HTTP://X"), "http://x");
    EXPECT_EQ(utils::string_to_int(" 42"), 42);
    EXPECT_EQ(utils::string_to_int("junk"), 0);
    EXPECT_EQ(utils::to_string(4294967295UL), "4294967295");
}

TEST(CompareFiles, TellsSamePathSizesEmptinessAndContent) {
    ScratchDir dir;
    const std::string a = dir.file("a", "hello");
    const std::string b = dir.file("b", "hello");
    const std::string c = dir.file("c", "hellO");
    const std::string d = dir.file("d", "hello!");
    const std::string e1 = dir.file("e1", "");
    const std::string e2 = dir.file("e2", "");
    EXPECT_EQ(utils::compare_files(a, a), 1);
    EXPECT_EQ(utils::compare_files(a, b), 0);
    EXPECT_NE(utils::compare_files(a, c), 0);
    EXPECT_EQ(utils::compare_files(a, d), -1);
    EXPECT_EQ(utils::compare_files(e1, e2), 0);
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

TEST(TimeString, KnownFormatsHaveTheirShapeAndOthersAreEmpty) {
    std::string out;
    utils::get_time_string(0, out);
    EXPECT_EQ(out.size(), 8u);  // HH:MM:SS
    EXPECT_EQ(out[2], ':');
    utils::get_time_string(1, out);
    EXPECT_EQ(out.size(), 10u);  // DD.MM.YYYY
    EXPECT_EQ(out[2], '.');
    utils::get_time_string(7, out);
    EXPECT_EQ(out, "");
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
