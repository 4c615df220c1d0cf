#pragma once
// Helpers for end-to-end runs on real recordings: made with the ffmpeg tool, indexed, damaged,
// repaired by the built programs in a scratch home of their own, and compared packet by packet.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <map>
#include <regex>
#include <string>
#include <vector>

#include "support/test_support.h"

namespace kinefix_test {

// Names each case of a parameterized table after its row's `name`.
inline constexpr auto kRowName = [](const auto& info) { return std::string(info.param.name); };

// What to record from lavfi's test sources: video at 25 fps and/or 48 kHz audio.
struct RecordingPlan {
    bool video = true;
    bool bframes = true;
    bool audio = true;
    bool faststart = false;  // ISO media index at the front
    double seconds = 2.0;
    std::string video_encoder = "libx264";  // or libx265
    std::string audio_encoder = "aac";      // pcm_s16le, libmp3lame, libopus, ac3...
    std::vector<std::string> encode = {};   // codec options of their own instead of the above
    std::string size = "320x240";
    std::string source = "testsrc";
};

// Empty on success, else ffmpeg's complaint.
inline std::string make_recording(const std::string& path, const RecordingPlan& plan,
                                  const TempDir& scratch) {
    const std::string t = std::to_string(plan.seconds);
    std::vector<std::string> args = {"-v", "error", "-y", "-nostdin"};
    if (plan.video)
        args.insert(args.end(), {"-f", "lavfi", "-i",
                                 plan.source + "=size=" + plan.size + ":rate=25:duration=" + t});
    if (plan.audio)
        args.insert(args.end(), {"-f", "lavfi", "-i", "sine=sample_rate=48000:duration=" + t});
    args.insert(args.end(), plan.encode.begin(), plan.encode.end());
    if (plan.video && plan.encode.empty())
        args.insert(args.end(), {"-c:v", plan.video_encoder, "-preset", "ultrafast", "-bf",
                                 plan.bframes ? "2" : "0", "-g", "25", "-pix_fmt", "yuv420p"});
    if (plan.video_encoder == "libx265" && plan.encode.empty())
        args.insert(args.end(), {"-x265-params", "log-level=error", "-tag:v", "hvc1"});
    if (plan.audio && plan.encode.empty())
        args.insert(args.end(), {"-c:a", plan.audio_encoder, "-b:a", "64k"});
    if (plan.faststart) args.insert(args.end(), {"-movflags", "+faststart"});
    args.push_back(path);
    const RunResult r = run("ffmpeg", args, isolated_env(scratch), scratch);
    return r.exit_code == 0 ? std::string() : "ffmpeg failed: " + r.err;
}

// Offset and size of the first top-level ISO media box of that type; offset -1 when absent.
inline std::pair<int64_t, int64_t> find_top_box(const std::string& path, const char* type) {
    const std::string data = read_file(path);
    for (size_t pos = 0, size = 0; pos + 8 <= data.size(); pos += size) {
        size = 0;
        for (size_t i = 0; i < 4; ++i) size = (size << 8) | static_cast<uint8_t>(data[pos + i]);
        if (size < 8) break;  // 64-bit and open-ended sizes do not occur in these recordings
        if (data.compare(pos + 4, 4, type) == 0)
            return {static_cast<int64_t>(pos), static_cast<int64_t>(size)};
    }
    return {-1, -1};
}

// Renames the 'moov' box to a type no reader looks into: the media bytes stay where they were,
// as after a crash that left the index unwritten.
inline bool destroy_moov(const std::string& path) {
    const int64_t at = find_top_box(path, "moov").first;
    std::fstream f(path, std::ios::in | std::ios::out | std::ios::binary);
    return at >= 0 && f.seekp(at + 4).write("dead", 4);
}

// Packets as `ffmpeg -c copy -f framemd5` reports them, times in seconds, per stream.
struct FramePacket {
    double dts = 0;
    double pts = 0;
    std::string md5;
};

struct FrameReport {
    bool ok = false;
    std::string error;
    std::map<int, double> tick;  // time base per stream, in seconds
    std::map<int, std::vector<FramePacket>> streams;
};

inline FrameReport frame_report(const std::string& path, const TempDir& scratch) {
    FrameReport rep;
    const RunResult r = run(
        "ffmpeg",
        {"-v", "error", "-nostdin", "-i", path, "-map", "0", "-c", "copy", "-f", "framemd5", "-"},
        isolated_env(scratch), scratch);
    rep.ok = r.exit_code == 0;
    rep.error = r.err;
    for (const std::string& line : lines_of(r.out)) {
        int s = 0;
        long num = 0, den = 0, size = 0;
        long long dts = 0, pts = 0, dur = 0;
        char md5[64] = {0};
        if (sscanf(line.c_str(), "#tb %d: %ld/%ld", &s, &num, &den) == 3 && den > 0)
            rep.tick[s] = static_cast<double>(num) / static_cast<double>(den);
        else if (line[0] != '#' && sscanf(line.c_str(), "%d, %lld, %lld, %lld, %ld, %32s", &s, &dts,
                                          &pts, &dur, &size, md5) == 6)
            rep.streams[s].push_back({dts * rep.tick[s], pts * rep.tick[s], md5});
    }
    return rep;
}

// Empty when ffmpeg decodes every frame of the file without a single error line.
inline std::string decode_errors(const std::string& path, const TempDir& scratch) {
    const RunResult r = run("ffmpeg", {"-v", "error", "-nostdin", "-i", path, "-f", "null", "-"},
                            isolated_env(scratch), scratch);
    return r.exit_code != 0 ? "exit " + std::to_string(r.exit_code) + ": " + r.err : r.err;
}

// What one program wrote to its log files in a scratch home.
inline std::string program_log(const TempDir& home, const std::string& program = "kinefix") {
    std::string text;
    std::error_code ec;
    for (const auto& e : fs::directory_iterator(home.path() / "state" / program / "log", ec))
        if (e.path().extension() == ".log") text += read_file(e.path().string());
    return text;
}

// No scratch file of an unfinished write stays anywhere below `dir`.
inline void expect_no_scratch_files(const fs::path& dir) {
    for (const auto& e : fs::recursive_directory_iterator(dir))
        EXPECT_EQ(e.path().filename().string().find(".kinefix-"), std::string::npos) << e.path();
}

// A scratch home for runs of kinefix and its tools, with the log they write there.
class Workspace {
  public:
    std::string operator/(const std::string& name) const { return dir_ / name; }
    const TempDir& dir() const { return dir_; }

    RunResult tool(const std::string& name, const std::vector<std::string>& args) const {
        return run(bin_dir() + "/" + name, args, isolated_env(dir_), dir_);
    }
    RunResult kinefix(const std::vector<std::string>& args) const { return tool("kinefix", args); }

    std::string log(const std::string& program = "kinefix") const {
        return program_log(dir_, program);
    }

    // Records and indexes a recording: its path, or "" with a test failure.
    std::string indexed_recording(const std::string& name, const RecordingPlan& plan,
                                  std::vector<std::string> index_options,
                                  const std::string& index_path) const {
        const std::string path = *this / name;
        const std::string error = make_recording(path, plan, dir_);
        index_options.insert(index_options.end(), {path, index_path});
        const RunResult r = error.empty() ? tool("kinefix-index", index_options) : RunResult{};
        // A recording as the ffmpeg tool writes it is indexed without a warning.
        EXPECT_EQ(r.err.find("warning"), std::string::npos) << r.err;
        if (r.exit_code == 0) return path;
        ADD_FAILURE() << error << r.err;
        return std::string();
    }

  private:
    TempDir dir_;
};

// Lines of an index file that are packet lines.
inline std::vector<std::string> packet_lines(const std::string& index_text) {
    std::vector<std::string> out;
    for (const std::string& line : lines_of(index_text))
        if (!line.empty() && line[0] != '#' && line[0] != '{') out.push_back(line);
    return out;
}

// The banner, one "progress:%.6lf" line per 10 repaired lines (never decreasing, below 1),
// "progress:1.0", the summary and "End", and nothing else.
inline void expect_repair_stdout(const std::string& out, size_t repaired_lines) {
    const std::vector<std::string> lines = lines_of(out);
    const size_t progress = repaired_lines / 10;
    ASSERT_EQ(lines.size(), 5 + progress + 3) << out;
    EXPECT_EQ(out.rfind("==============================\nKinefix (https://kinefix.example.org)\n"
                        "version: 1.1.0\nrelease: 2023.05.10\n==============================\n",
                        0),
              0u)
        << out;
    double last = 0.0;
    for (size_t i = 5; i < 5 + progress; ++i) {
        ASSERT_TRUE(std::regex_match(lines[i], std::regex(R"(progress:0\.\d{6})"))) << lines[i];
        EXPECT_GE(std::stod(lines[i].substr(9)), last) << lines[i];
        last = std::stod(lines[i].substr(9));
    }
    EXPECT_EQ(lines[5 + progress] + "|" + lines[7 + progress], "progress:1.0|End");
    EXPECT_TRUE(std::regex_match(
        lines[6 + progress],
        std::regex(R"(summary:packets=\d+,ignored=\d+,duration=\d+\.\d{3},bytes=[1-9]\d*)")))
        << lines[6 + progress];
}

// Empty when `repaired` holds the packets of `original` stream by stream: MD5s equal and times
// equal up to one constant shift (a muxer may start its clock at zero) within a tick; else the
// first difference. kExact allows no shift and compares decoding times too; kPrefix compares
// only as many packets as the shorter stream has, at least one (a partial copy, or an index
// that lists the recording many times over).
enum class Match { kShifted, kExact, kPrefix };

inline std::string packet_difference(const FrameReport& original, const FrameReport& repaired,
                                     Match how = Match::kShifted) {
    if (!original.ok || !repaired.ok) return "framemd5 failed: " + original.error + repaired.error;
    if (original.streams.size() != repaired.streams.size())
        return "streams: " + std::to_string(repaired.streams.size()) + " of " +
               std::to_string(original.streams.size());
    double shift = 0;
    for (const auto& [index, packets] : original.streams) {
        const auto found = repaired.streams.find(index);
        const size_t n = found == repaired.streams.end() ? 0 : found->second.size();
        const std::string stream = "stream " + std::to_string(index);
        if (how == Match::kPrefix ? n == 0 || packets.empty() : n != packets.size())
            return stream + ": " + std::to_string(n) + " packets of " +
                   std::to_string(packets.size());
        if (n == 0) continue;
        const auto& got = found->second;
        const double tol = std::max(original.tick.at(index), repaired.tick.at(index)) + 1e-9;
        if (index == original.streams.begin()->first) shift = got[0].pts - packets[0].pts;
        if (how == Match::kExact && std::fabs(shift) > tol)
            return "times shifted by " + std::to_string(shift);
        for (size_t i = 0; i < std::min(n, packets.size()); ++i) {
            const std::string at = stream + " packet " + std::to_string(i);
            if (got[i].md5 != packets[i].md5) return at + " differs";
            if (std::fabs(got[i].pts - shift - packets[i].pts) > tol)
                return at + ": pts " + std::to_string(got[i].pts);
            if (how == Match::kExact && std::fabs(got[i].dts - packets[i].dts) > tol)
                return at + ": dts " + std::to_string(got[i].dts);
        }
    }
    return "";
}

inline size_t packet_count(const FrameReport& report) {
    size_t n = 0;
    for (const auto& stream : report.streams) n += stream.second.size();
    return n;
}

}  // namespace kinefix_test
