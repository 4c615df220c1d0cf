// MoovParser on a multi-gigabyte (mostly sparse) index: lines stream through one buffer and
// positions pass 2 GiB.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <string>

#include "restore/moov_parser.h"
#include "support/test_support.h"

using namespace restore;

namespace {

long rss_kb() {
    std::ifstream in("/proc/self/status");
    std::string key;
    long value = -1;
    while (in >> key && key != "VmRSS:") in.ignore(1 << 10, '\n');
    in >> value;
    return value;
}

TEST(MoovParserLargeTest, StreamsTheIndexWithoutHoldingIt) {
    const char* env = std::getenv("KINEFIX_LARGE_INDEX_MB");
    const long dense_mb = env ? std::atol(env) : 256;
    kinefix_test::TempDir dir;
    const std::string path = dir / "big.idx";
    // Dense packet lines, then a sparse hole of zeros that carries the last line past 2 GiB.
    std::string chunk;
    while (chunk.size() < (1u << 20)) chunk += "0,0,35210,3003,0,3003,1;1,0,682,1024,0,1024,1;\n";
    {
        std::ofstream out(path, std::ios::binary);
        out << "#version=2\n{\"type\":\"audio\",\"index\":1,\"ev\":\"EZA=\"}\n";
        for (long i = 0; i < dense_mb; ++i) out << chunk;
    }
    const auto hole_end = static_cast<uintmax_t>(5) << 29;  // 2.5 GiB
    kinefix_test::fs::resize_file(path, hole_end);
    std::ofstream(path, std::ios::binary | std::ios::app) << "\nlast;\n";

    const long rss_before = rss_kb();
    MoovParser parser;
    ASSERT_TRUE(parser.Parse(path.c_str()));
    long lines = 0;
    double last_progress = 0.0;
    for (; parser.NextLine(); ++lines) {
        ASSERT_GE(parser.Progress(), last_progress);
        last_progress = parser.Progress();
    }
    // The last line starts past the hole.
    EXPECT_DOUBLE_EQ(last_progress, double(hole_end + 1) / double(hole_end + 7));
    EXPECT_GT(lines, dense_mb * long(chunk.size() / 47));
    EXPECT_LT(rss_kb() - rss_before, 16 * 1024) << "kB grown while reading";
}

}  // namespace
