// RepairEngine in-process on a hand-made index: where each packet's bytes come from, how its
// timestamps are rounded, the fall-back formats and the debug lines, checked by reading the
// written container back with libavformat.
#include <gtest/gtest.h>

#include <cstring>
#include <regex>
#include <string>
#include <vector>

#include "core/testing_hooks.h"
#include "log/logger.h"
#include "restore/ffmpeg_compat.h"
#include "restore/repair_engine.h"
#include "support/framework_support.h"

using namespace restore;

namespace {

// The data and presentation time of every packet of a written file.
std::vector<std::pair<std::string, int64_t>> ReadPackets(const std::string& path) {
    std::vector<std::pair<std::string, int64_t>> packets;
    AVFormatContext* in = nullptr;
    if (avformat_open_input(&in, path.c_str(), nullptr, nullptr) < 0) return packets;
    AVPacket* pkt = av_packet_alloc();
    while (av_read_frame(in, pkt) >= 0) {
        packets.emplace_back(std::string(pkt->data, pkt->data + pkt->size), pkt->pts);
        av_packet_unref(pkt);
    }
    av_packet_free(&pkt);
    avformat_close_input(&in);
    return packets;
}

// The stream line of an AAC audio index of `version`; packet lines follow.
std::string AudioIndex(int version) {
    return "#version=" + std::to_string(version) +
           "\n{\"type\":\"audio\",\"index\":0,\"codec\":\"aac\",\"format\":\"fltp\","
           "\"tb.num\":1,\"tb.den\":48000,\"channels\":2,\"sample_rate\":48000,"
           "\"frame_size\":1024,\"ev\":\"EZA=\"}\n";
}

// Repairs `dir`'s data.bin with `index` into out.mkv; returns the standard output.
std::string Repair(const kinefix_test::TempDir& dir, const std::string& index) {
    kinefix_test::write_file(dir / "index.idx", index);
    testing::internal::CaptureStdout();
    RepairEngine().Run((dir / "data.bin").c_str(), (dir / "index.idx").c_str(),
                       (dir / "out.mkv").c_str());
    return testing::internal::GetCapturedStdout();
}

TEST(RepairEngineTest, PositionsSeekOrReadOnAndTheBufferOnlyGrows) {
    kinefix_test::TempDir dir;
    std::string data(1000, '\0');
    for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>(i * 7 + i / 256);
    kinefix_test::write_file(dir / "data.bin", data);
    // Read on after a packet; a position named although it is where the last read ended;
    // jump back for a larger packet; shrink; end exactly at the file's end (which is not yet
    // its end-of-file) and go on from elsewhere.
    const std::string out = Repair(dir, AudioIndex(1) +
                                            "0,100,50,1024,0,0,1;\n"
                                            "0,0,20,1024,0,0,1;0,170,30,1024,0,0,1;\n"
                                            "0,10,5,1024,0,0,1;\n"
                                            "0,15,300,1024,0,0,1;\n"
                                            "0,0,40,1024,0,0,1;\n"
                                            "0,900,100,1024,0,0,1;\n"
                                            "0,500,10,1024,0,0,1;\n");
    EXPECT_NE(out.find("progress:1.0\n"), std::string::npos) << out;
    EXPECT_EQ(out.find("error:"), std::string::npos) << out;

    const auto packets = ReadPackets(dir / "out.mkv");
    const std::pair<size_t, size_t> expected[] = {{100, 50}, {150, 20}, {170, 30},  {10, 5},
                                                  {15, 300}, {315, 40}, {900, 100}, {500, 10}};
    ASSERT_EQ(packets.size(), 8u);
    for (size_t i = 0; i < 8; ++i)
        EXPECT_EQ(packets[i].first, data.substr(expected[i].first, expected[i].second)) << i;
}

// Steps of 12/48000 s written at Matroska's 1/1000 s: 0.25, 0.5 and 0.75 ms round to the
// nearest, halves away from zero. Seeks are logged at debug level.
TEST(RepairEngineTest, TimestampsRoundToTheNearestAndSeeksAreDebugLines) {
    std::vector<int64_t> times;
    std::string seeks;
    testing::internal::CaptureStderr();
    {
        kinefix_test::StartedFramework framework("repair_engine_test");
        const kinefix_test::TempDir& dir = framework.home;
        zp::testing_hooks::log_sink() = [&](int& level, const char*&, const char*& text) {
            if (level == zp::kLogDebug && std::strstr(text, "repair_engine.cpp")) seeks += text;
        };
        kinefix_test::write_file(dir / "data.bin", std::string(200, 'd'));
        Repair(dir, AudioIndex(2) + ",100,6,12,,,1;\n,,6,12,,,1;\n,,6,12,,,1;\n");
        zp::testing_hooks::log_sink() = nullptr;
        for (const auto& packet : ReadPackets(dir / "out.mkv")) times.push_back(packet.second);
    }
    testing::internal::GetCapturedStderr();

    EXPECT_EQ(times, (std::vector<int64_t>{0, 1, 1}));
    EXPECT_TRUE(std::regex_search(
        seeks,
        std::regex(
            R"re(^\d{4}-[\d:]{8}\[D\]\[zp\] repair_engine\.cpp \d+ *: "packet数据 seek fpos=100"\n)re")))
        << seeks;
}

}  // namespace
