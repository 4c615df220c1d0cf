// zp::Utils on Windows: wide and narrow file calls, Find*File walks, code pages, timers, shell.
#include "core/win32_support.h"

#include <shellapi.h>

#include <direct.h>
#include <errno.h>
#include <io.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <time.h>
#include <wchar.h>

#include <cstdint>
#include <string>
#include <vector>

#include "utils/utils.h"
#include "utils/utils_sys.h"

namespace zp {

using win32::decode;
using win32::encode;
using win32::wide;

namespace {

std::string env_dir(const char* name) {
    const char* v = getenv(name);
    return (v != nullptr && *v != '\0') ? normalized_path(v) : std::string();
}

// Whether the path opens as a directory for listing.
bool opens_for_listing(const wchar_t* path) {
    const DWORD need = GetFullPathNameW(path, 0, nullptr, nullptr);
    if (need == 0) return false;
    std::vector<wchar_t> full(need + 1, L'\0');
    const DWORD got = GetFullPathNameW(path, need + 1, full.data(), nullptr);
    if (got == 0 || got > need) return false;
    std::wstring pattern(full.data(), got);
    const wchar_t last = pattern.empty() ? L'\0' : pattern.back();
    pattern += (last == L'\\' || last == L'/') ? L"*" : L"\\*";
    WIN32_FIND_DATAW data;
    HANDLE h = FindFirstFileExW(pattern.c_str(), FindExInfoStandard, &data, FindExSearchNameMatch,
                                nullptr, 0);
    if (h == INVALID_HANDLE_VALUE) return false;
    FindClose(h);
    return true;
}

// Post-order walk; each level works on its own copy of the visitor.
bool walk(const std::wstring& dir, WalkVisitor visitor, bool recursive) {
    WIN32_FIND_DATAW data;
    HANDLE h = FindFirstFileW((dir + L"\\*.*").c_str(), &data);
    if (h == INVALID_HANDLE_VALUE) return false;
    bool stopped = false;
    do {
        const std::wstring name = data.cFileName;
        if (name == L"." || name == L"..") continue;
        const std::wstring full = dir + L"\\" + name;
        // A link to a directory is an entry of its own here; walking into it could reach
        // (and delete) what it points at.
        const bool descend = recursive && (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0 &&
                             (data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0;
        const bool go = descend ? walk(full, visitor, true) : visitor(false, full);
        if (!go) {
            stopped = true;
            break;
        }
    } while (FindNextFileW(h, &data));
    FindClose(h);
    if (stopped) return false;
    return visitor(true, dir);
}

std::string system_temp_dir() {
    wchar_t buf[260];
    const DWORD n = GetTempPathW(260, buf);
    if (n > 0 && n < 260) {
        // ANSI first, then UTF-8, as the rest of the program sees paths.
        const std::string ansi = encode(std::wstring(buf, n), CP_ACP);
        return normalized_path(encode(decode(ansi, CP_ACP), CP_UTF8));
    }
    const char* tmp = getenv("TMPDIR");
    if (tmp != nullptr && *tmp != '\0') return normalized_path(tmp);
    return "C:/tmp";
}

}  // namespace

// ---- system primitives

namespace sys {

char native_separator() {
    return '\\';
}

bool make_one_dir(const char* path) {
    if (path == nullptr) return false;
    if (_wmkdir(wide(path).c_str()) == 0) return true;
    return _mkdir(path) == 0;
}

bool opens_as_dir(const char* path) {
    if (path == nullptr || *path == '\0') {
        errno = ENOENT;
        return false;
    }
    wchar_t buf[261];
    size_t converted = 0;
    if (mbstowcs_s(&converted, buf, 261, path, _TRUNCATE) == 0 && opens_for_listing(buf))
        return true;
    const std::wstring w = wide(path);
    return !w.empty() && opens_for_listing(w.c_str());
}

bool stat_path(const char* path, FileStat* out) {
    if (path == nullptr) return false;
    struct _stat64 st;
    if (_wstat64(wide(path).c_str(), &st) != 0 && _stat64(path, &st) != 0) return false;
    fill_stat(st, out);
    return true;
}

bool remove_native_dir(const NativeString& path) {
    return RemoveDirectoryW(path.c_str()) != 0;
}

bool remove_native_file(const NativeString& path) {
    if (DeleteFileW(path.c_str()) != 0) return true;
    // Directory links come here unwalked; they go with RemoveDirectoryW.
    const DWORD attrs = GetFileAttributesW(path.c_str());
    const DWORD link_dir = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;
    return attrs != INVALID_FILE_ATTRIBUTES && (attrs & link_dir) == link_dir &&
           RemoveDirectoryW(path.c_str()) != 0;
}

int64_t perf_counter() {
    LARGE_INTEGER c;
    QueryPerformanceCounter(&c);
    return static_cast<int64_t>(c.QuadPart);
}

int64_t perf_frequency() {
    LARGE_INTEGER f;
    if (!QueryPerformanceFrequency(&f)) return 0;
    return static_cast<int64_t>(f.QuadPart);
}

int64_t system_ticks() {
    FILETIME ft;
    GetSystemTimeAsFileTime(&ft);
    const uint64_t since_1601 = (static_cast<uint64_t>(ft.dwHighDateTime) << 32) | ft.dwLowDateTime;
    return static_cast<int64_t>(since_1601 - 116444736000000000ULL);
}

int64_t time_seconds() {
    return static_cast<int64_t>(_time64(nullptr));
}

bool local_time(int64_t t, struct tm* out) {
    const __time64_t tt = static_cast<__time64_t>(t);
    return _localtime64_s(out, &tt) == 0;
}

int compare_nocase(const char* a, const char* b, size_t n) {
    return _strnicmp(a, b, n);
}

char* tokenize(char* s, const char* delims, char** context) {
    return strtok_s(s, delims, context);
}

}  // namespace sys

// ---- files and directories (each path call tries both spellings, in a fixed order)

FILE* Utils::open_file(const char* path, const char* mode) {
    if (path == nullptr || mode == nullptr) return nullptr;
    FILE* f = _wfopen(wide(path).c_str(), wide(mode).c_str());
    return f != nullptr ? f : fopen(path, mode);
}

int Utils::remove_file(const char* path) {
    if (path == nullptr) return -1;
    const int r = remove(path);
    return r == 0 ? r : _wremove(wide(path).c_str());
}

int Utils::rename_file(const char* from, const char* to) {
    if (from == nullptr || to == nullptr) return -1;
    const int r = _wrename(wide(from).c_str(), wide(to).c_str());
    return r == 0 ? r : rename(from, to);
}

bool Utils::make_dir(const char* path) {
    if (is_dir(path)) return true;
    return sys::make_one_dir(path);
}

bool Utils::remove_dir(const char* path) {
    // A directory that is not there counts as removed.
    if (!is_dir(path)) return true;
    if (_rmdir(path) == 0) return true;
    return _wrmdir(wide(path).c_str()) == 0;
}

bool Utils::is_dir(const char* path) {
    return sys::opens_as_dir(path);
}

bool Utils::walk_dir(const char* path, const WalkVisitor& visitor, bool recursive) {
    if (path == nullptr || !visitor) return false;
    return walk(wide(path), visitor, recursive);
}

bool Utils::is_dir_writable(const char* dir, const char* name) {
    if (dir == nullptr || name == nullptr) return false;
    const std::string path = std::string(dir) + "/" + name;
    FILE* f = open_file(path.c_str(), "wt");
    if (f == nullptr) return false;
    fclose(f);
    if (remove(path.c_str()) != 0) _wremove(wide(path.c_str()).c_str());
    return true;
}

std::string Utils::temp_dir() {
    return system_temp_dir();
}

void Utils::show_in_folder(const char* path) {
    if (path == nullptr) return;
    const std::string params = format("/select, \"%s\"", normalize_path(path).c_str());
    ShellExecuteW(nullptr, L"open", L"explorer.exe", wide(params.c_str()).c_str(), nullptr, 1);
}

// ---- encodings: 65001 is UTF-8, 0 the ANSI code page

std::string Utils::ansi_to_utf8(const std::string& s) {
    return encode(decode(s, CP_ACP), CP_UTF8);
}

std::string Utils::utf8_to_ansi(const std::string& s) {
    return encode(decode(s, CP_UTF8), CP_ACP);
}

std::string Utils::to_narrow(const std::u16string& w, bool utf8) {
    if (w.empty()) return std::string();
    return encode(std::wstring(w.begin(), w.end()), utf8 ? CP_UTF8 : CP_ACP);
}

std::u16string Utils::to_wide(const std::string& s, bool utf8) {
    if (s.empty()) return std::u16string();
    const std::wstring w = decode(s, utf8 ? CP_UTF8 : CP_ACP);
    return std::u16string(w.begin(), w.end());
}

// ---- environment and sleeping

int Utils::set_env(const char* name, const char* value, int /*overwrite*/) {
    // _putenv always overwrites; the flag stays for callers written against setenv.
    if (name == nullptr || *name == '\0') return -1;
    const std::string entry = std::string(name) + "=" + (value != nullptr ? value : "");
    return _putenv(entry.c_str());
}

const char* Utils::get_env(const char* name) {
    return name != nullptr ? getenv(name) : nullptr;
}

int Utils::sleep_s(int n) {
    if (n >= 0) Sleep(static_cast<DWORD>(static_cast<int64_t>(n) * 1000));
    return 0;
}

int Utils::sleep_ms(int n) {
    if (n >= 0) Sleep(static_cast<DWORD>(n));
    return 0;
}

int Utils::sleep_us(int64_t n) {
    if (n < 0) return 0;
    const win32::HandleGuard timer(CreateWaitableTimerW(nullptr, TRUE, nullptr));
    if (!timer.valid()) return 0;
    LARGE_INTEGER due;
    due.QuadPart = -(n < INT64_MAX / 10 ? n * 10 : INT64_MAX);  // relative, in 100-ns units
    if (SetWaitableTimer(timer.get(), &due, 0, nullptr, nullptr, FALSE))
        WaitForSingleObject(timer.get(), INFINITE);
    return 0;
}

// ---- free helpers

std::string home_dir() {
    return env_dir("HOMEPATH");
}

std::string app_data_dir() {
    return env_dir("APPDATA");
}

std::string local_data_dir() {
    return system_temp_dir() + "/../";
}

std::string last_resort_dir(const std::string& program_dir, const std::string& name) {
    if (program_dir.empty()) return std::string();
    const char last = program_dir.back();
    return program_dir + (last == '/' || last == '\\' ? "" : "\\") + name;
}

}  // namespace zp
