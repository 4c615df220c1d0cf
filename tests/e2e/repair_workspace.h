#pragma once
// A scratch area for runs of the built kinefix and kinefix-index, with its own home and state
// folders, and checks of the shape of kinefix's standard output.

#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

#include "support/media_support.h"
#include "support/test_support.h"

namespace kinefix_test {

class Workspace {
  public:
    std::string operator/(const std::string& name) const { return dir_ / name; }
    const TempDir& dir() const { return dir_; }

    RunResult kinefix(const std::vector<std::string>& args) const {
        return run(bin_dir() + "/kinefix", args, isolated_env(dir_), dir_);
    }
    RunResult index(const std::vector<std::string>& args) const {
        return run(bin_dir() + "/kinefix-index", args, isolated_env(dir_), dir_);
    }

    // The day's log of module "Admin" under the base directory the tests point at.
    std::string log() const {
        const fs::path logs = dir_.path() / "state" / "kinefix" / "log";
        std::string text;
        std::error_code ec;
        for (const auto& e : fs::directory_iterator(logs, ec)) {
            const std::string name = e.path().filename().string();
            if (std::regex_match(name, std::regex(R"(Admin\d{4}-\d{2}-\d{2}\.log)")))
                text += read_file(e.path().string());
        }
        return text;
    }

    // Records, indexes and damages a recording: returns the damaged file's path, or "" with a
    // test failure.
    std::string damaged_recording(const std::string& name, const RecordingPlan& plan,
                                  const std::vector<std::string>& index_options,
                                  const std::string& index_path) const {
        const std::string path = *this / name;
        const std::string error = make_recording(path, plan, dir_);
        if (!error.empty()) {
            ADD_FAILURE() << error;
            return std::string();
        }
        std::vector<std::string> args = index_options;
        args.push_back(path);
        args.push_back(index_path);
        const RunResult r = index(args);
        if (r.exit_code != 0) {
            ADD_FAILURE() << "kinefix-index: " << r.err;
            return std::string();
        }
        return path;
    }

  private:
    TempDir dir_;
};

// Lines of an index file that are packet lines.
inline int packet_line_count(const std::string& index_text) {
    int n = 0;
    for (const std::string& line : lines_of(index_text))
        if (!line.empty() && line[0] != '#' && line[0] != '{') ++n;
    return n;
}

// The banner, one "progress:%.6lf" line per 10 repaired lines (never decreasing, below 1),
// "progress:1.0" and "End", and nothing else.
inline void expect_repair_stdout(const std::string& out, int repaired_lines) {
    const std::vector<std::string> lines = lines_of(out);
    const size_t progress = static_cast<size_t>(repaired_lines / 10);
    ASSERT_EQ(lines.size(), 5 + progress + 2) << out;
    EXPECT_EQ(lines[0], "==============================");
    EXPECT_TRUE(std::regex_match(lines[1], std::regex(R"(Kinefix \(.+\))"))) << lines[1];
    EXPECT_EQ(lines[2], "version: 1.1.0");
    EXPECT_EQ(lines[3], "release: 2023.05.10");
    EXPECT_EQ(lines[4], "==============================");
    double last = 0.0;
    for (size_t i = 0; i < progress; ++i) {
        const std::string& line = lines[5 + i];
        ASSERT_TRUE(std::regex_match(line, std::regex(R"(progress:0\.\d{6})"))) << line;
        const double value = std::stod(line.substr(9));
        EXPECT_GE(value, last) << line;
        last = value;
    }
    EXPECT_EQ(lines[5 + progress], "progress:1.0");
    EXPECT_EQ(lines[6 + progress], "End");
    EXPECT_EQ(out.back(), '\n');
}

// Same packets, stream by stream and in order: sizes and MD5s equal, times equal up to one
// constant shift (a muxer may move everything to start at zero) within a tick of the coarser
// time base. `same_start` demands no shift at all.
inline void expect_same_packets(const FrameReport& original, const FrameReport& repaired,
                                bool same_start, bool check_dts) {
    ASSERT_TRUE(original.ok) << original.error;
    ASSERT_TRUE(repaired.ok) << repaired.error;
    ASSERT_EQ(original.streams.size(), repaired.streams.size());
    ASSERT_FALSE(original.streams.empty());
    const auto& first_a = original.streams.begin()->second;
    const auto& first_b = repaired.streams.begin()->second;
    ASSERT_FALSE(first_a.empty());
    ASSERT_FALSE(first_b.empty());
    const double shift = first_b[0].pts - first_a[0].pts;
    for (const auto& [index, packets] : original.streams) {
        ASSERT_TRUE(repaired.streams.count(index)) << "stream " << index;
        const auto& got = repaired.streams.at(index);
        ASSERT_EQ(got.size(), packets.size()) << "stream " << index;
        const double tol = std::max(original.tick.at(index), repaired.tick.at(index)) + 1e-9;
        if (same_start) {
            EXPECT_LE(std::fabs(shift), tol);
        }
        for (size_t i = 0; i < packets.size(); ++i) {
            ASSERT_EQ(got[i].size, packets[i].size) << "stream " << index << " packet " << i;
            ASSERT_EQ(got[i].md5, packets[i].md5) << "stream " << index << " packet " << i;
            EXPECT_NEAR(got[i].pts - shift, packets[i].pts, tol)
                << "stream " << index << " packet " << i;
            if (check_dts) {
                EXPECT_NEAR(got[i].dts - shift, packets[i].dts, tol)
                    << "stream " << index << " packet " << i;
            }
        }
    }
}

}  // namespace kinefix_test
