// String helpers of Utils: trimming, splitting, comparing, replacing, formatting, random text.
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

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

TEST_F(UtilsStrings, Trimming) {
    auto trim = [this](char* s) { return u.trim_space(s); };
    EXPECT_EQ(inplace("   ", [this](char* s) { return u.trim_right_space(s); }), " ");
    EXPECT_EQ(inplace(" \t a b \r\n", trim), "a b");
    EXPECT_EQ(inplace("\va\f", trim), "\va\f");  // only space, tab, LF and CR count
    EXPECT_EQ(inplace("--a/b--/", [this](char* s) { return u.trim_chars(s, "-/"); }), "a/b");
    EXPECT_EQ(inplace("----", [this](char* s) { return u.trim_right_chars(s, "-"); }), "-");
    EXPECT_EQ(u.trimmed(nullptr), "");
}

TEST_F(UtilsStrings, SplitKeepsEmptyFieldsOnlyWhenAsked) {
    using V = std::vector<std::string>;
    EXPECT_EQ(u.split("a,,b", ",", true), (V{"a", "", "b"}));
    EXPECT_EQ(u.split("a,,b;c", ",;", false), (V{"a", "b", "c"}));
    EXPECT_EQ(u.split(",,a,b,,", ",", true), (V{"a", "b"}));  // outer delimiters add nothing
    EXPECT_TRUE(u.split("a,b", "", true).empty());
}

TEST_F(UtilsStrings, ComparingReplacingFormatting) {
    EXPECT_TRUE(u.starts_with("Abc", "ab", false));
    EXPECT_FALSE(u.starts_with("Abc", "ab", true));
    EXPECT_FALSE(u.starts_with("Ab", "Abc"));
    EXPECT_TRUE(u.ends_with("clip.MP4", ".mp4", false));
    EXPECT_FALSE(u.ends_with("4", ".mp4", false));
    // Rescanning from the start joins pieces that the forward form leaves apart.
    EXPECT_EQ(u.replace_all("aaaa", "aa", "a"), "a");
    EXPECT_EQ(u.replace_all_forward("aaaa", "aa", "a"), "aa");
    EXPECT_EQ(u.replace_all_forward("a.b.", ".", ".."), "a..b..");
    EXPECT_EQ(u.replace_all("abc", "", "x"), "abc");
    const char* s = "abcdef";
    EXPECT_EQ(u.tail(s, 3), s + 3);
    EXPECT_EQ(u.tail(s, 60), s);
    EXPECT_EQ(u.format("%s-%05d", "x", 42), "x-00042");
    EXPECT_EQ(u.format("%s", std::string(5000, 'z').c_str()), std::string(5000, 'z'));
}

TEST_F(UtilsStrings, RandomStringsDrawFromTheAlphabet) {
    EXPECT_EQ(u.random_string(-5), "");
    std::set<std::string> seen;
    for (int i = 0; i < 50; ++i) {
        const std::string r = u.random_string(24);
        ASSERT_EQ(r.size(), 24u);
        EXPECT_EQ(
            r.find_first_not_of("1234567890abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"),
            std::string::npos);
        seen.insert(r);
    }
    EXPECT_EQ(seen.size(), 50u);  // calls within one microsecond still differ
}

}  // namespace
