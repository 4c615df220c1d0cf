// zp::Zephra_A: owner of the parent set.
#include "loader/zephra_a.h"

namespace zp {

Zephra_A::Zephra_A() = default;

void Zephra_A::create_parent_set(Admin* root) {
    // App, data, signal, channel, in this order.
    (void)root;
}

Zephra_A::~Zephra_A() = default;

void Zephra_A::delete_parent_set() {
    parent_ = ParentSet{};
}

}  // namespace zp
