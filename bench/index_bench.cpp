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

#include "crypt/crypt.h"
#include "restore/moov_parser.h"
#include "restore/packet_entry.h"

using namespace restore;

namespace {

namespace fs = std::filesystem;

constexpr int kEntries = 200000;

std::string Header(int version) {
    // A real SPS/PPS pair (Annex B), so the parser's AVC record building runs as in a repair.
    const std::vector<uint8_t> ev{0,    0,    0,    1,    0x67, 0x4d, 0x40, 0x29,
                                  0xec, 0xa0, 0x3c, 0x01, 0x13, 0xf2, 0xe0, 0x22,
                                  0,    0,    0,    1,    0x68, 0xce, 0x3c, 0x80};
    const std::string ev_text = zp::Crypt::instance()->encode_bytes(ev.data(), ev.size());
    return "#version=" + std::to_string(version) +
           "\n{\"type\":\"video\",\"index\":0,\"codec\":\"h264\",\"format\":\"yuv420p\","
           "\"tb.num\":1,\"tb.den\":90000,\"w\":1920,\"h\":1080,\"ev\":\"" +
           ev_text +
           "\"}\n"
           "{\"type\":\"audio\",\"index\":1,\"codec\":\"aac\",\"format\":\"fltp\",\"tb.num\":1,"
           "\"tb.den\":48000,\"channels\":2,\"sample_rate\":48000,\"frame_size\":1024,"
           "\"ev\":\"EZA=\"}\n";
}

// What kinefix-index writes for a 1080p30 camera recording with B-frames and 48 kHz AAC: about
// three audio entries to two video ones, contiguous, zero fields left empty in version 2.
std::string Entry(int version, std::mt19937* rng, int n) {
    const bool audio = n % 5 >= 3;
    const long long size = audio ? 250 + (*rng)() % 250 : 20000 + (*rng)() % 120000;
    const long long fields[7] = {audio ? 1 : 0,
                                 n == 0 ? 48 : 0,
                                 size,
                                 audio ? 1024 : (n % 3 == 0 ? 9000 : -3000),
                                 audio ? 0 : 3000,
                                 audio ? 1024 : 3000,
                                 (!audio && n % 60 == 0) ? 1 : 0};
    std::string out;
    for (int i = 0; i < 7; ++i) {
        if (version == 1 || fields[i] != 0) out += std::to_string(fields[i]);
        out += i < 6 ? ',' : ';';
    }
    return out;
}

// One index file per version and line length, written once into the temporary folder.
class IndexFile {
  public:
    IndexFile(int version, int per_line) {
        path_ = (fs::temp_directory_path() / ("kinefix-bench-v" + std::to_string(version) + "x" +
                                              std::to_string(per_line) + ".idx"))
                    .string();
        std::ofstream out(path_, std::ios::binary | std::ios::trunc);
        out << Header(version);
        std::mt19937 rng(7);
        for (int n = 0; n < kEntries; ++n) {
            out << Entry(version, &rng, n);
            if ((n + 1) % per_line == 0 || n + 1 == kEntries) out << '\n';
        }
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
    std::mt19937 rng(7);
    std::string line;
    constexpr int kPerLine = 64;
    for (int n = 0; n < kPerLine; ++n) line += Entry(version, &rng, n);
    line += '\n';
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
