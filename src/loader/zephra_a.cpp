// zp::Zephra_A: owner of the parent set.
#include "loader/zephra_a.h"

#include "channel/channel.h"
#include "cmdline/app.h"
#include "data/data.h"
#include "signal/signal.h"

namespace zp {

Zephra_A::Zephra_A() = default;

void Zephra_A::create_parent_set(Admin* root) {
    // App, data, signal, channel, in this order.
    parent_.app = new App(root);
    parent_.data = new Data(root);
    parent_.signal = new Signal(root);
    parent_.channel = new Channel(root);
}

Zephra_A::~Zephra_A() = default;

void Zephra_A::delete_parent_set() {
    delete parent_.app;
    delete parent_.data;
    delete parent_.signal;
    delete parent_.channel;
    parent_ = ParentSet{};
}

}  // namespace zp
