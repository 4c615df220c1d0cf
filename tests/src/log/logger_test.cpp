// Logger: lazy opening with its separator, level and tag filters, the line cut, reopening.
#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "log/log.h"
#include "log/logger.h"
#include "support/test_support.h"

namespace {

using kinefix_test::lines_of;
using kinefix_test::read_text;
using kinefix_test::TempDir;

const std::regex kSeparator(R"(------------------------- \d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2})");

TEST(LoggerTest, FirstLineOpensFileWithSeparator) {
    TempDir dir;
    const std::string path = dir / "a.log";
    zp::Logger log(path.c_str(), nullptr);
    EXPECT_FALSE(kinefix_test::fs::exists(path)) << "opened lazily";
    log.log(2, "zp", "%s %d\n", "hello", 7);
    log.log(2, "zp", "second\n");
    auto lines = lines_of(read_text(path));
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_TRUE(std::regex_match(lines[0], kSeparator)) << lines[0];
    EXPECT_EQ(lines[1], "hello 7");
    EXPECT_EQ(lines[2], "second");
}

TEST(LoggerTest, LinesAboveTheLevelAreDroppedWithoutOpening) {
    TempDir dir;
    const std::string path = dir / "a.log";
    zp::Logger log(path.c_str(), nullptr);
    log.set_level(2);
    log.log(5, "zp", "debug\n");
    EXPECT_FALSE(kinefix_test::fs::exists(path));
    log.log(2, "zp", "error\n");
    EXPECT_NE(read_text(path).find("error\n"), std::string::npos);
}

TEST(LoggerTest, TagFilterPassesOnlyItsTagAndNullTags) {
    TempDir dir;
    const std::string path = dir / "a.log";
    zp::Logger log(path.c_str(), nullptr);
    log.set_tag("net");
    EXPECT_STREQ(log.tag(), "net");
    log.log(2, "zp", "dropped\n");
    log.log(2, nullptr, "untagged\n");
    log.log(2, "net", "net line\n");
    const std::string text = read_text(path);
    EXPECT_EQ(text.find("dropped"), std::string::npos);
    EXPECT_NE(text.find("untagged\n"), std::string::npos);
    EXPECT_NE(text.find("net line\n"), std::string::npos);
    log.set_tag("");
    EXPECT_STREQ(log.tag(), "");
    log.log(2, "zp", "after clear\n");
    EXPECT_NE(read_text(path).find("after clear\n"), std::string::npos);
}

TEST(LoggerTest, LongLineIsCutAt4095WithoutLineEnd) {
    TempDir dir;
    const std::string path = dir / "a.log";
    zp::Logger log(path.c_str(), nullptr);
    const std::string big(5000, 'x');
    log.log(2, "zp", "%s\n", big.c_str());
    log.log(2, "zp", "next\n");
    auto lines = lines_of(read_text(path));
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[1], std::string(4095, 'x') + "next");
}

TEST(LoggerTest, LevelZeroClosesAndNextLineReopensWithNewSeparator) {
    TempDir dir;
    const std::string path = dir / "a.log";
    zp::Logger log(path.c_str(), nullptr);
    log.log(2, "zp", "one\n");
    log.set_level(0);
    EXPECT_EQ(log.stream(), nullptr);
    log.log(0, "zp", "two\n");
    auto lines = lines_of(read_text(path));
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_TRUE(std::regex_match(lines[2], kSeparator));
    EXPECT_EQ(lines[3], "two");
}

TEST(LoggerTest, UnopenableFileFallsBackToStandardError) {
    TempDir dir;
    const std::string path = dir / "missing-dir/a.log";
    zp::Logger log(path.c_str(), nullptr);
    testing::internal::CaptureStderr();
    log.log(2, "zp", "to stderr\n");
    const std::string err = testing::internal::GetCapturedStderr();
    auto lines = lines_of(err);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_TRUE(std::regex_match(lines[0], kSeparator));
    EXPECT_EQ(lines[1], "to stderr");
    EXPECT_EQ(log.stream(), stderr);
}

TEST(LoggerTest, BorrowedStreamIsUsedAndNotClosed) {
    TempDir dir;
    const std::string path = dir / "a.log";
    zp::Logger log(path.c_str(), nullptr);
    FILE* mine = tmpfile();
    ASSERT_NE(mine, nullptr);
    log.set_stream(mine);
    log.log(2, "zp", "borrowed\n");
    log.close();
    // Still open: the logger did not own it.
    EXPECT_EQ(fseek(mine, 0, SEEK_SET), 0);
    char buf[64] = {0};
    ASSERT_NE(fgets(buf, sizeof buf, mine), nullptr);
    EXPECT_STREQ(buf, "borrowed\n");
    log.set_stream(nullptr);  // the logger must not touch the stream once its owner closes it
    fclose(mine);
    EXPECT_FALSE(kinefix_test::fs::exists(path));
}

TEST(LoggerTest, SinkTakesEveryLineAndNothingIsWritten) {
    TempDir dir;
    const std::string path = dir / "a.log";
    zp::Logger log(path.c_str(), nullptr);
    log.set_level(2);
    std::vector<std::string> seen;
    zp::Logger::sink() = [&](int& level, const char*& tag, const char*& text) {
        seen.push_back(std::to_string(level) + "|" + (tag ? tag : "") + "|" + text);
    };
    log.log(5, "zp", "debug %d\n", 1);  // the sink sees lines above the level too
    zp::Logger::sink() = nullptr;
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0], "5|zp|debug 1\n");
    EXPECT_FALSE(kinefix_test::fs::exists(path));
}

TEST(LogMacroTest, SourceNameIsTheFileNameOnEitherSeparator) {
    EXPECT_STREQ(zp::source_name("src/loader/admin.cpp"), "admin.cpp");
    EXPECT_STREQ(zp::source_name("C:\\work\\restore\\moov_parser.cpp"), "moov_parser.cpp");
    EXPECT_STREQ(zp::source_name("main.cpp"), "main.cpp");
}

}  // namespace
