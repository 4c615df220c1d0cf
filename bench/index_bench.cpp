// Index reading speed: packet lines out of MoovParser and their entries through the reader the
// repair loop uses, for both index versions, without any output.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "restore/index_writer.h"
#include "restore/moov_parser.h"
#include "restore/packet_entry.h"

using namespace restore;

namespace {

namespace fs = std::filesystem;

constexpr int kEntries = 200000;

std::vector<IndexStream> Streams() {
    IndexStream video;
    video.video = true;
    video.codec = "h264";
    video.format = "yuv420p";
    video.tb_den = 90000;
    video.width = 1920;
    video.height = 1080;
    // A real SPS/PPS pair (Annex B), so the parser's AVC record building runs as in a repair.
    video.extradata = {0,    0,    0,    1,    0x67, 0x4d, 0x40, 0x29, 0xec, 0xa0, 0x3c, 0x01,
                       0x13, 0xf2, 0xe0, 0x22, 0,    0,    0,    1,    0x68, 0xce, 0x3c, 0x80};
    IndexStream audio;
    audio.index = 1;
    audio.codec = "aac";
    audio.format = "fltp";
    audio.tb_den = 48000;
    audio.channels = 2;
    audio.sample_rate = 48000;
    audio.frame_size = 1024;
    audio.extradata = {0x11, 0x90};
    return {video, audio};
}

// A 1080p30 camera recording with B-frames and 48 kHz AAC: about three audio packets to two
// video ones, contiguous, as kinefix-index writes them.
std::vector<IndexPacket> CameraPackets(int count) {
    std::mt19937 rng(7);
    std::vector<IndexPacket> out;
    int64_t pos = 48;
    int64_t frames[2] = {0, 0};
    for (int n = 0; n < count; ++n) {
        IndexPacket p;
        p.stream = n % 5 >= 3 ? 1 : 0;
        p.size = static_cast<int>(p.stream ? 250 + rng() % 250 : 20000 + rng() % 120000);
        p.pos = pos;
        pos += p.size;
        const int64_t f = frames[p.stream]++;
        if (p.stream == 1) {
            p.pts = p.dts = f * 1024;
            p.duration = 1024;
        } else {
            p.dts = (f - 2) * 3000;
            p.pts = (f % 3 == 0 ? f + 2 : f - 1) * 3000;
            p.duration = 3000;
            p.key = f % 60 == 0;
        }
        p.key = p.key || p.stream == 1;
        out.push_back(p);
    }
    return out;
}

// One index file per version and line length, written once into the temporary folder.
class IndexFile {
  public:
    IndexFile(int version, int per_line, int entries = kEntries) {
        path_ = (fs::temp_directory_path() / ("kinefix-bench-v" + std::to_string(version) + "x" +
                                              std::to_string(per_line) + ".idx"))
                    .string();
        IndexWriter writer(version, per_line);
        std::string error;
        if (!writer.Begin(path_, Streams(), &error)) return;
        for (const IndexPacket& p : CameraPackets(entries)) writer.Add(p);
        writer.Finish(&error);
    }
    ~IndexFile() {
        std::error_code ec;
        fs::remove(path_, ec);
    }
    const std::string& path() const { return path_; }

  private:
    std::string path_;
};

// The engine's walk over one index: every line, every entry, cursor moved as the engine does.
void BM_ReadIndex(benchmark::State& state) {
    const int version = static_cast<int>(state.range(0));
    const int per_line = static_cast<int>(state.range(1));
    const IndexFile file(version, per_line);
    int64_t entries = 0;
    int64_t checksum = 0;
    for (auto _ : state) {
        MoovParser parser;
        if (!parser.Parse(file.path().c_str())) {
            state.SkipWithError("index did not parse");
            return;
        }
        while (const char* line = parser.NextLine()) {
            PacketLine walk(version, line, line + strlen(line));
            PacketEntry entry;
            while (walk.Next(&entry) == EntryRead::kEntry) {
                ++entries;
                checksum += entry.size + entry.pts_step;
            }
        }
        benchmark::DoNotOptimize(checksum);
    }
    if (entries != static_cast<int64_t>(state.iterations()) * kEntries)
        state.SkipWithError("entries were lost on the way");
    state.SetItemsProcessed(entries);
    state.counters["entries"] = kEntries;
}
BENCHMARK(BM_ReadIndex)
    ->ArgNames({"version", "per_line"})
    ->Args({1, 1})
    ->Args({2, 1})
    ->Args({1, 8})
    ->Args({2, 8})
    ->Unit(benchmark::kMillisecond);

// The entry reader alone, on one line held in memory.
void BM_ReadEntries(benchmark::State& state) {
    const int version = static_cast<int>(state.range(0));
    constexpr int kPerLine = 64;
    std::string line;
    {
        const IndexFile file(version, kPerLine, kPerLine);
        MoovParser parser;
        const char* text = parser.Parse(file.path().c_str()) ? parser.NextLine() : nullptr;
        line = text ? text : "";
    }
    if (line.empty()) {
        state.SkipWithError("index did not parse");
        return;
    }
    int64_t entries = 0;
    for (auto _ : state) {
        PacketLine walk(version, line.c_str(), line.c_str() + line.size());
        PacketEntry entry;
        while (walk.Next(&entry) == EntryRead::kEntry) {
            ++entries;
            benchmark::DoNotOptimize(entry);
        }
    }
    state.SetItemsProcessed(entries);
}
BENCHMARK(BM_ReadEntries)->ArgName("version")->Arg(1)->Arg(2);

}  // namespace

BENCHMARK_MAIN();
