// zp::Utils file operations built on the platform primitives: copy, stat, size, tree removal.
#include <cstdio>
#include <cstring>
#include <vector>

#include "utils/file_offset.h"
#include "utils/utils.h"
#include "utils/utils_sys.h"

namespace zp {

namespace {
constexpr size_t kCopyChunk = 10240;
}  // namespace

int Utils::copy_file(const char* from, const char* to) {
    FILE* in = open_file(from, "rb");
    if (in == nullptr) return -1;
    FILE* out = open_file(to, "wb");
    if (out == nullptr) {
        fclose(in);
        return -2;
    }
    std::vector<char> chunk(kCopyChunk);
    size_t n = 0;
    while ((n = fread(chunk.data(), 1, chunk.size(), in)) > 0) fwrite(chunk.data(), 1, n, out);
    fclose(in);
    fclose(out);
    return 0;
}

FileStat stat_with_fallback(Abstract_Utils& u, const char* path,
                            bool (*stat_fn)(const char*, FileStat*)) {
    FileStat st;
    if (stat_fn(path, &st)) return st;
    st = FileStat();
    // Some files stat cannot reach still open; their size is what callers need.
    FILE* f = u.open_file(path, "rb");
    if (f != nullptr) {
        if (file_seek(f, 0, SEEK_END) == 0) {
            const int64_t size = file_tell(f);
            st.size = size > 0 ? size : 0;
        }
        fclose(f);
        return st;
    }
    fprintf(stderr, "zp: [Error] _wstat64(..) < 0, path=%s\n", path ? path : "");
    fflush(stderr);
    return st;
}

FileStat Utils::file_stat(const char* path) {
    return stat_with_fallback(*this, path, sys::stat_path);
}

int64_t Utils::file_size(const char* path) {
    return file_stat(path).size;
}

bool Utils::remove_tree(const char* path) {
    int failures = 0;
    // The walk reports a directory after its contents, so each one is empty when removed.
    walk_dir(
        path,
        [&failures](bool is_dir, const NativeString& p) {
            const bool ok = is_dir ? sys::remove_native_dir(p) : sys::remove_native_file(p);
            if (!ok) ++failures;
            return true;
        },
        true);
    return failures == 0;
}

bool make_dirs(const char* path) {
    if (path == nullptr || *path == '\0') return false;
    const std::string p(path);
    for (size_t i = 1; i < p.size(); ++i) {
        const bool sep = p[i] == '/' || p[i] == '\\';
        const bool after_sep = p[i - 1] == '/' || p[i - 1] == '\\';
        if (sep && !after_sep) sys::make_one_dir(p.substr(0, i).c_str());
    }
    sys::make_one_dir(path);
    return sys::opens_as_dir(path);
}

}  // namespace zp
