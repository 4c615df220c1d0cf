#pragma once
// The framework started as a program in a home of its own, shut down at the end of the scope.

#include <cstdlib>
#include <memory>
#include <string>

#include "data/data_auth.h"
#include "loader/admin.h"
#include "support/test_support.h"
#include "zephra_init.h"

namespace kinefix_test {

class StartedFramework {
  public:
    explicit StartedFramework(const std::string& program) : program_(home / program) {
        for (const auto& kv : isolated_env(home)) setenv(kv.first.c_str(), kv.second.c_str(), 1);
        char* argv[] = {&program_[0], nullptr};
        zp::InitFramework(1, argv);
    }
    ~StartedFramework() {
        // The root leaves its data_auth view to the process exit; freed here for the leak
        // checker.
        std::unique_ptr<zp::DataAuth> left(zp::ppCD != nullptr ? zp::ppCD->data_auth : nullptr);
        zp::ShutdownFramework();
    }
    StartedFramework(const StartedFramework&) = delete;
    StartedFramework& operator=(const StartedFramework&) = delete;

    TempDir home;

  private:
    std::string program_;
};

}  // namespace kinefix_test
