#pragma once
// zp::Content: a framework module, its flags and the components it owns.

#include <cstdint>
#include <functional>
#include <map>
#include <string>

namespace zp {

class Value;
class App;
class Data;
class DataAuth;
class Signal;
class Channel;
class Abstract_Logger;
class Abstract_Config;
class Abstract_FTracer;
class Abstract_Argv;
class Abstract_Utils;
class Abstract_Crypt;
class Abstract_MemPool;

// Called by a module with the result of a message it processed.
using Reply = std::function<void(const Value&)>;

class Content {
  public:
    Content();
    virtual ~Content();
    Content(const Content&) = delete;
    Content& operator=(const Content&) = delete;

    virtual bool init() = 0;
    virtual bool start() = 0;
    virtual bool uninit() = 0;
    virtual Value process(const char* from, int id, const Value& msg, const Reply& reply) = 0;
    virtual Value send(const char* from, int id, const Value& msg, const Reply& reply) = 0;
    // Kept from the base design; always false.
    virtual bool query() { return false; }
    virtual Value dispatch(const char* module, const char* from, int id, const Value& msg,
                           const Reply& reply) = 0;

    const char* name() const { return name_; }

    bool created() const { return (flags_ & kCreated) != 0; }
    bool started() const { return (flags_ & kStarted) != 0; }
    bool aborting() const { return (flags_ & kAborting) != 0; }
    uint16_t index() const { return index_; }

    // Components; null until the module's components are created.
    App* app = nullptr;  // borrowed from the parent set
    Abstract_Logger* logger = nullptr;
    Abstract_Config* config = nullptr;
    Abstract_FTracer* tracer = nullptr;
    DataAuth* data_auth = nullptr;
    Data* data = nullptr;
    Signal* signal_borrowed = nullptr;
    Signal* signal = nullptr;
    Abstract_Argv* argv = nullptr;
    Abstract_Utils* utils = nullptr;
    Abstract_Crypt* crypt = nullptr;
    Abstract_MemPool* mem_pool = nullptr;
    Channel* channel = nullptr;  // borrowed from the parent set

  protected:
    enum Flag : uint8_t { kCreated = 1, kStarted = 2, kAborting = 4 };
    void set_flag(Flag f) { flags_ = static_cast<uint8_t>(flags_ | f); }

    char name_[32] = {0};
    uint16_t index_ = 0;
    uint8_t flags_ = 0;

    friend class Admin;
};

// The module registry, walked in key order by start, abort and uninit.
std::map<std::string, Content*>& modules();

}  // namespace zp
