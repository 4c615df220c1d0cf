#pragma once
// Test helpers for Utils: scratch directories and environment variables restored afterwards.

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <string>

namespace utils_test {

namespace fs = std::filesystem;

// A fresh directory under the system's temporary folder, removed with everything below it.
class ScratchDir {
  public:
    ScratchDir() {
        std::random_device rd;
        for (int attempt = 0; attempt < 100 && path_.empty(); ++attempt) {
            const fs::path p = fs::temp_directory_path() / ("zp-utils-" + std::to_string(rd()));
            std::error_code ec;
            if (fs::create_directory(p, ec)) path_ = p;
        }
    }
    ~ScratchDir() {
        std::error_code ec;
        fs::remove_all(path_, ec);
    }
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;

    std::string str() const { return path_.string(); }
    std::string operator/(const std::string& name) const { return (path_ / name).string(); }

  private:
    fs::path path_;
};

inline void set_var(const std::string& name, const char* value) {
#ifdef _WIN32
    _putenv((name + "=" + (value ? value : "")).c_str());
#else
    if (value)
        setenv(name.c_str(), value, 1);
    else
        unsetenv(name.c_str());
#endif
}

// Sets (or with null removes) a variable for the scope, then puts the old state back.
class ScopedEnv {
  public:
    ScopedEnv(const char* name, const char* value) : name_(name) {
        const char* old = getenv(name);
        had_ = old != nullptr;
        if (had_) old_ = old;
        set_var(name_, value);
    }
    ~ScopedEnv() { set_var(name_, had_ ? old_.c_str() : nullptr); }
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

  private:
    std::string name_;
    std::string old_;
    bool had_ = false;
};

inline void write_text(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
}

inline std::string read_text(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

}  // namespace utils_test
