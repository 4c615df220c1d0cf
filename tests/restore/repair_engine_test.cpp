// RepairEngine in-process on hand-made indexes: timestamps and where each packet's bytes come
// from, checked by reading the written container back with libavformat.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "restore/ffmpeg_compat.h"
#include "restore/repair_engine.h"
#include "support/test_support.h"

namespace {

using kinefix_test::TempDir;

// SPS and PPS of a 320x240 H.264 stream in Annex B form, and a 48 kHz stereo AAC-LC config.
const std::string kVideo =
    "{\"type\":\"video\",\"index\":0,\"codec\":\"h264\",\"format\":\"yuv420p\",\"tb.num\":1,"
    "\"tb.den\":1000,\"w\":320,\"h\":240,\"ev\":\"AAAAAWdNQA3soKD9gIgAAAMACAAAAwGQeKFMsAAAAAFozg/"
    "I\"}\n";
std::string Audio(int index) {
    return "{\"type\":\"audio\",\"index\":" + std::to_string(index) +
           ",\"codec\":\"aac\",\"format\":\"fltp\",\"tb.num\":1,\"tb.den\":48000,\"channels\":2,"
           "\"sample_rate\":48000,\"frame_size\":1024,\"ev\":\"EZA=\"}\n";
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
    std::string data;
};

// Repairs `data` by `index` into a file of that name and reads its packets back.
std::vector<ReadBack> Repair(const std::string& data, const std::string& index,
                             const std::string& output_name) {
    TempDir dir;
    kinefix_test::write_file(dir / "data.bin", data);
    kinefix_test::write_file(dir / "index.idx", index);
    const std::string output = dir / output_name;
    testing::internal::CaptureStdout();
    RepairEngine().Run((dir / "data.bin").c_str(), (dir / "index.idx").c_str(), output.c_str());
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find("progress:1.0\n"), std::string::npos) << out;
    EXPECT_EQ(out.find("error:"), std::string::npos) << out;

    std::vector<ReadBack> packets;
    av_log_set_level(AV_LOG_FATAL);  // the packets hold no real pictures
    AVFormatContext* in = nullptr;
    if (avformat_open_input(&in, output.c_str(), nullptr, nullptr) < 0) {
        ADD_FAILURE() << "cannot open " << output;
        return packets;
    }
    AVPacket* pkt = av_packet_alloc();
    while (av_read_frame(in, pkt) >= 0) {
        const AVRational tb = in->streams[pkt->stream_index]->time_base;
        packets.push_back({pkt->stream_index, av_rescale_q(pkt->pts, tb, {1, 1000}),
                           av_rescale_q(pkt->dts, tb, {1, 1000}),
                           std::string(reinterpret_cast<const char*>(pkt->data),
                                       static_cast<size_t>(pkt->size))});
        av_packet_unref(pkt);
    }
    av_packet_free(&pkt);
    avformat_close_input(&in);
    return packets;
}

TEST(RepairEngineTest, TimestampsAccumulatePerKindAndDtsStepZeroMeansPts) {
    // Video at 25 fps with two B-frames between I and P; audio frames of 1024 samples whose
    // duration 0 means one frame. The kinds interleave but keep their own accumulators.
    const auto all = Repair(Pattern(200),
                            "#version=2\n" + kVideo + Audio(1) +
                                "0,0,10,0,-80,40,1;1,,10,,,,1;\n"
                                "0,,10,120,40,40,;1,,10,1024,,,1;\n"
                                "0,,10,-80,40,40,;\n"
                                "0,,10,40,40,40,;1,,10,1024,,,1;\n",
                            "out.mp4");
    std::vector<std::vector<int64_t>> times[2];
    for (const ReadBack& p : all) times[p.stream].push_back({p.pts_ms, p.dts_ms});
    EXPECT_EQ(times[0],
              (std::vector<std::vector<int64_t>>{{0, -80}, {120, -40}, {40, 0}, {80, 40}}));
    // 1024 samples at 48 kHz are 21.33 ms.
    EXPECT_EQ(times[1], (std::vector<std::vector<int64_t>>{{0, 0}, {21, 21}, {43, 43}}));
}

TEST(RepairEngineTest, PositionsSeekOrReadOnAndTheBufferOnlyGrows) {
    const std::string data = Pattern(1000);
    // Read on after a packet; a position named although it is where the last read ended;
    // jump back for a larger packet; shrink; end exactly at the file's end (which is not yet
    // its end-of-file) and go on from elsewhere.
    const auto all = Repair(data,
                            "#version=1\n" + Audio(0) +
                                "0,100,50,1024,0,0,1;\n"
                                "0,0,20,1024,0,0,1;0,170,30,1024,0,0,1;\n"
                                "0,10,5,1024,0,0,1;\n"
                                "0,15,300,1024,0,0,1;\n"
                                "0,0,40,1024,0,0,1;\n"
                                "0,900,100,1024,0,0,1;\n"
                                "0,500,10,1024,0,0,1;\n",
                            "out.mkv");
    const std::pair<size_t, size_t> expected[] = {{100, 50}, {150, 20}, {170, 30},  {10, 5},
                                                  {15, 300}, {315, 40}, {900, 100}, {500, 10}};
    ASSERT_EQ(all.size(), 8u);
    for (size_t i = 0; i < 8; ++i)
        EXPECT_EQ(all[i].data, data.substr(expected[i].first, expected[i].second)) << i;
}

}  // namespace
