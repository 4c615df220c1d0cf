// ObjectText: the scan's quirks that a naive reader gets wrong, pairing and look-up rules.
#include <gtest/gtest.h>

#include <string>

#include "cmdline/object_text.h"

namespace {

std::string get(const zp::ObjectText& obj, const char* key) {
    return obj.get_string(key, "<none>");
}

TEST(ObjectTextTest, ReadsAStreamDescriptionLine) {
    zp::ObjectText obj;
    ASSERT_TRUE(
        obj.parse("{\"type\":\"video\",\"index\":0,\"codec\":\"h264\",\"tb.num\":1,"
                  "\"tb.den\":90000,\"w\":1920,\"h\":-1080,\"ev\":\"Z0IAHpWo+A==\"}\n"));
    EXPECT_EQ(get(obj, "type"), "video");
    EXPECT_EQ(get(obj, "index"), "0");
    EXPECT_EQ(get(obj, "tb.num"), "1");
    EXPECT_EQ(get(obj, "tb.den"), "90000");
    EXPECT_EQ(get(obj, "h"), "-1080");
    EXPECT_EQ(get(obj, "ev"), "Z0IAHpWo+A==");
    EXPECT_EQ(obj.members().size(), 8u);
}

TEST(ObjectTextTest, WindowsPathsKeepBackslashesAndColons) {
    zp::ObjectText obj;
    obj.parse(
        R"({"broken_file":"D:\v\a.mp4","moov_file":"C:\dir\file.idx","output_file":"\\srv\s\b.mp4"})");
    EXPECT_EQ(get(obj, "broken_file"), R"(D:\v\a.mp4)");
    EXPECT_EQ(get(obj, "moov_file"), R"(C:\dir\file.idx)");
    EXPECT_EQ(get(obj, "output_file"), R"(\\srv\s\b.mp4)");
    EXPECT_EQ(obj.members().size(), 3u);
}

TEST(ObjectTextTest, BackslashQuoteIsNoEscape) {
    // \" is a backslash and a quote: the quote count turns odd and swallows the rest.
    zp::ObjectText obj;
    obj.parse(R"({"a":"x\"y","b":"z","c":"w"})");
    EXPECT_EQ(get(obj, "a"), R"(x\"y","b":"z","c":"w)");
    EXPECT_EQ(get(obj, "b"), "<none>");
    EXPECT_EQ(obj.members().size(), 1u);
}

TEST(ObjectTextTest, CommasAndColonsInsideQuotesStayInTheValue) {
    zp::ObjectText obj;
    obj.parse(R"({"a":"x,y:z","b:c":"1, 2","sp": " padded " })");
    EXPECT_EQ(get(obj, "a"), "x,y:z");
    EXPECT_EQ(get(obj, "b:c"), "1, 2");
    EXPECT_EQ(get(obj, "sp"), " padded  ");  // the space after the closing quote stays too
}

TEST(ObjectTextTest, NestedValuesAreKeptRaw) {
    zp::ObjectText obj;
    obj.parse(R"({"list":[1,[2,3],{"q":4}],"obj":{"x":1,"y":{"z":[5]}},"after":"ok"})");
    EXPECT_EQ(get(obj, "list"), R"([1,[2,3],{"q":4}])");
    EXPECT_EQ(get(obj, "obj"), R"({"x":1,"y":{"z":[5]}})");
    EXPECT_EQ(get(obj, "after"), "ok");
}

TEST(ObjectTextTest, UnclosedNestingRunsToTheEnd) {
    zp::ObjectText obj;
    obj.parse(R"({"a":[1,2,"b":"c"})");
    EXPECT_EQ(get(obj, "a"), R"([1,2,"b":"c")");
    EXPECT_EQ(get(obj, "b"), "<none>");
}

TEST(ObjectTextTest, FirstOfDuplicateKeysWins) {
    zp::ObjectText obj;
    obj.parse(R"({"a":"1","a":"2","ab":"3"})");
    EXPECT_EQ(get(obj, "a"), "1");
    EXPECT_EQ(get(obj, "ab"), "3");
    EXPECT_EQ(get(obj, "A"), "<none>");
    EXPECT_EQ(get(obj, ""), "<none>");
}

TEST(ObjectTextTest, NumbersOnlyAfterAColonAndRunToTheComma) {
    zp::ObjectText obj;
    obj.parse(R"({"n": -12.5e3 ,"m":7})");
    EXPECT_EQ(get(obj, "n"), "-12.5e3 ");
    EXPECT_EQ(get(obj, "m"), "7");
    // A leading digit is no number: it is scanned as text up to the ':'.
    obj.parse("{12ab:34}");
    EXPECT_EQ(get(obj, "12ab"), "34");
}

TEST(ObjectTextTest, BooleansAreWordsAndOnlyTrueIsTrue) {
    zp::ObjectText obj;
    obj.parse(R"({"on":true,"off":false,"text":"true","odd":"TRUE"})");
    EXPECT_TRUE(obj.get_bool("on", false));
    EXPECT_FALSE(obj.get_bool("off", true));
    EXPECT_TRUE(obj.get_bool("text", false));
    EXPECT_FALSE(obj.get_bool("odd", true));
    EXPECT_TRUE(obj.get_bool("missing", true));
    EXPECT_FALSE(obj.get_bool("missing", false));
    EXPECT_EQ(get(obj, "off"), "false");
}

TEST(ObjectTextTest, EmptyAndBracelessTextsNeverFail) {
    zp::ObjectText obj;
    obj.parse(R"({"stale":"1"})");
    EXPECT_TRUE(obj.parse(""));
    EXPECT_TRUE(obj.members().empty()) << "a new parse replaces the members";
    EXPECT_EQ(obj.get_string("stale", "def"), "def");
    EXPECT_TRUE(obj.parse("{}"));
    EXPECT_TRUE(obj.members().empty());
    EXPECT_TRUE(obj.parse("   "));
    EXPECT_TRUE(obj.members().empty());
    // Without braces the text is scanned as it stands.
    EXPECT_TRUE(obj.parse(R"("k":"v","lonely")"));
    ASSERT_EQ(obj.members().size(), 1u) << "the odd last token is dropped";
    EXPECT_EQ(get(obj, "k"), "v");
    EXPECT_TRUE(obj.parse("}{"));
    EXPECT_TRUE(obj.parse("no structure at all"));
    EXPECT_TRUE(obj.members().empty());
}

TEST(ObjectTextTest, TextOutsideTheOuterBracesIsIgnored) {
    zp::ObjectText obj;
    obj.parse("junk {\"a\":\"1\"} trailing");
    EXPECT_EQ(get(obj, "a"), "1");
    EXPECT_EQ(obj.members().size(), 1u);
}

TEST(ObjectTextTest, UtfEightTextsPassUnchanged) {
    zp::ObjectText obj;
    obj.parse("{\"路径\":\"D:\\视频\\坏的.mp4\"}");
    EXPECT_EQ(get(obj, "路径"), "D:\\视频\\坏的.mp4");
}

}  // namespace
