#pragma once
// zp::Utils: the framework's toolbox of file, path, encoding, string, time and process helpers.

#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "core/abstract_base.h"
#include "utils/native_string.h"

namespace zp {

// 64-bit stat record; all zero when the stat fails.
struct FileStat {
    uint32_t dev = 0;
    uint64_t ino = 0;
    uint32_t mode = 0;
    uint32_t nlink = 0;
    uint32_t uid = 0;
    uint32_t gid = 0;
    uint32_t rdev = 0;
    int64_t size = 0;
    int64_t atime = 0;
    int64_t mtime = 0;
    int64_t ctime = 0;
};

// Seconds since 1970 and the microsecond remainder.
struct TimeOfDay {
    int32_t sec = 0;
    int32_t usec = 0;
};

// Called with (is_dir, full path); answers true to go on, false to stop the walk.
using WalkVisitor = std::function<bool(bool is_dir, const NativeString& path)>;

class Abstract_Utils : public Abstract_Base {
  public:
    using Abstract_Base::Abstract_Base;
    ~Abstract_Utils() override = default;

    // Time. now_str's text lives in one of eight rotating buffers.
    virtual const char* now_str(const char* pattern) = 0;
    virtual std::string time_str(int64_t t, const char* pattern) = 0;
    virtual int64_t now_us(int clock = 1) = 0;
    virtual int64_t now_ns(int clock = 1) = 0;

    // Directories.
    virtual bool make_dir(const char* path) = 0;
    virtual bool remove_dir(const char* path) = 0;
    virtual bool remove_tree(const char* path) = 0;
    virtual bool is_dir(const char* path) = 0;
    virtual std::string temp_dir() = 0;

    // White space is exactly ' ', '\t', '\n', '\r'. The first character is never trimmed off
    // from the right.
    virtual const char* skip_space(const char* s) = 0;
    virtual char* skip_space(char* s) = 0;
    virtual char* trim_right_space(char* s) = 0;
    virtual std::string trimmed(const char* s) = 0;
    virtual char* trim_space(char* s) = 0;
    virtual char* skip_chars(char* s, const char* set) = 0;
    virtual char* trim_right_chars(char* s, const char* set) = 0;
    virtual std::string trimmed_chars(const char* s, const char* set) = 0;
    virtual char* trim_chars(char* s, const char* set) = 0;
    // Rescans from the start after each replacement: `to` must not contain `from`.
    virtual std::string replace_all(const std::string& s, const std::string& from,
                                    const std::string& to) = 0;
    virtual std::string replace_all_forward(const std::string& s, const std::string& from,
                                            const std::string& to) = 0;
    virtual bool starts_with(const char* s, const char* prefix, bool case_sensitive = true) = 0;
    virtual bool ends_with(const char* s, const char* suffix, bool case_sensitive = true) = 0;
    virtual std::string format(const char* pattern, ...) = 0;
    virtual std::vector<std::string> split(const char* text, const char* delims,
                                           bool keep_empty = false) = 0;
    virtual std::string to_lower(const std::string& s) = 0;
    virtual char* to_lower_inplace(char* s) = 0;
    virtual std::string to_upper(const std::string& s) = 0;
    virtual char* to_upper_inplace(char* s) = 0;
    virtual std::string random_string(int n) = 0;
    virtual const char* tail(const char* s, size_t n) = 0;

    // Files and paths. Paths are UTF-8.
    virtual bool walk_dir(const char* path, const WalkVisitor& visitor, bool recursive) = 0;
    virtual std::string normalize_path(const std::string& path) = 0;
    virtual FILE* open_file(const char* path, const char* mode) = 0;
    virtual int remove_file(const char* path) = 0;
    virtual int rename_file(const char* from, const char* to) = 0;
    // 0 on success, -1 when the source will not open, -2 when the destination will not.
    virtual int copy_file(const char* from, const char* to) = 0;
    virtual int64_t file_size(const char* path) = 0;
    virtual FileStat file_stat(const char* path) = 0;
    virtual std::string file_name(const std::string& path) = 0;
    virtual std::string file_stem(const std::string& path) = 0;
    virtual std::string dir_name(const std::string& path) = 0;
    virtual void show_in_folder(const char* path) = 0;
    virtual bool is_dir_writable(const char* dir, const char* name) = 0;

    // Encodings. The ANSI code page is UTF-8 outside Windows.
    virtual std::string ansi_to_utf8(const std::string& s) = 0;
    virtual std::string utf8_to_ansi(const std::string& s) = 0;
    virtual std::string to_narrow(const std::u16string& w, bool utf8 = true) = 0;
    virtual std::u16string to_wide(const std::string& s, bool utf8 = true) = 0;

    // Environment and process.
    virtual int set_env(const char* name, const char* value, int overwrite = 1) = 0;
    virtual const char* get_env(const char* name) = 0;
    virtual int set_env_ptr(const char* name, const void* p) = 0;
    virtual void get_env_ptr(const char* name, void** out) = 0;
    virtual uint32_t thread_id() = 0;
    virtual int reserved() = 0;
    virtual void fire_hook_once(void* arg) = 0;
    virtual int sleep_s(int n) = 0;
    virtual int sleep_ms(int n) = 0;
    virtual int sleep_us(int64_t n) = 0;
    virtual int time_of_day(TimeOfDay* tv) = 0;
    virtual void run_detached(std::function<void()> fn) = 0;
};

class Utils : public Abstract_Utils {
  public:
    // The process-wide instance, created on first request (not thread-safe: start-up does it).
    static Utils* instance();

    explicit Utils(Admin* owner = nullptr);
    ~Utils() override;

    const char* now_str(const char* pattern) override;
    std::string time_str(int64_t t, const char* pattern) override;
    int64_t now_us(int clock = 1) override;
    int64_t now_ns(int clock = 1) override;
    bool make_dir(const char* path) override;
    bool remove_dir(const char* path) override;
    bool remove_tree(const char* path) override;
    bool is_dir(const char* path) override;
    std::string temp_dir() override;
    const char* skip_space(const char* s) override;
    char* skip_space(char* s) override;
    char* trim_right_space(char* s) override;
    std::string trimmed(const char* s) override;
    char* trim_space(char* s) override;
    char* skip_chars(char* s, const char* set) override;
    char* trim_right_chars(char* s, const char* set) override;
    std::string trimmed_chars(const char* s, const char* set) override;
    char* trim_chars(char* s, const char* set) override;
    std::string replace_all(const std::string& s, const std::string& from,
                            const std::string& to) override;
    std::string replace_all_forward(const std::string& s, const std::string& from,
                                    const std::string& to) override;
    bool starts_with(const char* s, const char* prefix, bool case_sensitive = true) override;
    bool ends_with(const char* s, const char* suffix, bool case_sensitive = true) override;
    std::string format(const char* pattern, ...) override;
    std::vector<std::string> split(const char* text, const char* delims,
                                   bool keep_empty = false) override;
    std::string to_lower(const std::string& s) override;
    char* to_lower_inplace(char* s) override;
    std::string to_upper(const std::string& s) override;
    char* to_upper_inplace(char* s) override;
    std::string random_string(int n) override;
    const char* tail(const char* s, size_t n) override;
    bool walk_dir(const char* path, const WalkVisitor& visitor, bool recursive) override;
    std::string normalize_path(const std::string& path) override;
    FILE* open_file(const char* path, const char* mode) override;
    int remove_file(const char* path) override;
    int rename_file(const char* from, const char* to) override;
    int copy_file(const char* from, const char* to) override;
    int64_t file_size(const char* path) override;
    FileStat file_stat(const char* path) override;
    std::string file_name(const std::string& path) override;
    std::string file_stem(const std::string& path) override;
    std::string dir_name(const std::string& path) override;
    void show_in_folder(const char* path) override;
    bool is_dir_writable(const char* dir, const char* name) override;
    std::string ansi_to_utf8(const std::string& s) override;
    std::string utf8_to_ansi(const std::string& s) override;
    std::string to_narrow(const std::u16string& w, bool utf8 = true) override;
    std::u16string to_wide(const std::string& s, bool utf8 = true) override;
    int set_env(const char* name, const char* value, int overwrite = 1) override;
    const char* get_env(const char* name) override;
    int set_env_ptr(const char* name, const void* p) override;
    void get_env_ptr(const char* name, void** out) override;
    uint32_t thread_id() override;
    int reserved() override;
    void fire_hook_once(void* arg) override;
    int sleep_s(int n) override;
    int sleep_ms(int n) override;
    int sleep_us(int64_t n) override;
    int time_of_day(TimeOfDay* tv) override;
    void run_detached(std::function<void()> fn) override;

  private:
    uint64_t reserved_word_ = 0;
};

// Free helpers beside the class.
std::string app_data_dir();
std::string home_dir();
// The first base-directory candidate's parent: the local application-data folder on Windows
// (temporary directory + "/../"), $XDG_STATE_HOME or $HOME/.local/state elsewhere; empty when
// the environment names none.
std::string local_data_dir();
// The fourth base-directory candidate, name included: beside the program on Windows, a per-user
// directory under the temporary one elsewhere; empty when there is none.
std::string last_resort_dir(const std::string& program_dir, const std::string& name);
// Creates a directory and its missing parents (mode 0777); true when it exists afterwards.
bool make_dirs(const char* path);

// The one-shot hook that fire_hook_once calls: (1, its argument, a zeroed scratch buffer of
// kOnceHookScratch bytes). Installing arms it; a null hook disarms it.
using OnceHook = void (*)(int code, void* arg, char* scratch);
constexpr int kOnceHookScratch = 256;
void set_once_hook(OnceHook hook);

}  // namespace zp
