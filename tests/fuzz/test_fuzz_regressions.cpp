// Every input the fuzzers keep, the seed corpus and each crash once found, goes through the same
// harness code in the ordinary build, so that a fixed crash stays fixed without a fuzzing compiler.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "FuzzTarget.h"

#define KORVEL_DECLARE_HARNESS(name) \
    namespace korvel_fuzz::name {    \
    int FuzzOne(const uint8_t* data, size_t size); \
    }
KORVEL_DECLARE_HARNESS(fuzz_ini)
KORVEL_DECLARE_HARNESS(fuzz_playlist_map)
KORVEL_DECLARE_HARNESS(fuzz_icy_title)
KORVEL_DECLARE_HARNESS(fuzz_url_resolver)
KORVEL_DECLARE_HARNESS(fuzz_config)
KORVEL_DECLARE_HARNESS(fuzz_source_chain)

namespace {
namespace fs = std::filesystem;
using Harness = int (*)(const uint8_t*, size_t);

// Feeds every file kept for `harness`; the number fed. A broken invariant aborts the test program,
// naming the file.
size_t FeedAll(const std::string& harness, Harness fuzz_one) {
    std::vector<fs::path> files;
    for (const char* kind : {"corpus", "regressions"}) {
        const fs::path dir = fs::path(KORVEL_FUZZ_DIR) / kind / harness;
        if (!fs::is_directory(dir)) continue;
        for (const fs::directory_entry& entry : fs::directory_iterator(dir))
            if (entry.is_regular_file()) files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    for (const fs::path& file : files) {
        std::ifstream in(file, std::ios::binary);
        const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        korvel_fuzz::CurrentInputName() = file.string();
        EXPECT_EQ(fuzz_one(bytes.data(), bytes.size()), 0) << file;
    }
    korvel_fuzz::CurrentInputName() = "<none>";
    return files.size();
}

#define KORVEL_REGRESSION_TEST(name) \
    TEST(FuzzRegressions, name) { EXPECT_GT(FeedAll(#name, &korvel_fuzz::name::FuzzOne), 0u) << "no kept inputs"; }
KORVEL_REGRESSION_TEST(fuzz_ini)
KORVEL_REGRESSION_TEST(fuzz_playlist_map)
KORVEL_REGRESSION_TEST(fuzz_icy_title)
KORVEL_REGRESSION_TEST(fuzz_url_resolver)
KORVEL_REGRESSION_TEST(fuzz_config)
KORVEL_REGRESSION_TEST(fuzz_source_chain)
}  // namespace
