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

TEST(BitReaderTest, ReadsExpGolombAcrossEmulationPreventionAndRefusesOverlongCodes) {
    // 1 010 011 00100 00101 (ue 0 to 4), 010 011 (se 1, -1), a zero bit, then 00 00 03 01
    // whose 03 is not payload.
    const uint8_t bytes[] = {0xa6, 0x42, 0xa6, 0x00, 0x00, 0x03, 0x01, 0xff};
    BitReader r(bytes, sizeof(bytes));
    for (uint32_t expected : {0u, 1u, 2u, 3u, 4u}) EXPECT_EQ(r.Ue(), expected);
    EXPECT_EQ(r.Se(), 1);
    EXPECT_EQ(r.Se(), -1);
    EXPECT_EQ(r.Bits(1), 0u);
    EXPECT_EQ(r.Bits(24), 0x000001u);
    EXPECT_EQ(r.Bits(8), 0xffu);
    EXPECT_TRUE(r.ok());
    r.Bits(1);
    EXPECT_FALSE(r.ok()) << "a read past the end";

    const uint8_t zeros[8] = {0, 0, 0, 0, 0, 1, 0, 0};
    BitReader overlong(zeros, sizeof(zeros));
    overlong.Ue();
    EXPECT_FALSE(overlong.ok()) << "a code longer than 32 bits";
}

struct Picture {
    int64_t poc;     // the true count
    bool reference;  // B-frames of this pattern are not references
    bool idr = false;
};

// I P B B P B B ... in decoding order from an IDR, counts two apart per frame as x264 writes
// them, long enough for a 4-bit counter to wrap several times.
std::vector<Picture> DecodeOrder(int groups) {
    std::vector<Picture> out = {{0, true, true}};
    for (int g = 0; g < groups; ++g)
        for (int64_t poc : {6, 2, 4}) out.push_back({g * 6 + poc, poc == 6});
    return out;
}

// Each picture's first slice as the slice reader fills it, with 4-bit counters; the counter
// must give the true count back, and a reset exactly at each IDR.
void ExpectCounts(const char* what, PocParams params, const std::vector<Picture>& order) {
    params.log2_max_poc_lsb = params.log2_max_frame_num = 4;
    PocCounter counter;
    for (size_t i = 0; i < order.size(); ++i) {
        const Picture& p = order[i];
        PictureInfo info;
        info.nal_type = p.idr ? 19 : (p.reference ? 1 : 0);  // H.265 types; H.264 reads idr
        info.idr = info.irap = p.idr;
        info.reference = p.reference;
        info.poc_lsb = static_cast<uint32_t>(p.poc % 16);
        info.frame_num = static_cast<uint32_t>(p.poc / 2 % 16);
        bool reset = false;
        EXPECT_EQ(counter.Next(params, info, &reset), p.poc) << what << ", picture " << i;
        EXPECT_EQ(reset, p.idr) << what << ", picture " << i;
    }
}

TEST(PocCounterTest, CountsFollowTheirWrappingCounters) {
    PocParams type0, type2, hevc;
    type2.poc_type = 2;
    hevc.hevc = true;
    ExpectCounts("H.264 type 0", type0, DecodeOrder(20));
    std::vector<Picture> frames;  // type 2: every frame a reference, counted by frame_num
    for (int n = 0; n < 40; ++n) frames.push_back({2 * n, true, n == 0});
    ExpectCounts("H.264 type 2", type2, frames);
    std::vector<Picture> restarted = DecodeOrder(12);
    for (const Picture& p : DecodeOrder(3)) restarted.push_back(p);
    ExpectCounts("H.265", hevc, restarted);
}

}  // namespace
