// Logger: lazy opening with its separator, level and tag filters, the line cut, reopening, and
// lines from many threads at once (under ThreadSanitizer through the "tsan" label).
#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "log/logger.h"
#include "support/test_support.h"

namespace {

using kinefix_test::lines_of;
using kinefix_test::read_text;
using kinefix_test::TempDir;

const std::regex kSeparator(R"(------------------------- \d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2})");

// An unopenable file falls back to standard error.
TEST(LoggerTest, LazyOpeningFiltersLineCutFallBackSharedFilesAndBorrowedStreams) {
    TempDir dir;
    const std::string path = dir / "a.log";
    zp::Logger log(path.c_str(), nullptr);
    log.set_level(2);
    log.set_tag("net");
    log.log(5, "net", "debug\n");
    log.log(2, "zp", "other tag\n");
    EXPECT_FALSE(kinefix_test::fs::exists(path)) << "nothing opened for a dropped line";
    log.log(2, nullptr, "%s\n", std::string(5000, 'x').c_str());  // a null tag passes
    log.log(2, "net", "%s %d\n", "next", 7);
    log.set_tag("");
    log.set_level(0);  // closes; the next line reopens with a new separator
    log.log(0, "zp", "two\n");
    const auto lines = lines_of(read_text(path));
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_TRUE(std::regex_match(lines[0], kSeparator)) << lines[0];
    EXPECT_EQ(lines[1], std::string(4095, 'x') + "next 7");  // the cut drops the line end
    EXPECT_TRUE(std::regex_match(lines[2], kSeparator)) << lines[2];
    EXPECT_EQ(lines[3], "two");
    zp::Logger lost((dir / "missing-dir/a.log").c_str(), nullptr);
    testing::internal::CaptureStderr();
    lost.log(2, "zp", "to stderr\n");
    EXPECT_EQ(lines_of(testing::internal::GetCapturedStderr()).back(), "to stderr");
    // The threads race to open the file and share the one line buffer; every line must come out
    // whole, and be on disk before the logger is closed.
    const std::string shared_path = dir / "b.log";
    zp::Logger shared(shared_path.c_str(), nullptr);
    constexpr int kThreads = 4, kLines = 250;
    const auto body = [](int t) { return std::string(40, static_cast<char>('a' + t)); };
    std::multiset<std::string> expected;  // the order between threads is free
    for (int t = 0; t < kThreads; ++t)
        for (int i = 0; i < kLines; ++i) expected.insert(body(t) + " " + std::to_string(i));
    kinefix_test::on_threads(kThreads, [&](int t) {
        for (int i = 0; i < kLines; ++i) shared.log(2, "zp", "%s %d\n", body(t).c_str(), i);
    });
    auto got = lines_of(read_text(shared_path));
    ASSERT_FALSE(got.empty());
    EXPECT_TRUE(std::regex_match(got[0], kSeparator)) << "one separator, first";
    EXPECT_EQ(std::multiset<std::string>(got.begin() + 1, got.end()), expected);

    // Borrowed streams, one handed over while another thread writes: each line lands whole in one
    // of them, and neither swapping nor closing the logger closes them (a double fclose aborts).
    zp::Logger borrowing("", nullptr);
    FILE *first = tmpfile(), *second = tmpfile();
    ASSERT_TRUE(first != nullptr && second != nullptr);
    borrowing.set_stream(first);
    std::thread writer([&borrowing] {
        for (int i = 0; i < 400; ++i) borrowing.log(2, "zp", "line %d\n", i);
    });
    borrowing.set_stream(second);
    writer.join();
    borrowing.close();
    std::string both;
    for (FILE* f : {first, second}) {
        EXPECT_EQ(fseek(f, 0, SEEK_SET), 0) << "still open: the logger did not own it";
        for (char buf[64]; fgets(buf, sizeof buf, f) != nullptr;) both += buf;
    }
    borrowing.set_stream(nullptr);
    fclose(first);
    fclose(second);
    EXPECT_EQ(lines_of(both).size(), 400u);
}

}  // namespace
