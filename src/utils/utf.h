#pragma once
// Hand-written UTF-8 <-> UTF-16 conversion for systems without a converting API.

#include <string>

namespace zp {

// Malformed input never reads past the end: each ill-formed sequence (maximal subpart) becomes
// U+FFFD, as do encoded surrogates, overlong forms and values above U+10FFFF.
std::u16string utf8_to_utf16(const std::string& s);

// Unpaired surrogates become U+FFFD.
std::string utf16_to_utf8(const std::u16string& w);

// The longest prefix of s (at most max_bytes) that does not end inside a multi-byte sequence.
size_t utf8_prefix_length(const std::string& s, size_t max_bytes);

}  // namespace zp
