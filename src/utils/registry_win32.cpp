// Registry values under HKEY_CURRENT_USER through the wide registry calls.
#include <cstring>
#include <string>
#include <vector>

#include "core/win32_support.h"
#include "utils/registry.h"

namespace zp {

using win32::narrow;
using win32::wide;

int reg_get(const char* path, const char* name, char* buf, int capacity) {
    if (buf != nullptr && capacity > 0) memset(buf, 0, static_cast<size_t>(capacity));
    HKEY key = nullptr;
    if (RegOpenKeyExW(HKEY_CURRENT_USER, wide(path).c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) {
        reg_detail::report_open(path);
        return -1;
    }
    LONG rc = ERROR_INVALID_PARAMETER;
    std::vector<wchar_t> data;
    if (buf != nullptr && capacity > 0) {
        // The whole value is read (its size asked first) and cut to the caller's buffer below,
        // as elsewhere; one more wide character stays zero as the terminator.
        const std::wstring wname = wide(name);
        DWORD bytes = 0;
        DWORD type = 0;
        rc = RegQueryValueExW(key, wname.c_str(), nullptr, &type, nullptr, &bytes);
        if (rc == ERROR_SUCCESS) {
            data.assign(bytes / 2 + 1, L'\0');
            rc = RegQueryValueExW(key, wname.c_str(), nullptr, &type,
                                  reinterpret_cast<LPBYTE>(data.data()), &bytes);
        }
    }
    RegCloseKey(key);
    if (rc != ERROR_SUCCESS) {
        reg_detail::report_query(name);
        return -1;
    }
    reg_detail::copy_value(narrow(data.data()), buf, capacity);
    return 0;
}

int reg_set(const char* path, const char* name, const char* value) {
    HKEY key = nullptr;
    if (RegCreateKeyExW(HKEY_CURRENT_USER, wide(path).c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                        KEY_ALL_ACCESS, nullptr, &key, nullptr) != ERROR_SUCCESS) {
        reg_detail::report_create(path);
        return -1;
    }
    const std::wstring text = wide(value);
    // REG_SZ without its terminating NUL: twice the number of UTF-16 units.
    const LONG rc = RegSetValueExW(key, wide(name).c_str(), 0, REG_SZ,
                                   reinterpret_cast<const BYTE*>(text.c_str()),
                                   static_cast<DWORD>(text.size() * 2));
    RegCloseKey(key);
    if (rc != ERROR_SUCCESS) {
        reg_detail::report_set(name, value);
        return -1;
    }
    return 0;
}

int reg_delete(const char* path, const char* name) {
    HKEY key = nullptr;
    const REGSAM access =
        KEY_QUERY_VALUE | KEY_SET_VALUE | KEY_CREATE_SUB_KEY | STANDARD_RIGHTS_READ;
    if (RegOpenKeyExW(HKEY_CURRENT_USER, wide(path).c_str(), 0, access, &key) != ERROR_SUCCESS) {
        reg_detail::report_open_for_delete(path, name);
        return -1;
    }
    const LONG rc = RegDeleteValueW(key, wide(name).c_str());
    RegCloseKey(key);
    if (rc != ERROR_SUCCESS) {
        reg_detail::report_delete(name);
        return -1;
    }
    return 0;
}

}  // namespace zp
