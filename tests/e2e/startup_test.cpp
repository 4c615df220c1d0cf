// The kinefix program's start-up and shut-down as a user meets them.
#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <string>

#include "support/test_support.h"

namespace {

namespace fs = kinefix_test::fs;
using kinefix_test::lines_of;
using kinefix_test::read_file;
using kinefix_test::TempDir;

const char kBanner[] =
    "==============================\n"
    "Kinefix (";

std::string kinefix() {
    return kinefix_test::bin_dir() + "/kinefix";
}

// Every regular file below `root`, relative to it.
std::set<std::string> files_below(const fs::path& root) {
    std::set<std::string> out;
    if (!fs::exists(root)) return out;
    for (const auto& e : fs::recursive_directory_iterator(root))
        if (e.is_regular_file()) out.insert(fs::relative(e.path(), root).string());
    return out;
}

std::string only_log_file(const fs::path& log_dir) {
    std::string found;
    for (const auto& e : fs::directory_iterator(log_dir)) {
        const std::string name = e.path().filename().string();
        if (std::regex_match(name, std::regex(R"(Admin\d{4}-\d{2}-\d{2}\.log)")))
            found = e.path().string();
    }
    return found;
}

TEST(StartupTest, NoArgumentReturnsOneAndPrintsNothing) {
    TempDir home;
    auto r = kinefix_test::run(kinefix(), {}, kinefix_test::isolated_env(home), home);
    EXPECT_EQ(r.exit_code, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "");
    EXPECT_TRUE(files_below(home.path()).empty());
}

TEST(StartupTest, TwoArgumentsPrintBannerAndEndAndSetUpTheBaseDirectory) {
    TempDir home;
    auto r = kinefix_test::run(kinefix(), {"a", "b"}, kinefix_test::isolated_env(home), home);
    EXPECT_EQ(r.exit_code, 0);
    auto lines = lines_of(r.out);
    ASSERT_EQ(lines.size(), 6u) << r.out;
    EXPECT_EQ(r.out.rfind(kBanner, 0), 0u);
    EXPECT_EQ(lines[2], "version: 1.1.0");
    EXPECT_EQ(lines[3], "release: 2023.05.10");
    EXPECT_EQ(lines[4], "==============================");
    EXPECT_EQ(lines[5], "End");

    // Only the framework's own configuration and log files.
    const fs::path base = home.path() / "state" / "kinefix";
    auto files = files_below(home.path());
    for (const auto& f : files)
        EXPECT_TRUE(f.rfind("state/kinefix/conf/", 0) == 0 || f.rfind("state/kinefix/log/", 0) == 0)
            << f;
    EXPECT_EQ(files.size(), 2u);
    EXPECT_NE(r.err.find("[Zephra] config dir = " + base.string() + "\n"), std::string::npos)
        << r.err;

    // The first run writes the default configuration and ends its log with "Done!".
    EXPECT_EQ(read_file((base / "conf" / "Admin.conf").string()),
              "#Zephra Config (#note)\nlog.level : 2\nlog.stdout : false\nlog.tag : \n");

    const std::string log_path = only_log_file(base / "log");
    ASSERT_FALSE(log_path.empty());
    auto log_lines = lines_of(read_file(log_path));
    ASSERT_GE(log_lines.size(), 3u);
    EXPECT_EQ(log_lines.back(), "") << "the logger ends its file with an empty line";
    log_lines.pop_back();
    EXPECT_EQ(log_lines[0].rfind("------------------------- ", 0), 0u);
    EXPECT_TRUE(std::regex_match(
        log_lines.back(),
        std::regex(R"(\d{4}-\d{2}:\d{2}:\d{2}\[E\]\[zp\] admin\.cpp [\d ]{4}: "Done!")")))
        << log_lines.back();
    // The start-up and shut-down messages keep their order.
    const std::string text = read_file(log_path);
    EXPECT_LT(text.find("\"[Admin] ::uninit @==@\""), text.find("\"[Admin] ::uninit end @==@\""));
    EXPECT_LT(text.find("\"[Admin] ::uninit end @==@\""), text.find("\"Done!\""));
    EXPECT_EQ(text.find("[D]"), std::string::npos) << "level 2 hides debug lines";

    // The start-up messages on standard error, in order.
    const auto init = r.err.find("\n[Admin] ::init @==@\n");
    const auto hint =
        r.err.find("[Admin] zp::SetConfigLogDir(\"my-config-dir\") can redirect Config&Log dir\n");
    const auto ok = r.err.find("[Admin] ::init OK\n");
    ASSERT_NE(init, std::string::npos);
    ASSERT_NE(hint, std::string::npos);
    ASSERT_NE(ok, std::string::npos);
    EXPECT_LT(init, hint);
    EXPECT_LT(hint, ok);
}

TEST(StartupTest, LogStdoutSendsLinesToStandardOutput) {
    TempDir home;
    const fs::path conf = home.path() / "state" / "kinefix" / "conf";
    fs::create_directories(conf);
    kinefix_test::write_file((conf / "Admin.conf").string(),
                             "log.level : 2\nlog.stdout : true\nlog.tag : \n");
    auto r = kinefix_test::run(kinefix(), {"a", "b"}, kinefix_test::isolated_env(home), home);
    EXPECT_EQ(r.exit_code, 0);
    EXPECT_NE(r.out.find("\"Done!\""), std::string::npos) << r.out;
    EXPECT_LT(r.out.find("End\n"), r.out.find("\"Done!\""));
    EXPECT_TRUE(only_log_file(home.path() / "state" / "kinefix" / "log").empty());
    // A complete file is left as it was.
    EXPECT_EQ(read_file((conf / "Admin.conf").string()),
              "log.level : 2\nlog.stdout : true\nlog.tag : \n");
}

TEST(StartupTest, ReadOnlyCandidateIsPassedOver) {
    TempDir home;
    const fs::path state = home.path() / "state" / "kinefix";
    // A directory where the probe file should go defeats the probe even for root.
    fs::create_directories(state / "~test_writeable~.tmp");
    auto r = kinefix_test::run(kinefix(), {"a", "b"}, kinefix_test::isolated_env(home), home);
    EXPECT_EQ(r.exit_code, 0);
    EXPECT_NE(r.err.find("[Zephra Error] no write access:  " + state.string()), std::string::npos)
        << r.err;
    EXPECT_NE(r.err.find("[Zephra] config dir = " + (home.path() / "kinefix").string()),
              std::string::npos);
    EXPECT_TRUE(fs::exists(home.path() / "kinefix" / "conf" / "Admin.conf"));
}

TEST(StartupTest, UnusableCandidateDirectoryIsReported) {
    TempDir home;
    // A file where the first candidate's parent should be: mkdir fails even for root.
    kinefix_test::write_file(home / "state", "not a directory");
    auto r = kinefix_test::run(kinefix(), {"a", "b"}, kinefix_test::isolated_env(home), home);
    EXPECT_EQ(r.exit_code, 0);
    EXPECT_NE(r.err.find("\n\n[Zephra Error] can't mkdir:  " +
                         (home.path() / "state" / "kinefix").string() + "\n\n"),
              std::string::npos)
        << r.err;
    EXPECT_TRUE(fs::exists(home.path() / "kinefix" / "conf" / "Admin.conf"));
}

}  // namespace
