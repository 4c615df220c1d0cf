// Rescue without an index: recordings made by the ffmpeg tool lose their index (and sometimes
// more), kinefix-index --reference rebuilds it from a shorter recording with the same settings,
// kinefix repairs, and ffprobe/ffmpeg check the packets against the original's.
#include <gtest/gtest.h>

#include <algorithm>
#include <cinttypes>
#include <random>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "support/media_support.h"

namespace {

using namespace kinefix_test;

enum class Damage { kMoovRenamed, kMoovCutOff, kMoovFrontZeroed, kZeros, kRandom, kCutMidSample };

// A camera's settings; the length is given per recording.
struct Settings {
    std::vector<std::string> encode;  // codec options after the inputs
    bool video = true;
    bool audio = true;
    std::string size = "320x240";
    std::string source = "testsrc";
};

std::string Record(const std::string& path, const Settings& s, int seconds, const Workspace& ws) {
    const RecordingPlan plan{s.video, false, s.audio,  false,  double(seconds),
                             "",      "",    s.encode, s.size, s.source};
    return make_recording(path, plan, ws.dir());
}

// One packet of the original: where its bytes lie, and what framemd5 says of it.
struct Placed {
    int stream = 0;
    int64_t pos = 0;
    int64_t size = 0;
    FramePacket packet;
};

std::vector<Placed> PlacedPackets(const std::string& path, const FrameReport& report,
                                  const Workspace& ws) {
    const RunResult r = run(
        "ffprobe",
        {"-v", "error", "-show_entries", "packet=stream_index,pos,size", "-of", "csv=p=0", path},
        isolated_env(ws.dir()), ws.dir());
    std::vector<Placed> out;
    std::map<int, size_t> next;
    for (const std::string& line : lines_of(r.out)) {
        Placed p;
        // ffprobe keeps its own field order: stream_index, size, pos.
        if (sscanf(line.c_str(), "%d,%" SCNd64 ",%" SCNd64, &p.stream, &p.size, &p.pos) != 3)
            continue;
        const auto& list = report.streams.at(p.stream);
        if (next[p.stream] < list.size()) p.packet = list[next[p.stream]++];
        out.push_back(p);
    }
    return out;
}

void Overwrite(const std::string& path, int64_t at, const std::string& bytes) {
    std::fstream f(path, std::ios::in | std::ios::out | std::ios::binary);
    f.seekp(at).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

// Applies the damage; returns the damaged byte range [first, second) inside the media data
// (empty for damage to the index alone).
std::pair<int64_t, int64_t> ApplyDamage(const std::string& path, Damage kind) {
    const auto [mdat, mdat_size] = find_top_box(path, "mdat");
    const auto [moov, moov_size] = find_top_box(path, "moov");
    const int64_t middle = mdat + mdat_size / 3;
    std::mt19937 rng(7);
    std::string random(1 << 20, '\0');
    for (char& c : random) c = static_cast<char>(rng());
    switch (kind) {
        case Damage::kMoovRenamed:
            destroy_moov(path);
            return {0, 0};
        case Damage::kMoovCutOff:
            fs::resize_file(path, static_cast<uintmax_t>(moov));
            return {0, 0};
        case Damage::kMoovFrontZeroed:
            Overwrite(path, moov, std::string(static_cast<size_t>(moov_size), '\0'));
            return {0, 0};
        case Damage::kZeros:
        case Damage::kRandom:
            destroy_moov(path);
            Overwrite(path, middle, kind == Damage::kZeros ? std::string(1 << 20, '\0') : random);
            return {middle, middle + (1 << 20)};
        case Damage::kCutMidSample:
            fs::resize_file(path, static_cast<uintmax_t>(middle));
            return {middle, INT64_MAX};
    }
    return {0, 0};
}

struct Row {
    const char* name;
    Settings settings;
    std::string ext;
    Damage damage;
    int seconds;
};

const std::vector<std::string> kH264 = {"-c:v", "libx264", "-preset", "ultrafast", "-bf",
                                        "2",    "-g",      "25",      "-pix_fmt",  "yuv420p"};
const std::vector<std::string> kAac = {"-c:a", "aac", "-b:a", "64k"};

std::vector<std::string> Join(std::vector<std::string> a, const std::vector<std::string>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// Every repaired packet is one of the original's, bytes and times exact; the ones the damage
// did not reach are all there.
void ExpectRescued(const Row& row, const std::vector<Placed>& original,
                   std::pair<int64_t, int64_t> damaged, const FrameReport& repaired) {
    ASSERT_TRUE(repaired.ok) << repaired.error;
    std::map<int, std::map<std::string, FramePacket>> by_md5;
    for (const Placed& p : original) by_md5[p.stream][p.packet.md5] = p.packet;
    std::set<std::pair<int, std::string>> found;
    for (const auto& [stream, packets] : repaired.streams) {
        for (const FramePacket& got : packets) {
            SCOPED_TRACE("stream " + std::to_string(stream) + " md5 " + got.md5);
            const auto it = by_md5[stream].find(got.md5);
            ASSERT_NE(it, by_md5[stream].end()) << "a packet the original does not hold";
            const double tol = repaired.tick.at(stream) + 1e-9;
            EXPECT_NEAR(got.pts, it->second.pts, tol);
            EXPECT_NEAR(got.dts, it->second.dts, tol);
            found.insert({stream, got.md5});
        }
    }
    // Damage in the media data costs the samples it touches, the sample just before it and
    // the video up to the next key picture: at most one GOP (25 pictures) and the audio beside.
    const bool in_data = damaged.second > damaged.first;
    int64_t last_before = -1;
    double damage_time = 0;
    for (const Placed& p : original) {
        if (p.pos + p.size <= damaged.first) last_before = std::max(last_before, p.pos);
        if (p.pos < damaged.second) damage_time = std::max(damage_time, p.packet.dts);
    }
    size_t missing = 0, lost_to_damage = 0;
    for (const Placed& p : original) {
        const bool spared = !in_data || (p.pos + p.size <= damaged.first && p.pos != last_before) ||
                            (p.pos >= damaged.second && p.packet.dts > damage_time + 1.2);
        (spared ? missing : lost_to_damage) += found.count({p.stream, p.packet.md5}) ? 0 : 1;
    }
    EXPECT_EQ(missing, 0u) << "packets the damage did not reach are missing";
    printf("[ %s ] %zu of %zu packets rescued, %zu lost at the damage\n", row.name, found.size(),
           original.size(), lost_to_damage);
}

void RescueRow(const Row& row) {
    Workspace ws;
    const std::string reference = ws / ("reference" + row.ext);
    const std::string damaged = ws / ("damaged" + row.ext);
    ASSERT_EQ(Record(reference, row.settings, 2, ws), "");
    ASSERT_EQ(Record(damaged, row.settings, row.seconds, ws), "");
    const FrameReport original = frame_report(damaged, ws.dir());
    const std::vector<Placed> placed = PlacedPackets(damaged, original, ws);
    const auto range = ApplyDamage(damaged, row.damage);
    ASSERT_NE(decode_errors(damaged, ws.dir()), "") << "the damaged file still reads";

    const std::string index = ws / "damaged.idx";
    const RunResult scan =
        ws.tool("kinefix-index", {"--reference", reference, "--progress", damaged, index});
    ASSERT_EQ(scan.exit_code, 0) << scan.err;
    // A front end drives the scan as it drives kinefix: rising progress lines, then 1.0.
    std::vector<std::string> progress = lines_of(scan.out);
    ASSERT_GE(progress.size(), 3u) << scan.out;
    EXPECT_EQ(progress.back(), "progress:1.0");
    progress.pop_back();
    for (const std::string& line : progress)
        ASSERT_TRUE(std::regex_match(line, std::regex(R"(progress:0\.\d{6})"))) << line;
    EXPECT_TRUE(std::is_sorted(progress.begin(), progress.end()));
    EXPECT_EQ(std::adjacent_find(progress.begin(), progress.end()), progress.end());
    EXPECT_NE(scan.err.find("kinefix-index: rescued: video "), std::string::npos) << scan.err;
    if (range.second > range.first) {
        EXPECT_NE(scan.err.find("skipped damaged data at offset"), std::string::npos) << scan.err;
        EXPECT_NE(ws.log("kinefix-index").find("skipped damaged data at offset"),
                  std::string::npos);
    }
    const std::string output = ws / ("repaired" + row.ext);
    const RunResult repair = ws.kinefix({damaged, index, output});
    ASSERT_EQ(repair.exit_code, 0) << repair.err;
    EXPECT_EQ(decode_errors(output, ws.dir()), "");
    const FrameReport repaired = frame_report(output, ws.dir());
    ExpectRescued(row, placed, range, repaired);
    if (range.second <= range.first) {
        EXPECT_EQ(packet_difference(original, repaired, Match::kExact), "");
    }
}

TEST(RescueTest, RebuildsTheIndexFromAReferenceRecording) {
    // clang-format off
    const std::vector<Row> rows = {
        {"H.264 B-frames + AAC, MP4", {Join(kH264, kAac)}, ".mp4", Damage::kMoovRenamed, 5},
        {"H.264 B-frames + AAC, MOV, long chunks",
         {Join(Join(kH264, kAac), {"-chunk_duration", "500000", "-chunk_size", "200000"})}, ".mov",
         Damage::kMoovRenamed, 5},
        {"HEVC B-frames + AAC, MP4",
         {Join({"-c:v", "libx265", "-preset", "ultrafast", "-x265-params", "bframes=3:keyint=25:log-level=0",
                "-pix_fmt", "yuv420p"}, kAac)}, ".mp4", Damage::kMoovRenamed, 4},
        {"H.264 + PCM, MOV", {Join(kH264, {"-c:a", "pcm_s16le"})}, ".mov", Damage::kMoovRenamed, 4},
        {"video only", {kH264, true, false}, ".mp4", Damage::kMoovRenamed, 4},
        {"moov cut off", {Join(kH264, kAac)}, ".mp4", Damage::kMoovCutOff, 4},
        {"moov at the front, zeroed", {Join(Join(kH264, kAac), {"-movflags", "+faststart"})}, ".mp4",
         Damage::kMoovFrontZeroed, 4},
        {"1 MB of zeros in the middle",
         {Join(Join(kH264, {"-qp", "2"}), kAac), true, true, "640x480", "testsrc2"},
         ".mp4", Damage::kZeros, 30},
        {"1 MB of random bytes in the middle",
         {Join(Join(kH264, {"-qp", "2"}), kAac), true, true, "640x480", "testsrc2"}, ".mp4",
         Damage::kRandom, 30},
        {"HEVC, 1 MB of random bytes in the middle",
         {Join({"-c:v", "libx265", "-preset", "ultrafast", "-x265-params",
                "bframes=3:keyint=25:qp=4:log-level=0", "-pix_fmt", "yuv420p"}, kAac),
          true, true, "640x480", "testsrc2"}, ".mp4", Damage::kRandom, 20},
        {"cut in the middle of a sample", {Join(kH264, kAac)}, ".mp4", Damage::kCutMidSample, 4},
    };
    // clang-format on
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        RescueRow(row);
    }
}

// Each failing check is told, and the other settings still run.
TEST(RescueTest, RefusesAReferenceThatDoesNotFit) {
    struct Misfit {
        const char* name;
        Settings reference;
        std::string expected;  // in the message
    };
    const Settings recording{Join(kH264, kAac)};
    // clang-format off
    const Misfit rows[] = {
        {"other resolution", {Join(kH264, kAac), true, true, "640x480"},
         "does not decode with the reference's parameter sets"},
        {"other codec", {Join({"-c:v", "libx265", "-preset", "ultrafast", "-x265-params",
                                "log-level=0", "-pix_fmt", "yuv420p"}, kAac)},
         "no sample of the recording is video of the reference's kind"},
        {"audio only", {kAac, false, true}, "the reference does not describe this recording"},
    };
    // clang-format on
    for (const Misfit& m : rows) {
        SCOPED_TRACE(m.name);
        Workspace ws;
        const std::string reference = ws / "reference.mp4";
        const std::string damaged = ws / "damaged.mp4";
        ASSERT_EQ(Record(reference, m.reference, 2, ws), "");
        ASSERT_EQ(Record(damaged, recording, 4, ws), "");
        ASSERT_TRUE(destroy_moov(damaged));
        const std::string index = ws / "damaged.idx";
        write_file(index, "an older index\n");
        const RunResult r = ws.tool("kinefix-index", {"--reference", reference, damaged, index});
        EXPECT_NE(r.exit_code, 0);
        EXPECT_NE(r.err.find("the reference does not fit: "), std::string::npos) << r.err;
        EXPECT_NE(r.err.find(m.expected), std::string::npos) << r.err;
        EXPECT_NE(r.err.find("no index written"), std::string::npos) << r.err;
        EXPECT_EQ(read_file(index), "an older index\n");
        expect_no_scratch_files(ws.dir().path());
    }
}

}  // namespace
