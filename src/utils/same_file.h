#pragma once
// zp::same_file: whether two paths lead to one existing file, whatever their spelling.

namespace zp {

// True when both paths exist and name the same file: another spelling of the path, a hard
// link or a symbolic link all count. False when either is missing or cannot be examined.
bool same_file(const char* a, const char* b);

}  // namespace zp
