// zp::same_file on POSIX: device and inode of the files the paths lead to.
#include "utils/same_file.h"

#include <sys/stat.h>

namespace zp {

bool same_file(const char* a, const char* b) {
    if (a == nullptr || b == nullptr) return false;
    struct stat sa;
    struct stat sb;
    if (stat(a, &sa) != 0 || stat(b, &sb) != 0) return false;
    return sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
}

}  // namespace zp
