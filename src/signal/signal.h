#pragma once
// zp::Signal: the framework's publish/subscribe bus. Listeners are connected under an exact
// key, filters under a pattern with a leading or trailing "*".

#include <atomic>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <string>

#include "core/abstract_base.h"
#include "sync/read_write_mutex.h"
#include "value/value.h"

namespace zp {

// Called with the emitted key, the emitter's argument and the value.
using SignalCallback = std::function<void(const char* key, void* arg, const Value& value)>;

class Abstract_Signal : public Abstract_Base {
  public:
    using Abstract_Base::Abstract_Base;
    ~Abstract_Signal() override = default;

    // A key starting or ending with "*" connects a filter. Id -1: no id (never a duplicate,
    // never removable). True when the callback was registered.
    virtual bool connect(const char* key, SignalCallback callback, int id = -1) = 0;
    // Removes one listener by key and id, or for a pattern the first filter with that id.
    virtual bool remove(const char* key, int id) = 0;
    // Calls the listeners of exactly `key` (outside the lock), then the matching filters.
    virtual void emit(const char* key, void* arg, const Value& value) = 0;
};

class Signal : public Abstract_Signal {
  public:
    explicit Signal(Admin* owner);
    ~Signal() override;
    Signal(const Signal&) = delete;
    Signal& operator=(const Signal&) = delete;

    bool connect(const char* key, SignalCallback callback, int id = -1) override;
    bool remove(const char* key, int id) override;
    void emit(const char* key, void* arg, const Value& value) override;

    // Successful connections so far; never decreases.
    int32_t registrations() const { return registrations_.load(); }

  private:
    struct Listener {
        SignalCallback callback;
        std::string key;
        int32_t id;
    };
    struct Filter {
        SignalCallback callback;
        std::string pattern;
        int32_t id;
    };

    bool connect_filter(const char* pattern, SignalCallback callback, int id);
    bool remove_filter(const char* pattern, int id);
    bool matches(const std::string& pattern, const char* key) const;

    std::atomic<int32_t> registrations_{0};
    std::multimap<std::string, Listener> listeners_;
    std::list<Filter> filters_;
    ReadWriteMutex listeners_lock_;
    ReadWriteMutex filters_lock_;
};

}  // namespace zp
