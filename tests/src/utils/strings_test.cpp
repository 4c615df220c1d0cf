// Text: UTF-8 <-> UTF-16 conversion and the string helpers of Utils.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "utils/utf.h"
#include "utils/utils.h"

namespace {

const char16_t R = 0xFFFD;

// Every scalar value round trips; malformed input becomes replacement characters.
TEST(UtilsStrings, UtfRoundTripsReplacementsTrimCompareFormat) {
    EXPECT_EQ(zp::utf8_to_utf16("a\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80"),
              (std::u16string{u'a', 0x00E9, 0x4E2D, 0xD83D, 0xDE00}));
    for (char32_t cp = 0; cp <= 0x10FFFF; cp = cp == 0xD7FF ? 0xE000 : cp + 1) {
        const char32_t v = cp - 0x10000;
        const std::u16string w = cp < 0x10000
                                     ? std::u16string(1, static_cast<char16_t>(cp))
                                     : std::u16string{static_cast<char16_t>(0xD800 + (v >> 10)),
                                                      static_cast<char16_t>(0xDC00 + (v & 0x3FF))};
        const std::string n = zp::utf16_to_utf8(w);
        ASSERT_EQ(n.size(), 1u + (cp >= 0x80) + (cp >= 0x800) + (cp >= 0x10000)) << uint32_t(cp);
        ASSERT_EQ(zp::utf8_to_utf16(n), w) << uint32_t(cp);
    }
    const std::pair<std::string, std::u16string> cases[] = {
        {"\xE4\xB8", {R}},                   // one replacement per maximal subpart
        {"\xF0\x9F\x98\x41", {R, u'A'}},     // the byte that broke it is kept
        {"\xC0\xAF", {R, R}},                // overlong
        {"\xE0\x80\xAF", {R, R, R}},         // overlong three-byte form
        {"\xED\xA0\x80", {R, R, R}},         // encoded surrogate
        {"\xF4\x90\x80\x80", {R, R, R, R}},  // above U+10FFFF
    };
    for (const auto& c : cases)
        EXPECT_EQ(zp::utf8_to_utf16(c.first), c.second) << testing::PrintToString(c.first);
    EXPECT_EQ(zp::utf16_to_utf8(std::u16string{0xD83D, 0xD83D, 0xDE00}),
              "\xEF\xBF\xBD\xF0\x9F\x98\x80");
    EXPECT_EQ(zp::utf16_to_utf8(std::u16string{0xDE00, 0xD83D}), "\xEF\xBF\xBD\xEF\xBF\xBD");
    zp::Utils u;
    char all_space[] = "   ";
    EXPECT_STREQ(u.trim_right_space(all_space), " ");  // the first character is never examined
    EXPECT_EQ(u.trimmed(" \t\va b \r\n"), "\va b");    // only space, tab, LF and CR count
    EXPECT_EQ(u.split(",a,,b;c,", ",;", true), (std::vector<std::string>{"a", "", "b", "c"}));
    EXPECT_TRUE(u.ends_with("clip.MP4", ".mp4", false));
    EXPECT_FALSE(u.ends_with("4", ".mp4", false));
    EXPECT_EQ(u.replace_all("aaaa", "aa", "a"), "a");  // rescans from the start
    EXPECT_EQ(u.format("%s-%05d", std::string(5000, 'z').c_str(), 42),
              std::string(5000, 'z') + "-00042");
}

}  // namespace
