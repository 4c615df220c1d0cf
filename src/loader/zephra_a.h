#pragma once
// zp::Zephra_A: the module kind that owns the parent set shared with every other module.

#include "loader/interface.h"

namespace zp {

class Admin;

class Zephra_A : public Interface {
  public:
    Zephra_A();
    ~Zephra_A() override;

  protected:
    // Builds the parent set, each member owned by `root`; the root's constructor calls it.
    void create_parent_set(Admin* root);
    // Deletes the parent set (app, data, signal, channel); the root does this last.
    void delete_parent_set();

    ParentSet parent_;
};

}  // namespace zp
