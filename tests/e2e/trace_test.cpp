// The kinefix program's call trace: written from "log.level" 4 on, appended run after run.
#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "support/test_support.h"

namespace {

using namespace kinefix_test;

// Runs kinefix with that Admin.conf; returns the text of the day's trace file.
std::string run_and_read_trace(const TempDir& home, const std::string& conf) {
    const fs::path base = home.path() / "state/kinefix";
    fs::create_directories(base / "conf");
    write_file((base / "conf/Admin.conf").string(), conf);
    EXPECT_EQ(run(bin_dir() + "/kinefix", {"a.mp4", "a.idx", "b.mp4"}, isolated_env(home), home)
                  .exit_code,
              0);
    std::string text;
    for (const auto& e : fs::directory_iterator(base / "log"))
        if (e.path().extension() == ".tcr") text += read_file(e.path().string());
    return text;
}

TEST(TraceRunTest, LevelFourTracesTheShutDownRunAfterRun) {
    TempDir quiet;
    EXPECT_EQ(run_and_read_trace(quiet, "log.level : 3\n"), "");
    TempDir home;
    run_and_read_trace(home, "log.level : 4\n");
    // One separator per run, then the admin's shut-down as a closed tree.
    const std::string one_run = R"(===\+===\+===\+===\+===\+===\+=== [-\d]{10} [:\d]{8}\n)"
                                R"( *\d+\|   \|__\[\d+\]admin\.cpp ~Admin\n)"
                                R"( *\d+\|   \|   \|__\[\d+\]admin\.cpp uninit\n)"
                                R"(( *\d+\|   \|   \|   .*\n)*)"
                                R"( *\d+\|   \|   \|__\[\d+\]@ \(\d+\.\d{3}us\)\n)"
                                R"( *\d+\|   \|__\[\d+\]@ \(\d+\.\d{3}us\)\n\n)";
    const std::string text = run_and_read_trace(home, "log.level : 4\n");
    EXPECT_TRUE(std::regex_match(text, std::regex(one_run + one_run))) << text;
}

}  // namespace
