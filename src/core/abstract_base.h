#pragma once
// Common base of every framework component: each keeps a back reference to the root.

namespace zp {

class Admin;

class Abstract_Base {
  public:
    explicit Abstract_Base(Admin* owner = nullptr) : owner_(owner) {}
    virtual ~Abstract_Base() = default;

    // The root this component reaches the framework through (may be null in tests).
    virtual Admin* owner() const { return owner_; }

  protected:
    Admin* owner_;
};

}  // namespace zp
