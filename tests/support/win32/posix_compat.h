#pragma once
// Windows stand-ins for the POSIX environment calls the tests use, force-included into every
// test source of the Windows build.

#include <cstdlib>

inline int setenv(const char* name, const char* value, int overwrite) {
    if (!overwrite && std::getenv(name) != nullptr) return 0;
    // The C runtime cannot hold an empty variable: an empty value removes it.
    return _putenv_s(name, value) == 0 ? 0 : -1;
}

inline int unsetenv(const char* name) {
    return _putenv_s(name, "") == 0 ? 0 : -1;
}
