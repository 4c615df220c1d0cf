// MoovParser on index files written here: the stream descriptions, the AVC record made from
// the video's `ev`, packet lines with the 8192-byte limit and the byte-offset progress.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "crypt/crypt.h"
#include "restore/moov_parser.h"
#include "support/test_support.h"

using namespace restore;

namespace {

using Bytes = std::vector<uint8_t>;

std::string base64(const Bytes& b) {
    return zp::Crypt::instance()->encode_bytes(b.data(), b.size());
}

// SPS and PPS in Annex B form, and the decoder configuration record made of them.
const std::string kAnnexB = base64({0,    0, 0, 1, 0x67, 0x64, 0x00, 0x1f, 0xac, 0xd9, 0x40,
                                    0x50, 0, 0, 1, 0x68, 0xeb, 0xe3, 0xcb, 0x22, 0xc0});
const std::string kRecord =
    base64({1,    0x64, 0x00, 0x1f, 0xff, 0xe1, 0,    8,    0x67, 0x64, 0x00, 0x1f, 0xac,
            0xd9, 0x40, 0x50, 1,    0,    6,    0x68, 0xeb, 0xe3, 0xcb, 0x22, 0xc0});

std::string video_line(const std::string& ev, int w = 1920) {
    return "{\"type\":\"video\",\"index\":0,\"codec\":\"h264\",\"format\":\"yuv420p\",\"tb.num\":1,"
           "\"tb.den\":90000,\"w\":" +
           std::to_string(w) + ",\"h\":1080,\"ev\":\"" + ev + "\"}\n";
}

const std::string kAudioLine =
    "{\"type\":\"audio\",\"index\":1,\"codec\":\"aac\",\"format\":\"fltp\",\"tb.num\":1,"
    "\"tb.den\":48000,\"channels\":2,\"sample_rate\":48000,\"frame_size\":1024,\"ev\":\"EZA=\"}\n";

class MoovParserTest : public ::testing::Test {
  protected:
    const char* index(const std::string& text) {
        path_ = dir_ / "a.idx";
        kinefix_test::write_file(path_, text);
        return path_.c_str();
    }
    kinefix_test::TempDir dir_;
    std::string path_;
    MoovParser parser_;
};

TEST_F(MoovParserTest, DescriptionsThenPacketLinesWithTheirProgress) {
    const std::string header = "#version=2 written by a test\n" + video_line(kAnnexB) + kAudioLine;
    const std::vector<std::string> packets = {"0,48,35210,0,0,3003,1;1,35258,682,0,0,1024,1;\n",
                                              "0,0,100,3003,0,3003,0;\n", "1,0,5,1024,0,0,0;"};
    const std::string text = header + packets[0] + packets[1] + packets[2];
    ASSERT_TRUE(parser_.Parse(index(text)));
    EXPECT_EQ(std::make_pair(parser_.version(), parser_.header_lines()), std::make_pair(2, 3));
    const VideoDesc& v = parser_.video();
    EXPECT_EQ(std::vector<std::string>({v.codec, v.format, v.extradata}),
              std::vector<std::string>({"h264", "yuv420p", kRecord}));
    EXPECT_EQ(std::vector<int>({v.index, v.tb_num, v.tb_den, v.width, v.height}),
              std::vector<int>({0, 1, 90000, 1920, 1080}));
    const AudioDesc& a = parser_.audio();
    EXPECT_EQ(std::vector<std::string>({a.codec, a.format, a.extradata}),
              std::vector<std::string>({"aac", "fltp", "EZA="}));
    EXPECT_EQ(std::vector<int>({a.index, a.tb_den, a.channels, a.sample_rate, a.frame_size}),
              std::vector<int>({1, 48000, 2, 48000, 1024}));

    size_t offset = header.size();
    for (size_t i = 0; i < packets.size(); ++i) {
        ASSERT_STREQ(parser_.NextLine(), packets[i].c_str());
        EXPECT_EQ(parser_.line_number(), static_cast<int>(4 + i));
        EXPECT_DOUBLE_EQ(parser_.Progress(), double(offset) / double(text.size()));
        offset += packets[i].size();
    }
    EXPECT_EQ(parser_.NextLine(), nullptr);
    EXPECT_DOUBLE_EQ(parser_.Progress(), 1.0);
}

TEST_F(MoovParserTest, VideoExtradataForms) {
    ASSERT_TRUE(parser_.Parse(index(video_line(kRecord))));
    EXPECT_EQ(parser_.video().extradata, kRecord);
    // A video description without `ev` is no video; with an unusable one the file is refused.
    // A number past 32 bits saturates.
    ASSERT_TRUE(
        parser_.Parse(index(kAudioLine + "{\"type\":\"video\",\"index\":0,\"w\":99999999999}\n")));
    EXPECT_TRUE(parser_.has_video());
    EXPECT_EQ(parser_.video().extradata, nullptr);
    EXPECT_EQ(parser_.video().width, INT32_MAX);
    // Not base64; an SPS without a PPS; an SPS too short for its profile bytes.
    for (const std::string& ev : {std::string("not base64!"), base64({0, 0, 1, 0x67, 1, 2, 3}),
                                  base64({0, 0, 1, 0x67, 1, 2, 0, 0, 1, 0x68, 0xeb})})
        EXPECT_FALSE(parser_.Parse(index(video_line(ev) + kAudioLine))) << ev;
}

TEST_F(MoovParserTest, VersionOnlyFromTheFirstLineAndLaterDescriptionsWin) {
    ASSERT_TRUE(parser_.Parse(index("# comment\n#version=2\n" + video_line(kAnnexB, 640) +
                                    video_line(kAnnexB, 1280) + "{\"type\":\"audio\"}\n")));
    EXPECT_EQ(std::make_pair(parser_.version(), parser_.header_lines()), std::make_pair(0, 5));
    EXPECT_EQ(parser_.video().width, 1280);
    EXPECT_EQ(parser_.audio().extradata, nullptr);
    EXPECT_EQ(parser_.NextLine(), nullptr);
    EXPECT_DOUBLE_EQ(parser_.Progress(), 1.0);
}

TEST_F(MoovParserTest, OverLongPacketLineContinuesAsTheNextLine) {
    const std::string long_line(10000, '7');
    ASSERT_TRUE(parser_.Parse(index(kAudioLine + long_line + "\nnext;\n")));
    EXPECT_STREQ(parser_.NextLine(), long_line.substr(0, MoovParser::kLineMax - 1).c_str());
    EXPECT_STREQ(parser_.NextLine(), (long_line.substr(MoovParser::kLineMax - 1) + "\n").c_str());
    EXPECT_STREQ(parser_.NextLine(), "next;\n");
    EXPECT_EQ(parser_.line_number(), 4);
}

}  // namespace
