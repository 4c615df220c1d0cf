// UTF-8 <-> UTF-16 conversion: every code point, surrogate pairs and malformed input.
#include <gtest/gtest.h>

#include "utils/utf.h"

namespace {

using zp::utf16_to_utf8;
using zp::utf8_to_utf16;

const char16_t R = 0xFFFD;

TEST(Utf, EveryScalarValueRoundTrips) {
    EXPECT_EQ(utf8_to_utf16("a\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80"),
              (std::u16string{u'a', 0x00E9, 0x4E2D, 0xD83D, 0xDE00}));
    for (char32_t cp = 0; cp <= 0x10FFFF; ++cp) {
        if (cp >= 0xD800 && cp <= 0xDFFF) continue;
        std::u16string w;
        if (cp < 0x10000) {
            w.push_back(static_cast<char16_t>(cp));
        } else {
            w.push_back(static_cast<char16_t>(0xD800 + ((cp - 0x10000) >> 10)));
            w.push_back(static_cast<char16_t>(0xDC00 + ((cp - 0x10000) & 0x3FF)));
        }
        const std::string n = utf16_to_utf8(w);
        const size_t expected_len = cp < 0x80 ? 1 : cp < 0x800 ? 2 : cp < 0x10000 ? 3 : 4;
        ASSERT_EQ(n.size(), expected_len) << std::hex << static_cast<uint32_t>(cp);
        ASSERT_EQ(utf8_to_utf16(n), w) << std::hex << static_cast<uint32_t>(cp);
    }
}

TEST(Utf, MalformedInputBecomesReplacementCharacters) {
    const std::pair<std::string, std::u16string> cases[] = {
        {"\xE4\xB8", {R}},                   // one replacement per maximal subpart
        {"\xF0\x9F\x98\x41", {R, u'A'}},     // the byte that broke it is kept
        {"\xC0\xAF", {R, R}},                // overlong
        {"\xE0\x80\xAF", {R, R, R}},         // overlong three-byte form
        {"\xED\xA0\x80", {R, R, R}},         // encoded surrogate
        {"\xF4\x90\x80\x80", {R, R, R, R}},  // above U+10FFFF
        {"a\x80", {u'a', R}},                // stray continuation byte
    };
    for (const auto& c : cases)
        EXPECT_EQ(utf8_to_utf16(c.first), c.second) << testing::PrintToString(c.first);
    EXPECT_EQ(utf16_to_utf8(std::u16string{0xD83D, 0xD83D, 0xDE00}),
              "\xEF\xBF\xBD\xF0\x9F\x98\x80");
    EXPECT_EQ(utf16_to_utf8(std::u16string{0xDE00, 0xD83D}), "\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(Utf, PrefixNeverEndsInsideACharacter) {
    const std::string s = "ab\xE4\xB8\xAD\x63";
    EXPECT_EQ(zp::utf8_prefix_length(s, 4), 2u);
    EXPECT_EQ(zp::utf8_prefix_length(s, 5), 5u);
    EXPECT_EQ(zp::utf8_prefix_length(s, 100), s.size());
}

}  // namespace
