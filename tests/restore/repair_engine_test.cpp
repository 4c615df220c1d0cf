// RepairEngine in-process on a hand-made index: where each packet's bytes come from, checked
// by reading the written container back with libavformat.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "restore/ffmpeg_compat.h"
#include "restore/repair_engine.h"
#include "support/test_support.h"

using namespace restore;

namespace {

// The data of every packet of a written file.
std::vector<std::string> ReadPackets(const std::string& path) {
    std::vector<std::string> packets;
    AVFormatContext* in = nullptr;
    if (avformat_open_input(&in, path.c_str(), nullptr, nullptr) < 0) return packets;
    AVPacket* pkt = av_packet_alloc();
    while (av_read_frame(in, pkt) >= 0) {
        packets.emplace_back(reinterpret_cast<const char*>(pkt->data),
                             static_cast<size_t>(pkt->size));
        av_packet_unref(pkt);
    }
    av_packet_free(&pkt);
    avformat_close_input(&in);
    return packets;
}

TEST(RepairEngineTest, PositionsSeekOrReadOnAndTheBufferOnlyGrows) {
    kinefix_test::TempDir dir;
    std::string data(1000, '\0');
    for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>(i * 7 + i / 256);
    kinefix_test::write_file(dir / "data.bin", data);
    // Read on after a packet; a position named although it is where the last read ended;
    // jump back for a larger packet; shrink; end exactly at the file's end (which is not yet
    // its end-of-file) and go on from elsewhere.
    kinefix_test::write_file(
        dir / "index.idx",
        "#version=1\n{\"type\":\"audio\",\"index\":0,\"codec\":\"aac\",\"format\":\"fltp\","
        "\"tb.num\":1,\"tb.den\":48000,\"channels\":2,\"sample_rate\":48000,\"frame_size\":1024,"
        "\"ev\":\"EZA=\"}\n"
        "0,100,50,1024,0,0,1;\n"
        "0,0,20,1024,0,0,1;0,170,30,1024,0,0,1;\n"
        "0,10,5,1024,0,0,1;\n"
        "0,15,300,1024,0,0,1;\n"
        "0,0,40,1024,0,0,1;\n"
        "0,900,100,1024,0,0,1;\n"
        "0,500,10,1024,0,0,1;\n");
    testing::internal::CaptureStdout();
    RepairEngine().Run((dir / "data.bin").c_str(), (dir / "index.idx").c_str(),
                       (dir / "out.mkv").c_str());
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find("progress:1.0\n"), std::string::npos) << out;
    EXPECT_EQ(out.find("error:"), std::string::npos) << out;

    const std::vector<std::string> packets = ReadPackets(dir / "out.mkv");
    const std::pair<size_t, size_t> expected[] = {{100, 50}, {150, 20}, {170, 30},  {10, 5},
                                                  {15, 300}, {315, 40}, {900, 100}, {500, 10}};
    ASSERT_EQ(packets.size(), 8u);
    for (size_t i = 0; i < 8; ++i)
        EXPECT_EQ(packets[i], data.substr(expected[i].first, expected[i].second)) << i;
}

}  // namespace
