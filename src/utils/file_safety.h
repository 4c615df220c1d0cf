#pragma once
// File operations that keep existing files safe: a regular-file check, a fresh file beside a
// path, and the replacement of a file in one step.

#include <string>

namespace zp {

enum class FileKind {
    kMissing,  // or not examinable
    kRegular,  // a regular file, or a link to one
    kDirectory,
    kOther  // a pipe, a device...
};
// What a path names, without opening it (opening a pipe could block).
FileKind file_kind(const char* path);
// Creates a new empty file in the directory of `path`, named after it and unique (never an
// existing file), and returns its path; empty on failure.
std::string create_file_beside(const std::string& path);
// Puts `from` in the place of `to` in one step, replacing an existing `to`; true on success.
bool replace_file(const char* from, const char* to);

}  // namespace zp
