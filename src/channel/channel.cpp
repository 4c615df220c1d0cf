// zp::Channel: 32-byte messages over Blocking_IO; named channels kept per component.
#include "channel/channel.h"

#include <cstring>

namespace zp {

namespace {

int take_message(const std::string& s, ChannelMessage* msg) {
    if (s.size() != sizeof(msg->bytes)) return 0;
    if (msg != nullptr) memcpy(msg->bytes, s.data(), sizeof(msg->bytes));
    return 1;
}

}  // namespace

Channel::Channel(Admin* owner) : Abstract_Channel(owner) {}

Channel::~Channel() {
    io_.abort();
}

std::shared_ptr<Channel> Channel::get(const std::string& name) {
    std::lock_guard<std::mutex> g(table_lock_);
    auto it = table_.find(name);
    if (it != table_.end()) return it->second;
    auto ch = std::make_shared<Channel>(owner_);
    table_.emplace(name, ch);
    return ch;
}

std::shared_ptr<Channel> Channel::get(const char* name) {
    return get(std::string(name ? name : ""));
}

bool Channel::send(const ChannelMessage& msg) {
    return io_.push(std::string(reinterpret_cast<const char*>(msg.bytes), sizeof(msg.bytes)));
}

int Channel::receive(ChannelMessage* msg) {
    return take_message(io_.pop(), msg);
}

int Channel::receive_for(ChannelMessage* msg, int timeout_ms) {
    return take_message(io_.pop_for(timeout_ms), msg);
}

void Channel::abort() {
    io_.abort();
    // Threads that met on a name must not stay blocked at shut-down either.
    std::lock_guard<std::mutex> g(table_lock_);
    for (auto& entry : table_) entry.second->abort();
}

bool Channel::is_aborted() {
    return io_.is_aborted();
}

}  // namespace zp
