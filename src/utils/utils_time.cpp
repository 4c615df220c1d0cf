// zp::Utils time stamps, clocks, the one-shot hook and detached runs (portable part).
#include <atomic>
#include <condition_variable>
#include <cstring>
#include <ctime>
#include <mutex>
#include <thread>

#include "sync/mutex.h"
#include "utils/utils.h"
#include "utils/utils_sys.h"

namespace zp {

namespace {

constexpr int kRingSize = 8;
constexpr size_t kRingText = 64;

char g_ring[kRingSize][kRingText];
std::atomic<int> g_ring_index{0};

// Never destroyed: log lines may still ask for a time stamp while statics are torn down.
Mutex& ring_lock() {
    static Mutex* m = new Mutex();
    return *m;
}

struct ClockAnchor {
    int64_t frequency;
    int64_t offset;  // seconds to add to counter / frequency
};

const ClockAnchor& anchor() {
    static const ClockAnchor a = [] {
        ClockAnchor c{};
        c.frequency = sys::perf_frequency();
        if (c.frequency == 0) c.frequency = 1;
        const int64_t counter = sys::perf_counter();
        const int64_t now = sys::time_seconds();
        c.offset = now - ((counter / c.frequency) & 0x7FFFFFFF);
        return c;
    }();
    return a;
}

void anchored_time(int64_t* seconds, int64_t* nanos) {
    const ClockAnchor& a = anchor();
    const int64_t c = sys::perf_counter();
    *seconds = c / a.frequency + a.offset;
    *nanos = (c % a.frequency) * 1000000000 / a.frequency;
}

std::atomic<OnceHook> g_hook{nullptr};
std::atomic<bool> g_hook_armed{false};

}  // namespace

const char* Utils::now_str(const char* pattern) {
    // KEPT: the text lives in one of eight shared buffers, reused in turn, so it is overwritten
    // eight calls later; the buffer is picked before the lock, so two racing callers may share
    // one.
    char* buf = g_ring[g_ring_index.load(std::memory_order_relaxed)];
    MutexGuard guard(ring_lock());
    g_ring_index.store((g_ring_index.load(std::memory_order_relaxed) + 1) % kRingSize,
                       std::memory_order_relaxed);
    struct tm tm_now;
    if (pattern == nullptr || !sys::local_time(sys::time_seconds(), &tm_now) ||
        strftime(buf, kRingText, pattern, &tm_now) == 0) {
        buf[0] = '\0';
    }
    return buf;
}

std::string Utils::time_str(int64_t t, const char* pattern) {
    char buf[128];
    struct tm tm_t;
    if (pattern == nullptr || !sys::local_time(t, &tm_t) ||
        strftime(buf, sizeof buf, pattern, &tm_t) == 0)
        return std::string();
    return std::string(buf);
}

int64_t Utils::now_us(int clock) {
    if (clock != 1) return sys::system_ticks() / 10;
    int64_t seconds = 0, nanos = 0;
    anchored_time(&seconds, &nanos);
    return nanos / 1000 + seconds * 1000000;
}

int64_t Utils::now_ns(int clock) {
    // KEPT: the system clock's raw 100-ns ticks are returned unscaled; callers rely on that unit.
    if (clock != 1) return sys::system_ticks();
    int64_t seconds = 0, nanos = 0;
    anchored_time(&seconds, &nanos);
    return seconds * 1000000000 + nanos;
}

int Utils::time_of_day(TimeOfDay* tv) {
    if (tv == nullptr) return 0;
    const int64_t us = sys::system_ticks() / 10;
    tv->sec = static_cast<int32_t>(us / 1000000);
    tv->usec = static_cast<int32_t>(us % 1000000);
    return 0;
}

void set_once_hook(OnceHook hook) {
    g_hook.store(hook);
    g_hook_armed.store(hook != nullptr);
}

void Utils::fire_hook_once(void* arg) {
    // Disarmed before the call so that a hook firing again, or a second thread, finds it spent.
    if (!g_hook_armed.exchange(false)) return;
    OnceHook hook = g_hook.load();
    if (hook == nullptr) return;
    char scratch[kOnceHookScratch] = {};
    hook(1, arg, scratch);
}

void Utils::run_detached(std::function<void()> fn) {
    std::mutex m;
    std::condition_variable cv;
    bool taken = false;
    std::thread worker([&m, &cv, &taken, &fn] {
        std::function<void()> mine = fn;
        {
            // Notified under the lock: the caller's m and cv are gone once it may return.
            std::lock_guard<std::mutex> g(m);
            taken = true;
            cv.notify_one();
        }
        if (mine) mine();
    });
    worker.detach();
    std::unique_lock<std::mutex> lock(m);
    cv.wait(lock, [&taken] { return taken; });
}

}  // namespace zp
