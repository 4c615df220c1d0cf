#pragma once
// RescueCommand: `kinefix-index --reference HEALTHY DAMAGED INDEX`: learns from the healthy
// recording, scans the damaged one and writes its index, or writes nothing and says why.

#include <string>

namespace restore {

struct RescueOptions {
    std::string reference;
    std::string damaged;
    std::string index;
    bool progress = false;
    int version = 2;
    int entries_per_line = 1;
};

class RescueCommand {
  public:
    // The process exit code: 0 when the index was written.
    static int Run(const RescueOptions& options);
};

}  // namespace restore
