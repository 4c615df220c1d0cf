#pragma once
// Helpers shared by the tests: temporary directories, files, and running the built programs.

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <sys/wait.h>

namespace kinefix_test {

namespace fs = std::filesystem;

// A fresh directory under the system's temporary folder, removed with everything below it.
class TempDir {
  public:
    TempDir() {
        std::random_device rd;
        for (int attempt = 0; attempt < 100 && path_.empty(); ++attempt) {
            fs::path p = fs::temp_directory_path() / ("kinefix-test-" + std::to_string(rd()));
            std::error_code ec;
            if (fs::create_directory(p, ec)) path_ = p;
        }
    }
    ~TempDir() {
        std::error_code ec;
        fs::permissions(path_, fs::perms::owner_all, fs::perm_options::add, ec);
        fs::remove_all(path_, ec);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const fs::path& path() const { return path_; }
    std::string str() const { return path_.string(); }
    std::string operator/(const std::string& name) const { return (path_ / name).string(); }

  private:
    fs::path path_;
};

inline std::string read_file(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

// A file the framework writes in text mode, with Windows' "\r\n" read as "\n".
inline std::string read_text(const std::string& path) {
    std::string text = read_file(path);
    std::string out;
    for (size_t i = 0; i < text.size(); ++i)
        if (!(text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n')) out += text[i];
    return out;
}

inline void write_file(const std::string& path, const std::string& content) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
}

inline std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> out;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        out.push_back(line);
    }
    return out;
}

// Directory holding the built programs (set by CTest).
inline std::string bin_dir() {
    const char* d = std::getenv("KINEFIX_BIN_DIR");
    return d ? d : ".";
}

inline std::string shell_quote(const std::string& s) {
    std::string out = "'";
    for (char c : s) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

struct RunResult {
    int exit_code = -1;
    std::string out;
    std::string err;
};

// Runs a program with arguments and extra environment, capturing both output streams.
inline RunResult run(const std::string& program, const std::vector<std::string>& args,
                     const std::map<std::string, std::string>& env, const TempDir& scratch) {
    std::string cmd = "env";
    for (const auto& kv : env) cmd += " " + shell_quote(kv.first + "=" + kv.second);
    cmd += " " + shell_quote(program);
    for (const auto& a : args) cmd += " " + shell_quote(a);
    const std::string out_path = scratch / "run.stdout";
    const std::string err_path = scratch / "run.stderr";
    cmd += " </dev/null >" + shell_quote(out_path) + " 2>" + shell_quote(err_path);
    const int status = std::system(cmd.c_str());
    RunResult r;
    r.exit_code = (status >= 0 && WIFEXITED(status)) ? WEXITSTATUS(status) : -1;
    r.out = read_file(out_path);
    r.err = read_file(err_path);
    fs::remove(out_path);
    fs::remove(err_path);
    return r;
}

// An environment whose home, state, config and temporary folders all lie in `home`.
inline std::map<std::string, std::string> isolated_env(const TempDir& home) {
    return {{"HOME", home.str()},
            {"XDG_STATE_HOME", home / "state"},
            {"XDG_CONFIG_HOME", home / "config"},
            {"TMPDIR", home.str()}};
}

// Runs body(i) for i in [0, n) on n threads at once and waits for all of them.
template <typename Body>
void on_threads(int n, Body body) {
    std::vector<std::thread> threads;
    for (int i = 0; i < n; ++i) threads.emplace_back(body, i);
    for (auto& t : threads) t.join();
}

// Hands `args` to a command-line parser as argc and argv.
template <typename Parser>
bool parse_args(Parser& p, const std::vector<std::string>& args) {
    std::vector<const char*> argv;
    for (const std::string& a : args) argv.push_back(a.c_str());
    return p.parse(static_cast<int>(args.size()), argv.data());
}

// Sets (or with null removes) an environment variable for the scope.
class ScopedEnv {
  public:
    ScopedEnv(const char* name, const char* value)
        : name_(name), had_(getenv(name) != nullptr), old_(had_ ? getenv(name) : "") {
        set(name, value);
    }
    ~ScopedEnv() { set(name_.c_str(), had_ ? old_.c_str() : nullptr); }
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

  private:
    static void set(const char* name, const char* value) {
        value != nullptr ? setenv(name, value, 1) : unsetenv(name);
    }
    std::string name_;
    bool had_;
    std::string old_;
};

}  // namespace kinefix_test
