// The kinefix program's start-up and shut-down as a user meets them.
#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <unistd.h>
#include <string>

#include "support/test_support.h"

namespace {

using namespace kinefix_test;

RunResult kinefix(const TempDir& home, const std::vector<std::string>& args) {
    return run(bin_dir() + "/kinefix", args, isolated_env(home), home);
}

// Without arguments nothing is said or set up; the first run with them sets up the base.
TEST(StartupTest, FirstRunPrintsBannerAndEndAndSetsUpTheBaseDirectory) {
    TempDir home;
    RunResult r = kinefix(home, {});
    EXPECT_EQ(r.exit_code, 1);
    EXPECT_EQ(r.out + r.err, "");
    EXPECT_TRUE(fs::is_empty(home.path()));
    r = kinefix(home, {"a", "b"});
    EXPECT_EQ(r.exit_code, 0);
    EXPECT_EQ(r.out,
              "==============================\nKinefix (https://kinefix.example.org)\n"
              "version: 1.1.0\nrelease: 2023.05.10\n==============================\nEnd\n");
    const fs::path base = home.path() / "state/kinefix";
    EXPECT_EQ(r.err,
              "\n[Admin] ::init @==@\n[Admin] zp::SetConfigLogDir(\"my-config-dir\") can "
              "redirect Config&Log dir\n[Zephra] config dir = " +
                  base.string() + "\n[Admin] ::init OK\n");

    // Only the default configuration and the day's log, which ends with "Done!".
    std::set<std::string> files;
    for (const auto& e : fs::recursive_directory_iterator(home.path()))
        if (e.is_regular_file()) files.insert(fs::relative(e.path(), base).string());
    ASSERT_EQ(files.size(), 2u);
    EXPECT_EQ(*files.begin(), "conf/Admin.conf");
    EXPECT_TRUE(std::regex_match(*files.rbegin(), std::regex(R"(log/Admin[-\d]{10}\.log)")));
    EXPECT_EQ(read_file((base / "conf/Admin.conf").string()),
              "#Zephra Config (#note)\nlog.level : 2\nlog.stdout : false\nlog.tag : \n");
    const std::string log = read_file((base / *files.rbegin()).string());
    EXPECT_EQ(log.rfind("------------------------- ", 0), 0u) << log;
    EXPECT_TRUE(std::regex_search(
        log, std::regex(R"(\n\d{4}-[\d:]{8}\[E\]\[zp\] admin\.cpp [\d ]{4}: "Done!"\n\n$)")))
        << log;
    EXPECT_EQ(log.find("[D]"), std::string::npos) << "level 2 hides debug lines";
}

// A directory where the probe file should go, or a file where a directory should go, defeats
// even root: the next candidate is taken. Without home and XDG folders the last is a folder of
// the user's own in the temporary folder; when that fails too, nothing is written (the root of
// the file system least of all) and the log goes to standard error.
TEST(StartupTest, UnusableCandidatesArePassedOver) {
    TempDir probe;
    fs::create_directories(probe.path() / "state/kinefix/~test_writeable~.tmp");
    TempDir blocked;
    write_file(blocked / "state", "not a directory");
    const std::string err = kinefix(probe, {"a", "b"}).err + kinefix(blocked, {"a", "b"}).err;
    EXPECT_NE(err.find("[Zephra Error] no write access:  " + probe / "state/kinefix"),
              std::string::npos)
        << err;
    EXPECT_NE(err.find("\n\n[Zephra Error] can't mkdir:  " + blocked / "state/kinefix" + "\n\n"),
              std::string::npos)
        << err;
    for (const TempDir* home : {&probe, &blocked}) {
        EXPECT_NE(err.find("[Zephra] config dir = " + *home / "kinefix"), std::string::npos);
        EXPECT_TRUE(fs::exists(home->path() / "kinefix/conf/Admin.conf"));
    }

    TempDir home;
    const std::string script = "unset HOME XDG_STATE_HOME XDG_CONFIG_HOME; exec \"$0\" a b";
    RunResult r =
        run("bash", {"-c", script, bin_dir() + "/kinefix"}, {{"TMPDIR", home.str()}}, home);
    const std::string own = home / ("kinefix-" + std::to_string(getuid()));
    EXPECT_NE(r.err.find("[Zephra] config dir = " + own), std::string::npos) << r.err;
    EXPECT_TRUE(fs::exists(own + "/conf/Admin.conf"));
    fs::remove_all(own);

    write_file(home / "tmp", "a file, not a directory");
    const bool root_had_conf = fs::exists("/conf") || fs::exists("/log");
    r = run("bash", {"-c", script, bin_dir() + "/kinefix"}, {{"TMPDIR", home / "tmp/"}}, home);
    EXPECT_EQ(r.exit_code, 0);
    EXPECT_NE(r.err.find("\"Done!\""), std::string::npos) << r.err;
    EXPECT_FALSE(!root_had_conf && (fs::exists("/conf") || fs::exists("/log")));
    size_t entries = 0;
    for (const auto& e : fs::recursive_directory_iterator(home.path()))
        entries += !e.is_directory();
    EXPECT_EQ(entries, 1u) << "only the blocking file";
}

}  // namespace
