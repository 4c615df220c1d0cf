// 64-bit stream positions on POSIX systems.
#include <sys/types.h>

#include "utils/file_offset.h"

static_assert(sizeof(off_t) == 8, "build with 64-bit file offsets");

namespace zp {

int file_seek(FILE* f, int64_t offset, int whence) {
    return fseeko(f, static_cast<off_t>(offset), whence);
}

int64_t file_tell(FILE* f) {
    return static_cast<int64_t>(ftello(f));
}

}  // namespace zp
