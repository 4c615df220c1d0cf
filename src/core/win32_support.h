#pragma once
// Windows support for the *_win32.cpp files alone: <windows.h>, text between the program's
// narrow strings and the system's UTF-16, and a handle that closes itself.

#include <windows.h>

#include <string>

namespace zp {
namespace win32 {

// Text in `code_page` (UTF-8 unless told otherwise) as UTF-16; empty when it does not convert.
// MB_ERR_INVALID_CHARS in `flags` makes malformed text fail instead of turning into U+FFFD.
inline std::wstring decode(const std::string& s, UINT code_page = CP_UTF8, DWORD flags = 0) {
    if (s.empty()) return std::wstring();
    const int n =
        MultiByteToWideChar(code_page, flags, s.data(), static_cast<int>(s.size()), nullptr, 0);
    if (n <= 0) return std::wstring();
    std::wstring w(static_cast<size_t>(n), L'\0');
    MultiByteToWideChar(code_page, flags, s.data(), static_cast<int>(s.size()), &w[0], n);
    return w;
}

// UTF-16 as text in `code_page` (UTF-8 unless told otherwise); empty when it does not convert.
inline std::string encode(const std::wstring& w, UINT code_page = CP_UTF8) {
    if (w.empty()) return std::string();
    const int n = WideCharToMultiByte(code_page, 0, w.data(), static_cast<int>(w.size()), nullptr,
                                      0, nullptr, nullptr);
    if (n <= 0) return std::string();
    std::string s(static_cast<size_t>(n), '\0');
    WideCharToMultiByte(code_page, 0, w.data(), static_cast<int>(w.size()), &s[0], n, nullptr,
                        nullptr);
    return s;
}

// A UTF-8 path or name for a wide system call; null reads as empty.
inline std::wstring wide(const char* utf8) {
    return decode(utf8 != nullptr ? utf8 : "");
}

// A path as it may reach us: UTF-8, or a name as the process received it in the ANSI code page
// (read so when it is not valid UTF-8). Null reads as empty.
inline std::wstring wide_or_ansi(const char* path) {
    const std::string s = path != nullptr ? path : "";
    const std::wstring w = decode(s, CP_UTF8, MB_ERR_INVALID_CHARS);
    return w.empty() ? decode(s, CP_ACP) : w;
}

// A wide system answer in UTF-8; null reads as empty.
inline std::string narrow(const wchar_t* w) {
    return encode(w != nullptr ? w : L"");
}

// Closes a kernel handle at every exit of the scope that opened it. Null and
// INVALID_HANDLE_VALUE (the two failure answers of the opening calls) hold nothing.
class HandleGuard {
  public:
    explicit HandleGuard(HANDLE h) : handle_(h) {}
    ~HandleGuard() {
        if (valid()) CloseHandle(handle_);
    }
    HandleGuard(const HandleGuard&) = delete;
    HandleGuard& operator=(const HandleGuard&) = delete;

    HANDLE get() const { return handle_; }
    bool valid() const { return handle_ != nullptr && handle_ != INVALID_HANDLE_VALUE; }

  private:
    HANDLE handle_;
};

}  // namespace win32
}  // namespace zp
