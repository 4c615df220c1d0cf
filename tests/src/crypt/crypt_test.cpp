// Crypt: hex and base64 codecs, the protection round trip and its text form, the SPS/PPS split.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "crypt/crypt.h"

namespace {

using Bytes = std::vector<uint8_t>;

Bytes bytes_of(const std::string& s) {
    return Bytes(s.begin(), s.end());
}

zp::Crypt& crypt() {
    return *zp::Crypt::instance();
}

TEST(CryptCodecTest, HexRoundTripIsLowerCase) {
    Bytes all(256);
    for (int i = 0; i < 256; ++i) all[i] = static_cast<uint8_t>(i);
    const std::string hex = crypt().hex_encode(all.data(), all.size());
    ASSERT_EQ(hex.size(), 512u);
    EXPECT_EQ(hex.substr(0, 8), "00010203");
    EXPECT_EQ(hex.substr(504), "fcfdfeff");
    EXPECT_EQ(hex.find_first_of("ABCDEF"), std::string::npos);
    Bytes back;
    ASSERT_TRUE(crypt().hex_decode(hex.c_str(), &back));
    EXPECT_EQ(back, all);
    ASSERT_TRUE(crypt().hex_decode("DEADbeef", &back));
    EXPECT_EQ(back, (Bytes{0xde, 0xad, 0xbe, 0xef}));
    ASSERT_TRUE(crypt().hex_decode("", &back));
    EXPECT_TRUE(back.empty());
    // Odd lengths and junk fail without touching the output.
    for (const char* bad : {"abc", "0g", "0x12", static_cast<const char*>(nullptr)}) {
        EXPECT_FALSE(crypt().hex_decode(bad, &back));
        EXPECT_TRUE(back.empty());
    }
}

TEST(CryptCodecTest, Base64KnownVectors) {
    const char* plain[] = {"", "f", "fo", "foo", "foob", "fooba", "foobar"};
    const char* coded[] = {"", "Zg==", "Zm8=", "Zm9v", "Zm9vYg==", "Zm9vYmE=", "Zm9vYmFy"};
    for (int i = 0; i < 7; ++i) {
        const Bytes in = bytes_of(plain[i]);
        EXPECT_EQ(crypt().encode_bytes(in.data(), in.size()), coded[i]);
        Bytes out;
        ASSERT_TRUE(crypt().decode_text(coded[i], &out)) << coded[i];
        EXPECT_EQ(out, in);
    }
    const Bytes high{0xfb, 0xff, 0xbf};
    EXPECT_EQ(crypt().encode_bytes(high.data(), high.size()), "+/+/");
}

TEST(CryptCodecTest, Base64RejectsWhatIsNotBase64) {
    const char* junk[] = {"Zm9v!",    "Zm 9v",    "Zm9v\n", "Zg=",  "Z", "Z===",
                          "Zg==Zg==", "Zm9v====", "-_-_",   "Zg=a", "=", "é"};
    for (const char* text : junk) {
        Bytes out{7};
        EXPECT_FALSE(crypt().decode_text(text, &out)) << text;
        EXPECT_EQ(out, Bytes{7}) << "output left alone on failure: " << text;
    }
}

TEST(CryptCodecTest, Base64RandomRoundTrips) {
    std::mt19937 rng(12345);
    for (size_t len = 0; len < 200; ++len) {
        Bytes in(len);
        for (auto& b : in) b = static_cast<uint8_t>(rng());
        const std::string text = crypt().encode_bytes(in.data(), in.size());
        EXPECT_EQ(text.size() % 4, 0u);
        Bytes out;
        ASSERT_TRUE(crypt().decode_text(text.c_str(), &out));
        ASSERT_EQ(out, in) << len;
        std::string bare = text;
        bare.erase(std::remove(bare.begin(), bare.end(), '='), bare.end());
        ASSERT_TRUE(crypt().decode_text(bare.c_str(), &out));
        ASSERT_EQ(out, in) << len;
    }
}

class ProtectTest : public ::testing::TestWithParam<std::string> {};

TEST_P(ProtectTest, RoundTripsThroughUnitsTextAndHex) {
    const std::string clear = GetParam();
    const std::vector<uint16_t> units = crypt().protect(clear);
    EXPECT_EQ(units.size(), clear.size() + 1);
    EXPECT_EQ(crypt().decrypt(units.data(), units.size()), clear);

    const std::string text = crypt().protect_text(clear);
    EXPECT_EQ(text.rfind(zp::Crypt::text_marker(), 0), 0u);
    EXPECT_EQ(crypt().restore_text(text), clear);

    std::string hex;
    for (uint16_t u : units) {
        const uint8_t le[2] = {static_cast<uint8_t>(u & 0xff), static_cast<uint8_t>(u >> 8)};
        hex += crypt().hex_encode(le, 2);
    }
    EXPECT_EQ(crypt().hex_decrypt(hex.c_str()), clear);

    // The stored bytes must not show the text, nor any 4-byte run of it.
    const std::string stored(reinterpret_cast<const char*>(units.data()), units.size() * 2);
    for (size_t i = 0; i + 4 <= clear.size(); ++i)
        EXPECT_EQ(stored.find(clear.substr(i, 4)), std::string::npos) << i;
    EXPECT_EQ(crypt().protect(clear), units) << "the same text protects the same way";
}

INSTANTIATE_TEST_SUITE_P(Texts, ProtectTest,
                         ::testing::Values(std::string(),
                                           std::string("https://kinefix.example.org"),
                                           std::string("无法打开moov文件: %s"),
                                           std::string("aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa"),
                                           std::string("\0\x01\xff\n", 4), std::string(5000, 'z')));

TEST(ProtectTextTest, RestoreLeavesClearTextsAlone) {
    const char* clear[] = {"",
                           R"({"broken_file":"a.mp4","moov_file":"a.idx","output_file":"b.mp4"})",
                           "ZPX", "zpx1~abc"};
    for (const char* text : clear) EXPECT_EQ(crypt().restore_text(text), text);
}

TEST(ProtectTextTest, DamagedProtectedDataGivesEmptyText) {
    const std::string clear = "https://kinefix.example.org";
    std::vector<uint16_t> units = crypt().protect(clear);
    for (size_t i = 0; i < units.size(); ++i) {
        std::vector<uint16_t> bad = units;
        bad[i] ^= 0x0100;
        EXPECT_EQ(crypt().decrypt(bad.data(), bad.size()), "") << i;
    }
    EXPECT_EQ(crypt().decrypt(units.data(), units.size() - 1), "");
    EXPECT_EQ(crypt().decrypt(nullptr, 0), "");

    const std::string text = crypt().protect_text(clear);
    const std::string marker = zp::Crypt::text_marker();
    EXPECT_EQ(crypt().restore_text(marker + "not base64!"), "");
    EXPECT_EQ(crypt().restore_text(marker + "QUJD"), "") << "odd byte count";
    EXPECT_EQ(crypt().restore_text(marker), "");
    std::string flipped = text;
    flipped[marker.size() + 3] = flipped[marker.size() + 3] == 'A' ? 'B' : 'A';
    EXPECT_EQ(crypt().restore_text(flipped), "");
    EXPECT_EQ(crypt().hex_decrypt("abc"), "");
}

// Annex B helpers: start code + NAL.
const Bytes kSps{0x67, 0x64, 0x00, 0x1f, 0xac, 0xd9, 0x40};
const Bytes kSps2{0x67, 0x42, 0xc0, 0x1e, 0x01};
const Bytes kPps{0x68, 0xeb, 0xe3, 0xcb};
const Bytes kSei{0x06, 0x05, 0x02, 0x11, 0x22};

Bytes annex_b(std::initializer_list<std::pair<int, Bytes>> units) {
    Bytes out;
    for (const auto& u : units) {
        if (u.first == 4) out.push_back(0);
        out.insert(out.end(), {0, 0, 1});
        out.insert(out.end(), u.second.begin(), u.second.end());
    }
    return out;
}

TEST(SplitTest, AnnexBTakesTheFirstSpsAndPpsWithEitherStartCode) {
    Bytes sps, pps;
    Bytes data = annex_b({{4, kSei}, {4, kSps}, {3, kSps2}, {3, kPps}});
    ASSERT_TRUE(crypt().split_sps_pps(data.data(), data.size(), &sps, &pps));
    EXPECT_EQ(sps, kSps);
    EXPECT_EQ(pps, kPps);

    // PPS first, trailing zero bytes belong to no unit.
    data = annex_b({{3, kPps}, {4, kSps}});
    data.insert(data.end(), {0, 0});
    ASSERT_TRUE(crypt().split_sps_pps(data.data(), data.size(), &sps, &pps));
    EXPECT_EQ(sps, kSps);
    EXPECT_EQ(pps, kPps);
}

TEST(SplitTest, MissingUnitsFail) {
    Bytes sps{1}, pps{2};
    Bytes data = annex_b({{4, kSps}, {4, kSei}});
    EXPECT_FALSE(crypt().split_sps_pps(data.data(), data.size(), &sps, &pps));
    data = annex_b({{4, kPps}});
    EXPECT_FALSE(crypt().split_sps_pps(data.data(), data.size(), &sps, &pps));
    data = kSps;  // no start code at all
    EXPECT_FALSE(crypt().split_sps_pps(data.data(), data.size(), &sps, &pps));
    EXPECT_FALSE(crypt().split_sps_pps(nullptr, 0, &sps, &pps));
    data = {0, 0, 1};
    EXPECT_FALSE(crypt().split_sps_pps(data.data(), data.size(), &sps, &pps));
    EXPECT_EQ(sps, Bytes{1});
    EXPECT_EQ(pps, Bytes{2});
}

Bytes avcc(const std::vector<Bytes>& spss, const std::vector<Bytes>& ppss) {
    Bytes out{1,    spss.empty() ? uint8_t(0) : spss[0][1],  0, 0x1f,
              0xff, static_cast<uint8_t>(0xe0 | spss.size())};
    for (const Bytes& s : spss) {
        out.push_back(static_cast<uint8_t>(s.size() >> 8));
        out.push_back(static_cast<uint8_t>(s.size()));
        out.insert(out.end(), s.begin(), s.end());
    }
    out.push_back(static_cast<uint8_t>(ppss.size()));
    for (const Bytes& p : ppss) {
        out.push_back(static_cast<uint8_t>(p.size() >> 8));
        out.push_back(static_cast<uint8_t>(p.size()));
        out.insert(out.end(), p.begin(), p.end());
    }
    return out;
}

TEST(SplitTest, DecoderConfigurationRecordIsAccepted) {
    Bytes sps, pps;
    Bytes data = avcc({kSps, kSps2}, {kPps});
    ASSERT_TRUE(crypt().split_sps_pps(data.data(), data.size(), &sps, &pps));
    EXPECT_EQ(sps, kSps);
    EXPECT_EQ(pps, kPps);

    data = avcc({kSps}, {});
    EXPECT_FALSE(crypt().split_sps_pps(data.data(), data.size(), &sps, &pps));
    data = avcc({kSps}, {kPps});
    for (size_t cut = 1; cut < data.size(); ++cut)
        EXPECT_FALSE(crypt().split_sps_pps(data.data(), cut, &sps, &pps)) << "cut at " << cut;
}

}  // namespace
