// zp::Utils on POSIX systems: files, directories, clocks, environment and the file manager.
#include <dirent.h>
#include <errno.h>
#include <spawn.h>
#include <strings.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "utils/utf.h"
#include "utils/utils.h"
#include "utils/utils_sys.h"

extern char** environ;

namespace zp {

namespace {

std::string env_text(const char* name) {
    const char* v = getenv(name);
    return v != nullptr ? std::string(v) : std::string();
}

// $PRIMARY if set and not empty, else $HOME + fallback; empty when neither is there.
std::string env_dir(const char* primary, const char* home_suffix) {
    std::string dir = primary != nullptr ? env_text(primary) : std::string();
    if (dir.empty()) {
        const std::string home = env_text("HOME");
        if (home.empty()) return std::string();
        dir = home + home_suffix;
    }
    return normalized_path(dir);
}

bool entry_is_dir(const struct dirent* e, const std::string& full) {
    if (e->d_type == DT_DIR) return true;
    if (e->d_type != DT_UNKNOWN) return false;
    // lstat, not stat: a link to a directory is removed as a link, never followed.
    struct stat st;
    return lstat(full.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// Post-order walk; each level works on its own copy of the visitor.
bool walk(const std::string& dir, WalkVisitor visitor, bool recursive) {
    DIR* d = opendir(dir.c_str());
    if (d == nullptr) return false;
    const std::string prefix = (!dir.empty() && dir.back() == '/') ? dir : dir + "/";
    bool stopped = false;
    while (struct dirent* e = readdir(d)) {
        if (strcmp(e->d_name, ".") == 0 || strcmp(e->d_name, "..") == 0) continue;
        const std::string full = prefix + e->d_name;
        // Without recursion a subdirectory is reported with is_dir false, like any entry.
        const bool go =
            (recursive && entry_is_dir(e, full)) ? walk(full, visitor, true) : visitor(false, full);
        if (!go) {
            stopped = true;
            break;
        }
    }
    closedir(d);
    if (stopped) return false;
    return visitor(true, dir);
}

void sleep_nanos(int64_t total) {
    struct timespec req;
    req.tv_sec = static_cast<time_t>(total / 1000000000);
    req.tv_nsec = static_cast<long>(total % 1000000000);
    struct timespec rem;
    while (nanosleep(&req, &rem) != 0 && errno == EINTR) req = rem;
}

}  // namespace

// ---- system primitives

namespace sys {

char native_separator() {
    return '/';
}

bool make_one_dir(const char* path) {
    return path != nullptr && mkdir(path, 0777) == 0;
}

bool opens_as_dir(const char* path) {
    if (path == nullptr || *path == '\0') {
        errno = ENOENT;
        return false;
    }
    DIR* d = opendir(path);
    if (d == nullptr) return false;
    closedir(d);
    return true;
}

bool stat_path(const char* path, FileStat* out) {
    struct stat st;
    if (path == nullptr || stat(path, &st) != 0) return false;
    fill_stat(st, out);
    return true;
}

bool remove_native_dir(const NativeString& path) {
    return rmdir(path.c_str()) == 0;
}

bool remove_native_file(const NativeString& path) {
    return unlink(path.c_str()) == 0;
}

int64_t perf_counter() {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

int64_t perf_frequency() {
    return 1000000000;
}

int64_t system_ticks() {
    struct timespec ts;
    clock_gettime(CLOCK_REALTIME, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 10000000 + ts.tv_nsec / 100;
}

int64_t time_seconds() {
    return static_cast<int64_t>(time(nullptr));
}

bool local_time(int64_t t, struct tm* out) {
    const time_t tt = static_cast<time_t>(t);
    return localtime_r(&tt, out) != nullptr;
}

int compare_nocase(const char* a, const char* b, size_t n) {
    return strncasecmp(a, b, n);
}

char* tokenize(char* s, const char* delims, char** context) {
    return strtok_r(s, delims, context);
}

}  // namespace sys

// ---- files and directories

FILE* Utils::open_file(const char* path, const char* mode) {
    if (path == nullptr || mode == nullptr) return nullptr;
    FILE* f = fopen(path, mode);
    // A directory opens for reading here but not on Windows; readers would only see errors.
    struct stat st;
    if (f != nullptr && fstat(fileno(f), &st) == 0 && S_ISDIR(st.st_mode)) {
        fclose(f);
        errno = EISDIR;
        return nullptr;
    }
    return f;
}

int Utils::remove_file(const char* path) {
    return path != nullptr ? remove(path) : -1;
}

int Utils::rename_file(const char* from, const char* to) {
    return (from != nullptr && to != nullptr) ? rename(from, to) : -1;
}

bool Utils::make_dir(const char* path) {
    if (is_dir(path)) return true;
    return sys::make_one_dir(path);
}

bool Utils::remove_dir(const char* path) {
    // A directory that is not there counts as removed.
    if (!is_dir(path)) return true;
    return rmdir(path) == 0;
}

bool Utils::is_dir(const char* path) {
    return sys::opens_as_dir(path);
}

bool Utils::walk_dir(const char* path, const WalkVisitor& visitor, bool recursive) {
    if (path == nullptr || !visitor) return false;
    // Native paths are the UTF-8 bytes themselves; no round trip that could alter odd names.
    return walk(path, visitor, recursive);
}

bool Utils::is_dir_writable(const char* dir, const char* name) {
    if (dir == nullptr || name == nullptr) return false;
    const std::string path = std::string(dir) + "/" + name;
    FILE* f = open_file(path.c_str(), "w");
    if (f == nullptr) return false;
    fclose(f);
    remove(path.c_str());
    return true;
}

std::string Utils::temp_dir() {
    const std::string tmp = env_text("TMPDIR");
    return tmp.empty() ? std::string("/tmp/") : normalize_path(tmp);
}

void Utils::show_in_folder(const char* path) {
    if (path == nullptr) return;
    const std::string file = normalize_path(path);
#ifdef __APPLE__
    const char* script = "open -R \"$1\" >/dev/null 2>&1 &";
    const std::string target = file;
#else
    const char* script = "xdg-open \"$1\" >/dev/null 2>&1 &";
    std::string target = dir_name(file);
    if (target.empty()) target = ".";
#endif
    // The shell backgrounds the opener and exits at once, so nothing is left to wait for.
    char* argv[] = {const_cast<char*>("sh"),           const_cast<char*>("-c"),
                    const_cast<char*>(script),         const_cast<char*>("sh"),
                    const_cast<char*>(target.c_str()), nullptr};
    pid_t pid = 0;
    if (posix_spawn(&pid, "/bin/sh", nullptr, nullptr, argv, environ) == 0) {
        int status = 0;
        while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
        }
    }
}

// ---- encodings: the ANSI code page is UTF-8 here

std::string Utils::ansi_to_utf8(const std::string& s) {
    return s;
}

std::string Utils::utf8_to_ansi(const std::string& s) {
    return s;
}

std::string Utils::to_narrow(const std::u16string& w, bool /*utf8*/) {
    return w.empty() ? std::string() : utf16_to_utf8(w);
}

std::u16string Utils::to_wide(const std::string& s, bool /*utf8*/) {
    return s.empty() ? std::u16string() : utf8_to_utf16(s);
}

// ---- environment and sleeping

int Utils::set_env(const char* name, const char* value, int /*overwrite*/) {
    // Always overwrites, as the Windows runtime's _putenv does.
    if (name == nullptr || *name == '\0') return -1;
    return setenv(name, value != nullptr ? value : "", 1);
}

const char* Utils::get_env(const char* name) {
    return name != nullptr ? getenv(name) : nullptr;
}

int Utils::sleep_s(int n) {
    if (n >= 0) sleep_nanos(static_cast<int64_t>(n) * 1000 * 1000000);
    return 0;
}

int Utils::sleep_ms(int n) {
    if (n >= 0) sleep_nanos(static_cast<int64_t>(n) * 1000000);
    return 0;
}

int Utils::sleep_us(int64_t n) {
    if (n >= 0) sleep_nanos(n < INT64_MAX / 1000 ? n * 1000 : INT64_MAX);
    return 0;
}

// ---- free helpers

std::string home_dir() {
    const std::string home = env_text("HOME");
    return home.empty() ? std::string() : normalized_path(home);
}

std::string app_data_dir() {
    return env_dir("XDG_CONFIG_HOME", "/.config");
}

std::string local_data_dir() {
    return env_dir("XDG_STATE_HOME", "/.local/state");
}

// The program directory holds the executable itself here, so the last resort is a private
// directory under the temporary one, kept apart per user.
std::string last_resort_dir(const std::string& /*program_dir*/, const std::string& name) {
    std::string dir = Utils::instance()->temp_dir();
    if (dir.empty() || dir.back() != '/') dir += '/';
    return dir + name + "-" + std::to_string(getuid());
}

}  // namespace zp
