// What kinefix promises its front end: standard output line by line, exit codes, the standard
// error of set-up failures and the log lines of a repair.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "e2e/repair_workspace.h"

namespace {

using namespace kinefix_test;

// An AAC-only description ("EZA=" is the AudioSpecificConfig of 48 kHz stereo AAC-LC).
const char kAudioHeader[] =
    "#version=2\n"
    "{\"type\":\"audio\",\"index\":0,\"codec\":\"aac\",\"format\":\"fltp\",\"tb.num\":1,"
    "\"tb.den\":48000,\"channels\":2,\"sample_rate\":48000,\"frame_size\":1024,\"ev\":\"EZA=\"}\n";

std::string Bytes(size_t n) {
    std::string s(n, '\0');
    for (size_t i = 0; i < n; ++i) s[i] = static_cast<char>((i * 37 + 11) & 0xff);
    return s;
}

bool Has(const std::string& haystack, const std::string& needle) {
    return haystack.find(needle) != std::string::npos;
}

TEST(ContractTest, WriteErrorsAndRejectedLinesKeepTheRunGoing) {
    Workspace ws;
    write_file(ws / "data.bin", Bytes(400));
    // Packet lines 0..11; line 5 goes back in time early, line 11 late.
    write_file(ws / "a.idx", std::string(kAudioHeader) +
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
    EXPECT_TRUE(Has(log, "\"===> stream.idx=5 不合法，moov已处理 4 行(")) << log;
    EXPECT_TRUE(Has(log, "\"===> stream.idx=-1 不合法，moov已处理 5 行(")) << log;
    EXPECT_TRUE(Has(log, "\"===> stream.idx=1 不合法，moov已处理 6 行(")) << log;
    EXPECT_TRUE(Has(log, "\"@@ moov已处理 8 行(")) << log;
    EXPECT_TRUE(Has(log, "; write frame err: Invalid argument, next=;\n\"")) << log;
    EXPECT_TRUE(Has(log, "\">> 执行完成 （忽略索引: [0 ~ 0) 共0行）\"")) << log;

    // Every line written: 1024, 2048, 3072, then 4096 (no ";") up to 8192; Matroska starts
    // its clock at the first packet.
    const FrameReport out = frame_report(ws / "out.mkv", ws.dir());
    ASSERT_TRUE(out.ok) << out.error;
    ASSERT_EQ(out.streams.size(), 1u);
    const auto& packets = out.streams.begin()->second;
    ASSERT_EQ(packets.size(), 8u);
    const double expected[8] = {1024, 2048, 3072, 4096, 5120, 6144, 7168, 8192};
    for (size_t i = 0; i < 8; ++i) {
        EXPECT_NEAR(packets[i].pts - packets[0].pts, (expected[i] - expected[0]) / 48000.0, 0.0011)
            << i;
        EXPECT_EQ(packets[i].size, 10);
    }
}

TEST(ContractTest, DebugLinesAppearOnlyAtLevelFive) {
    for (const char* level : {"2", "5"}) {
        Workspace ws;
        const fs::path conf = ws.dir().path() / "state" / "kinefix" / "conf";
        fs::create_directories(conf);
        write_file((conf / "Admin.conf").string(),
                   std::string("log.level : ") + level + "\nlog.stdout : false\nlog.tag : \n");
        write_file(ws / "data.bin", Bytes(100));
        write_file(ws / "a.idx", std::string(kAudioHeader) + "0,40,10,1024,,,1;\n");
        const RunResult r = ws.kinefix({ws / "data.bin", ws / "a.idx", ws / "out.mp4"});
        ASSERT_EQ(r.exit_code, 0) << r.err;
        const std::string log = ws.log();
        EXPECT_TRUE(Has(log, "[E][zp] ")) << log;
        EXPECT_EQ(Has(log, "[D][zp] repair_engine.cpp"), std::string(level) == "5") << log;
        EXPECT_EQ(Has(log, "\"packet数据 seek fpos=40\""), std::string(level) == "5") << log;
    }
}

TEST(ContractTest, SizesTheFileCannotSupplyEndTheCopy) {
    for (const std::string size : {"-5", "2000000000"}) {
        Workspace ws;
        write_file(ws / "data.bin", Bytes(400));
        write_file(ws / "a.idx", std::string(kAudioHeader) + "0,0,10,1024,,,1;\n0,," + size +
                                     ",1024,,,1;\n0,,10,1024,,,1;\n0,,10,1024,,,1;\n");
        const RunResult r = ws.kinefix({ws / "data.bin", ws / "a.idx", ws / "out.mp4"});
        ASSERT_EQ(r.exit_code, 0);
        expect_repair_stdout(r.out, 2);
        const std::string log = ws.log();
        EXPECT_TRUE(Has(log, "\"读取packet数据 390 < " + size +
                                 "(需求)，该行索引处理结束 (eof=1, fpos=400) err_code=0\""))
            << log;
        EXPECT_TRUE(
            Has(log, "\">> 损坏视频已经读取到末尾了,第一个忽略行 ========> 0,,10,1024,,,1;\n\""))
            << log;
        EXPECT_TRUE(Has(log, "\">> 执行完成 （忽略索引: [2 ~ 4) 共2行）\"")) << log;
        const FrameReport out = frame_report(ws / "out.mp4", ws.dir());
        ASSERT_TRUE(out.ok) << out.error;
        ASSERT_EQ(out.streams.size(), 1u);
        EXPECT_EQ(out.streams.begin()->second.size(), 1u);
    }
}

TEST(ContractTest, UnknownVersionExitsWithTen) {
    Workspace ws;
    write_file(ws / "data.bin", Bytes(100));
    std::string body = std::string(kAudioHeader).substr(std::string("#version=2\n").size());
    write_file(ws / "v9.idx", "#version=9\n" + body + "0,0,10,1024,,,1;\n");
    RunResult r = ws.kinefix({ws / "data.bin", ws / "v9.idx", ws / "out.mkv"});
    EXPECT_EQ(r.exit_code, 10);
    std::vector<std::string> lines = lines_of(r.out);
    ASSERT_EQ(lines.size(), 6u) << r.out;
    EXPECT_EQ(lines[5], "[ERROR] version=9, parse failed");
    // The framework still shuts down through its exit hook.
    EXPECT_TRUE(Has(ws.log(), "\"Done!\"")) << ws.log();

    // No version line at all reads as version 0.
    write_file(ws / "v0.idx", body + "0,0,10,1024,,,1;\n");
    r = ws.kinefix({ws / "data.bin", ws / "v0.idx", ws / "out.mkv"});
    EXPECT_EQ(r.exit_code, 10);
    EXPECT_TRUE(Has(r.out, "\n[ERROR] version=0, parse failed\n")) << r.out;

    // The version is only looked at by the first packet line.
    write_file(ws / "empty.idx", "#version=9\n" + body);
    r = ws.kinefix({ws / "data.bin", ws / "empty.idx", ws / "out.mkv"});
    EXPECT_EQ(r.exit_code, 0);
    expect_repair_stdout(r.out, 0);
}

TEST(ContractTest, SetUpFailuresReportOnTheirChannels) {
    Workspace ws;
    write_file(ws / "data.bin", Bytes(100));
    write_file(ws / "a.idx", std::string(kAudioHeader) + "0,0,10,1024,,,1;\n");
    const std::vector<std::string> banner_and_end_only = {"==============================", "End"};

    RunResult r = ws.kinefix({ws / "data.bin", ws / "a.idx", ws / "out.unknownext"});
    EXPECT_EQ(r.exit_code, 0);
    EXPECT_TRUE(Has(r.err, "Could not create output context\nError occurred: ")) << r.err;
    EXPECT_EQ(lines_of(r.out).size(), 6u) << r.out;
    EXPECT_EQ(lines_of(r.out).back(), "End");

    const std::string unwritable = ws / "no such dir/out.mp4";
    r = ws.kinefix({ws / "data.bin", ws / "a.idx", unwritable});
    EXPECT_EQ(r.exit_code, 0);
    EXPECT_TRUE(Has(r.err, "Could not open output file '" + unwritable + "'Error occurred: "))
        << r.err;
    EXPECT_EQ(lines_of(r.out).size(), 6u) << r.out;

    r = ws.kinefix({ws / "missing.bin", ws / "a.idx", ws / "out.mp4"});
    EXPECT_EQ(r.exit_code, 0);
    EXPECT_TRUE(Has(ws.log(), "\"无法打开mdata文件: " + ws / "missing.bin" + "\"")) << ws.log();
    EXPECT_FALSE(fs::exists(ws / "out.mp4"));

    std::string header = kAudioHeader;
    header.replace(header.find("\"aac\""), 5, "\"nocodec\"");
    write_file(ws / "codec.idx", header + "0,0,10,1024,,,1;\n");
    r = ws.kinefix({ws / "data.bin", ws / "codec.idx", ws / "out.mp4"});
    EXPECT_EQ(r.exit_code, 0);
    EXPECT_TRUE(Has(ws.log(), "\"---> 找不到编码器：nocodec\"")) << ws.log();
    EXPECT_FALSE(Has(r.err, "Error occurred")) << r.err;
    EXPECT_EQ(lines_of(r.out).size(), 6u) << r.out;
}

TEST(ContractTest, DescriptionWithoutExtradataGetsNoStream) {
    Workspace ws;
    write_file(ws / "data.bin", Bytes(100));
    // A video description without `ev` next to the audio one: only the audio stream exists,
    // numbered 0, and the audio entries (index 0) land in it.
    write_file(ws / "a.idx",
               std::string(kAudioHeader) +
                   "{\"type\":\"video\",\"index\":3,\"codec\":\"h264\",\"w\":320,\"h\":240,"
                   "\"tb.num\":1,\"tb.den\":90000}\n"
                   "0,0,10,1024,,,1;\n3,,10,3000,,3000,1;\n0,,10,1024,,,1;\n");
    const RunResult r = ws.kinefix({ws / "data.bin", ws / "a.idx", ws / "out.mp4"});
    ASSERT_EQ(r.exit_code, 0);
    const FrameReport out = frame_report(ws / "out.mp4", ws.dir());
    ASSERT_TRUE(out.ok) << out.error;
    ASSERT_EQ(out.streams.size(), 1u);
    EXPECT_EQ(out.streams.begin()->second.size(), 2u);
    EXPECT_TRUE(Has(ws.log(), "\"===> stream.idx=3 不合法，moov已处理 5 行(")) << ws.log();
}

TEST(IndexToolTest, RefusesWhatItCannotIndex) {
    Workspace ws;
    EXPECT_EQ(ws.index({}).exit_code, 2);
    EXPECT_EQ(ws.index({"--index-version", "3", "a", "b"}).exit_code, 2);
    EXPECT_EQ(ws.index({ws / "missing.mp4", ws / "x.idx"}).exit_code, 1);

    const RunResult made =
        run("ffmpeg",
            {"-v", "error", "-nostdin", "-f", "lavfi", "-i",
             "testsrc=size=160x120:rate=10:duration=1", "-c:v", "mpeg4", ws / "mpeg4.mp4"},
            plain_env(ws.dir()), ws.dir());
    ASSERT_EQ(made.exit_code, 0) << made.err;
    const RunResult r = ws.index({ws / "mpeg4.mp4", ws / "x.idx"});
    EXPECT_EQ(r.exit_code, 1);
    EXPECT_TRUE(Has(r.err, "neither an H.264 nor an AAC stream")) << r.err;
    EXPECT_FALSE(fs::exists(ws / "x.idx"));
}

TEST(IndexToolTest, OtherContainersIndexToTheBytesOfEachPacket) {
    // Matroska and FLV demuxers give the position of a block or tag header, not of the data,
    // and Matroska keeps presentation times only: the index must still lead to every packet.
    for (const std::string ext : {".mkv", ".flv"}) {
        SCOPED_TRACE(ext);
        Workspace ws;
        const std::string source = ws / ("source" + ext);
        ASSERT_EQ(make_recording(source, RecordingPlan(), ws.dir()), "");
        ASSERT_EQ(ws.index({source, ws / "source.idx"}).exit_code, 0);
        const RunResult r = ws.kinefix({source, ws / "source.idx", ws / "out.mp4"});
        ASSERT_EQ(r.exit_code, 0);
        EXPECT_EQ(r.out.find("error:"), std::string::npos) << r.out;
        EXPECT_EQ(decode_errors(ws / "out.mp4", ws.dir()), "");
        expect_same_packets(frame_report(source, ws.dir()), frame_report(ws / "out.mp4", ws.dir()),
                            false, false);
    }
}

}  // namespace
