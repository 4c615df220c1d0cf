#pragma once
// Test helper for Utils: an environment variable set for a scope, then put back.

#include <stdlib.h>

#include <string>

namespace utils_test {

inline void set_var(const char* name, const char* value) {
    if (value)
        setenv(name, value, 1);
    else
        unsetenv(name);
}

class ScopedEnv {
  public:
    ScopedEnv(const char* name, const char* value) : name_(name) {
        const char* old = getenv(name);
        had_ = old != nullptr;
        if (had_) old_ = old;
        set_var(name, value);
    }
    ~ScopedEnv() { set_var(name_.c_str(), had_ ? old_.c_str() : nullptr); }
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

  private:
    std::string name_, old_;
    bool had_ = false;
};

}  // namespace utils_test
