// 64-bit stream positions on Windows.
#include <stdio.h>

#include "utils/file_offset.h"

namespace zp {

int file_seek(FILE* f, int64_t offset, int whence) {
    return _fseeki64(f, offset, whence);
}

int64_t file_tell(FILE* f) {
    return _ftelli64(f);
}

}  // namespace zp
