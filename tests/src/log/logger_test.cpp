// Logger: lazy opening with its separator, level and tag filters, the line cut, reopening.
#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

#include "log/log.h"
#include "log/logger.h"
#include "support/test_support.h"

namespace {

using kinefix_test::lines_of;
using kinefix_test::read_text;
using kinefix_test::TempDir;

const std::regex kSeparator(R"(------------------------- \d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2})");

TEST(LoggerTest, LazyOpeningLevelAndLineCut) {
    TempDir dir;
    const std::string path = dir / "a.log";
    zp::Logger log(path.c_str(), nullptr);
    log.set_level(2);
    log.log(5, "zp", "debug\n");
    EXPECT_FALSE(kinefix_test::fs::exists(path)) << "nothing opened for a dropped line";
    log.log(2, "zp", "%s\n", std::string(5000, 'x').c_str());
    log.log(2, "zp", "%s %d\n", "next", 7);
    log.set_level(0);  // closes; the next line reopens with a new separator
    log.log(0, "zp", "two\n");
    const auto lines = lines_of(read_text(path));
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_TRUE(std::regex_match(lines[0], kSeparator)) << lines[0];
    EXPECT_EQ(lines[1], std::string(4095, 'x') + "next 7");  // the cut drops the line end
    EXPECT_TRUE(std::regex_match(lines[2], kSeparator)) << lines[2];
    EXPECT_EQ(lines[3], "two");
}

TEST(LoggerTest, TagFilterPassesOnlyItsTagAndNullTags) {
    TempDir dir;
    const std::string path = dir / "a.log";
    zp::Logger log(path.c_str(), nullptr);
    log.set_tag("net");
    log.log(2, "zp", "dropped\n");
    log.log(2, nullptr, "untagged\n");
    log.log(2, "net", "net line\n");
    log.set_tag("");
    log.log(2, "zp", "after clear\n");
    const auto lines = lines_of(read_text(path));
    EXPECT_EQ(std::vector<std::string>(lines.begin() + 1, lines.end()),
              (std::vector<std::string>{"untagged", "net line", "after clear"}));
}

TEST(LoggerTest, UnopenableFileFallsBackToStandardError) {
    TempDir dir;
    zp::Logger log((dir / "missing-dir/a.log").c_str(), nullptr);
    testing::internal::CaptureStderr();
    log.log(2, "zp", "to stderr\n");
    const auto lines = lines_of(testing::internal::GetCapturedStderr());
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[1], "to stderr");
    EXPECT_EQ(log.stream(), stderr);
}

TEST(LoggerTest, BorrowedStreamIsNotClosedAndSinkTakesEverything) {
    TempDir dir;
    const std::string path = dir / "a.log";
    zp::Logger log(path.c_str(), nullptr);
    FILE* mine = tmpfile();
    ASSERT_NE(mine, nullptr);
    log.set_stream(mine);
    log.log(2, "zp", "borrowed\n");
    log.close();
    EXPECT_EQ(fseek(mine, 0, SEEK_SET), 0) << "still open: the logger did not own it";
    char buf[64] = {0};
    ASSERT_NE(fgets(buf, sizeof buf, mine), nullptr);
    EXPECT_STREQ(buf, "borrowed\n");
    log.set_stream(nullptr);
    fclose(mine);

    log.set_level(2);
    std::vector<std::string> seen;
    zp::Logger::sink() = [&](int& level, const char*& tag, const char*& text) {
        seen.push_back(std::to_string(level) + "|" + tag + "|" + text);
    };
    log.log(5, "zp", "debug %d\n", 1);  // the sink sees lines above the level too
    zp::Logger::sink() = nullptr;
    EXPECT_EQ(seen, std::vector<std::string>{"5|zp|debug 1\n"});
    EXPECT_FALSE(kinefix_test::fs::exists(path));
}

TEST(LogMacroTest, SourceNameIsTheFileNameOnEitherSeparator) {
    EXPECT_STREQ(zp::source_name("C:\\work\\restore/moov_parser.cpp"), "moov_parser.cpp");
}

}  // namespace
