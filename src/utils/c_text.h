#pragma once
// Owned C text copies (malloc/free), for the components that keep plain C strings.

#include <cstdlib>
#include <cstring>

namespace zp {

// A malloc'd copy of `text`, to be released with free(); null for null or when out of memory.
inline char* copy_text(const char* text) {
    if (text == nullptr) return nullptr;
    const size_t n = strlen(text) + 1;
    char* copy = static_cast<char*>(malloc(n));
    if (copy != nullptr) memcpy(copy, text, n);
    return copy;
}

}  // namespace zp
