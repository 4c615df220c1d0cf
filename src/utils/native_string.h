#pragma once
// The string type the operating system takes for paths: UTF-16 on Windows, UTF-8 elsewhere.

#include <string>

namespace zp {

#ifdef _WIN32
using NativeString = std::wstring;
#else
using NativeString = std::string;
#endif

}  // namespace zp
