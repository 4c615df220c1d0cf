// File safety operations on POSIX.
#include "utils/file_safety.h"

#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vector>

namespace zp {

FileKind file_kind(const char* path) {
    struct stat st;
    if (path == nullptr || stat(path, &st) != 0) return FileKind::kMissing;
    if (S_ISDIR(st.st_mode)) return FileKind::kDirectory;
    return S_ISREG(st.st_mode) ? FileKind::kRegular : FileKind::kOther;
}

std::string create_file_beside(const std::string& path) {
    if (path.empty()) return std::string();
    const size_t slash = path.rfind('/');
    const std::string dir = slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    // Hidden, and with the final name in it so a stray one explains itself.
    std::string pattern = dir + "." + name + ".kinefix-XXXXXX";
    std::vector<char> text(pattern.begin(), pattern.end());
    text.push_back('\0');
    const int fd = mkstemp(text.data());
    if (fd < 0) return std::string();
    // mkstemp makes the file private; the result should get the permissions any new file gets.
    const mode_t mask = umask(0);
    umask(mask);
    fchmod(fd, 0666 & ~mask);
    close(fd);
    return std::string(text.data());
}

bool replace_file(const char* from, const char* to) {
    return from != nullptr && to != nullptr && rename(from, to) == 0;
}

}  // namespace zp
