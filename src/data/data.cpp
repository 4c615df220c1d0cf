// zp::Data: the keyed store with owner rights.

#include "data/data.h"

#include <cstring>

#include "log/log.h"

namespace zp {

namespace {

const char* safe(const char* s) {
    return s ? s : "";
}

}  // namespace

Data::Data(Admin* owner) : Abstract_Base(owner) {}

Data::~Data() = default;

bool Data::allowed(const Entry& e, const char* who) {
    return e.who.empty() || e.who == safe(who);
}

bool Data::set(const char* key, const Value& value, const char* who) {
    if (!key || !*key) return false;
    std::string holder;
    {
        MutexGuard guard(lock_);
        auto it = entries_.find(key);
        if (it == entries_.end()) {
            entries_.emplace(key, Entry{value, safe(who)});
            return true;
        }
        if (allowed(it->second, who)) {
            it->second.value = value;
            return true;
        }
        holder = it->second.who;
    }
    ZP_LOGE("[Data] '%s' may not change key '%s' of '%s'", safe(who), key, holder.c_str());
    return false;
}

Value Data::get(const char* key) const {
    if (!key) return Value();
    MutexGuard guard(lock_);
    auto it = entries_.find(key);
    return it == entries_.end() ? Value() : it->second.value;
}

bool Data::exists(const char* key) const {
    if (!key) return false;
    MutexGuard guard(lock_);
    return entries_.count(key) != 0;
}

bool Data::remove(const char* key, const char* who) {
    if (!key) return false;
    std::string holder;
    {
        MutexGuard guard(lock_);
        auto it = entries_.find(key);
        if (it == entries_.end()) return false;
        if (allowed(it->second, who)) {
            entries_.erase(it);
            return true;
        }
        holder = it->second.who;
    }
    ZP_LOGE("[Data] '%s' may not remove key '%s' of '%s'", safe(who), key, holder.c_str());
    return false;
}

Value Data::convert(const Value& value) const {
    if (value.kind() != kValueString || !value.payload()) return value;
    Value typed;
    typed.read(value.payload());
    return typed.is_null() ? value : typed;
}

void Data::dump(FILE* stream) const {
    if (!stream) return;
    MutexGuard guard(lock_);
    for (const auto& entry : entries_)
        std::fprintf(stream, "   [data] %s = %s\n", entry.first.c_str(),
                     entry.second.value.write().c_str());
}

size_t Data::size() const {
    MutexGuard guard(lock_);
    return entries_.size();
}

std::string Data::owner_of(const char* key) const {
    if (!key) return std::string();
    MutexGuard guard(lock_);
    auto it = entries_.find(key);
    return it == entries_.end() ? std::string() : it->second.who;
}

}  // namespace zp
