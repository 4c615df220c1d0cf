#pragma once
// Closes a C stream at every exit of the scope that opened it.

#include <cstdio>

namespace zp {

class FileGuard {
  public:
    explicit FileGuard(FILE* f) : file_(f) {}
    ~FileGuard() {
        if (file_ != nullptr) fclose(file_);
    }
    FileGuard(const FileGuard&) = delete;
    FileGuard& operator=(const FileGuard&) = delete;

  private:
    FILE* file_;
};

}  // namespace zp
