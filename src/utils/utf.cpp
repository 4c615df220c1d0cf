// UTF-8 and UTF-16 codecs written out so that every platform converts the same way.
#include "utils/utf.h"

#include <cstdint>

namespace zp {

namespace {

constexpr char16_t kReplacement = 0xFFFD;

void append_utf16(std::u16string& out, uint32_t cp) {
    if (cp < 0x10000) {
        out.push_back(static_cast<char16_t>(cp));
    } else {
        cp -= 0x10000;
        out.push_back(static_cast<char16_t>(0xD800 + (cp >> 10)));
        out.push_back(static_cast<char16_t>(0xDC00 + (cp & 0x3FF)));
    }
}

void append_utf8(std::string& out, uint32_t cp) {
    if (cp < 0x80) {
        out.push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
}

// Length the lead byte announces and the allowed range of the second byte, which is where
// overlong forms, surrogates and values past U+10FFFF are caught.
bool lead_info(uint8_t b, int* len, uint8_t* lo, uint8_t* hi) {
    *lo = 0x80;
    *hi = 0xBF;
    if (b >= 0xC2 && b <= 0xDF) {
        *len = 2;
    } else if (b == 0xE0) {
        *len = 3;
        *lo = 0xA0;
    } else if (b >= 0xE1 && b <= 0xEC) {
        *len = 3;
    } else if (b == 0xED) {
        *len = 3;
        *hi = 0x9F;
    } else if (b >= 0xEE && b <= 0xEF) {
        *len = 3;
    } else if (b == 0xF0) {
        *len = 4;
        *lo = 0x90;
    } else if (b >= 0xF1 && b <= 0xF3) {
        *len = 4;
    } else if (b == 0xF4) {
        *len = 4;
        *hi = 0x8F;
    } else {
        return false;
    }
    return true;
}

}  // namespace

std::u16string utf8_to_utf16(const std::string& s) {
    std::u16string out;
    out.reserve(s.size());
    const size_t n = s.size();
    size_t i = 0;
    while (i < n) {
        const uint8_t b = static_cast<uint8_t>(s[i]);
        if (b < 0x80) {
            out.push_back(b);
            ++i;
            continue;
        }
        int len = 0;
        uint8_t lo = 0, hi = 0;
        if (!lead_info(b, &len, &lo, &hi)) {
            out.push_back(kReplacement);
            ++i;
            continue;
        }
        uint32_t cp = b & (0xFF >> (len + 1));
        size_t j = i + 1;
        bool ok = true;
        for (int k = 1; k < len; ++k, ++j) {
            if (j >= n) {
                ok = false;
                break;
            }
            const uint8_t c = static_cast<uint8_t>(s[j]);
            const uint8_t min = (k == 1) ? lo : 0x80;
            const uint8_t max = (k == 1) ? hi : 0xBF;
            if (c < min || c > max) {
                ok = false;
                break;
            }
            cp = (cp << 6) | (c & 0x3F);
        }
        if (ok) {
            append_utf16(out, cp);
        } else {
            // The valid bytes read so far form one maximal subpart: one replacement for all.
            out.push_back(kReplacement);
        }
        i = j;
    }
    return out;
}

std::string utf16_to_utf8(const std::u16string& w) {
    std::string out;
    out.reserve(w.size() * 3);
    const size_t n = w.size();
    for (size_t i = 0; i < n; ++i) {
        const uint32_t u = w[i];
        if (u >= 0xD800 && u <= 0xDBFF) {
            if (i + 1 < n && w[i + 1] >= 0xDC00 && w[i + 1] <= 0xDFFF) {
                const uint32_t low = w[i + 1];
                append_utf8(out, 0x10000 + ((u - 0xD800) << 10) + (low - 0xDC00));
                ++i;
            } else {
                append_utf8(out, kReplacement);
            }
        } else if (u >= 0xDC00 && u <= 0xDFFF) {
            append_utf8(out, kReplacement);
        } else {
            append_utf8(out, u);
        }
    }
    return out;
}

size_t utf8_prefix_length(const std::string& s, size_t max_bytes) {
    if (s.size() <= max_bytes) return s.size();
    // Step back over the continuation bytes (at most three) of the sequence that would be cut.
    size_t end = max_bytes;
    for (int k = 0; k < 3 && end > 0 && (static_cast<uint8_t>(s[end]) & 0xC0) == 0x80; ++k) --end;
    return (static_cast<uint8_t>(s[end]) & 0xC0) == 0x80 ? max_bytes : end;
}

}  // namespace zp
