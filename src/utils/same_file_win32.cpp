// zp::same_file on Windows: volume serial number and file index of the opened files.
#include "utils/same_file.h"

#include <string>

#include "core/win32_support.h"

namespace zp {

namespace {

// The name is UTF-8, or as the process received it in the ANSI code page. Opened for no access
// at all, sharing everything, so files in use by others still answer; backup semantics let a
// directory open too.
bool Identify(const char* path, BY_HANDLE_FILE_INFORMATION* info) {
    const std::wstring wide = win32::wide_or_ansi(path);
    if (wide.empty()) return false;
    const win32::HandleGuard h(
        CreateFileW(wide.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                    nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    return h.valid() && GetFileInformationByHandle(h.get(), info) != FALSE;
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
