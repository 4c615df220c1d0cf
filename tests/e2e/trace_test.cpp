// The kinefix program's call trace: written from "log.level" 4 on, appended run after run.
#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "support/test_support.h"

namespace {

using namespace kinefix_test;

// Runs kinefix with the given Admin.conf; returns the text of the day's trace files.
std::string run_and_read_trace(const TempDir& home, const std::string& conf) {
    const fs::path base = home.path() / "state/kinefix";
    fs::create_directories(base / "conf");
    write_file((base / "conf/Admin.conf").string(), conf);
    const RunResult r = run(bin_dir() + "/kinefix", {"no-such.mp4", "no-such.idx", "out.mp4"},
                            isolated_env(home), home);
    EXPECT_EQ(r.exit_code, 0) << r.err;
    std::string text;
    for (const auto& e : fs::directory_iterator(base / "log"))
        if (std::regex_match(e.path().filename().string(),
                             std::regex(R"(Admin\d{4}-\d{2}-\d{2}\.tcr)")))
            text += read_file(e.path().string());
    return text;
}

TEST(TraceRunTest, LevelFourTracesTheShutDownRunAfterRun) {
    TempDir quiet;
    EXPECT_EQ(run_and_read_trace(quiet, "log.level : 3\n"), "");

    TempDir home;
    run_and_read_trace(home, "log.level : 4\n");
    const std::string text = run_and_read_trace(home, "log.level : 4\n");
    // One separator per run, then the admin's shut-down as a closed tree.
    const std::string sep =
        R"(===\+===\+===\+===\+===\+===\+=== \d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2}\n)";
    const std::string run = sep + R"( *\d+\|   \|__\[\d+\]admin\.cpp ~Admin\n)"
                                  R"( *\d+\|   \|   \|__\[\d+\]admin\.cpp uninit\n)"
                                  R"(( *\d+\|   \|   \|   .*\n)*)"
                                  R"( *\d+\|   \|   \|__\[\d+\]@ \(\d+\.\d{3}us\)\n)"
                                  R"( *\d+\|   \|__\[\d+\]@ \(\d+\.\d{3}us\)\n\n)";
    EXPECT_TRUE(std::regex_match(text, std::regex(run + run))) << text;
}

}  // namespace
