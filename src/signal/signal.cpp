// zp::Signal: listeners by key and id, filters by pattern, each under its own reader/writer
// lock; anomalies are reported on standard error.
#include "signal/signal.h"

#include <cstdio>
#include <cstring>
#include <vector>

#include "utils/utils.h"

namespace zp {

namespace {

bool is_pattern(const char* key) {
    size_t n = strlen(key);
    return key[0] == '*' || key[n - 1] == '*';
}

}  // namespace

Signal::Signal(Admin* owner) : Abstract_Signal(owner) {
    Utils::instance();  // the pattern matcher's helpers, set up before threads emit
}

Signal::~Signal() = default;

bool Signal::connect(const char* key, SignalCallback callback, int id) {
    if (!callback) return false;
    if (key == nullptr || *key == '\0') return false;
    if (is_pattern(key)) return connect_filter(key, std::move(callback), id);

    WriteGuard g(listeners_lock_);
    if (id >= 0) {
        auto range = listeners_.equal_range(key);
        for (auto it = range.first; it != range.second; ++it) {
            if (it->second.id == id) {
                fprintf(stderr, "[Signal] (Warnning): connect 'key=%s, id=%d' already exist !\n\n",
                        key, id);
                fflush(stderr);
                return false;
            }
        }
    }
    ++registrations_;
    listeners_.emplace(key, Listener{std::move(callback), key, id});
    return true;
}

bool Signal::connect_filter(const char* pattern, SignalCallback callback, int id) {
    WriteGuard g(filters_lock_);
    if (id >= 0) {
        for (const Filter& f : filters_) {
            if (f.id == id) {
                fprintf(stderr, "[Signal] (Warnning): filter 'keys=%s, id=%d' already exist !\n\n",
                        pattern, id);
                fflush(stderr);
                return false;
            }
        }
    }
    ++registrations_;
    filters_.push_back(Filter{std::move(callback), pattern, id});
    return true;
}

bool Signal::remove(const char* key, int id) {
    if (id == -1 || key == nullptr || *key == '\0') return false;
    if (is_pattern(key)) return remove_filter(key, id);

    SignalCallback doomed;  // destroyed after the lock is released
    {
        WriteGuard g(listeners_lock_);
        auto range = listeners_.equal_range(key);
        auto it = range.first;
        while (it != range.second && it->second.id != id) ++it;
        if (it == range.second) return false;
        doomed = std::move(it->second.callback);
        listeners_.erase(it);
        fprintf(stderr, "[Singal] remove listener 'key=%s, id=%d' OK !!!\n\n", key, id);
        fflush(stderr);
    }
    return true;
}

bool Signal::remove_filter(const char* pattern, int id) {
    SignalCallback doomed;
    {
        WriteGuard g(filters_lock_);
        auto it = filters_.begin();
        while (it != filters_.end() && it->id != id) ++it;
        if (it == filters_.end()) return false;
        doomed = std::move(it->callback);
        filters_.erase(it);
        fprintf(stderr, "[Singal] remove filter 'id=%d, describ=%s' OK !!!\n\n", id, pattern);
        fflush(stderr);
    }
    return true;
}

bool Signal::matches(const std::string& pattern, const char* key) const {
    if (pattern[0] == '*') {
        return pattern.size() == 1 || Utils::instance()->ends_with(key, pattern.c_str() + 1, true);
    }
    if (pattern.back() == '*') return strncmp(key, pattern.c_str(), pattern.size() - 1) == 0;
    return false;
}

void Signal::emit(const char* key, void* arg, const Value& value) {
    if (key == nullptr) key = "";
    bool delivered = false;

    // Listeners run on copies, outside the lock: they may connect and remove listeners.
    std::vector<SignalCallback> calls;
    {
        ReadGuard g(listeners_lock_);
        auto range = listeners_.equal_range(key);
        for (auto it = range.first; it != range.second; ++it) calls.push_back(it->second.callback);
    }
    if (!calls.empty()) {
        for (const SignalCallback& cb : calls) cb(key, arg, value);
        delivered = true;
    }

    // Filters run under the read lock: a filter must not connect or remove filters.
    {
        ReadGuard g(filters_lock_);
        std::vector<const SignalCallback*> matched;
        for (const Filter& f : filters_) {
            if (!f.pattern.empty() && matches(f.pattern, key)) matched.push_back(&f.callback);
        }
        for (const SignalCallback* cb : matched) (*cb)(key, arg, value);
        if (!matched.empty()) delivered = true;
    }

    if (!delivered) {
        fprintf(stderr, "[Singal] (Warnning) no listener for 'key=%s'   ---> val=%s\n", key,
                value.write().c_str());
    }
}

}  // namespace zp
