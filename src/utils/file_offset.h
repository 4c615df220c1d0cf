#pragma once
// 64-bit positions in C streams (_fseeki64/_ftelli64 on Windows, fseeko/ftello elsewhere).

#include <cstdint>
#include <cstdio>

namespace zp {

// 0 on success, as fseek.
int file_seek(FILE* f, int64_t offset, int whence);
// -1 on failure, as ftell.
int64_t file_tell(FILE* f);

}  // namespace zp
