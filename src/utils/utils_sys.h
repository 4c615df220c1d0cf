#pragma once
// Internal: the system primitives each platform file provides to the portable Utils code.

#include <cstdint>
#include <ctime>

#include "utils/native_string.h"
#include "utils/utils.h"

namespace zp {
namespace sys {

// The separator normalize_path produces.
char native_separator();

// One directory level; false when it exists already or a parent is missing.
bool make_one_dir(const char* path);
bool opens_as_dir(const char* path);

// The stat calls in the platform's fallback order; false when every spelling fails.
bool stat_path(const char* path, FileStat* out);

// Copies a system stat record (struct stat, struct _stat64) into the portable one.
template <typename SysStat>
void fill_stat(const SysStat& st, FileStat* out) {
    out->dev = static_cast<uint32_t>(st.st_dev);
    out->ino = static_cast<uint64_t>(st.st_ino);
    out->mode = static_cast<uint32_t>(st.st_mode);
    out->nlink = static_cast<uint32_t>(st.st_nlink);
    out->uid = static_cast<uint32_t>(st.st_uid);
    out->gid = static_cast<uint32_t>(st.st_gid);
    out->rdev = static_cast<uint32_t>(st.st_rdev);
    out->size = static_cast<int64_t>(st.st_size);
    out->atime = static_cast<int64_t>(st.st_atime);
    out->mtime = static_cast<int64_t>(st.st_mtime);
    out->ctime = static_cast<int64_t>(st.st_ctime);
}

// Removal of walked entries, which arrive as native strings.
bool remove_native_dir(const NativeString& path);
bool remove_native_file(const NativeString& path);

// Clocks: the performance counter and its ticks per second, the system clock in 100-ns ticks
// since 1970, whole seconds since 1970, and local broken-down time.
int64_t perf_counter();
int64_t perf_frequency();
int64_t system_ticks();
int64_t time_seconds();
bool local_time(int64_t t, struct tm* out);

// Case-insensitive comparison of at most n bytes, as strncmp.
int compare_nocase(const char* a, const char* b, size_t n);
// Re-entrant tokenizer, as strtok.
char* tokenize(char* s, const char* delims, char** context);

}  // namespace sys

// normalize_path as a free function, for the helpers that have no instance at hand.
std::string normalized_path(const std::string& path);

// file_stat's logic with the stat calls passed in, so that the open-and-seek fallback is
// reachable where the system stat never fails.
FileStat stat_with_fallback(Abstract_Utils& u, const char* path,
                            bool (*stat_fn)(const char*, FileStat*));

}  // namespace zp
