// Crypt: hex and base64 codecs, the protection round trip and its text form, the SPS/PPS split.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "crypt/crypt.h"

namespace {

using Bytes = std::vector<uint8_t>;

zp::Crypt& crypt() {
    return *zp::Crypt::instance();
}

const Bytes kSps{0x67, 0x64, 0x00, 0x1f, 0xac, 0xd9, 0x40};
const Bytes kSps2{0x67, 0x42, 0xc0, 0x1e, 0x01};
const Bytes kPps{0x68, 0xeb, 0xe3, 0xcb};
const Bytes kSei{0x06, 0x05, 0x02, 0x11, 0x22};

Bytes cat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

TEST(CryptTest, CodecVectorsJunkProtectionRoundTripsAndTheSpsPpsSplit) {
    const Bytes some{0x00, 0xab, 0xff};
    EXPECT_EQ(crypt().hex_encode(some.data(), some.size()), "00abff");
    Bytes back;
    ASSERT_TRUE(crypt().hex_decode("00ABff", &back));
    EXPECT_EQ(back, some);
    for (const char* bad : {"abc", "0g"}) EXPECT_FALSE(crypt().hex_decode(bad, &back)) << bad;

    const char* plain[] = {"", "f", "fo", "foo", "foob", "\xfb\xff\xbf"};
    const char* coded[] = {"", "Zg==", "Zm8=", "Zm9v", "Zm9vYg==", "+/+/"};
    for (int i = 0; i < 6; ++i) {
        const Bytes in(plain[i], plain[i] + strlen(plain[i]));
        EXPECT_EQ(crypt().encode_bytes(in.data(), in.size()), coded[i]);
        Bytes out;
        ASSERT_TRUE(crypt().decode_text(coded[i], &out)) << coded[i];
        EXPECT_EQ(out, in);
    }
    Bytes out;
    ASSERT_TRUE(crypt().decode_text("Zm9vYg", &out));  // padding may be left out
    EXPECT_EQ(out, (Bytes{'f', 'o', 'o', 'b'}));
    for (const char* text : {"Zm9v!", "Zm9v\n", "Z", "Zg==Zg==", "-_-_", "Zg=a"}) {
        out = {7};
        EXPECT_FALSE(crypt().decode_text(text, &out)) << text;
        EXPECT_EQ(out, Bytes{7}) << "output left alone on failure: " << text;
    }
    // Protection round trips through units, text and hex; damage is refused.
    for (const std::string& clear : {std::string(), std::string("无法打开moov文件: %s"),
                                     std::string(40, 'a') + std::string("\0\xff", 2)}) {
        SCOPED_TRACE(clear);
        const std::vector<uint16_t> units = crypt().protect(clear);
        EXPECT_EQ(crypt().decrypt(units.data(), units.size()), clear);
        const std::string text = crypt().protect_text(clear);
        EXPECT_EQ(text.rfind(zp::Crypt::text_marker(), 0), 0u);
        EXPECT_EQ(crypt().restore_text(text), clear);
        // Hex of the units' little-endian bytes, as the hex macros keep them.
        const std::string hex = crypt().hex_encode(reinterpret_cast<const uint8_t*>(units.data()),
                                                   units.size() * sizeof(uint16_t));
        EXPECT_EQ(crypt().hex_decrypt(hex.c_str()), clear);
        // The stored bytes must not show the text, nor any 4-byte run of it.
        const std::string stored(reinterpret_cast<const char*>(units.data()), units.size() * 2);
        for (size_t i = 0; i + 4 <= clear.size(); ++i)
            EXPECT_EQ(stored.find(clear.substr(i, 4)), std::string::npos) << i;
        for (size_t i = 0; i < units.size(); ++i) {  // any damaged unit gives the empty text
            std::vector<uint16_t> bad = units;
            bad[i] ^= 0x0100;
            EXPECT_EQ(crypt().decrypt(bad.data(), bad.size()), "") << i;
        }
    }
    EXPECT_EQ(crypt().restore_text(R"({"broken_file":"a.mp4"})"), R"({"broken_file":"a.mp4"})");

    // Start codes of 3 and 4 bytes; trailing zero bytes belong to no unit.
    const Bytes annex_b =
        cat({{0, 0, 1}, kPps, {0, 0, 0, 1}, kSei, {0, 0, 0, 1}, kSps, {0, 0, 1}, kSps2, {0, 0}});
    // Version 1, profile, compat, level, length size, two SPS, one PPS.
    const Bytes record =
        cat({{1, 0x64, 0, 0x1f, 0xff, 0xe2, 0, 7}, kSps, {0, 5}, kSps2, {1, 0, 4}, kPps});
    for (const Bytes& data : {annex_b, record}) {
        Bytes sps, pps;
        ASSERT_TRUE(crypt().split_sps_pps(data.data(), data.size(), &sps, &pps));
        EXPECT_EQ(sps, kSps);
        EXPECT_EQ(pps, kPps);
    }
    Bytes sps, pps;
    for (size_t cut = 1; cut < record.size(); ++cut)
        EXPECT_FALSE(crypt().split_sps_pps(record.data(), cut, &sps, &pps)) << "cut at " << cut;
    for (const Bytes& data : {cat({{0, 0, 0, 1}, kSps, {0, 0, 0, 1}, kSei}), kSps})
        EXPECT_FALSE(crypt().split_sps_pps(data.data(), data.size(), &sps, &pps));
}

}  // namespace
