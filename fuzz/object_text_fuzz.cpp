// Fuzz target: the object text reader on arbitrary bytes, and its look-ups.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "cmdline/object_text.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    zp::ObjectText reader;
    if (!reader.parse(text)) abort();  // the reader never refuses a text

    // Every member's key is found, and the first member with that key answers.
    const auto& members = reader.members();
    for (size_t i = 0; i < members.size(); ++i) {
        size_t first = 0;
        while (members[first].first != members[i].first) ++first;
        if (reader.get_string(members[i].first, "") != members[first].second) abort();
        if (reader.get_bool(members[i].first, false) != (members[first].second == "true")) abort();
    }
    for (const char* key : {"broken_file", "moov_file", "output_file", "type", "ev", "index"})
        reader.get_string(key, "");

    // A second parse replaces everything the first one left.
    reader.parse("{\"a\":\"1\"}");
    if (reader.members().size() != 1 || reader.get_string("a", "") != "1") abort();
    return 0;
}
