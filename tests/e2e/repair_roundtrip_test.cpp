// Real recordings indexed by kinefix-index, their own index destroyed, rebuilt by kinefix; and
// what kinefix promises its front end on a hand-made index: the standard output lines of write
// errors, the log lines of rejected entries, and the packets that go on around them.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/media_support.h"

namespace {

using namespace kinefix_test;

TEST(RoundTripTest, RepairGivesBackEveryPacket) {
    struct RoundTrip {
        const char* name;
        RecordingPlan plan;  // video, B-frames, audio, index at the front
        std::string source_ext;
        std::string output_ext;
        std::vector<std::string> index_options;
    };
    // clang-format off
    const RoundTrip rows[] = {
        {"mp4 index at the end", {true, true, true, false}, ".mp4", ".mp4", {}},
        {"mov index at the front, version 1, three entries per line", {true, false, true, true},
         ".mov", ".mov", {"--index-version", "1", "--entries-per-line", "3"}},
        {"video only", {true, true, false, false}, ".mp4", ".mkv", {}},
        {"Matroska source", {true, true, true, false}, ".mkv", ".mp4", {}},
        {"audio-only FLV source", {false, false, true, false}, ".flv", ".mp4", {}},
        {"HEVC with B-frames and AAC", {true, true, true, false, 2.0, "libx265"}, ".mp4", ".mp4",
         {}},
        {"HEVC into Matroska", {true, true, true, true, 2.0, "libx265"}, ".mov", ".mkv", {}},
        {"H.264 and PCM in MOV", {true, true, true, false, 2.0, "libx264", "pcm_s16le"}, ".mov",
         ".mov", {}},
        {"H.264 and MP3", {true, true, true, false, 2.0, "libx264", "libmp3lame"}, ".mp4", ".mp4",
         {}},
        {"H.264 and Opus in Matroska", {true, true, true, false, 2.0, "libx264", "libopus"},
         ".mkv", ".mkv", {}},
        {"H.264 and AC-3", {true, false, true, false, 2.0, "libx264", "ac3"}, ".mp4", ".mov", {}},
    };
    // clang-format on
    for (const RoundTrip& c : rows) {
        SCOPED_TRACE(c.name);
        Workspace ws;
        const std::string index = ws / "索引 file.idx";
        const std::string source =
            ws.indexed_recording("录像 a" + c.source_ext, c.plan, c.index_options, index);
        ASSERT_FALSE(source.empty());
        const FrameReport original = frame_report(source, ws.dir());
        // Matroska and FLV sources are repaired as they are: their demuxers give the position
        // of a block or tag header, and the index must still lead to each packet's bytes.
        const bool iso = c.source_ext == ".mp4" || c.source_ext == ".mov";
        if (iso) {
            ASSERT_TRUE(destroy_moov(source));
            ASSERT_NE(decode_errors(source, ws.dir()), "") << "the damaged file still reads";
        }

        const std::string output = ws / ("repaired é" + c.output_ext);
        const RunResult r = ws.kinefix({source, index, output});
        ASSERT_EQ(r.exit_code, 0) << r.err;
        expect_repair_stdout(r.out, packet_lines(read_file(index)).size());
        EXPECT_NE(ws.log().find("\">> 执行完成 （忽略索引: [0 ~ 0) 共0行）\"\n"), std::string::npos)
            << ws.log();
        EXPECT_EQ(r.err.find("Error occurred"), std::string::npos) << r.err;
        EXPECT_EQ(decode_errors(output, ws.dir()), "");
        // Matroska keeps no decoding times and starts its clock at zero.
        const bool exact = iso && c.output_ext != ".mkv";
        EXPECT_EQ(packet_difference(original, frame_report(output, ws.dir()),
                                    exact ? Match::kExact : Match::kShifted),
                  "");
    }
}

TEST(CutRecordingTest, KeepsEveryPacketBeforeTheCutAndReportsTheIgnoredLines) {
    Workspace ws;
    const std::string index = ws / "cut.idx";
    const std::string broken =
        ws.indexed_recording("cut.mp4", RecordingPlan(), {"--index-version", "1"}, index);
    ASSERT_FALSE(broken.empty());
    const FrameReport original = frame_report(broken, ws.dir());
    // Cut at 60% of the media data; the index at the end goes with it.
    const auto [mdat, mdat_size] = find_top_box(broken, "mdat");
    ASSERT_GT(mdat, 0);
    const int64_t cut = mdat + 8 + (mdat_size - 8) * 6 / 10;
    fs::resize_file(broken, static_cast<uintmax_t>(cut));

    // One entry per line (position 0: read on): the lines wholly before the cut.
    const std::vector<std::string> lines = packet_lines(read_file(index));
    size_t whole = 0;
    long long pos = 0, next = 0;
    int size = 0;
    for (; whole < lines.size(); ++whole, next = pos + size) {
        ASSERT_EQ(sscanf(lines[whole].c_str(), "%*d,%lld,%d", &pos, &size), 2) << lines[whole];
        pos = pos != 0 ? pos : next;
        if (pos + size > cut) break;
    }
    ASSERT_GT(whole, 10u);
    ASSERT_LT(whole + 1, lines.size());

    const RunResult r = ws.kinefix({broken, index, ws / "cut-repaired.mp4"});
    ASSERT_EQ(r.exit_code, 0);
    // Lines up to and including the one cut through are worked on; the rest are ignored.
    expect_repair_stdout(r.out, whole + 1);
    const std::string log = ws.log();
    for (const std::string& text :
         {"\"读取packet数据 " + std::to_string(cut - pos) + " < " + std::to_string(size) +
              "(需求)，该行索引处理结束 (eof=1, fpos=" + std::to_string(cut) + ") err_code=0\"",
          "\">> 损坏视频已经读取到末尾了,第一个忽略行 ========> " + lines[whole + 1] + "\n\"",
          ">> 执行完成 （忽略索引: [" + std::to_string(whole + 1) + " ~ " +
              std::to_string(lines.size()) + ") 共" + std::to_string(lines.size() - whole - 1) +
              "行）"})
        EXPECT_NE(log.find(text), std::string::npos) << text << "\n" << log;

    // Exactly the packets wholly before the cut, stream by stream.
    const FrameReport repaired = frame_report(ws / "cut-repaired.mp4", ws.dir());
    EXPECT_EQ(packet_difference(original, repaired, Match::kPrefix), "");
    EXPECT_EQ(packet_count(repaired), whole);
}

TEST(ContractTest, WriteErrorsAndRejectedLinesKeepTheRunGoing) {
    Workspace ws;
    write_file(ws / "data.bin", std::string(400, 'x'));
    // AAC only ("EZA=": 48 kHz stereo AAC-LC), starting 123.456 s in. Packet lines 0..12; line
    // 5 goes back in time early, line 11 late (where 0.91 of the file is read).
    write_file(ws / "a.idx",
               "#version=2\n"
               "{\"type\":\"audio\",\"index\":0,\"codec\":\"aac\",\"format\":\"fltp\",\"tb.num\":1,"
               "\"tb.den\":48000,\"channels\":2,\"sample_rate\":48000,\"frame_size\":1024,"
               "\"ev\":\"EZA=\"}\n"
               "0,0,10,5927936,,,1;\n5,,10,1024,,,1;\n-1,,10,1024,,,1;\n1,,10,1024,,,1;\n"
               "0,,10,1024,,,1;0,,10,1024,,,1;\n0,,10,-4096,,,1;\n0,,10,5120,,,1\n"
               "0,,10,1024,,,1;\n0,,10,1024,,,1;\n0,,10,1024,,,1;\n0,,10,1024,,,1;\n"
               "0,,10,-8192,,,1;\n0,,10,10240,,,1;\n");
    const RunResult r = ws.kinefix({ws / "data.bin", ws / "a.idx", ws / "out.mkv"});
    ASSERT_EQ(r.exit_code, 0) << r.err;

    // Matroska counts milliseconds, and an audio duration of 0 is one frame (21). The three
    // time texts share one buffer, so each shows the last one made, to six digits.
    const std::vector<std::string> lines = lines_of(r.out);
    ASSERT_EQ(lines.size(), 5u + 7) << r.out;
    EXPECT_EQ(lines[5],
              "pts:123456 pts_time:123.456 dts:123456 dts_time:123.456 duration:21 "
              "duration_time:123.456 stream_index:0");
    EXPECT_EQ(lines[6], "error:ret=-22,msg=Invalid argument");
    EXPECT_TRUE(std::regex_match(lines[7], std::regex(R"(progress:0\.[0-8]\d{5})"))) << lines[7];
    // Past 0.9 of the index a write error stays off standard output except its own line.
    EXPECT_EQ(lines[8].rfind("pts:123477 pts_time:123.477 ", 0), 0u) << lines[8];
    EXPECT_EQ(lines[9] + "|" + lines[11], "progress:1.0|End");
    EXPECT_EQ(lines[10].rfind("summary:packets=9,ignored=0,duration=123.", 0), 0u) << lines[10];

    const std::string log = ws.log();
    for (const char* text :
         {"\"===> stream.idx=5 不合法，moov已处理 4 行(",
          "\"===> stream.idx=-1 不合法，moov已处理 5 行(",
          "\"===> stream.idx=1 不合法，moov已处理 6 行(", "\"@@ moov已处理 8 行(",
          "; write frame err: Invalid argument, next=;\n\""})
        EXPECT_NE(log.find(text), std::string::npos) << text << "\n" << log;

    // Every accepted entry written, the clock going on from the refused ones: 1024 apart, the
    // last 2048 after the one before.
    const FrameReport out = frame_report(ws / "out.mkv", ws.dir());
    ASSERT_TRUE(out.ok) << out.error;
    ASSERT_EQ(out.streams.size(), 1u);
    const auto& packets = out.streams.begin()->second;
    ASSERT_EQ(packets.size(), 9u);
    for (size_t i = 0; i < 9; ++i)
        EXPECT_NEAR(packets[i].pts - packets[0].pts, (i + i / 8) * 1024 / 48000.0, 0.0011) << i;
}

}  // namespace
