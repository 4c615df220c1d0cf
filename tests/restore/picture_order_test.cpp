// The bit reader and the picture order count rules, where a fault would hide behind recordings
// too short to wrap their counters.
#include <gtest/gtest.h>

#include <vector>

#include "restore/bit_reader.h"
#include "restore/poc_counter.h"

namespace {

using restore::BitReader;
using restore::PictureInfo;
using restore::PocCounter;
using restore::PocParams;

TEST(BitReaderTest, ReadsExpGolombAcrossEmulationPrevention) {
    // 1 010 011 00100 00101 (ue 0 to 4), 010 011 (se 1, -1), a zero bit, then 00 00 03 01
    // whose 03 is not payload.
    const uint8_t bytes[] = {0xa6, 0x42, 0xa6, 0x00, 0x00, 0x03, 0x01, 0xff};
    BitReader r(bytes, sizeof(bytes));
    const uint32_t ue[] = {0, 1, 2, 3, 4};
    for (uint32_t expected : ue) EXPECT_EQ(r.Ue(), expected);
    EXPECT_EQ(r.Se(), 1);
    EXPECT_EQ(r.Se(), -1);
    EXPECT_EQ(r.Bits(1), 0u);
    EXPECT_EQ(r.Bits(24), 0x000001u);
    EXPECT_EQ(r.Bits(8), 0xffu);
    EXPECT_TRUE(r.ok());
    r.Bits(1);
    EXPECT_FALSE(r.ok()) << "a read past the end";
}

TEST(BitReaderTest, RefusesAnOverlongCode) {
    const uint8_t zeros[8] = {0, 0, 0, 0, 0, 1, 0, 0};
    BitReader r(zeros, sizeof(zeros));
    r.Ue();
    EXPECT_FALSE(r.ok());
}

struct Picture {
    int64_t poc;     // the true count
    bool reference;  // B-frames of this pattern are not references
};

// I P B B P B B ... in decoding order, counts two apart per frame as x264 writes them, long
// enough for a 4-bit counter to wrap several times.
std::vector<Picture> DecodeOrder(int groups) {
    std::vector<Picture> out = {{0, true}};
    for (int g = 0; g < groups; ++g) {
        const int64_t base = g * 6;
        out.push_back({base + 6, true});
        out.push_back({base + 2, false});
        out.push_back({base + 4, false});
    }
    return out;
}

TEST(PocCounterTest, H264Type0FollowsTheLsbAcrossWraps) {
    PocParams params;
    params.poc_type = 0;
    params.log2_max_poc_lsb = 4;
    PocCounter counter;
    bool first = true;
    for (const Picture& p : DecodeOrder(20)) {
        PictureInfo info;
        info.idr = first;
        info.reference = p.reference;
        info.poc_lsb = static_cast<uint32_t>(p.poc % 16);
        bool reset = false;
        EXPECT_EQ(counter.Next(params, info, &reset), p.poc);
        EXPECT_EQ(reset, first);
        first = false;
    }
}

TEST(PocCounterTest, H264Type2CountsFramesAcrossFrameNumWraps) {
    PocParams params;
    params.poc_type = 2;
    params.log2_max_frame_num = 4;
    PocCounter counter;
    for (int n = 0; n < 40; ++n) {
        PictureInfo info;
        info.idr = n == 0;
        info.frame_num = static_cast<uint32_t>(n % 16);
        bool reset = false;
        EXPECT_EQ(counter.Next(params, info, &reset), 2 * n);
    }
}

TEST(PocCounterTest, HevcFollowsTheLsbAndRestartsAtIdr) {
    PocParams params;
    params.hevc = true;
    params.log2_max_poc_lsb = 4;
    PocCounter counter;
    std::vector<Picture> order = DecodeOrder(12);
    const size_t restart = order.size();
    for (const Picture& p : DecodeOrder(3)) order.push_back(p);
    for (size_t i = 0; i < order.size(); ++i) {
        PictureInfo info;
        const bool idr = i == 0 || i == restart;
        info.nal_type = idr ? 19 : (order[i].reference ? 1 : 0);
        info.idr = info.irap = idr;
        info.reference = order[i].reference;
        info.poc_lsb = static_cast<uint32_t>(order[i].poc % 16);
        bool reset = false;
        EXPECT_EQ(counter.Next(params, info, &reset), order[i].poc) << i;
        EXPECT_EQ(reset, idr);
    }
}

}  // namespace
