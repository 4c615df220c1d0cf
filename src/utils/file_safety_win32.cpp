// File safety operations on Windows.
#include "utils/file_safety.h"

#include <string>

#include "core/win32_support.h"

namespace zp {

// Paths come as UTF-8, or as the process received them in the ANSI code page, as the other file
// operations take them.
using win32::wide_or_ansi;

FileKind file_kind(const char* path) {
    if (path == nullptr) return FileKind::kMissing;
    const DWORD attributes = GetFileAttributesW(wide_or_ansi(path).c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) return FileKind::kMissing;
    if (attributes & FILE_ATTRIBUTE_DIRECTORY) return FileKind::kDirectory;
    return (attributes & FILE_ATTRIBUTE_DEVICE) == 0 ? FileKind::kRegular : FileKind::kOther;
}

std::string create_file_beside(const std::string& path) {
    if (path.empty()) return std::string();
    for (unsigned attempt = 0; attempt < 100; ++attempt) {
        const std::string candidate = path + ".kinefix-" + std::to_string(GetCurrentProcessId()) +
                                      "-" + std::to_string(GetTickCount() + attempt) + ".tmp";
        const win32::HandleGuard h(CreateFileW(wide_or_ansi(candidate.c_str()).c_str(),
                                               GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                               FILE_ATTRIBUTE_NORMAL, nullptr));
        if (h.valid()) return candidate;
        if (GetLastError() != ERROR_FILE_EXISTS) return std::string();
    }
    return std::string();
}

bool replace_file(const char* from, const char* to) {
    if (from == nullptr || to == nullptr) return false;
    return MoveFileExW(wide_or_ansi(from).c_str(), wide_or_ansi(to).c_str(),
                       MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != FALSE;
}

}  // namespace zp
