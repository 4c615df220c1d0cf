// zp::same_file on Windows: volume serial number and file index of the opened files.
#include "utils/same_file.h"

#include <windows.h>

#include <string>

namespace zp {

namespace {

// UTF-8, or a name as the process received it in the ANSI code page.
std::wstring Wide(const char* path) {
    UINT page = CP_UTF8;
    DWORD flags = MB_ERR_INVALID_CHARS;
    int n = MultiByteToWideChar(page, flags, path, -1, nullptr, 0);
    if (n <= 0) {
        page = CP_ACP;
        flags = 0;
        n = MultiByteToWideChar(page, flags, path, -1, nullptr, 0);
    }
    if (n <= 0) return std::wstring();
    std::wstring out(static_cast<size_t>(n), L'\0');
    MultiByteToWideChar(page, flags, path, -1, &out[0], n);
    out.resize(static_cast<size_t>(n - 1));
    return out;
}

// Opened for no access at all, sharing everything, so files in use by others still answer;
// backup semantics let a directory open too.
bool Identify(const char* path, BY_HANDLE_FILE_INFORMATION* info) {
    const std::wstring wide = Wide(path);
    if (wide.empty()) return false;
    HANDLE h = CreateFileW(wide.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                           nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (h == INVALID_HANDLE_VALUE) return false;
    const BOOL ok = GetFileInformationByHandle(h, info);
    CloseHandle(h);
    return ok != FALSE;
}

}  // namespace

bool same_file(const char* a, const char* b) {
    if (a == nullptr || b == nullptr) return false;
    BY_HANDLE_FILE_INFORMATION ia;
    BY_HANDLE_FILE_INFORMATION ib;
    if (!Identify(a, &ia) || !Identify(b, &ib)) return false;
    return ia.dwVolumeSerialNumber == ib.dwVolumeSerialNumber &&
           ia.nFileIndexHigh == ib.nFileIndexHigh && ia.nFileIndexLow == ib.nFileIndexLow;
}

}  // namespace zp
