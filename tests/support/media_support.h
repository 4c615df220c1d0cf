#pragma once
// Helpers for tests on real recordings: made with the ffmpeg tool, damaged, indexed, probed.

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "support/test_support.h"

namespace kinefix_test {

// What to record from lavfi's test sources: 2 s of 320x240 H.264 at 25 fps and/or AAC.
struct RecordingPlan {
    bool video = true;
    bool bframes = true;
    bool audio = true;
    bool faststart = false;  // ISO media index at the front
    double seconds = 2.0;
};

inline std::map<std::string, std::string> plain_env(const TempDir& scratch) {
    return {{"HOME", scratch.str()}, {"TMPDIR", scratch.str()}};
}

// Empty on success, else ffmpeg's complaint.
inline std::string make_recording(const std::string& path, const RecordingPlan& plan,
                                  const TempDir& scratch) {
    const std::string t = std::to_string(plan.seconds);
    std::vector<std::string> args = {"-v", "error", "-y", "-nostdin"};
    if (plan.video)
        args.insert(args.end(),
                    {"-f", "lavfi", "-i", "testsrc=size=320x240:rate=25:duration=" + t});
    if (plan.audio)
        args.insert(args.end(),
                    {"-f", "lavfi", "-i", "sine=frequency=440:sample_rate=48000:duration=" + t});
    if (plan.video)
        args.insert(args.end(), {"-c:v", "libx264", "-preset", "ultrafast", "-bf",
                                 plan.bframes ? "2" : "0", "-g", "25", "-pix_fmt", "yuv420p"});
    if (plan.audio) args.insert(args.end(), {"-c:a", "aac", "-b:a", "64k"});
    if (plan.faststart) args.insert(args.end(), {"-movflags", "+faststart"});
    args.push_back(path);
    const RunResult r = run("ffmpeg", args, plain_env(scratch), scratch);
    if (r.exit_code != 0) return "ffmpeg failed (" + std::to_string(r.exit_code) + "): " + r.err;
    return std::string();
}

// Offset and size of the first top-level ISO media box of that type; size -1 when absent.
struct Box {
    int64_t offset = -1;
    int64_t size = -1;
};

inline Box find_top_box(const std::string& path, const std::string& type) {
    const std::string data = read_file(path);
    size_t pos = 0;
    while (pos + 8 <= data.size()) {
        const auto byte = [&](size_t i) {
            return static_cast<uint64_t>(static_cast<uint8_t>(data[i]));
        };
        uint64_t size =
            (byte(pos) << 24) | (byte(pos + 1) << 16) | (byte(pos + 2) << 8) | byte(pos + 3);
        if (size == 1 && pos + 16 <= data.size()) {
            size = 0;
            for (size_t i = 0; i < 8; ++i) size = (size << 8) | byte(pos + 8 + i);
        } else if (size == 0) {
            size = data.size() - pos;
        }
        if (size < 8) break;
        if (data.compare(pos + 4, 4, type) == 0)
            return {static_cast<int64_t>(pos), static_cast<int64_t>(size)};
        pos += size;
    }
    return {};
}

// Makes the recording's own index unreadable by renaming its 'moov' box (to a type no reader
// looks into, unlike 'free'): the media bytes and
// their offsets stay as they were, as after a crash that left the index half written.
inline bool destroy_moov(const std::string& path) {
    const Box moov = find_top_box(path, "moov");
    if (moov.offset < 0) return false;
    std::fstream f(path, std::ios::in | std::ios::out | std::ios::binary);
    f.seekp(moov.offset + 4);
    f.write("dead", 4);
    return static_cast<bool>(f);
}

inline void truncate_file(const std::string& path, int64_t size) {
    std::error_code ec;
    fs::resize_file(path, static_cast<uintmax_t>(size), ec);
}

// One packet as `ffmpeg -map 0 -c copy -f framemd5` reports it, times in seconds.
struct FramePacket {
    int stream = 0;
    double dts = 0;
    double pts = 0;
    double duration = 0;
    long size = 0;
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
        plain_env(scratch), scratch);
    rep.ok = r.exit_code == 0;
    rep.error = r.err;
    std::map<int, std::pair<long, long>> tb;
    for (const std::string& line : lines_of(r.out)) {
        int s = 0;
        long num = 0, den = 0;
        if (sscanf(line.c_str(), "#tb %d: %ld/%ld", &s, &num, &den) == 3 && den > 0) {
            tb[s] = {num, den};
            rep.tick[s] = static_cast<double>(num) / static_cast<double>(den);
            continue;
        }
        if (line.empty() || line[0] == '#') continue;
        long long dts = 0, pts = 0, dur = 0;
        long size = 0;
        char md5[64] = {0};
        if (sscanf(line.c_str(), "%d, %lld, %lld, %lld, %ld, %32s", &s, &dts, &pts, &dur, &size,
                   md5) != 6)
            continue;
        const double t = rep.tick.count(s) ? rep.tick[s] : 1.0;
        rep.streams[s].push_back({s, static_cast<double>(dts) * t, static_cast<double>(pts) * t,
                                  static_cast<double>(dur) * t, size, md5});
    }
    return rep;
}

// Empty when ffmpeg decodes every frame of the file without a single error line.
inline std::string decode_errors(const std::string& path, const TempDir& scratch) {
    const RunResult r = run("ffmpeg", {"-v", "error", "-nostdin", "-i", path, "-f", "null", "-"},
                            plain_env(scratch), scratch);
    if (r.exit_code != 0) return "exit " + std::to_string(r.exit_code) + ": " + r.err;
    return r.err;
}

inline bool probe_reads(const std::string& path, const TempDir& scratch) {
    return run("ffprobe", {"-v", "error", path}, plain_env(scratch), scratch).exit_code == 0;
}

}  // namespace kinefix_test
