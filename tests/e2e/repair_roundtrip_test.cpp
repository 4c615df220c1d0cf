// Real recordings indexed by kinefix-index, their own index destroyed, rebuilt by kinefix.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/media_support.h"

namespace {

using namespace kinefix_test;

struct RoundTrip {
    const char* name;
    RecordingPlan plan;
    std::string source_ext;
    std::string output_ext;
    std::vector<std::string> index_options;
};

void PrintTo(const RoundTrip& c, std::ostream* os) {
    *os << c.name;
}

RecordingPlan Plan(bool video, bool bframes, bool audio, bool faststart) {
    RecordingPlan p;
    p.video = video;
    p.bframes = bframes;
    p.audio = audio;
    p.faststart = faststart;
    return p;
}

class RoundTripTest : public ::testing::TestWithParam<RoundTrip> {};

TEST_P(RoundTripTest, RepairGivesBackEveryPacket) {
    const RoundTrip& c = GetParam();
    Workspace ws;
    const std::string index = ws / "索引 file.idx";
    const std::string source =
        ws.indexed_recording("录像 a" + c.source_ext, c.plan, c.index_options, index);
    ASSERT_FALSE(source.empty());
    const FrameReport original = frame_report(source, ws.dir());
    // Matroska and FLV sources are repaired as they are: their demuxers give the position of
    // a block or tag header, and the index must still lead to each packet's bytes.
    const bool iso = c.source_ext == ".mp4" || c.source_ext == ".mov";
    if (iso) {
        ASSERT_TRUE(destroy_moov(source));
        ASSERT_FALSE(probe_reads(source, ws.dir())) << "the damaged file still reads";
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
    expect_same_packets(original, frame_report(output, ws.dir()), iso && c.output_ext != ".mkv");
}

INSTANTIATE_TEST_SUITE_P(
    Recordings, RoundTripTest,
    ::testing::Values(
        RoundTrip{"Mp4IndexAtEndToMp4", Plan(true, true, true, false), ".mp4", ".mp4", {}},
        RoundTrip{"MovFaststartVersion1ThreeEntriesPerLineToMov",
                  Plan(true, false, true, true),
                  ".mov",
                  ".mov",
                  {"--index-version", "1", "--entries-per-line", "3"}},
        RoundTrip{"VideoOnlyToMkv", Plan(true, true, false, false), ".mp4", ".mkv", {}},
        RoundTrip{"MkvSourceToMp4", Plan(true, true, true, false), ".mkv", ".mp4", {}},
        RoundTrip{"AudioOnlyFlvSourceToMp4", Plan(false, false, true, false), ".flv", ".mp4", {}}),
    [](const ::testing::TestParamInfo<RoundTrip>& info) { return std::string(info.param.name); });

TEST(CutRecordingTest, KeepsEveryPacketBeforeTheCutAndReportsTheIgnoredLines) {
    Workspace ws;
    const std::string index = ws / "cut.idx";
    const std::string broken =
        ws.indexed_recording("cut.mp4", RecordingPlan(), {"--index-version", "1"}, index);
    ASSERT_FALSE(broken.empty());
    const FrameReport original = frame_report(broken, ws.dir());

    // Cut at 60% of the media data; the index at the end goes with it.
    const Box mdat = find_top_box(broken, "mdat");
    ASSERT_GT(mdat.size, 0);
    const int64_t cut = mdat.offset + 8 + (mdat.size - 8) * 6 / 10;
    fs::resize_file(broken, static_cast<uintmax_t>(cut));

    // One entry per line (position 0: read on): the lines wholly before the cut.
    const std::vector<std::string> lines = packet_lines(read_file(index));
    size_t whole = 0;
    long long pos = 0, next = 0;
    int size = 0;
    for (; whole < lines.size(); ++whole) {
        ASSERT_EQ(sscanf(lines[whole].c_str(), "%*d,%lld,%d", &pos, &size), 2) << lines[whole];
        pos = pos != 0 ? pos : next;
        if (pos + size > cut) break;
        next = pos + size;
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
    EXPECT_EQ(kept, whole);
}

}  // namespace
