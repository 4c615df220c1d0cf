#pragma once
// zp::Zephra_A: the module kind that owns the parent set shared with every other module.

#include "loader/interface.h"

namespace zp {

class Zephra_A : public Interface {
public:
    Zephra_A();
    ~Zephra_A() override;

protected:
    // Deletes the parent set (app, data, signal, channel); the root does this last.
    void delete_parent_set();

    ParentSet parent_;
};

}  // namespace zp
