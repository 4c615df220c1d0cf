// The kinefix program's call trace: written at "log.level" 4, absent at the default level.
#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

#include "support/test_support.h"

namespace {

namespace fs = kinefix_test::fs;
using kinefix_test::lines_of;
using kinefix_test::read_file;
using kinefix_test::TempDir;

std::string kinefix() {
    return kinefix_test::bin_dir() + "/kinefix";
}

// Runs kinefix once with the given Admin.conf text (none when empty); returns the base dir.
fs::path run_with_config(const TempDir& home, const std::string& conf) {
    const fs::path base = home.path() / "state" / "kinefix";
    if (!conf.empty()) {
        fs::create_directories(base / "conf");
        kinefix_test::write_file((base / "conf" / "Admin.conf").string(), conf);
    }
    auto r = kinefix_test::run(kinefix(), {"no-such.mp4", "no-such.idx", "out.mp4"},
                               kinefix_test::isolated_env(home), home);
    EXPECT_EQ(r.exit_code, 0) << r.err;
    return base;
}

std::vector<fs::path> trace_files(const fs::path& base) {
    std::vector<fs::path> out;
    if (!fs::exists(base / "log")) return out;
    for (const auto& e : fs::directory_iterator(base / "log"))
        if (std::regex_match(e.path().filename().string(),
                             std::regex(R"(Admin\d{4}-\d{2}-\d{2}\.tcr)")))
            out.push_back(e.path());
    return out;
}

TEST(TraceRunTest, DefaultLevelWritesNoTraceFile) {
    TempDir home;
    const fs::path base = run_with_config(home, "");
    EXPECT_TRUE(fs::exists(base / "conf" / "Admin.conf"));
    EXPECT_TRUE(trace_files(base).empty());

    TempDir home3;
    EXPECT_TRUE(trace_files(run_with_config(home3, "log.level : 3\n")).empty());
}

TEST(TraceRunTest, LevelFourTracesTheShutDownAsAClosedTree) {
    TempDir home;
    const fs::path base = run_with_config(home, "log.level : 4\n");
    auto files = trace_files(base);
    ASSERT_EQ(files.size(), 1u);
    auto lines = lines_of(read_file(files[0].string()));
    ASSERT_GE(lines.size(), 5u);
    EXPECT_TRUE(std::regex_match(
        lines[0],
        std::regex(R"(===\+===\+===\+===\+===\+===\+=== \d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2})")))
        << lines[0];
    EXPECT_EQ(lines.back(), "");  // the tracer's closing newline

    // Every entry is closed by an exit line at its own indent, innermost first.
    const std::regex entry(R"( *(\d+)((?:\|   )+)\|__\[(\d+)\](\S+) (.+))");
    const std::regex exit_line(R"( *(\d+)((?:\|   )+)\|__\[(\d+)\]@ \((\d+\.\d{3})us\))");
    struct Open {
        std::string indent, line, text;
    };
    std::vector<Open> stack;
    std::vector<std::string> entered;
    std::string thread;
    for (size_t i = 1; i + 1 < lines.size(); ++i) {
        std::smatch m;
        if (std::regex_match(lines[i], m, exit_line)) {
            ASSERT_FALSE(stack.empty()) << "exit without entry: " << lines[i];
            EXPECT_EQ(m[2].str(), stack.back().indent) << lines[i];
            EXPECT_EQ(m[3].str(), stack.back().line) << lines[i];
            stack.pop_back();
        } else if (std::regex_match(lines[i], m, entry)) {
            EXPECT_EQ(m[2].str().size(), 4 * (stack.size() + 1)) << lines[i];
            stack.push_back({m[2].str(), m[3].str(), m[5].str()});
            entered.push_back(m[4].str() + " " + m[5].str());
        } else {
            ADD_FAILURE() << "unexpected trace line: " << lines[i];
            continue;
        }
        if (thread.empty()) thread = m[1].str();
        EXPECT_EQ(m[1].str(), thread);  // shut-down runs on one thread
    }
    EXPECT_TRUE(stack.empty()) << stack.size() << " scopes left open";
    EXPECT_EQ(entered, (std::vector<std::string>{"admin.cpp ~Admin", "admin.cpp uninit"}));
}

TEST(TraceRunTest, RunsAppendToTheDaysTraceFile) {
    TempDir home;
    run_with_config(home, "log.level : 5\n");
    const fs::path base = run_with_config(home, "log.level : 5\n");
    auto files = trace_files(base);
    ASSERT_EQ(files.size(), 1u);
    const std::string text = read_file(files[0].string());
    const std::string sep = "\n===+===+===+===+===+===+=== ";
    size_t separators = 0;
    for (size_t at = ("\n" + text).find(sep); at != std::string::npos;
         at = ("\n" + text).find(sep, at + sep.size()))
        ++separators;
    EXPECT_EQ(separators, 2u);
}

}  // namespace
