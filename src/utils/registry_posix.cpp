// Registry values as files: one directory per key under the user's configuration directory.
#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "utils/registry.h"
#include "utils/utils.h"

namespace zp {

namespace {

std::string env_text(const char* name) {
    const char* v = getenv(name);
    return v != nullptr ? std::string(v) : std::string();
}

bool is_dir(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// The directory of a key path ('\\' and '/' both separate levels); empty for a path that
// would leave the registry root or names no key.
std::string key_dir(const char* path) {
    if (path == nullptr) return std::string();
    std::string root = env_text("XDG_CONFIG_HOME");
    if (root.empty()) {
        const std::string home = env_text("HOME");
        if (home.empty()) return std::string();
        root = home + "/.config";
    }
    std::string dir = root + "/zephra-registry";
    std::string part;
    int levels = 0;
    for (const char* p = path;; ++p) {
        if (*p == '\\' || *p == '/' || *p == '\0') {
            if (part == "." || part == "..") return std::string();
            if (!part.empty()) {
                dir += "/" + part;
                ++levels;
            }
            part.clear();
            if (*p == '\0') break;
        } else {
            part.push_back(*p);
        }
    }
    return levels > 0 ? dir : std::string();
}

bool valid_name(const char* name) {
    return name != nullptr && *name != '\0' && strchr(name, '/') == nullptr &&
           strcmp(name, ".") != 0 && strcmp(name, "..") != 0;
}

bool read_all(const std::string& file, std::string* out) {
    FILE* f = fopen(file.c_str(), "rb");
    if (f == nullptr) return false;
    char chunk[4096];
    size_t n = 0;
    while ((n = fread(chunk, 1, sizeof chunk, f)) > 0) out->append(chunk, n);
    const bool ok = ferror(f) == 0;
    fclose(f);
    return ok;
}

bool write_all(int fd, const char* data, size_t size) {
    while (size > 0) {
        const ssize_t n = write(fd, data, size);
        if (n < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        data += n;
        size -= static_cast<size_t>(n);
    }
    return true;
}

// Temporary file, flush to disk, rename: a crash leaves the old value or the new one.
bool replace_file(const std::string& dir, const char* name, const char* value) {
    std::string tmp = dir + "/." + name + ".XXXXXX";
    const int fd = mkstemp(&tmp[0]);
    if (fd < 0) return false;
    const bool written = write_all(fd, value, strlen(value)) && fsync(fd) == 0;
    const bool closed = close(fd) == 0;
    if (!written || !closed || rename(tmp.c_str(), (dir + "/" + name).c_str()) != 0) {
        unlink(tmp.c_str());
        return false;
    }
    return true;
}

}  // namespace

int reg_get(const char* path, const char* name, char* buf, int capacity) {
    if (buf != nullptr && capacity > 0) memset(buf, 0, static_cast<size_t>(capacity));
    const std::string dir = key_dir(path);
    if (dir.empty() || !is_dir(dir)) {
        reg_detail::report_open(path);
        return -1;
    }
    std::string value;
    if (buf == nullptr || capacity <= 0 || !valid_name(name) ||
        !read_all(dir + "/" + name, &value)) {
        reg_detail::report_query(name);
        return -1;
    }
    reg_detail::copy_value(value, buf, capacity);
    return 0;
}

int reg_set(const char* path, const char* name, const char* value) {
    const std::string dir = key_dir(path);
    if (dir.empty() || !make_dirs(dir.c_str())) {
        reg_detail::report_create(path);
        return -1;
    }
    if (!valid_name(name) || value == nullptr || !replace_file(dir, name, value)) {
        reg_detail::report_set(name, value);
        return -1;
    }
    return 0;
}

int reg_delete(const char* path, const char* name) {
    const std::string dir = key_dir(path);
    if (dir.empty() || !is_dir(dir)) {
        reg_detail::report_open_for_delete(path, name);
        return -1;
    }
    if (!valid_name(name) || unlink((dir + "/" + name).c_str()) != 0) {
        reg_detail::report_delete(name);
        return -1;
    }
    return 0;
}

}  // namespace zp
