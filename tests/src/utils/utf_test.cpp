// UTF-8 <-> UTF-16 conversion: every code point, surrogate pairs and malformed input.
#include <gtest/gtest.h>

#include "utils/utf.h"
#include "utils/utils.h"

namespace {

using zp::utf16_to_utf8;
using zp::utf8_to_utf16;

const char16_t kFFFD = 0xFFFD;

TEST(Utf, KnownSequencesInBothDirections) {
    // a, e-acute (2 bytes), U+4E2D (3 bytes), U+1F600 (4 bytes, surrogate pair).
    const std::string utf8 = "a\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80";
    const std::u16string utf16 = {u'a', 0x00E9, 0x4E2D, 0xD83D, 0xDE00};
    EXPECT_EQ(utf8_to_utf16(utf8), utf16);
    EXPECT_EQ(utf16_to_utf8(utf16), utf8);
    // Boundaries of each encoded length.
    EXPECT_EQ(utf8_to_utf16(
                  "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"),
              (std::u16string{0x7F, 0x80, 0x7FF, 0x800, 0xFFFF, 0xD800, 0xDC00, 0xDBFF, 0xDFFF}));
    EXPECT_EQ(utf8_to_utf16(std::string("a\0b", 3)), (std::u16string{u'a', 0, u'b'}));
}

TEST(Utf, EveryScalarValueRoundTrips) {
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

TEST(Utf, MalformedUtf8BecomesReplacementCharacters) {
    struct Case {
        std::string in;
        std::u16string out;
    };
    const Case cases[] = {
        {"\xC3", {kFFFD}},      // truncated at the very end
        {"\xE4\xB8", {kFFFD}},  // one replacement per maximal subpart
        {"\xF0\x9F\x98", {kFFFD}},
        {"\xF0\x9F\x98"
         "A",
         {kFFFD, u'A'}},  // the byte that broke it is kept
        {"\xFF\xFE", {kFFFD, kFFFD}},
        {"\x80", {kFFFD}},                                   // stray continuation byte
        {"\xC0\xAF", {kFFFD, kFFFD}},                        // overlong '/'
        {"\xE0\x80\xAF", {kFFFD, kFFFD, kFFFD}},             // overlong three-byte form
        {"\xED\xA0\x80", {kFFFD, kFFFD, kFFFD}},             // encoded surrogate
        {"\xF4\x90\x80\x80", {kFFFD, kFFFD, kFFFD, kFFFD}},  // above U+10FFFF
        {"a\xC3(b", {u'a', kFFFD, u'(', u'b'}},
    };
    for (const Case& c : cases)
        EXPECT_EQ(utf8_to_utf16(c.in), c.out) << testing::PrintToString(c.in);
}

TEST(Utf, UnpairedSurrogatesBecomeReplacementCharacters) {
    EXPECT_EQ(utf16_to_utf8(std::u16string{0xD800}), "\xEF\xBF\xBD");
    EXPECT_EQ(utf16_to_utf8(std::u16string{0xDC00, u'a'}),
              "\xEF\xBF\xBD"
              "a");
    EXPECT_EQ(utf16_to_utf8(std::u16string{0xD83D, 0xD83D, 0xDE00}),
              "\xEF\xBF\xBD\xF0\x9F\x98\x80");
    EXPECT_EQ(utf16_to_utf8(std::u16string{0xDE00, 0xD83D}), "\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(Utf, PrefixNeverEndsInsideACharacter) {
    const std::string s =
        "ab\xE4\xB8\xAD"
        "c";  // a b U+4E2D c
    EXPECT_EQ(zp::utf8_prefix_length(s, 2), 2u);
    EXPECT_EQ(zp::utf8_prefix_length(s, 3), 2u);
    EXPECT_EQ(zp::utf8_prefix_length(s, 4), 2u);
    EXPECT_EQ(zp::utf8_prefix_length(s, 5), 5u);
    EXPECT_EQ(zp::utf8_prefix_length(s, 100), s.size());
}

TEST(Utf, UtilsSlotsUseTheCodec) {
    zp::Utils u;
    EXPECT_TRUE(u.to_wide("").empty());
    EXPECT_TRUE(u.to_narrow(u"").empty());
    const std::string text = "\xE8\xA7\x86\xE9\xA2\x91.mp4";  // Chinese file name
    EXPECT_EQ(u.to_narrow(u.to_wide(text)), text);
    EXPECT_EQ(u.to_wide(text).size(), 6u);
    EXPECT_EQ(u.utf8_to_ansi(u.ansi_to_utf8(text)), text);
}

}  // namespace
