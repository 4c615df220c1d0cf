// Fuzz target: the packet-line reader of both index versions, walked as the copy loop walks it.
// The first byte picks the version; the rest is one line, bounded by its end and not by a NUL.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "restore/packet_entry.h"

using namespace restore;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const int version = data[0] % 3 + 1;  // 1, 2, and 3 for an unknown one
    const size_t length = size - 1;
    // An exact-size copy, so that a read past `end` is caught by the address checks.
    std::unique_ptr<char[]> line(new char[length ? length : 1]);
    memcpy(line.get(), data + 1, length);
    const char* end = line.get() + length;

    PacketLine walk(version, line.get(), end);
    PacketEntry entry;
    for (size_t entries = 0;; ++entries) {
        if (entries > length) abort();  // each entry consumes at least its ";"
        const EntryRead read = walk.Next(&entry);
        if (read == EntryRead::kBadVersion) {
            if (version != 3) abort();
            return 0;
        }
        if (version == 3) abort();
        if (read == EntryRead::kEndOfLine) return 0;
        const char* rest = walk.rest();
        if (rest && (rest < line.get() || rest >= end || *rest != ';')) abort();
    }
}
