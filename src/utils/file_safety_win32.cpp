// File safety operations on Windows.
#include "utils/file_safety.h"

#include <windows.h>

#include <string>

namespace zp {

namespace {

// Paths come as UTF-8, or as the process received them in the ANSI code page: a name that is
// not valid UTF-8 is read in the ANSI code page, as the other file operations do.
std::wstring Wide(const std::string& path) {
    UINT page = CP_UTF8;
    DWORD flags = MB_ERR_INVALID_CHARS;
    int n = MultiByteToWideChar(page, flags, path.c_str(), -1, nullptr, 0);
    if (n <= 0) {
        page = CP_ACP;
        flags = 0;
        n = MultiByteToWideChar(page, flags, path.c_str(), -1, nullptr, 0);
    }
    if (n <= 0) return std::wstring();
    std::wstring out(static_cast<size_t>(n), L'\0');
    MultiByteToWideChar(page, flags, path.c_str(), -1, &out[0], n);
    out.resize(static_cast<size_t>(n - 1));
    return out;
}

}  // namespace

FileKind file_kind(const char* path) {
    if (path == nullptr) return FileKind::kMissing;
    const DWORD attributes = GetFileAttributesW(Wide(path).c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) return FileKind::kMissing;
    if (attributes & FILE_ATTRIBUTE_DIRECTORY) return FileKind::kDirectory;
    return (attributes & FILE_ATTRIBUTE_DEVICE) == 0 ? FileKind::kRegular : FileKind::kOther;
}

std::string create_file_beside(const std::string& path) {
    if (path.empty()) return std::string();
    for (unsigned attempt = 0; attempt < 100; ++attempt) {
        const std::string candidate = path + ".kinefix-" + std::to_string(GetCurrentProcessId()) +
                                      "-" + std::to_string(GetTickCount() + attempt) + ".tmp";
        HANDLE h = CreateFileW(Wide(candidate).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                               FILE_ATTRIBUTE_NORMAL, nullptr);
        if (h != INVALID_HANDLE_VALUE) {
            CloseHandle(h);
            return candidate;
        }
        if (GetLastError() != ERROR_FILE_EXISTS) return std::string();
    }
    return std::string();
}

bool replace_file(const char* from, const char* to) {
    if (from == nullptr || to == nullptr) return false;
    return MoveFileExW(Wide(from).c_str(), Wide(to).c_str(),
                       MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != FALSE;
}

}  // namespace zp
