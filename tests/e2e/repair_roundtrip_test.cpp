// Real recordings whose own index is destroyed, rebuilt by kinefix from kinefix-index's index.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "e2e/repair_workspace.h"

namespace {

using namespace kinefix_test;

struct RoundTrip {
    const char* name;
    RecordingPlan plan;
    const char* source_ext;
    const char* output_ext;
    std::vector<std::string> index_options;
};

void PrintTo(const RoundTrip& c, std::ostream* os) {
    *os << c.name;
}

// Matroska keeps no decoding times (readers re-derive them) and starts its clock at zero.
bool IsMatroska(const std::string& ext) {
    return ext == ".mkv";
}

class RoundTripTest : public ::testing::TestWithParam<RoundTrip> {};

TEST_P(RoundTripTest, RepairGivesBackEveryPacket) {
    const RoundTrip& c = GetParam();
    Workspace ws;
    const std::string index = ws / "recording.idx";
    const std::string broken = ws.damaged_recording(std::string("recording") + c.source_ext, c.plan,
                                                    c.index_options, index);
    ASSERT_FALSE(broken.empty());
    const FrameReport original = frame_report(broken, ws.dir());
    ASSERT_TRUE(original.ok) << original.error;

    ASSERT_TRUE(destroy_moov(broken));
    ASSERT_FALSE(probe_reads(broken, ws.dir())) << "the damaged file still reads";

    const std::string output = ws / (std::string("repaired") + c.output_ext);
    const RunResult r = ws.kinefix({broken, index, output});
    ASSERT_EQ(r.exit_code, 0) << r.err;
    const int lines = packet_line_count(read_file(index));
    expect_repair_stdout(r.out, lines);
    EXPECT_NE(ws.log().find("\">> 执行完成 （忽略索引: [0 ~ 0) 共0行）\"\n"), std::string::npos)
        << ws.log();
    EXPECT_EQ(r.err.find("Error occurred"), std::string::npos) << r.err;

    EXPECT_EQ(decode_errors(output, ws.dir()), "");
    const FrameReport repaired = frame_report(output, ws.dir());
    expect_same_packets(original, repaired, !IsMatroska(c.output_ext), !IsMatroska(c.output_ext));
}

RecordingPlan Plan(bool video, bool bframes, bool audio, bool faststart) {
    RecordingPlan s;
    s.video = video;
    s.bframes = bframes;
    s.audio = audio;
    s.faststart = faststart;
    return s;
}

INSTANTIATE_TEST_SUITE_P(
    Recordings, RoundTripTest,
    ::testing::Values(
        RoundTrip{"BFramesAacIndexAtEndToMp4", Plan(true, true, true, false), ".mp4", ".mp4", {}},
        RoundTrip{"NoBFramesAacFaststartToMov", Plan(true, false, true, true), ".mp4", ".mov", {}},
        RoundTrip{"BFramesAacFaststartToMkv", Plan(true, true, true, true), ".mp4", ".mkv", {}},
        RoundTrip{"VideoOnlyToMkv", Plan(true, true, false, false), ".mp4", ".mkv", {}},
        RoundTrip{"AudioOnlyToMp4", Plan(false, false, true, false), ".mp4", ".mp4", {}},
        RoundTrip{"MovSourceToMp4", Plan(true, true, true, false), ".mov", ".mp4", {}},
        RoundTrip{"Version1ThreeEntriesPerLine",
                  Plan(true, true, true, false),
                  ".mp4",
                  ".mov",
                  {"--index-version", "1", "--entries-per-line", "3"}}),
    [](const ::testing::TestParamInfo<RoundTrip>& info) { return std::string(info.param.name); });

// Packet positions of a version 1 index with one entry per line, in line order.
struct Located {
    int64_t pos;
    int size;
};

std::vector<Located> LocateLines(const std::string& index_text) {
    std::vector<Located> out;
    int64_t next = 0;
    for (const std::string& line : lines_of(index_text)) {
        if (line.empty() || line[0] == '#' || line[0] == '{') continue;
        int stream = 0, size = 0;
        long long pos = 0;
        if (sscanf(line.c_str(), "%d,%lld,%d", &stream, &pos, &size) != 3) continue;
        const int64_t at = pos != 0 ? pos : next;
        out.push_back({at, size});
        next = at + size;
    }
    return out;
}

TEST(CutRecordingTest, KeepsEveryPacketBeforeTheCutAndReportsTheIgnoredLines) {
    Workspace ws;
    const std::string index = ws / "cut.idx";
    const std::string broken = ws.damaged_recording("cut.mp4", Plan(true, true, true, false),
                                                    {"--index-version", "1"}, index);
    ASSERT_FALSE(broken.empty());
    const FrameReport original = frame_report(broken, ws.dir());
    ASSERT_TRUE(original.ok);

    // Cut at 60% of the media data; the index at the end goes with it.
    const Box mdat = find_top_box(broken, "mdat");
    ASSERT_GT(mdat.size, 0);
    const int64_t cut = mdat.offset + 8 + (mdat.size - 8) * 6 / 10;
    truncate_file(broken, cut);

    const std::string index_text = read_file(index);
    const std::vector<Located> located = LocateLines(index_text);
    const int total = static_cast<int>(located.size());
    int whole = 0;
    while (whole < total && located[whole].pos + located[whole].size <= cut) ++whole;
    ASSERT_LT(whole + 1, total);
    ASSERT_GT(whole, 10);

    const std::string output = ws / "cut-repaired.mp4";
    const RunResult r = ws.kinefix({broken, index, output});
    ASSERT_EQ(r.exit_code, 0);
    // Lines up to and including the one cut through are worked on; the rest are ignored.
    expect_repair_stdout(r.out, whole + 1);

    const std::string log = ws.log();
    const std::vector<std::string> packet_lines = [&] {
        std::vector<std::string> v;
        for (const std::string& l : lines_of(index_text))
            if (!l.empty() && l[0] != '#' && l[0] != '{') v.push_back(l);
        return v;
    }();
    const std::string short_read = "读取packet数据 " + std::to_string(cut - located[whole].pos) +
                                   " < " + std::to_string(located[whole].size) +
                                   "(需求)，该行索引处理结束 (eof=1, fpos=" + std::to_string(cut) +
                                   ") err_code=0\"";
    EXPECT_NE(log.find(short_read), std::string::npos) << short_read << "\n" << log;
    EXPECT_NE(log.find("\">> 损坏视频已经读取到末尾了,第一个忽略行 ========> " +
                       packet_lines[whole + 1] + "\n\""),
              std::string::npos)
        << log;
    const int ignored = total - whole - 1;
    const std::string closing = ">> 执行完成 （忽略索引: [" + std::to_string(whole + 1) + " ~ " +
                                std::to_string(total) + ") 共" + std::to_string(ignored) + "行）";
    EXPECT_NE(log.find(closing), std::string::npos) << closing << "\n" << log;

    // Exactly the packets wholly before the cut, stream by stream.
    EXPECT_EQ(decode_errors(output, ws.dir()), "");
    const FrameReport repaired = frame_report(output, ws.dir());
    ASSERT_TRUE(repaired.ok) << repaired.error;
    size_t kept = 0;
    for (const auto& [stream, packets] : repaired.streams) {
        const auto& before = original.streams.at(stream);
        ASSERT_LE(packets.size(), before.size());
        for (size_t i = 0; i < packets.size(); ++i) {
            EXPECT_EQ(packets[i].md5, before[i].md5) << "stream " << stream << " packet " << i;
            EXPECT_NEAR(packets[i].pts, before[i].pts, repaired.tick.at(stream) + 1e-9);
        }
        kept += packets.size();
    }
    EXPECT_EQ(kept, static_cast<size_t>(whole));
}

TEST(PathTest, SpacesAndNonAsciiInBothForms) {
    Workspace ws;
    const std::string dir = ws / "dir with spaces/видео 视频";
    fs::create_directories(dir);
    const std::string index = dir + "/索引 file.idx";
    const std::string source = dir + "/broken file é.mp4";
    ASSERT_EQ(make_recording(source, Plan(true, true, true, false), ws.dir()), "");
    ASSERT_EQ(ws.index({source, index}).exit_code, 0);
    const FrameReport original = frame_report(source, ws.dir());
    ASSERT_TRUE(destroy_moov(source));
    const int lines = packet_line_count(read_file(index));

    const std::string positional = dir + "/out put ü.mkv";
    RunResult r = ws.kinefix({source, index, positional});
    ASSERT_EQ(r.exit_code, 0) << r.err;
    expect_repair_stdout(r.out, lines);
    expect_same_packets(original, frame_report(positional, ws.dir()), false, false);

    const std::string text_form = dir + "/选项 输出.mp4";
    r = ws.kinefix({"{\"broken_file\":\"" + source + "\",\"moov_file\":\"" + index +
                    "\",\"output_file\":\"" + text_form + "\"}"});
    ASSERT_EQ(r.exit_code, 0) << r.err;
    expect_repair_stdout(r.out, lines);
    expect_same_packets(original, frame_report(text_form, ws.dir()), true, true);
    const std::string log = ws.log();
    EXPECT_NE(log.find("\"broken:" + source + "\""), std::string::npos) << log;
    EXPECT_NE(log.find("\"out:" + text_form + "\""), std::string::npos) << log;
}

}  // namespace
