#pragma once
// Helpers shared by the fuzz targets: a private scratch directory and whole-file writes.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <random>
#include <string>
#include <system_error>

namespace kinefix_fuzz {

// One directory per fuzzing process, removed when the process ends normally.
inline const std::filesystem::path& scratch_dir() {
    static const std::filesystem::path dir = [] {
        std::random_device rd;
        std::filesystem::path p =
            std::filesystem::temp_directory_path() / ("kinefix-fuzz-" + std::to_string(rd()));
        std::filesystem::create_directories(p);
        return p;
    }();
    static const struct Cleanup {
        ~Cleanup() {
            std::error_code ec;
            std::filesystem::remove_all(dir, ec);
        }
    } cleanup;
    return dir;
}

inline std::string scratch_path(const std::string& name) {
    return (scratch_dir() / name).string();
}

inline bool write_whole(const std::string& path, const uint8_t* data, size_t size) {
    FILE* f = fopen(path.c_str(), "wb");
    if (!f) return false;
    const bool ok = (size == 0 || fwrite(data, 1, size, f) == size);
    return fclose(f) == 0 && ok;
}

}  // namespace kinefix_fuzz
