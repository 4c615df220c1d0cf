// MoovParser on a multi-gigabyte index: lines stream through one buffer, positions pass 2 GiB.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include "restore/moov_parser.h"
#include "support/test_support.h"

namespace {

using kinefix_test::TempDir;

// Resident set size in kB, from the kernel's status page.
long rss_kb() {
    std::ifstream in("/proc/self/status");
    std::string key;
    long value = 0;
    while (in >> key) {
        if (key == "VmRSS:") {
            in >> value;
            return value;
        }
        in.ignore(1 << 10, '\n');
    }
    return -1;
}

TEST(MoovParserLargeTest, StreamsTheIndexWithoutHoldingIt) {
    const char* env = std::getenv("KINEFIX_LARGE_INDEX_MB");
    const long dense_mb = env ? std::atol(env) : 256;
    TempDir dir;
    const std::string path = dir / "big.idx";

    // Dense packet lines, then a sparse hole of zeros (read as 8191-byte pieces) that carries
    // the last line beyond 2 GiB.
    const std::string line = "0,0,35210,3003,0,3003,1;1,0,682,1024,0,1024,1;\n";
    std::string chunk;
    while (chunk.size() < (1u << 20)) chunk += line;
    const long chunk_lines = static_cast<long>(chunk.size() / line.size());
    long dense_lines = 0;
    {
        std::ofstream out(path, std::ios::binary);
        out << "#version=2\n{\"type\":\"audio\",\"index\":1,\"ev\":\"EZA=\"}\n";
        for (long i = 0; i < dense_mb; ++i) {
            out.write(chunk.data(), static_cast<std::streamsize>(chunk.size()));
            dense_lines += chunk_lines;
        }
        ASSERT_TRUE(out.good());
    }
    const auto hole_end = static_cast<uintmax_t>(5) << 29;  // 2.5 GiB
    kinefix_test::fs::resize_file(path, hole_end);
    {
        std::ofstream out(path, std::ios::binary | std::ios::app);
        out << "\nlast;\n";
    }
    const double total = static_cast<double>(hole_end + 7);

    const long rss_before = rss_kb();
    MoovParser parser;
    ASSERT_TRUE(parser.Parse(path.c_str()));
    long lines = 0;
    double last_progress = 0.0;
    bool saw_last = false;
    while (const char* l = parser.NextLine()) {
        ++lines;
        ASSERT_GE(parser.Progress(), last_progress);
        last_progress = parser.Progress();
        if (strcmp(l, "last;\n") == 0) {  // no allocation per line: RSS is measured
            saw_last = true;
            EXPECT_DOUBLE_EQ(parser.Progress(), static_cast<double>(hole_end + 1) / total);
        }
    }
    EXPECT_TRUE(saw_last);
    EXPECT_GT(lines, dense_lines);
    EXPECT_DOUBLE_EQ(parser.Progress(), 1.0);
    EXPECT_LT(rss_kb() - rss_before, 16 * 1024) << "kB grown while reading";
}

}  // namespace
