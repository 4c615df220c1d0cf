// ObjectText: the scan's quirks that a naive reader gets wrong, pairing and look-up rules.
#include <gtest/gtest.h>

#include <string>

#include "cmdline/object_text.h"

namespace {

// One text, a key in it, what that key holds and how many members the text gives.
TEST(ObjectTextTest, ScanQuirksAgainstTheValuesFound) {
    const struct {
        const char *text, *key, *value;
        size_t members;
    } cases[] = {
        {"{\"type\":\"video\",\"index\":0,\"tb.den\":90000,\"h\":-1080,\"ev\":\"Z0IAHpWo+A==\"}\n",
         "ev", "Z0IAHpWo+A==", 5},
        // \" is a backslash and a quote: the quote count turns odd and swallows the rest.
        {R"({"a":"x\"y","b":"z","c":"w"})", "a", R"(x\"y","b":"z","c":"w)", 1},
        {R"({"list":[1,[2,3],{"q":4}],"obj":{"x":1,"y":{"z":[5]}},"after":"ok"})", "obj",
         R"({"x":1,"y":{"z":[5]}})", 3},
        {R"({"a":[1,2,"b":"c"})", "a", R"([1,2,"b":"c")", 1},  // unclosed: runs to the end
        {R"({"a":"1","a":"2","ab":"3"})", "a", "1", 3},        // the first duplicate wins
        {"junk {\"路径\":\"D:\\视频\\a.mp4\"} trailing", "路径", "D:\\视频\\a.mp4", 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        zp::ObjectText obj;
        obj.parse(R"({"stale":"1"})");
        EXPECT_TRUE(obj.parse(c.text));
        EXPECT_EQ(obj.get_string(c.key, "<none>"), c.value);
        EXPECT_EQ(obj.members().size(), c.members) << "a new parse replaces the members";
    }
    zp::ObjectText obj;
    obj.parse(R"({"on":true,"text":"true","odd":"TRUE"})");
    EXPECT_TRUE(obj.get_bool("on", false) && obj.get_bool("text", false));
    EXPECT_FALSE(obj.get_bool("odd", true));  // only the exact word
}

}  // namespace
