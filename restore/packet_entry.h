#pragma once
// PacketEntry: one "index,pos,size,pts step,dts step,duration,key;" item of a packet line, its
// reader for index format versions 1 and 2, and the walk over a line's entries.

#include <cstdint>

namespace restore {

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

// The entries of one packet line, in the order kinefix reads them: each entry, then on from
// the ";" that closes it. The per-version cursor rules stay in here.
class PacketLine {
  public:
    // `end` bounds the line (its terminating NUL, for a C string).
    PacketLine(int version, const char* line, const char* end)
        : version_(version), cursor_(line), end_(end) {}

    // The next entry into *entry (version 1 keeps the fields it does not reach), or the end of
    // the line, or an unknown version.
    EntryRead Next(PacketEntry* entry);
    // The line from the ";" that closed the entry last read; null when it had none.
    const char* rest() const { return rest_; }

  private:
    int version_;
    const char* cursor_;
    const char* end_;
    const char* rest_ = nullptr;
    bool done_ = false;
};

}  // namespace restore
