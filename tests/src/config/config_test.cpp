// Config store: file reading, the key limit, the text cache, saving, and threads sharing it.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "config/config.h"
#include "support/test_support.h"

namespace {

using kinefix_test::read_text;
using kinefix_test::TempDir;
using kinefix_test::write_file;

// Keys of up to 511 bytes, from the file or set.
TEST(ConfigTest, FileLinesSavingTheTextCacheAndThreadsSharingAStore) {
    TempDir dir;
    const std::string path = dir / "m.conf", longest(511, 'k'), longer(512, 'k');
    write_file(path,
               "k : 1\nk:2\n#a : 1\nnocolon\n  b :  two words  \r\nc:\nurl : http://x:80/p\n" +
                   longest + " : 1\n" + longer + " : 1\n");
    testing::internal::CaptureStderr();
    zp::Config c(path.c_str(), nullptr);
    EXPECT_FALSE(c.set(longer.c_str(), "v"));
    const std::string refused =
        "[zp::Config] ERROR, 'key' is too long (limit=511): strlen(key)=512, " + longer + "\n";
    EXPECT_EQ(testing::internal::GetCapturedStderr(), refused + refused);
    EXPECT_TRUE(c.exists(longest.c_str()));
    EXPECT_STREQ(c.get_text("k"), "2");  // the later line wins
    EXPECT_FALSE(c.exists("#a"));
    EXPECT_FALSE(c.exists("nocolon"));
    EXPECT_STREQ(c.get_text("b"), "two words");
    EXPECT_STREQ(c.get_text("c"), "");
    EXPECT_STREQ(c.get_text("url"), "http://x:80/p");
    // Saving rewrites only a changed store; the text cache is trimmed.
    const std::string saved = dir / "s.conf";
    write_file(saved, "# hand written\nb:2\n");
    zp::Config s(saved.c_str(), nullptr);
    EXPECT_STREQ(s.get("b", "x"), "2");
    EXPECT_TRUE(s.save());
    EXPECT_EQ(read_text(saved), "# hand written\nb:2\n");
    s.set("log.tag", "");
    EXPECT_STREQ(s.get("a", "1"), "1");  // a default is stored for the next save
    EXPECT_TRUE(s.save());
    EXPECT_FALSE(s.dirty());
    EXPECT_EQ(read_text(saved), "#Zephra Config (#note)\na : 1\nb : 2\nlog.tag : \n");
    // The text cache keeps the newest 70 once it holds more than 100.
    s.set("k", "v");
    for (size_t n = s.cache_size(); n < 101; ++n) s.get_text("k");
    EXPECT_EQ(s.cache_size(), 101u);
    testing::internal::CaptureStderr();
    EXPECT_STREQ(s.get_text("k"), "v");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "[zp::Config] : cache is full(n>100), reserve 70\n");
    EXPECT_EQ(s.cache_size(), 71u);

    // Threads writing and reading their own keys at once: the map and the cache must stay whole.
    zp::Config m((dir / "t.conf").c_str(), nullptr);
    const auto key = [](int t, int k) { return std::to_string(t) + "." + std::to_string(k); };
    testing::internal::CaptureStderr();  // the cache trims often here
    kinefix_test::on_threads(4, [&](int t) {
        for (int i = 0; i < 400; ++i) {
            m.set(key(t, i % 20).c_str(), std::to_string(i).c_str());
            m.get_text(key(t, i % 20).c_str());
        }
    });
    testing::internal::GetCapturedStderr();
    for (int t = 0; t < 4; ++t)
        for (int k = 0; k < 20; ++k)
            EXPECT_STREQ(m.get_text(key(t, k).c_str()), std::to_string(380 + k).c_str()) << t << k;
}

}  // namespace
