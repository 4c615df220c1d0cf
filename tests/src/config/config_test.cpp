// Config store: file reading, the key limit and saving.
#include <gtest/gtest.h>

#include <string>

#include "config/config.h"
#include "support/test_support.h"

namespace {

using kinefix_test::read_text;
using kinefix_test::TempDir;
using kinefix_test::write_file;

TEST(ConfigTest, FileLinesAndWhatIsSkipped) {
    TempDir dir;
    const std::string path = dir / "m.conf";
    write_file(path,
               "k : 1\nk:2\n#a : 1\nnocolon\n  b :  two words  \r\nc:\nurl : http://x:80/p\n" +
                   std::string(600, 'q') + " : 1\n");
    testing::internal::CaptureStderr();
    zp::Config c(path.c_str(), nullptr);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("strlen(key)=600"), std::string::npos);
    EXPECT_STREQ(c.get_text("k"), "2");  // the later line wins
    EXPECT_FALSE(c.exists("#a"));
    EXPECT_FALSE(c.exists("nocolon"));
    EXPECT_STREQ(c.get_text("b"), "two words");
    EXPECT_STREQ(c.get_text("c"), "");
    EXPECT_STREQ(c.get_text("url"), "http://x:80/p");
}

TEST(ConfigTest, KeyOf511BytesIsAcceptedAnd512Refused) {
    TempDir dir;
    zp::Config c((dir / "m.conf").c_str(), nullptr);
    const std::string longer(512, 'k');
    testing::internal::CaptureStderr();
    EXPECT_FALSE(c.set(longer.c_str(), "v"));
    EXPECT_EQ(
        testing::internal::GetCapturedStderr(),
        "[zp::Config] ERROR, 'key' is too long (limit=511): strlen(key)=512, " + longer + "\n");
}

TEST(ConfigTest, SaveRewritesOnlyAChangedStoreInKeyOrder) {
    TempDir dir;
    const std::string path = dir / "m.conf";
    write_file(path, "# hand written\nb:2\n");
    zp::Config c(path.c_str(), nullptr);
    EXPECT_STREQ(c.get("b", "x"), "2");
    EXPECT_TRUE(c.save());
    EXPECT_EQ(read_text(path), "# hand written\nb:2\n");
    c.set("log.tag", "");
    EXPECT_STREQ(c.get("a", "1"), "1");  // a default is stored for the next save
    EXPECT_TRUE(c.save());
    EXPECT_FALSE(c.dirty());
    EXPECT_EQ(read_text(path), "#Zephra Config (#note)\na : 1\nb : 2\nlog.tag : \n");
}

}  // namespace
