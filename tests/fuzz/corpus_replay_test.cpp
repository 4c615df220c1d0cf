// Replays every stored fuzz input through its fuzz target in the ordinary (and sanitizer)
// builds, so a crash once found stays fixed without clang or libFuzzer.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "fuzz_targets.h"
#include "support/test_support.h"

// The fuzz targets' entry points, renamed by the build; fuzz_targets.h lists them as in
// fuzz/targets.txt (see tests/CMakeLists.txt).
#define KINEFIX_DECLARE(name) int name##_fuzz_one(const uint8_t* data, size_t size);
extern "C" {
KINEFIX_FUZZ_TARGETS(KINEFIX_DECLARE)
int index_fuzz_init(int* argc, char*** argv);
}

namespace {

struct Target {
    const char* corpus;
    int (*one)(const uint8_t*, size_t);
};
#define KINEFIX_ROW(name) Target{#name, name##_fuzz_one},

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
    ::testing::ValuesIn(std::vector<Target>{KINEFIX_FUZZ_TARGETS(KINEFIX_ROW)}),
    [](const ::testing::TestParamInfo<Target>& info) { return std::string(info.param.corpus); });

}  // namespace
