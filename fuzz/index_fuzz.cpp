// Fuzz target: an index file through the parser and a real repair into a temporary output.
// The input is the whole index file; the damaged file is a fixed 64 KiB of pseudo-random bytes.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "restore/moov_parser.h"
#include "restore/repair_engine.h"

using namespace restore;

namespace {

std::string g_broken;
std::string g_index;
std::string g_output;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    g_broken = kinefix_fuzz::scratch_path("broken.bin");
    g_index = kinefix_fuzz::scratch_path("index.idx");
    g_output = kinefix_fuzz::scratch_path("out.mp4");
    std::vector<uint8_t> bytes(64 * 1024);
    uint32_t x = 2463534242u;
    for (auto& b : bytes) {
        x ^= x << 13;
        x ^= x >> 17;
        x ^= x << 5;
        b = static_cast<uint8_t>(x);
    }
    kinefix_fuzz::write_whole(g_broken, bytes.data(), bytes.size());
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (!kinefix_fuzz::write_whole(g_index, data, size)) return 0;

    // An unknown version ends the process by design (result 10), which a fuzzer cannot
    // survive: such inputs exercise the parser and its line reader only.
    {
        MoovParser parser;
        if (!parser.Parse(g_index.c_str())) return 0;
        if (parser.version() != 1 && parser.version() != 2) {
            while (parser.NextLine()) parser.Progress();
            return 0;
        }
    }
    RepairEngine engine;
    engine.Run(g_broken.c_str(), g_index.c_str(), g_output.c_str());
    std::remove(g_output.c_str());
    return 0;
}
