// Config store: file round trip, duplicate keys, the key limit, the text cache and saving.
#include <gtest/gtest.h>

#include <string>

#include "config/config.h"
#include "support/test_support.h"

namespace {

using kinefix_test::read_text;
using kinefix_test::TempDir;
using kinefix_test::write_file;

TEST(ConfigTest, LaterLineWinsAndSpacingAroundColonDoesNotMatter) {
    TempDir dir;
    const std::string path = dir / "m.conf";
    write_file(path, "k : 1\nk:2\n");
    zp::Config c(path.c_str(), nullptr);
    EXPECT_STREQ(c.get_text("k"), "2");
}

TEST(ConfigTest, CommentsAndLinesWithoutColonAreSkipped) {
    TempDir dir;
    const std::string path = dir / "m.conf";
    write_file(path, "#a : 1\nnocolon\n   \n  b :  two words  \r\nc:\n");
    zp::Config c(path.c_str(), nullptr);
    EXPECT_FALSE(c.exists("#a"));
    EXPECT_FALSE(c.exists("nocolon"));
    EXPECT_STREQ(c.get_text("b"), "two words");
    EXPECT_STREQ(c.get_text("c"), "");
    EXPECT_EQ(c.get_text("zzz"), nullptr);
}

TEST(ConfigTest, ValueKeepsLaterColons) {
    TempDir dir;
    const std::string path = dir / "m.conf";
    write_file(path, "url : http://x:80/p\n");
    zp::Config c(path.c_str(), nullptr);
    EXPECT_STREQ(c.get_text("url"), "http://x:80/p");
}

TEST(ConfigTest, KeyOf511BytesIsAcceptedAnd512Refused) {
    TempDir dir;
    zp::Config c((dir / "m.conf").c_str(), nullptr);
    EXPECT_TRUE(c.set(std::string(511, 'k').c_str(), "v"));
    const std::string longer(512, 'k');
    testing::internal::CaptureStderr();
    EXPECT_FALSE(c.set(longer.c_str(), "v"));
    EXPECT_EQ(
        testing::internal::GetCapturedStderr(),
        "[zp::Config] ERROR, 'key' is too long (limit=511): strlen(key)=512, " + longer + "\n");
    EXPECT_FALSE(c.exists(longer.c_str()));
}

TEST(ConfigTest, OverlongKeyInFileIsSkippedWithMessage) {
    TempDir dir;
    const std::string path = dir / "m.conf";
    const std::string longer(600, 'q');
    write_file(path, longer + " : 1\nok : 2\n");
    testing::internal::CaptureStderr();
    zp::Config c(path.c_str(), nullptr);
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_NE(err.find("strlen(key)=600"), std::string::npos);
    EXPECT_STREQ(c.get_text("ok"), "2");
}

TEST(ConfigTest, CacheTrimsToSeventyAfterAHundred) {
    TempDir dir;
    zp::Config c((dir / "m.conf").c_str(), nullptr);
    c.set("k", "v");
    testing::internal::CaptureStderr();
    for (int i = 0; i < 101; ++i) c.get_text("k");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(c.cache_size(), 101u);
    testing::internal::CaptureStderr();
    const char* last = c.get_text("k");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "[zp::Config] : cache is full(n>100), reserve 70\n");
    EXPECT_EQ(c.cache_size(), 71u);
    EXPECT_STREQ(last, "v");
}

TEST(ConfigTest, UnchangedStoreNeverRewritesItsFile) {
    TempDir dir;
    const std::string path = dir / "m.conf";
    const std::string original = "# hand written\nb:1\na : 2\n";
    write_file(path, original);
    {
        zp::Config c(path.c_str(), nullptr);
        EXPECT_STREQ(c.get("a", "x"), "2");
        EXPECT_TRUE(c.save());
    }
    EXPECT_EQ(read_text(path), original);
}

TEST(ConfigTest, SaveWritesHeaderAndEntriesInKeyOrder) {
    TempDir dir;
    const std::string path = dir / "m.conf";
    zp::Config c(path.c_str(), nullptr);
    c.set("log.tag", "");
    c.set("b", "2");
    c.set("a", "1");
    EXPECT_TRUE(c.dirty());
    EXPECT_TRUE(c.save());
    EXPECT_FALSE(c.dirty());
    EXPECT_EQ(read_text(path), "#Zephra Config (#note)\na : 1\nb : 2\nlog.tag : \n");

    zp::Config again(path.c_str(), nullptr);
    bool found = false;
    std::string value = "unchanged";
    EXPECT_TRUE(again.get("log.tag", &value, &found));
    EXPECT_TRUE(found);
    EXPECT_EQ(value, "");
    EXPECT_STREQ(again.get_text("a"), "1");
}

TEST(ConfigTest, GetWithDefaultStoresTheDefaultForTheNextSave) {
    TempDir dir;
    const std::string path = dir / "m.conf";
    zp::Config c(path.c_str(), nullptr);
    EXPECT_STREQ(c.get("log.level", "2"), "2");
    EXPECT_TRUE(c.exists("log.level"));
    c.save();
    EXPECT_EQ(read_text(path), "#Zephra Config (#note)\nlog.level : 2\n");
}

TEST(ConfigTest, UnwritableFileDropsChangesOnce) {
    TempDir dir;
    const std::string path = dir / "no-such-dir/m.conf";
    zp::Config c(path.c_str(), nullptr);
    c.set("a", "1");
    EXPECT_FALSE(c.save());
    EXPECT_FALSE(c.dirty());
    EXPECT_STREQ(c.get_text("a"), "1") << "kept in memory";
}

}  // namespace
