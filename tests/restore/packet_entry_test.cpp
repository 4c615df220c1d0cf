// Packet entries of both index versions, read as the copy loop reads them.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "restore/packet_entry.h"

namespace {

struct Walk {
    std::vector<PacketEntry> entries;
    EntryRead last = EntryRead::kEndOfLine;
};

// Walks a whole line the way the copy loop does: entry, then past its ";", until the line ends.
Walk ReadLine(int version, const std::string& line) {
    Walk w;
    const char* cursor = line.c_str();
    const char* end = cursor + line.size();
    PacketEntry entry;
    for (;;) {
        w.last = ReadPacketEntry(version, &cursor, end, &entry);
        if (w.last != EntryRead::kEntry) return w;
        w.entries.push_back(entry);
        const char* next = strchr(cursor, ';');
        if (!next || next + 1 >= end) return w;
        cursor = next + 1;
    }
}

void ExpectEntry(const PacketEntry& e, int index, int64_t pos, int size, int64_t pts, int64_t dts,
                 int64_t duration, int key) {
    EXPECT_EQ(e.stream_index, index);
    EXPECT_EQ(e.position, pos);
    EXPECT_EQ(e.size, size);
    EXPECT_EQ(e.pts_step, pts);
    EXPECT_EQ(e.dts_step, dts);
    EXPECT_EQ(e.duration, duration);
    EXPECT_EQ(e.key, key);
}

TEST(PacketEntryTest, BothVersionsReadFullEntriesAlike) {
    for (int version : {1, 2}) {
        SCOPED_TRACE(version);
        const Walk w = ReadLine(version, "0,48,35210,0,-1024,3003,1;1,35258,682,-5,0,1024,0;\n");
        ASSERT_EQ(w.entries.size(), 2u);
        ExpectEntry(w.entries[0], 0, 48, 35210, 0, -1024, 3003, 1);
        ExpectEntry(w.entries[1], 1, 35258, 682, -5, 0, 1024, 0);
        EXPECT_EQ(w.last, EntryRead::kEndOfLine);
    }
}

TEST(PacketEntryTest, Version2EmptyFieldsAreZero) {
    Walk w = ReadLine(2, ",,,,,,;\n");
    ASSERT_EQ(w.entries.size(), 1u);
    ExpectEntry(w.entries[0], 0, 0, 0, 0, 0, 0, 0);

    w = ReadLine(2, "1,,192,-1024,,1024,1;,,96,,512,,;\r\n");
    ASSERT_EQ(w.entries.size(), 2u);
    ExpectEntry(w.entries[0], 1, 0, 192, -1024, 0, 1024, 1);
    ExpectEntry(w.entries[1], 0, 0, 96, 0, 512, 0, 0);
}

TEST(PacketEntryTest, Version2CursorStopsOnTheClosingSemicolon) {
    const std::string line = "3,4,5,6,7,8,9;rest";
    const char* cursor = line.c_str();
    PacketEntry e;
    ASSERT_EQ(ReadPacketEntry(2, &cursor, line.c_str() + line.size(), &e), EntryRead::kEntry);
    EXPECT_EQ(cursor, line.c_str() + 13);
    EXPECT_EQ(*cursor, ';');
}

TEST(PacketEntryTest, LineWithoutFinalSemicolonKeepsItsLastEntry) {
    for (int version : {1, 2}) {
        SCOPED_TRACE(version);
        const Walk w = ReadLine(version, "0,0,10,1,0,0,1;0,0,20,2,0,0,1\n");
        ASSERT_EQ(w.entries.size(), 2u);
        ExpectEntry(w.entries[1], 0, 0, 20, 2, 0, 0, 1);
    }
}

TEST(PacketEntryTest, CutEntryKeepsTheLinesEarlierValues) {
    // Version 1: the scan stops where the text does; the rest is the previous entry's.
    Walk w = ReadLine(1, "1,100,10,7,8,9,1;0,200,30\n");
    ASSERT_EQ(w.entries.size(), 2u);
    ExpectEntry(w.entries[1], 0, 200, 30, 7, 8, 9, 1);
    // Version 2: the same at a line end...
    w = ReadLine(2, "1,100,10,7,8,9,1;0,200,30\n");
    ASSERT_EQ(w.entries.size(), 2u);
    ExpectEntry(w.entries[1], 0, 200, 30, 7, 8, 9, 1);
    // ...but a ";" closes its entry, so the next entry's fields are never borrowed.
    w = ReadLine(2, "1,2;3,4,5,6,7,8,9;\n");
    ASSERT_EQ(w.entries.size(), 2u);
    ExpectEntry(w.entries[0], 1, 2, 0, 0, 0, 0, 0);
    ExpectEntry(w.entries[1], 3, 4, 5, 6, 7, 8, 9);
}

TEST(PacketEntryTest, NothingReadableEndsTheLine) {
    for (int version : {1, 2}) {
        SCOPED_TRACE(version);
        for (const char* text : {"", "\n", "\r\n"}) {
            EXPECT_TRUE(ReadLine(version, text).entries.empty()) << text;
            EXPECT_EQ(ReadLine(version, text).last, EntryRead::kEndOfLine);
        }
    }
    // Version 1 needs a number to start an entry; version 2 reads a non-number as 0.
    EXPECT_TRUE(ReadLine(1, "x,1,2,3,4,5,6;\n").entries.empty());
    const Walk w = ReadLine(2, "x,1,2,3,4,5,6;\n");
    ASSERT_EQ(w.entries.size(), 1u);
    ExpectEntry(w.entries[0], 0, 1, 2, 3, 4, 5, 6);
}

TEST(PacketEntryTest, UnknownVersionIsReportedNotRead) {
    for (int version : {0, 3, -1}) {
        const std::string line = "0,0,10,0,0,0,1;\n";
        const char* cursor = line.c_str();
        PacketEntry e;
        EXPECT_EQ(ReadPacketEntry(version, &cursor, line.c_str() + line.size(), &e),
                  EntryRead::kBadVersion);
    }
}

TEST(PacketEntryTest, OutOfRangeNumbersSaturate) {
    for (int version : {1, 2}) {
        SCOPED_TRACE(version);
        const Walk w = ReadLine(version,
                                "99999999999,99999999999999999999,4294967296,-99999999999999999999,"
                                "9223372036854775807,-9223372036854775808,-4294967297;\n");
        ASSERT_EQ(w.entries.size(), 1u);
        ExpectEntry(w.entries[0], INT_MAX, INT64_MAX, INT_MAX, INT64_MIN, INT64_MAX, INT64_MIN,
                    INT_MIN);
    }
}

TEST(PacketEntryTest, NeverReadsPastTheGivenEnd) {
    // No terminating NUL anywhere: the end pointer alone bounds the scan.
    const char text[] = {'1', ',', '2', ',', '3', ',', '4', '5', '6'};
    for (int version : {1, 2}) {
        const char* cursor = text;
        PacketEntry e;
        ASSERT_EQ(ReadPacketEntry(version, &cursor, text + 7, &e), EntryRead::kEntry);
        EXPECT_EQ(e.size, 3);
        EXPECT_EQ(e.pts_step, 4);
        EXPECT_LE(cursor, text + 7);
    }
}

}  // namespace
