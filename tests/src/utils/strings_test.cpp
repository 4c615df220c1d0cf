// String helpers of Utils: trimming, splitting, comparing, replacing, formatting, random text.
#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>

#include "utils/utils.h"

namespace {

class UtilsStrings : public testing::Test {
  protected:
    // Runs an in-place operation on a writable copy and returns the resulting text.
    template <typename Op>
    std::string inplace(const std::string& s, Op op) {
        buf_.assign(s.begin(), s.end());
        buf_.push_back('\0');
        return std::string(op(buf_.data()));
    }
    zp::Utils u;
    std::vector<char> buf_;
};

TEST_F(UtilsStrings, TrimmingWhiteSpace) {
    auto trim = [this](char* s) { return u.trim_space(s); };
    auto trim_right = [this](char* s) { return u.trim_right_space(s); };
    EXPECT_EQ(inplace("   ", trim), "");
    EXPECT_EQ(inplace("   ", trim_right), " ");  // the first character is never examined
    EXPECT_EQ(inplace(" \t a b \r\n", trim), "a b");
    EXPECT_EQ(inplace("\va\f", trim), "\va\f");  // only space, tab, LF and CR count
    EXPECT_EQ(inplace("", trim), "");
    EXPECT_EQ(inplace("x", trim_right), "x");
    EXPECT_EQ(u.trimmed("  key : value \n"), "key : value");
    EXPECT_EQ(u.trimmed(nullptr), "");
    const char* s = "  x";
    EXPECT_EQ(u.skip_space(s), s + 2);
}

TEST_F(UtilsStrings, TrimmingCharacterSets) {
    auto trim = [this](char* s) { return u.trim_chars(s, "-/"); };
    EXPECT_EQ(inplace("--a/b--/", trim), "a/b");
    EXPECT_EQ(inplace("----", [this](char* s) { return u.trim_right_chars(s, "-"); }), "-");
    EXPECT_EQ(inplace("----", trim), "");
    EXPECT_EQ(inplace("--a", [this](char* s) { return u.trim_chars(s, ""); }), "--a");
    char text[] = "xxa";
    EXPECT_EQ(u.skip_chars(text, ""), text);
    EXPECT_EQ(u.skip_chars(text, nullptr), text);
    EXPECT_EQ(u.trimmed_chars("\"quoted\"", "\""), "quoted");
}

TEST_F(UtilsStrings, SplitKeepsEmptyFieldsOnlyWhenAsked) {
    using V = std::vector<std::string>;
    EXPECT_EQ(u.split("a,,b", ",", true), (V{"a", "", "b"}));
    EXPECT_EQ(u.split("a,,b", ",", false), (V{"a", "b"}));
    EXPECT_EQ(u.split("a,,,b;c", ",;", true), (V{"a", "", "", "b", "c"}));
    // Delimiters before the first and after the last token add nothing.
    EXPECT_EQ(u.split(",,a,b,,", ",", true), (V{"a", "b"}));
    EXPECT_EQ(u.split("abc", ",", true), (V{"abc"}));
    EXPECT_TRUE(u.split("a,b", "", true).empty());
    EXPECT_TRUE(u.split("a,b", nullptr, true).empty());
    EXPECT_TRUE(u.split(nullptr, ",", true).empty());
    EXPECT_TRUE(u.split(",,,", ",", true).empty());
}

TEST_F(UtilsStrings, PrefixAndSuffixComparison) {
    EXPECT_TRUE(u.starts_with("Abc", "ab", false));
    EXPECT_FALSE(u.starts_with("Abc", "ab", true));
    EXPECT_TRUE(u.starts_with("Abc", "Ab"));
    EXPECT_TRUE(u.starts_with("Abc", ""));
    EXPECT_FALSE(u.starts_with("Ab", "Abc"));
    EXPECT_FALSE(u.starts_with(nullptr, "a"));
    EXPECT_FALSE(u.starts_with("a", nullptr));
    EXPECT_TRUE(u.ends_with("clip.MP4", ".mp4", false));
    EXPECT_FALSE(u.ends_with("clip.MP4", ".mp4", true));
    EXPECT_FALSE(u.ends_with("4", ".mp4", false));
    EXPECT_FALSE(u.ends_with(nullptr, "x"));
}

TEST_F(UtilsStrings, ReplaceRescansOrMovesForward) {
    // Rescanning from the start joins pieces that the forward form leaves apart.
    EXPECT_EQ(u.replace_all("aaaa", "aa", "a"), "a");
    EXPECT_EQ(u.replace_all_forward("aaaa", "aa", "a"), "aa");
    EXPECT_EQ(u.replace_all("a\\b\\c", "\\", "/"), "a/b/c");
    EXPECT_EQ(u.replace_all_forward("a\\b\\c", "\\", "/"), "a/b/c");
    // The forward form may insert text that contains what it replaces.
    EXPECT_EQ(u.replace_all_forward("a.b.", ".", ".."), "a..b..");
    EXPECT_EQ(u.replace_all("abc", "", "x"), "abc");
    EXPECT_EQ(u.replace_all("abc", "zz", "x"), "abc");
}

TEST_F(UtilsStrings, CaseTailAndFormat) {
    EXPECT_EQ(u.to_lower("MiXeD 1"), "mixed 1");
    EXPECT_EQ(u.to_upper("MiXeD 1"), "MIXED 1");
    EXPECT_EQ(inplace("AbC", [this](char* s) { return u.to_lower_inplace(s); }), "abc");
    EXPECT_EQ(inplace("AbC", [this](char* s) { return u.to_upper_inplace(s); }), "ABC");
    const char* s = "abcdef";
    EXPECT_EQ(u.tail(s, 3), s + 3);
    EXPECT_EQ(u.tail(s, 6), s);
    EXPECT_EQ(u.tail(s, 60), s);
    EXPECT_EQ(u.format("%s-%05d|%.2f", "x", 42, 1.5), "x-00042|1.50");
    EXPECT_EQ(u.format("%s", std::string(5000, 'z').c_str()), std::string(5000, 'z'));
    EXPECT_EQ(u.format(""), "");
}

TEST_F(UtilsStrings, RandomStringsDrawFromTheAlphabet) {
    EXPECT_EQ(u.random_string(0), "");
    EXPECT_EQ(u.random_string(-5), "");
    const std::string alphabet = "1234567890abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
    std::set<std::string> seen;
    for (int i = 0; i < 50; ++i) {
        const std::string r = u.random_string(24);
        ASSERT_EQ(r.size(), 24u);
        EXPECT_EQ(r.find_first_not_of(alphabet), std::string::npos) << r;
        seen.insert(r);
    }
    // Calls within the same microsecond still differ thanks to the call counter.
    EXPECT_EQ(seen.size(), 50u);
}

}  // namespace
