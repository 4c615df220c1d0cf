// Replays every stored fuzz input through its fuzz target in the ordinary (and sanitizer)
// builds, so a crash once found stays fixed without clang or libFuzzer.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "support/test_support.h"

// The fuzz targets' entry points, renamed by the build (see tests/CMakeLists.txt).
extern "C" {
int object_text_fuzz_one(const uint8_t* data, size_t size);
int index_fuzz_one(const uint8_t* data, size_t size);
int index_fuzz_init(int* argc, char*** argv);
int packet_entry_fuzz_one(const uint8_t* data, size_t size);
int value_read_fuzz_one(const uint8_t* data, size_t size);
int cmdline_fuzz_one(const uint8_t* data, size_t size);
int config_fuzz_one(const uint8_t* data, size_t size);
int codec_fuzz_one(const uint8_t* data, size_t size);
int restore_text_fuzz_one(const uint8_t* data, size_t size);
}

namespace {

struct Target {
    const char* corpus;
    int (*one)(const uint8_t*, size_t);
};

class FuzzCorpusReplay : public ::testing::TestWithParam<Target> {};

// A property the target checks aborts the process.
TEST_P(FuzzCorpusReplay, EveryStoredInputPasses) {
    if (GetParam().one == index_fuzz_one) index_fuzz_init(nullptr, nullptr);
    std::vector<std::filesystem::path> files;
    for (const auto& e : std::filesystem::directory_iterator(std::string(KINEFIX_FUZZ_CORPUS) +
                                                             "/" + GetParam().corpus))
        if (e.is_regular_file() && e.path().filename().string()[0] != '.')
            files.push_back(e.path());
    std::sort(files.begin(), files.end());
    EXPECT_FALSE(files.empty());
    for (const auto& f : files) {
        const std::string bytes = kinefix_test::read_file(f.string());
        EXPECT_EQ(GetParam().one(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()), 0)
            << f;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Targets, FuzzCorpusReplay,
    ::testing::Values(Target{"object_text", object_text_fuzz_one}, Target{"index", index_fuzz_one},
                      Target{"packet_entry", packet_entry_fuzz_one},
                      Target{"value_read", value_read_fuzz_one},
                      Target{"cmdline", cmdline_fuzz_one}, Target{"config", config_fuzz_one},
                      Target{"codec", codec_fuzz_one},
                      Target{"restore_text", restore_text_fuzz_one}),
    [](const ::testing::TestParamInfo<Target>& info) { return std::string(info.param.corpus); });

}  // namespace
