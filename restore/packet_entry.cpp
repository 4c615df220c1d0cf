// Reader of one packet entry, shared by the repair loop, its benchmark and its fuzzer.
#include "restore/packet_entry.h"

#include <climits>
#include <cstring>

namespace restore {

namespace {

bool AtLineEnd(const char* p, const char* end) {
    return p >= end || *p == '\0' || *p == '\n' || *p == '\r';
}

// A decimal number as scanf reads it: leading blanks, an optional sign, at least one digit.
// Out-of-range values saturate instead of wrapping, so a damaged size can never turn small.
bool ScanNumber(const char** cursor, const char* end, int64_t lo, int64_t hi, int64_t* out) {
    const char* p = *cursor;
    while (p < end && (*p == ' ' || *p == '\t' || *p == '\v' || *p == '\f')) ++p;
    bool negative = false;
    if (p < end && (*p == '+' || *p == '-')) negative = *p++ == '-';
    if (p >= end || *p < '0' || *p > '9') return false;
    int64_t value = 0;
    const int64_t limit = negative ? lo : hi;
    for (; p < end && *p >= '0' && *p <= '9'; ++p) {
        const int digit = *p - '0';
        if (value == limit) continue;
        if (negative) {
            value = value < (lo + digit) / 10 ? lo : value * 10 - digit;
        } else {
            value = value > (hi - digit) / 10 ? hi : value * 10 + digit;
        }
    }
    *out = value;
    *cursor = p;
    return true;
}

struct Field {
    bool wide;  // 64-bit field; otherwise 32-bit
    int64_t PacketEntry::*wide_member;
    int PacketEntry::*narrow_member;
};

const Field kFields[7] = {
    {false, nullptr, &PacketEntry::stream_index}, {true, &PacketEntry::position, nullptr},
    {false, nullptr, &PacketEntry::size},         {true, &PacketEntry::pts_step, nullptr},
    {true, &PacketEntry::dts_step, nullptr},      {true, &PacketEntry::duration, nullptr},
    {false, nullptr, &PacketEntry::key},
};

void Store(PacketEntry* entry, int field, int64_t value) {
    if (kFields[field].wide)
        entry->*kFields[field].wide_member = value;
    else
        entry->*kFields[field].narrow_member = static_cast<int>(value);
}

bool ScanField(const char** cursor, const char* end, int field, int64_t* out) {
    if (kFields[field].wide) return ScanNumber(cursor, end, INT64_MIN, INT64_MAX, out);
    return ScanNumber(cursor, end, INT_MIN, INT_MAX, out);
}

// One pass in the manner of "%d,%lld,%d,%lld,%lld,%lld,%d;": stops at the first field or
// separator that does not match; what it did not reach keeps its value.
EntryRead ReadVersion1(const char* p, const char* end, PacketEntry* entry) {
    for (int field = 0; field < 7; ++field) {
        int64_t value = 0;
        if (AtLineEnd(p, end) || !ScanField(&p, end, field, &value))
            return field == 0 ? EntryRead::kEndOfLine : EntryRead::kEntry;
        Store(entry, field, value);
        if (field < 6) {
            if (p >= end || *p != ',') return EntryRead::kEntry;
            ++p;
        }
    }
    return EntryRead::kEntry;
}

// Field by field: an empty field is 0; a field that is not a number reads as 0 too. A ";"
// met early closes the entry, so its missing fields read as empty rather than spilling into
// the next entry.
EntryRead ReadVersion2(const char** cursor, const char* end, PacketEntry* entry) {
    const char* p = *cursor;
    for (int field = 0; field < 7; ++field) {
        if (AtLineEnd(p, end)) {
            *cursor = p;
            return field == 0 ? EntryRead::kEndOfLine : EntryRead::kEntry;
        }
        const char separator = field < 6 ? ',' : ';';
        int64_t value = 0;
        if (*p != separator) {
            if (!ScanField(&p, end, field, &value)) value = 0;
            while (!AtLineEnd(p, end) && *p != separator && *p != ';') ++p;
        }
        Store(entry, field, value);
        if (field < 6 && !AtLineEnd(p, end) && *p == ',') ++p;
    }
    *cursor = p;
    return EntryRead::kEntry;
}

}  // namespace

EntryRead ReadPacketEntry(int version, const char** cursor, const char* end, PacketEntry* entry) {
    if (version == 1) return ReadVersion1(*cursor, end, entry);
    if (version == 2) return ReadVersion2(cursor, end, entry);
    return EntryRead::kBadVersion;
}

EntryRead PacketLine::Next(PacketEntry* entry) {
    if (done_) return EntryRead::kEndOfLine;
    const EntryRead read = ReadPacketEntry(version_, &cursor_, end_, entry);
    if (read != EntryRead::kEntry) return read;
    rest_ = static_cast<const char*>(memchr(cursor_, ';', static_cast<size_t>(end_ - cursor_)));
    if (!rest_) {
        done_ = true;
    } else {
        cursor_ = rest_ + 1;
        done_ = cursor_ >= end_;
    }
    return EntryRead::kEntry;
}

}  // namespace restore
