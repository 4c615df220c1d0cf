#pragma once
// zp::Data: a thread-safe keyed store of values; a key belongs to the owner that created it.

#include <cstddef>
#include <cstdio>
#include <map>
#include <string>

#include "core/abstract_base.h"
#include "sync/mutex.h"
#include "value/value.h"

namespace zp {

class Data : public Abstract_Base {
  public:
    explicit Data(Admin* owner = nullptr);
    ~Data() override;
    Data(const Data&) = delete;
    Data& operator=(const Data&) = delete;

    // Creates or replaces `key`. A key created by a named owner may be changed only by that
    // owner; keys created without one ("" or null) are open to everyone. False when refused
    // or when the key is null or empty.
    virtual bool set(const char* key, const Value& value, const char* who = nullptr);
    // A copy of the stored value; null when the key is absent.
    virtual Value get(const char* key) const;
    virtual bool exists(const char* key) const;
    // Same rights as set. False when the key is absent or refused.
    virtual bool remove(const char* key, const char* who = nullptr);
    // A string holding a written value (e.g. "[i]5") becomes that value; anything else is
    // returned as it is.
    virtual Value convert(const Value& value) const;
    // One line per key, in key order: "   [data] key = <text form>".
    virtual void dump(FILE* stream) const;
    virtual size_t size() const;
    // The key's owner ("" when open or absent).
    virtual std::string owner_of(const char* key) const;

  private:
    struct Entry {
        Value value;
        std::string who;
    };
    static bool allowed(const Entry& e, const char* who);

    std::map<std::string, Entry> entries_;
    mutable Mutex lock_;
};

}  // namespace zp
