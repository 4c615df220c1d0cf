// What kinefix promises its front end on a hand-made index: the standard output lines of write
// errors, the log lines of rejected entries; and what kinefix-index refuses to index.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/media_support.h"

namespace {

using namespace kinefix_test;

bool Has(const std::string& haystack, const std::string& needle) {
    return haystack.find(needle) != std::string::npos;
}

TEST(ContractTest, WriteErrorsAndRejectedLinesKeepTheRunGoing) {
    Workspace ws;
    write_file(ws / "data.bin", std::string(400, 'x'));
    // AAC only ("EZA=": 48 kHz stereo AAC-LC). Packet lines 0..11; line 5 goes back in time
    // early, line 11 late (past 0.9 of the file).
    write_file(ws / "a.idx",
               "#version=2\n"
               "{\"type\":\"audio\",\"index\":0,\"codec\":\"aac\",\"format\":\"fltp\",\"tb.num\":1,"
               "\"tb.den\":48000,\"channels\":2,\"sample_rate\":48000,\"frame_size\":1024,"
               "\"ev\":\"EZA=\"}\n"
               "0,0,10,1024,,,1;\n"
               "5,,10,1024,,,1;\n"
               "-1,,10,1024,,,1;\n"
               "1,,10,1024,,,1;\n"
               "0,,10,1024,,,1;0,,10,1024,,,1;\n"
               "0,,10,-4096,,,1;\n"
               "0,,10,5120,,,1\n"
               "0,,10,1024,,,1;\n"
               "0,,10,1024,,,1;\n"
               "0,,10,1024,,,1;\n"
               "0,,10,1024,,,1;\n"
               "0,,10,-8192,,,1;\n");
    const RunResult r = ws.kinefix({ws / "data.bin", ws / "a.idx", ws / "out.mkv"});
    ASSERT_EQ(r.exit_code, 0) << r.err;

    // Matroska counts milliseconds: -1024/48000 s is -21. The three time texts share one
    // buffer, so each shows the last one made (the pts).
    const std::vector<std::string> lines = lines_of(r.out);
    ASSERT_EQ(lines.size(), 5u + 6) << r.out;
    EXPECT_EQ(lines[5],
              "pts:-21 pts_time:-0.021 dts:-21 dts_time:-0.021 duration:21 "
              "duration_time:-0.021 stream_index:0");
    EXPECT_EQ(lines[6], "error:ret=-22,msg=Invalid argument");
    EXPECT_TRUE(std::regex_match(lines[7], std::regex(R"(progress:0\.[0-8]\d{5})"))) << lines[7];
    // Past 0.9 of the index a write error stays off standard output except its own line.
    EXPECT_EQ(lines[8],
              "pts:0 pts_time:0 dts:0 dts_time:0 duration:21 duration_time:0 stream_index:0");
    EXPECT_EQ(lines[9], "progress:1.0");
    EXPECT_EQ(lines[10], "End");

    const std::string log = ws.log();
    for (const char* text : {"\"===> stream.idx=5 不合法，moov已处理 4 行(",
                             "\"===> stream.idx=-1 不合法，moov已处理 5 行(",
                             "\"===> stream.idx=1 不合法，moov已处理 6 行(", "\"@@ moov已处理 8 行(",
                             "; write frame err: Invalid argument, next=;\n\""})
        EXPECT_TRUE(Has(log, text)) << text << "\n" << log;

    // Every accepted entry written, the clock going on from the refused ones: 1024, 2048,
    // 3072, then 4096 (no ";") up to 8192.
    const FrameReport out = frame_report(ws / "out.mkv", ws.dir());
    ASSERT_TRUE(out.ok) << out.error;
    ASSERT_EQ(out.streams.size(), 1u);
    const auto& packets = out.streams.begin()->second;
    ASSERT_EQ(packets.size(), 8u);
    for (size_t i = 0; i < 8; ++i)
        EXPECT_NEAR(packets[i].pts - packets[0].pts, i * 1024 / 48000.0, 0.0011) << i;
}

TEST(IndexToolTest, RefusesWhatItCannotIndex) {
    Workspace ws;
    EXPECT_EQ(ws.index({}).exit_code, 2);
    EXPECT_EQ(ws.index({ws / "missing.mp4", ws / "x.idx"}).exit_code, 1);
    const RunResult made =
        run("ffmpeg",
            {"-v", "error", "-nostdin", "-f", "lavfi", "-i",
             "testsrc=size=160x120:rate=10:duration=1", "-c:v", "mpeg4", ws / "mpeg4.mp4"},
            isolated_env(ws.dir()), ws.dir());
    ASSERT_EQ(made.exit_code, 0) << made.err;
    const RunResult r = ws.index({ws / "mpeg4.mp4", ws / "x.idx"});
    EXPECT_EQ(r.exit_code, 1);
    EXPECT_TRUE(Has(r.err, "neither an H.264 nor an AAC stream")) << r.err;
    EXPECT_FALSE(fs::exists(ws / "x.idx"));
}

}  // namespace
