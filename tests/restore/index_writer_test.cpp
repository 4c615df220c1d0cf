// The index writer against the reader: what one writes, the other gives back, timestamps,
// positions and line rules included; and the file it replaces only once complete.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "restore/index_writer.h"
#include "restore/moov_parser.h"
#include "restore/packet_entry.h"
#include "restore/timestamp_steps.h"
#include "support/test_support.h"

using namespace restore;

namespace {

using namespace kinefix_test;

std::vector<IndexStream> Streams() {
    IndexStream video;
    video.video = true;
    video.index = 0;
    video.codec = "hevc";
    video.format = "yuv420p";
    video.tb_den = 12800;
    video.width = 320;
    video.height = 240;
    video.extradata = {1, 2, 3, 0, 255};
    IndexStream audio;
    audio.index = 1;
    audio.codec = "pcm_s16le";
    audio.format = "s16";
    audio.tb_den = 48000;
    audio.channels = 2;
    audio.sample_rate = 48000;
    return {video, audio};
}

// B-frame reordering, audio priming before zero, gaps between packets and huge positions.
std::vector<IndexPacket> Packets() {
    std::mt19937 rng(11);
    std::vector<IndexPacket> out;
    int64_t pos = 48;
    const int64_t order[] = {0, 3, 1, 2, 6, 4, 5};
    int counts[2] = {0, 0};
    for (int i = 0; i < 700; ++i) {
        IndexPacket p;
        p.stream = i % 3 == 2 ? 1 : 0;
        p.size = static_cast<int>(rng() % 5000) + 1;
        if (i == 300) pos += 5'000'000'000LL;  // past 4 GiB
        if (i % 50 == 49) pos += 17;           // bytes no packet owns
        p.pos = pos;
        pos += p.size;
        const int n = counts[p.stream]++;
        if (p.stream == 0) {
            p.dts = (n - 2) * 512;
            p.pts = ((n / 7) * 7 + order[n % 7]) * 512;
            p.duration = 512;
            p.key = n % 7 == 0;
        } else {
            p.pts = p.dts = (n - 1) * 1024;
            p.duration = 1024;
            p.key = true;
        }
        out.push_back(p);
    }
    return out;
}

// Reads the index back as the repair does: positions resolved, steps applied.
std::vector<IndexPacket> ReadBack(const std::string& path, std::vector<std::string>* lines) {
    MoovParser parser;
    EXPECT_TRUE(parser.Parse(path.c_str()));
    EXPECT_EQ(parser.video().index, 0);
    EXPECT_STREQ(parser.video().codec, "hevc");
    EXPECT_STREQ(parser.audio().codec, "pcm_s16le");
    EXPECT_EQ(parser.audio().channels, 2);
    TimestampSteps steps;
    std::vector<IndexPacket> out;
    int64_t next = 0;
    while (const char* line = parser.NextLine()) {
        lines->push_back(line);
        PacketLine walk(parser.version(), line, line + strlen(line));
        PacketEntry e;
        bool first = true;
        while (walk.Next(&e) == EntryRead::kEntry) {
            EXPECT_TRUE(!first || e.position != 0) << "a line starts from an absolute position";
            first = false;
            IndexPacket p;
            p.stream = e.stream_index;
            p.pos = e.position != 0 ? e.position : next;
            p.size = e.size;
            steps.Apply(e.stream_index == parser.audio().index, e.pts_step, e.dts_step, &p.pts,
                        &p.dts);
            p.duration = e.duration;
            p.key = e.key != 0;
            next = p.pos + p.size;
            out.push_back(p);
        }
    }
    return out;
}

TEST(IndexWriterTest, TheReaderGivesBackWhatWasWritten) {
    const std::vector<IndexPacket> packets = Packets();
    for (int version : {1, 2}) {
        for (int per_line : {1, 3, 500}) {
            SCOPED_TRACE("version " + std::to_string(version) + ", " + std::to_string(per_line) +
                         " per line");
            TempDir dir;
            IndexWriter writer(version, per_line);
            std::string error;
            ASSERT_TRUE(writer.Begin(dir / "a.idx", Streams(), &error)) << error;
            for (const IndexPacket& p : packets) writer.Add(p);
            ASSERT_TRUE(writer.Finish(&error)) << error;
            EXPECT_EQ(writer.inexact(), 0);
            EXPECT_EQ(writer.packets(), static_cast<int64_t>(packets.size()));

            std::vector<std::string> lines;
            const std::vector<IndexPacket> back = ReadBack(dir / "a.idx", &lines);
            ASSERT_EQ(back.size(), packets.size());
            const auto fields = [](const IndexPacket& p) {
                return std::make_tuple(p.stream, p.pos, p.size, p.pts, p.dts, p.duration, p.key);
            };
            for (size_t i = 0; i < packets.size(); ++i)
                ASSERT_EQ(fields(back[i]), fields(packets[i])) << "packet " << i;
            const size_t most = static_cast<size_t>(IndexWriter::MaxEntriesPerLine(version));
            EXPECT_EQ(lines.size(), (packets.size() + std::min<size_t>(per_line, most) - 1) /
                                        std::min<size_t>(per_line, most));
            for (const std::string& line : lines)
                EXPECT_LE(line.size(), static_cast<size_t>(IndexWriter::kMaxLineBytes));
        }
    }
}

// The widest entry of either version still fits the reader's line when lines are full.
TEST(IndexWriterTest, FullLinesOfWidestEntriesFitTheReader) {
    for (int version : {1, 2}) {
        TempDir dir;
        IndexWriter writer(version, 1000);
        std::string error;
        ASSERT_TRUE(writer.Begin(dir / "w.idx", Streams(), &error));
        int64_t pts = 0;
        for (int i = 0; i < 400; ++i) {
            IndexPacket p;
            p.stream = 0;
            p.pos = 9'000'000'000'000'000'000LL - i * 3'000'000'000LL;  // never "read on"
            p.size = 2'000'000'000;
            pts = i % 2 ? -8'000'000'000'000'000'000LL : 8'000'000'000'000'000'000LL;
            p.pts = pts;
            p.dts = -pts;
            p.duration = -9'000'000'000'000'000'000LL;
            p.key = true;
            writer.Add(p);
        }
        ASSERT_TRUE(writer.Finish(&error));
        std::vector<std::string> lines;
        const std::vector<IndexPacket> back = ReadBack(dir / "w.idx", &lines);
        EXPECT_EQ(back.size(), 400u);
        for (const std::string& line : lines)
            EXPECT_LE(line.size(), static_cast<size_t>(IndexWriter::kMaxLineBytes));
    }
}

TEST(IndexWriterTest, AnExistingIndexIsReplacedOnlyWhenTheNewOneIsComplete) {
    TempDir dir;
    const std::string path = dir / "keep.idx";
    write_file(path, "the index the user had");
    std::string error;
    {
        IndexWriter writer;
        ASSERT_TRUE(writer.Begin(path, Streams(), &error));
        writer.Add(Packets()[0]);
        EXPECT_EQ(read_file(path), "the index the user had");
    }  // destroyed unfinished: abandoned
    EXPECT_EQ(read_file(path), "the index the user had");
    size_t files = 0;
    for (const auto& e : fs::directory_iterator(dir.path())) files += e.is_regular_file();
    EXPECT_EQ(files, 1u) << "no temporary file stays";

    IndexWriter writer;
    EXPECT_FALSE(writer.Begin(dir / "missing-dir/x.idx", Streams(), &error));
    EXPECT_NE(error.find("missing-dir"), std::string::npos) << error;
    ASSERT_TRUE(writer.Begin(path, Streams(), &error));
    IndexPacket p;  // decodes at the running dts but shows later: a zero step cannot say that
    p.pos = 48;
    p.size = 10;
    p.pts = 512;
    writer.Add(p);
    EXPECT_EQ(writer.inexact(), 1);
    ASSERT_TRUE(writer.Finish(&error));
    EXPECT_EQ(read_file(path).rfind("#version=2\n{\"type\":\"video\"", 0), 0u);
}

}  // namespace
