// Fuzz target: the text restore of protected option texts, and protect/restore round trips.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "crypt/crypt.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    zp::Crypt* crypt = zp::Crypt::instance();
    const std::string text(reinterpret_cast<const char*>(data), size);

    // Arbitrary input, marked or not: no crash, and a clear text passes through.
    const std::string restored = crypt->restore_text(text);
    const std::string marker = zp::Crypt::text_marker();
    if (text.compare(0, marker.size(), marker) != 0 && restored != text) abort();

    // Whatever is protected restores to itself.
    if (crypt->restore_text(crypt->protect_text(text)) != text) abort();
    return 0;
}
