#pragma once
// zp::Channel: fixed 32-byte messages through a blocking queue, and a table of named channels
// on which threads meet.

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "channel/blocking_io.h"
#include "core/abstract_base.h"

namespace zp {

// One message: always exactly 32 bytes on the wire.
struct ChannelMessage {
    uint8_t bytes[32] = {0};
};
static_assert(sizeof(ChannelMessage) == 32, "channel messages are 32 bytes");

class Channel;

class Abstract_Channel : public Abstract_Base {
  public:
    using Abstract_Base::Abstract_Base;
    ~Abstract_Channel() override = default;

    // The shared channel of that name, created on first request.
    virtual std::shared_ptr<Channel> get(const std::string& name) = 0;
    virtual std::shared_ptr<Channel> get(const char* name) = 0;
    // False once aborted.
    virtual bool send(const ChannelMessage& msg) = 0;
    // 1 with `msg` filled; 0 after an abort (or a time-out), `msg` untouched.
    virtual int receive(ChannelMessage* msg) = 0;
    virtual int receive_for(ChannelMessage* msg, int timeout_ms) = 0;
    // Final: wakes every receiver of this channel.
    virtual void abort() = 0;
    virtual bool is_aborted() = 0;
};

class Channel : public Abstract_Channel {
  public:
    explicit Channel(Admin* owner);
    ~Channel() override;
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    std::shared_ptr<Channel> get(const std::string& name) override;
    std::shared_ptr<Channel> get(const char* name) override;
    bool send(const ChannelMessage& msg) override;
    int receive(ChannelMessage* msg) override;
    int receive_for(ChannelMessage* msg, int timeout_ms) override;
    // Aborts this channel and every named channel it handed out.
    void abort() override;
    bool is_aborted() override;

    // The queue underneath (for callers that move raw strings).
    Blocking_IO& io() { return io_; }

  private:
    Blocking_IO io_;
    std::mutex table_lock_;
    std::map<std::string, std::shared_ptr<Channel>> table_;
};

}  // namespace zp
