// Replays every stored fuzz input through its fuzz target in the ordinary (and sanitizer)
// builds, so a crash once found stays fixed without clang or libFuzzer.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
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

namespace fs = std::filesystem;

using Target = int (*)(const uint8_t*, size_t);

// Runs every file of the target's corpus; a property the target checks aborts the process.
size_t Replay(const std::string& name, Target target) {
    const fs::path dir = fs::path(KINEFIX_FUZZ_CORPUS) / name;
    std::vector<fs::path> files;
    for (const auto& e : fs::directory_iterator(dir))
        if (e.is_regular_file() && e.path().filename().string()[0] != '.')
            files.push_back(e.path());
    std::sort(files.begin(), files.end());
    for (const auto& f : files) {
        SCOPED_TRACE(f.string());
        const std::string bytes = kinefix_test::read_file(f.string());
        EXPECT_EQ(target(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()), 0);
    }
    return files.size();
}

TEST(FuzzCorpusReplay, ObjectText) {
    EXPECT_GT(Replay("object_text", object_text_fuzz_one), 0u);
}

TEST(FuzzCorpusReplay, IndexThroughRepair) {
    index_fuzz_init(nullptr, nullptr);
    EXPECT_GT(Replay("index", index_fuzz_one), 0u);
}

TEST(FuzzCorpusReplay, PacketEntry) {
    EXPECT_GT(Replay("packet_entry", packet_entry_fuzz_one), 0u);
}
TEST(FuzzCorpusReplay, ValueRead) {
    EXPECT_GT(Replay("value_read", value_read_fuzz_one), 0u);
}
TEST(FuzzCorpusReplay, Cmdline) {
    EXPECT_GT(Replay("cmdline", cmdline_fuzz_one), 0u);
}
TEST(FuzzCorpusReplay, Config) {
    EXPECT_GT(Replay("config", config_fuzz_one), 0u);
}
TEST(FuzzCorpusReplay, Codec) {
    EXPECT_GT(Replay("codec", codec_fuzz_one), 0u);
}
TEST(FuzzCorpusReplay, RestoreText) {
    EXPECT_GT(Replay("restore_text", restore_text_fuzz_one), 0u);
}

}  // namespace
