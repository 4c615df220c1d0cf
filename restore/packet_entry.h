#pragma once
// PacketEntry: one "index,pos,size,pts step,dts step,duration,key;" item of a packet line, and
// its reader for index format versions 1 and 2.

#include <cstdint>

struct PacketEntry {
    int stream_index = 0;
    int64_t position = 0;  // 0: read on from where the previous packet ended
    int size = 0;
    int64_t pts_step = 0;
    int64_t dts_step = 0;  // 0: dts equals pts
    int64_t duration = 0;  // 0 on audio: one frame of the audio description
    int key = 0;
};

enum class EntryRead {
    kEntry,      // an entry was read (fields it did not reach keep their values)
    kEndOfLine,  // nothing more on this line
    kBadVersion  // neither version 1 nor 2
};

// Reads the entry that starts at *cursor. `end` bounds the text; a NUL, a line feed or a
// carriage return ends it earlier. Version 1 leaves *cursor where it was (the caller looks for
// the entry's ";" itself); version 2 leaves it on the ";" that closes field 7, or on the end of
// the line when that ";" is missing.
EntryRead ReadPacketEntry(int version, const char** cursor, const char* end, PacketEntry* entry);
