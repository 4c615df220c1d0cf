// MoovParser on index files written here: header reading, its messages, the AVC record,
// packet lines with the 8192-byte limit and the byte-offset progress.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "crypt/crypt.h"
#include "restore/moov_parser.h"
#include "support/log_capture.h"
#include "support/test_support.h"

namespace {

using kinefix_test::LogCapture;
using kinefix_test::TempDir;
using kinefix_test::write_file;
using Bytes = std::vector<uint8_t>;

const Bytes kSps{0x67, 0x64, 0x00, 0x1f, 0xac, 0xd9, 0x40, 0x50};
const Bytes kPps{0x68, 0xeb, 0xe3, 0xcb, 0x22, 0xc0};

std::string base64(const Bytes& b) {
    return zp::Crypt::instance()->encode_bytes(b.data(), b.size());
}

std::string annex_b_ev() {
    Bytes b{0, 0, 0, 1};
    b.insert(b.end(), kSps.begin(), kSps.end());
    b.insert(b.end(), {0, 0, 1});
    b.insert(b.end(), kPps.begin(), kPps.end());
    return base64(b);
}

Bytes expected_record() {
    Bytes r{1, 0x64, 0x00, 0x1f, 0xff, 0xe1, 0, static_cast<uint8_t>(kSps.size())};
    r.insert(r.end(), kSps.begin(), kSps.end());
    r.insert(r.end(), {1, 0, static_cast<uint8_t>(kPps.size())});
    r.insert(r.end(), kPps.begin(), kPps.end());
    return r;
}

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
    void SetUp() override { LogCapture::instance().clear(); }
    std::vector<std::string> errors() const { return LogCapture::instance().messages(2); }
    std::vector<std::string> debugs() const { return LogCapture::instance().messages(5); }
    std::string index(const std::string& text) {
        const std::string path = dir_ / "a.idx";
        write_file(path, text);
        return path;
    }
    TempDir dir_;
};

TEST_F(MoovParserTest, BothStreamsAndThePacketLines) {
    const std::string header =
        "#version=2 written by a test\n" + video_line(annex_b_ev()) + kAudioLine;
    const std::vector<std::string> packets = {"0,48,35210,0,0,3003,1;1,35258,682,0,0,1024,1;\n",
                                              "0,0,100,3003,0,3003,0;\n", "1,0,5,1024,0,0,0;"};
    const std::string text = header + packets[0] + packets[1] + packets[2];
    const std::string path = index(text);

    MoovParser parser;
    ASSERT_TRUE(parser.Parse(path.c_str()));
    EXPECT_TRUE(errors().empty());
    EXPECT_EQ(parser.version(), 2);
    EXPECT_EQ(parser.header_lines(), 3);
    EXPECT_TRUE(parser.has_video());
    EXPECT_TRUE(parser.has_audio());

    const VideoDesc& v = parser.video();
    EXPECT_EQ(v.index, 0);
    EXPECT_STREQ(v.codec, "h264");
    EXPECT_STREQ(v.format, "yuv420p");
    EXPECT_EQ(v.tb_num, 1);
    EXPECT_EQ(v.tb_den, 90000);
    EXPECT_EQ(v.width, 1920);
    EXPECT_EQ(v.height, 1080);
    ASSERT_NE(v.extradata, nullptr);
    EXPECT_EQ(v.extradata, base64(expected_record())) << "ev rewritten as a decoder record";

    const AudioDesc& a = parser.audio();
    EXPECT_EQ(a.index, 1);
    EXPECT_STREQ(a.codec, "aac");
    EXPECT_STREQ(a.format, "fltp");
    EXPECT_EQ(a.tb_den, 48000);
    EXPECT_EQ(a.channels, 2);
    EXPECT_EQ(a.sample_rate, 48000);
    EXPECT_EQ(a.frame_size, 1024);
    EXPECT_STREQ(a.extradata, "EZA=");

    const std::vector<std::string> d = debugs();
    ASSERT_EQ(d.size(), 1u);
    EXPECT_EQ(d[0],
              "===> ext_result: 01,64,00,1f,ff,e1,00,08,67,64,00,1f,ac,d9,40,50,01,00,06,"
              "68,eb,e3,cb,22,c0,\n");

    EXPECT_DOUBLE_EQ(parser.Progress(), 0.0);
    size_t offset = header.size();
    for (size_t i = 0; i < packets.size(); ++i) {
        const char* line = parser.NextLine();
        ASSERT_NE(line, nullptr);
        EXPECT_EQ(line, packets[i]);
        EXPECT_EQ(parser.line_number(), static_cast<int>(4 + i));
        EXPECT_DOUBLE_EQ(parser.Progress(), double(offset) / double(text.size()));
        offset += packets[i].size();
    }
    EXPECT_LT(parser.Progress(), 1.0) << "below 1.0 while the last line is handled";
    EXPECT_EQ(parser.NextLine(), nullptr);
    EXPECT_DOUBLE_EQ(parser.Progress(), 1.0);
    EXPECT_EQ(parser.NextLine(), nullptr);
}

TEST_F(MoovParserTest, AudioOnlyIsAcceptedWithItsMessage) {
    const std::string path = index("#version=1\n" + kAudioLine + "1,0,5,1024,0,0,0;\n");
    MoovParser parser;
    ASSERT_TRUE(parser.Parse(path.c_str()));
    EXPECT_EQ(errors(), std::vector<std::string>{"没有检测到视频流"});
    EXPECT_FALSE(parser.has_video());
    EXPECT_EQ(parser.video().extradata, nullptr);
    EXPECT_EQ(parser.version(), 1);
    EXPECT_STREQ(parser.NextLine(), "1,0,5,1024,0,0,0;\n");
}

TEST_F(MoovParserTest, VideoWithoutExtradataCountsAsNoVideo) {
    const std::string path = index(kAudioLine + "{\"type\":\"video\",\"index\":0,\"w\":64}\n");
    MoovParser parser;
    ASSERT_TRUE(parser.Parse(path.c_str()));
    EXPECT_TRUE(parser.has_video());
    EXPECT_EQ(parser.video().width, 64);
    EXPECT_EQ(parser.video().extradata, nullptr);
    EXPECT_EQ(errors(), std::vector<std::string>{"没有检测到视频流"});
    EXPECT_EQ(parser.version(), 0);
}

TEST_F(MoovParserTest, MissingFile) {
    const std::string path = dir_ / "none.idx";
    MoovParser parser;
    EXPECT_FALSE(parser.Parse(path.c_str()));
    EXPECT_EQ(errors(), std::vector<std::string>{"无法打开moov文件: " + path});
    EXPECT_EQ(parser.NextLine(), nullptr);
    EXPECT_DOUBLE_EQ(parser.Progress(), 0.0);
}

TEST_F(MoovParserTest, NoValidStream) {
    const std::string path =
        index("#version=2\n{\"type\":\"subtitle\",\"index\":2}\n{\"index\":3}\n0,0,1,0,0,0,0;\n");
    MoovParser parser;
    EXPECT_FALSE(parser.Parse(path.c_str()));
    EXPECT_EQ(errors(), std::vector<std::string>{"未找到有效的音视频流: " + path});
    EXPECT_EQ(parser.header_lines(), 3);
    EXPECT_EQ(parser.NextLine(), nullptr) << "a failed parse hands out nothing";

    LogCapture::instance().clear();
    EXPECT_FALSE(parser.Parse(index("").c_str()));
    EXPECT_EQ(errors().size(), 1u);
}

TEST_F(MoovParserTest, UndecodableExtradata) {
    for (const std::string& ev : {std::string("not base64!"), base64({0, 0, 1, 0x67, 1, 2, 3}),
                                  base64({0, 0, 1, 0x67, 0x64, 0x00, 0x00, 1, 0x68, 1})}) {
        LogCapture::instance().clear();
        MoovParser parser;
        EXPECT_FALSE(parser.Parse(index(video_line(ev) + kAudioLine).c_str())) << ev;
        EXPECT_EQ(errors(), std::vector<std::string>{"未找到extradata"}) << ev;
        EXPECT_EQ(parser.NextLine(), nullptr);
    }
}

TEST_F(MoovParserTest, RecordFormEvIsRebuilt) {
    MoovParser parser;
    ASSERT_TRUE(parser.Parse(index(video_line(base64(expected_record()))).c_str()));
    EXPECT_EQ(parser.video().extradata, base64(expected_record()));
}

TEST_F(MoovParserTest, VersionOnlyFromTheFirstLineAndLaterDescriptionsWin) {
    const std::string path = index("# comment\n#version=2\n" + video_line(annex_b_ev(), 640) +
                                   video_line(annex_b_ev(), 1280) + "{\"type\":\"audio\"}\n");
    MoovParser parser;
    ASSERT_TRUE(parser.Parse(path.c_str()));
    EXPECT_EQ(parser.version(), 0);
    EXPECT_EQ(parser.header_lines(), 5);
    EXPECT_EQ(parser.video().width, 1280);
    EXPECT_EQ(parser.audio().channels, 0) << "the later audio line replaced nothing but itself";
    EXPECT_EQ(parser.audio().extradata, nullptr);
    // Only header lines: nothing to hand out, progress complete.
    EXPECT_EQ(parser.NextLine(), nullptr);
    EXPECT_DOUBLE_EQ(parser.Progress(), 1.0);
}

TEST_F(MoovParserTest, OverLongPacketLineContinuesAsTheNextLine) {
    const std::string long_line(10000, '7');
    const std::string path = index(kAudioLine + long_line + "\nnext;\n");
    MoovParser parser;
    ASSERT_TRUE(parser.Parse(path.c_str()));
    const char* first = parser.NextLine();
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(std::string(first), long_line.substr(0, MoovParser::kLineMax - 1));
    const char* rest = parser.NextLine();
    ASSERT_NE(rest, nullptr);
    EXPECT_EQ(std::string(rest), long_line.substr(MoovParser::kLineMax - 1) + "\n");
    EXPECT_STREQ(parser.NextLine(), "next;\n");
    EXPECT_EQ(parser.line_number(), 4);
    EXPECT_EQ(parser.NextLine(), nullptr);
}

TEST_F(MoovParserTest, ParseAgainStartsOver) {
    MoovParser parser;
    ASSERT_TRUE(parser.Parse(index("#version=2\n" + video_line(annex_b_ev()) + "a\nb\n").c_str()));
    EXPECT_STREQ(parser.NextLine(), "a\n");
    const std::string other = dir_ / "b.idx";
    write_file(other, "#version=1\n" + kAudioLine + "c\n");
    ASSERT_TRUE(parser.Parse(other.c_str()));
    EXPECT_FALSE(parser.has_video());
    EXPECT_EQ(parser.video().extradata, nullptr);
    EXPECT_EQ(parser.version(), 1);
    EXPECT_STREQ(parser.NextLine(), "c\n");
    EXPECT_EQ(parser.line_number(), 3);
    parser.Reset();
    EXPECT_EQ(parser.NextLine(), nullptr);
    EXPECT_EQ(parser.audio().extradata, nullptr);
}

}  // namespace
