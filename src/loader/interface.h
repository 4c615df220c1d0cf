#pragma once
// zp::Interface: a module that creates and releases its own set of components.

#include <string>

#include "loader/content.h"

namespace zp {

// What a module borrows from the root: application record, shared store, bus and channel.
struct ParentSet {
    App* app = nullptr;
    Data* data = nullptr;
    Signal* signal = nullptr;
    Channel* channel = nullptr;
};

// Logger settings applied while the components are created.
struct LogSettings {
    int level = 6;
    bool to_stdout = true;
    std::string tag = "zp";
};

class Interface : public Content {
  public:
    ~Interface() override = default;

    // Deletes what the module owns and clears what it borrowed (another module's teardown).
    void release_components();

  protected:
    // The root's own module creates its components without running its init again.
    virtual bool is_root_module() const { return false; }

    // Creates the components in the framework's fixed order, with this module's config, log
    // and trace files under `base`. Succeeds at once when they already exist.
    bool create_components(const std::string& base, const LogSettings& log,
                           const ParentSet& parent);
    // Paths chosen by create_components.
    std::string config_path_;
    std::string log_path_;
    std::string trace_path_;
};

}  // namespace zp
