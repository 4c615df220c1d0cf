// The index writer against the reader: what one writes, the other gives back, timestamps,
// positions and line rules included; and the file it replaces only once complete.
#include <gtest/gtest.h>

#include <cstring>
#include <iterator>
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

// Fields in declaration order: video, index, codec, format, tb_num, tb_den, width, height,
// channels, sample_rate, frame_size, extradata.
std::vector<IndexStream> Streams() {
    return {{true, 0, "hevc", "yuv420p", 1, 12800, 320, 240, 0, 0, 0, {1, 2, 3, 0, 255}},
            {false, 1, "pcm_s16le", "s16", 1, 48000, 0, 0, 2, 48000, 0, {}}};
}

// B-frame reordering, audio priming before zero, gaps between packets and huge positions.
std::vector<IndexPacket> Packets() {
    std::mt19937 rng(11);
    std::vector<IndexPacket> out;
    int64_t pos = 48;
    const int64_t order[] = {0, 3, 1, 2, 6, 4, 5};
    int counts[2] = {0, 0};
    for (int i = 0; i < 700; ++i) {
        const int stream = i % 3 == 2 ? 1 : 0, size = static_cast<int>(rng() % 5000) + 1;
        if (i == 300) pos += 5'000'000'000LL;  // past 4 GiB
        if (i % 50 == 49) pos += 17;           // bytes no packet owns
        const int n = counts[stream]++;
        if (stream == 0)
            out.push_back(
                {0, pos, size, ((n / 7) * 7 + order[n % 7]) * 512, (n - 2) * 512, 512, n % 7 == 0});
        else
            out.push_back({1, pos, size, (n - 1) * 1024, (n - 1) * 1024, 1024, true});
        pos += size;
    }
    return out;
}

// The widest entry of either version: full lines of these must still fit the reader's line.
std::vector<IndexPacket> WidestPackets() {
    std::vector<IndexPacket> out;
    for (int64_t i = 0; i < 400; ++i) {
        const int64_t pts = i % 2 ? -8'000'000'000'000'000'000LL : 8'000'000'000'000'000'000LL;
        // Positions fall, so an entry never "reads on" and always names its position.
        out.push_back({0, 9'000'000'000'000'000'000LL - i * 3'000'000'000LL, 2'000'000'000, pts,
                       -pts, -9'000'000'000'000'000'000LL, true});
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
            IndexPacket p{
                e.stream_index, e.position != 0 ? e.position : next, e.size, 0, 0, e.duration,
                e.key != 0};
            steps.Apply(e.stream_index == parser.audio().index, e.pts_step, e.dts_step, &p.pts,
                        &p.dts);
            next = p.pos + p.size;
            out.push_back(p);
        }
    }
    return out;
}

TEST(IndexWriterTest, TheReaderGivesBackWhatWasWritten) {
    const std::vector<IndexPacket> sets[] = {Packets(), WidestPackets()};
    for (const std::vector<IndexPacket>& packets : sets) {
        for (int version : {1, 2}) {
            for (int per_line : {1, 3, 1000}) {
                SCOPED_TRACE(testing::Message() << packets.size() << " packets, version " << version
                                                << ", " << per_line << " per line");
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
                    return std::make_tuple(p.stream, p.pos, p.size, p.pts, p.dts, p.duration,
                                           p.key);
                };
                for (size_t i = 0; i < packets.size(); ++i)
                    ASSERT_EQ(fields(back[i]), fields(packets[i])) << "packet " << i;
                const size_t most = std::min<size_t>(
                    per_line, static_cast<size_t>(IndexWriter::MaxEntriesPerLine(version)));
                EXPECT_EQ(lines.size(), (packets.size() + most - 1) / most);
                for (const std::string& line : lines)
                    EXPECT_LE(line.size(), static_cast<size_t>(IndexWriter::kMaxLineBytes));
            }
        }
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
    EXPECT_EQ(std::distance(fs::directory_iterator(dir.path()), {}), 1)
        << "no temporary file stays";

    IndexWriter writer;
    EXPECT_FALSE(writer.Begin(dir / "missing-dir/x.idx", Streams(), &error));
    EXPECT_NE(error.find("missing-dir"), std::string::npos) << error;
    ASSERT_TRUE(writer.Begin(path, Streams(), &error));
    // Decodes at the running dts but shows later: a zero step cannot say that.
    writer.Add({0, 48, 10, 512, 0, 0, false});
    EXPECT_EQ(writer.inexact(), 1);
    ASSERT_TRUE(writer.Finish(&error));
    EXPECT_EQ(read_file(path).rfind("#version=2\n{\"type\":\"video\"", 0), 0u);
}

}  // namespace
