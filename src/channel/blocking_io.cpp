// zp::Blocking_IO: deque, mutex and condition variable; abort wakes everyone.
#include "channel/blocking_io.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>

#include "sync/mutex.h"

namespace zp {

struct Blocking_IO::State {
    std::deque<std::string> queue;
    Mutex lock;
    std::condition_variable_any cond;
    const std::string empty;
    std::atomic<bool> aborted{false};
};

Blocking_IO::Blocking_IO() : st_(new State) {}

Blocking_IO::~Blocking_IO() {
    abort();
    delete st_;
    st_ = nullptr;
}

bool Blocking_IO::push(const std::string& text) {
    if (st_ == nullptr || st_->aborted.load()) return false;
    {
        std::lock_guard<Mutex> g(st_->lock);
        // Checked again under the lock: an abort that won the race must not be undone.
        if (st_->aborted.load()) return false;
        st_->queue.push_back(text);
    }
    st_->cond.notify_one();
    return true;
}

std::string Blocking_IO::pop() {
    if (st_ == nullptr || st_->aborted.load()) return std::string();
    std::unique_lock<Mutex> g(st_->lock);
    st_->cond.wait(g, [this] { return !st_->queue.empty() || st_->aborted.load(); });
    if (st_->aborted.load()) return st_->empty;
    std::string front = std::move(st_->queue.front());
    st_->queue.pop_front();
    return front;
}

std::string Blocking_IO::pop_for(int timeout_ms) {
    if (st_ == nullptr || st_->aborted.load()) return std::string();
    if (timeout_ms < 0) timeout_ms = 0;
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
    std::unique_lock<Mutex> g(st_->lock);
    while (st_->queue.empty() && !st_->aborted.load()) {
        if (st_->cond.wait_until(g, deadline) == std::cv_status::timeout && st_->queue.empty() &&
            !st_->aborted.load())
            return st_->empty;
    }
    if (st_->aborted.load()) return st_->empty;
    std::string front = std::move(st_->queue.front());
    st_->queue.pop_front();
    return front;
}

void Blocking_IO::abort() {
    if (st_ == nullptr) return;
    {
        std::lock_guard<Mutex> g(st_->lock);
        if (st_->aborted.load()) return;
        st_->aborted.store(true);
    }
    st_->cond.notify_all();
}

bool Blocking_IO::is_aborted() {
    return st_ == nullptr || st_->aborted.load();
}

}  // namespace zp
