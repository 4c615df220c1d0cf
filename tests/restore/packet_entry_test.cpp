// Packet entries of both index versions, read as the copy loop reads them.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "restore/packet_entry.h"
#include "restore/timestamp_steps.h"

using namespace restore;

namespace {

// The entries of a whole line, as the copy loop walks them.
std::vector<std::vector<int64_t>> ReadLine(int version, const std::string& line) {
    std::vector<std::vector<int64_t>> out;
    PacketLine walk(version, line.c_str(), line.c_str() + line.size());
    PacketEntry e;
    while (walk.Next(&e) == EntryRead::kEntry)
        out.push_back(
            {e.stream_index, e.position, e.size, e.pts_step, e.dts_step, e.duration, e.key});
    return out;
}

using Entries = std::vector<std::vector<int64_t>>;

TEST(PacketEntryTest, BothVersionsReadFullEntriesAndALastOneWithoutSemicolon) {
    for (int version : {1, 2}) {
        EXPECT_EQ(ReadLine(version, "0,48,35210,0,-1024,3003,1;1,35258,682,-5,0,1024,0\n"),
                  (Entries{{0, 48, 35210, 0, -1024, 3003, 1}, {1, 35258, 682, -5, 0, 1024, 0}}))
            << version;
        for (const char* text : {"", "\n", "\r\n"}) EXPECT_TRUE(ReadLine(version, text).empty());
    }
}

TEST(PacketEntryTest, MissingFieldsDifferByVersion) {
    // Version 2: empty and non-numeric fields are 0, and a ";" closes its entry early.
    EXPECT_EQ(ReadLine(2, "1,,192,-1024,,1024,1;,,x,,512,,;\r\n"),
              (Entries{{1, 0, 192, -1024, 0, 1024, 1}, {0, 0, 0, 0, 512, 0, 0}}));
    EXPECT_EQ(ReadLine(2, "1,2;3,4,5,6,7,8,9;\n"),
              (Entries{{1, 2, 0, 0, 0, 0, 0}, {3, 4, 5, 6, 7, 8, 9}}));
    // Version 1 scans like "%d,%lld,...": fields it does not reach keep the line's earlier
    // values, and a line that does not start with a number has no entry.
    EXPECT_EQ(ReadLine(1, "1,100,10,7,8,9,1;0,200,30\n"),
              (Entries{{1, 100, 10, 7, 8, 9, 1}, {0, 200, 30, 7, 8, 9, 1}}));
    EXPECT_TRUE(ReadLine(1, "x,1,2,3,4,5,6;\n").empty());
    EXPECT_EQ(ReadLine(2, "1,100,10,7,8,9,1;0,200,30\n")[1],
              (std::vector<int64_t>{0, 200, 30, 7, 8, 9, 1}));
}

TEST(PacketEntryTest, OutOfRangeNumbersSaturateAndUnknownVersionsAreRefused) {
    for (int version : {1, 2})
        EXPECT_EQ(ReadLine(version,
                           "99999999999,99999999999999999999,4294967296,"
                           "-99999999999999999999,1,-9223372036854775809,-4294967297;"),
                  (Entries{{INT_MAX, INT64_MAX, INT_MAX, INT64_MIN, 1, INT64_MIN, INT_MIN}}));
    const char* line = "0,0,10,0,0,0,1;\n";
    PacketEntry e;
    EXPECT_EQ(ReadPacketEntry(0, &line, line + 16, &e), EntryRead::kBadVersion);
}

TEST(PacketEntryTest, NeverReadsPastTheGivenEnd) {
    const char text[] = {'1', ',', '2', ',', '3', ',', '4', '5', '6'};  // no NUL anywhere
    for (int version : {1, 2}) {
        const char* cursor = text;
        PacketEntry e;
        ASSERT_EQ(ReadPacketEntry(version, &cursor, text + 7, &e), EntryRead::kEntry);
        EXPECT_EQ(std::make_pair(e.size, e.pts_step), std::make_pair(3, int64_t{4}));
        EXPECT_LE(cursor, text + 7);
    }
}

// The writer's steps give its times back when applied; a dts equal to the running dts cannot
// be said and comes back one tick earlier.
TEST(TimestampStepsTest, MadeStepsApplyBackSaveARepeatedDts) {
    restore::TimestampSteps writer, reader;
    const struct {
        int64_t pts, dts;
        bool exact;
    } cases[] = {{3000, 1000, true}, {9000, 3000, true}, {6000, 3000, false}};
    for (const auto& c : cases) {
        int64_t pts_step = 0, dts_step = 0, pts = 0, dts = 0;
        EXPECT_EQ(writer.Make(false, c.pts, c.dts, &pts_step, &dts_step), c.exact);
        reader.Apply(false, pts_step, dts_step, &pts, &dts);
        EXPECT_EQ(pts, c.pts);
        EXPECT_EQ(dts, c.exact ? c.dts : c.dts - 1);
    }
}

}  // namespace
