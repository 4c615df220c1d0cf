// RepairEngine in-process on hand-made indexes: timestamps, positions and the packet buffer,
// checked by reading the written container back with libavformat.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "restore/ffmpeg_compat.h"
#include "restore/repair_engine.h"
#include "support/log_capture.h"
#include "support/test_support.h"

namespace {

using kinefix_test::TempDir;
using kinefix_test::write_file;

// SPS and PPS of a 320x240 H.264 stream in Annex B form, and a 48 kHz stereo AAC-LC config.
const char kVideoEv[] = "AAAAAWdNQA3soKD9gIgAAAMACAAAAwGQeKFMsAAAAAFozg/I";
const char kAudioEv[] = "EZA=";

std::string VideoDescription(int index) {
    return "{\"type\":\"video\",\"index\":" + std::to_string(index) +
           ",\"codec\":\"h264\",\"format\":\"yuv420p\",\"tb.num\":1,\"tb.den\":1000,\"w\":320,"
           "\"h\":240,\"ev\":\"" +
           kVideoEv + "\"}\n";
}

std::string AudioDescription(int index) {
    return "{\"type\":\"audio\",\"index\":" + std::to_string(index) +
           ",\"codec\":\"aac\",\"format\":\"fltp\",\"tb.num\":1,\"tb.den\":48000,\"channels\":2,"
           "\"sample_rate\":48000,\"frame_size\":1024,\"ev\":\"" +
           kAudioEv + "\"}\n";
}

std::string Pattern(size_t n) {
    std::string s(n, '\0');
    for (size_t i = 0; i < n; ++i) s[i] = static_cast<char>((i * 7 + i / 256) & 0xff);
    return s;
}

struct ReadBack {
    int stream;
    int64_t pts_ms;
    int64_t dts_ms;
    int64_t duration_ms;
    std::string data;
};

// Packets of a written file, times in milliseconds.
std::vector<ReadBack> ReadPackets(const std::string& path) {
    std::vector<ReadBack> out;
    // The packets hold no real pictures; the probing parser's complaints are expected.
    const int level = av_log_get_level();
    av_log_set_level(AV_LOG_FATAL);
    AVFormatContext* in = nullptr;
    if (avformat_open_input(&in, path.c_str(), nullptr, nullptr) < 0) {
        av_log_set_level(level);
        ADD_FAILURE() << "cannot open " << path;
        return out;
    }
    AVPacket* pkt = av_packet_alloc();
    const AVRational ms = {1, 1000};
    while (av_read_frame(in, pkt) >= 0) {
        const AVRational tb = in->streams[pkt->stream_index]->time_base;
        out.push_back({pkt->stream_index, av_rescale_q(pkt->pts, tb, ms),
                       av_rescale_q(pkt->dts, tb, ms), av_rescale_q(pkt->duration, tb, ms),
                       std::string(reinterpret_cast<const char*>(pkt->data),
                                   static_cast<size_t>(pkt->size))});
        av_packet_unref(pkt);
    }
    av_packet_free(&pkt);
    avformat_close_input(&in);
    av_log_set_level(level);
    return out;
}

std::vector<ReadBack> OfStream(const std::vector<ReadBack>& all, int stream) {
    std::vector<ReadBack> out;
    for (const ReadBack& p : all)
        if (p.stream == stream) out.push_back(p);
    return out;
}

std::string Repair(const TempDir& dir, const std::string& data, const std::string& index,
                   const std::string& output_name, bool copies = true) {
    write_file(dir / "data.bin", data);
    write_file(dir / "index.idx", index);
    const std::string output = dir / output_name;
    testing::internal::CaptureStdout();
    {
        RepairEngine engine;
        engine.Run((dir / "data.bin").c_str(), (dir / "index.idx").c_str(), output.c_str());
    }
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out.find("progress:1.0\n") != std::string::npos, copies) << out;
    EXPECT_EQ(out.find("error:"), std::string::npos) << out;
    return output;
}

TEST(RepairEngineTest, TimestampsAccumulatePerKindAndDtsStepZeroMeansPts) {
    TempDir dir;
    // Video at 25 fps with two B-frames between I and P; audio frames of 1024 samples whose
    // duration 0 means one frame. The kinds interleave but keep their own accumulators.
    const std::string index = "#version=2\n" + VideoDescription(0) + AudioDescription(1) +
                              "0,0,10,0,-80,40,1;1,,10,,,,1;\n"
                              "0,,10,120,40,40,;1,,10,1024,,,1;\n"
                              "0,,10,-80,40,40,;\n"
                              "0,,10,40,40,40,;1,,10,1024,,,1;\n";
    const auto all = ReadPackets(Repair(dir, Pattern(200), index, "out.mp4"));
    const auto video = OfStream(all, 0);
    const auto audio = OfStream(all, 1);
    ASSERT_EQ(video.size(), 4u);
    ASSERT_EQ(audio.size(), 3u);
    const int64_t video_pts[] = {0, 120, 40, 80};
    const int64_t video_dts[] = {-80, -40, 0, 40};
    for (size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(video[i].pts_ms, video_pts[i]) << i;
        EXPECT_EQ(video[i].dts_ms, video_dts[i]) << i;
    }
    for (size_t i = 0; i < 3; ++i) {
        // 1024 samples at 48 kHz, in milliseconds.
        EXPECT_EQ(audio[i].pts_ms, av_rescale(static_cast<int64_t>(i) * 1024, 1000, 48000)) << i;
        EXPECT_EQ(audio[i].dts_ms, audio[i].pts_ms) << i;
    }
    EXPECT_EQ(audio[0].duration_ms, 21);
}

TEST(RepairEngineTest, PositionsSeekOrReadOnAndTheBufferOnlyGrows) {
    TempDir dir;
    const std::string data = Pattern(1000);
    // Read on after a packet, jump back for a larger one, shrink, end exactly at the file's
    // end (which is not yet its end-of-file) and go on after it.
    const std::string index = "#version=1\n" + AudioDescription(0) +
                              "0,100,50,1024,0,0,1;\n"
                              "0,0,20,1024,0,0,1;\n"
                              "0,10,200,1024,0,0,1;\n"
                              "0,0,5,1024,0,0,1;\n"
                              "0,900,100,1024,0,0,1;\n"
                              "0,500,10,1024,0,0,1;\n";
    const auto all = ReadPackets(Repair(dir, data, index, "out.mkv"));
    const std::pair<size_t, size_t> expected[] = {{100, 50}, {150, 20},  {10, 200},
                                                  {210, 5},  {900, 100}, {500, 10}};
    ASSERT_EQ(all.size(), 6u);
    for (size_t i = 0; i < 6; ++i)
        EXPECT_EQ(all[i].data, data.substr(expected[i].first, expected[i].second)) << i;
}

TEST(RepairEngineTest, PositionWhereTheLastReadEndedReadsOnAndIsStillLogged) {
    kinefix_test::LogCapture::instance().clear();
    TempDir dir;
    const std::string data = Pattern(1000);
    // Positions spelled out although most follow on; one real jump back in between.
    const std::string index = "#version=2\n" + AudioDescription(0) +
                              "0,100,50,1024,,,1;\n"
                              "0,150,20,1024,,,1;0,170,30,1024,,,1;\n"
                              "0,10,5,1024,,,1;\n"
                              "0,15,300,1024,,,1;\n"
                              "0,,40,1024,,,1;\n";
    const auto all = ReadPackets(Repair(dir, data, index, "out.mkv"));
    const std::pair<size_t, size_t> expected[] = {{100, 50}, {150, 20}, {170, 30},
                                                  {10, 5},   {15, 300}, {315, 40}};
    ASSERT_EQ(all.size(), 6u);
    for (size_t i = 0; i < 6; ++i)
        EXPECT_EQ(all[i].data, data.substr(expected[i].first, expected[i].second)) << i;
    std::vector<std::string> seeks;
    for (const std::string& m : kinefix_test::LogCapture::instance().messages(5))
        if (m.rfind("packet数据 seek fpos=", 0) == 0) seeks.push_back(m);
    const std::vector<std::string> logged = {"packet数据 seek fpos=100", "packet数据 seek fpos=150",
                                             "packet数据 seek fpos=170", "packet数据 seek fpos=10",
                                             "packet数据 seek fpos=15"};
    EXPECT_EQ(seeks, logged);
}

TEST(RepairEngineTest, ShortReadTurnsTheRestOfTheIndexIntoIgnoredLines) {
    TempDir dir;
    // The second entry of line 2 reaches past the end: line 2's first entry is kept, its
    // second is not, and line 3 is never read although its bytes exist.
    const std::string index = "#version=2\n" + AudioDescription(0) +
                              "0,0,40,1024,,,1;\n"
                              "0,,40,1024,,,1;0,,500,1024,,,1;\n"
                              "0,10,10,1024,,,1;\n";
    const auto all = ReadPackets(Repair(dir, Pattern(100), index, "out.mkv"));
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(all[1].data, Pattern(100).substr(40, 40));
}

TEST(RepairEngineTest, NoFileIsWrittenWhenTheIndexIsUnusable) {
    TempDir dir;
    const std::string output =
        Repair(dir, Pattern(10), "#version=2\nno descriptions\n", "out.mp4", false);
    EXPECT_FALSE(kinefix_test::fs::exists(output));
}

}  // namespace
