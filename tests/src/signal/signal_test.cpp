// zp::Signal: keys, ids, filters, removal, its messages, re-entry and racing emission.
#include "signal/signal.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "support/test_support.h"
#include "support/value_support.h"

namespace {

using kinefix_test::int_value;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;
using zp::Signal;
using zp::Value;
using Log = std::vector<std::string>;

// Records "<tag>:<key>" for every call.
zp::SignalCallback recorder(Log* log, const std::string& tag) {
    return [log, tag](const char* key, void*, const Value&) { log->push_back(tag + ":" + key); };
}

class SignalTest : public testing::Test {
  protected:
    Signal bus{nullptr};
    Log log;
};

TEST_F(SignalTest, ListenersFiltersRemovalWithUniqueIdsAndCallbacksChangingTheBus) {
    int arg = 5;
    ASSERT_TRUE(bus.connect("k", recorder(&log, "a"), 3));
    ASSERT_TRUE(bus.connect(
        "k",
        [&](const char*, void* a, const Value& v) { log.push_back(a == &arg ? v.write() : "?"); },
        -1));
    ASSERT_TRUE(bus.connect("k", recorder(&log, "c"), -1));      // id -1 may repeat
    ASSERT_TRUE(bus.connect("k2", recorder(&log, "other"), 3));  // ids are per key
    ASSERT_TRUE(bus.connect("job.*", recorder(&log, "job"), 2));
    CaptureStderr();
    EXPECT_FALSE(bus.connect("k", recorder(&log, "dup"), 3));
    EXPECT_FALSE(bus.connect("*", recorder(&log, "all"), 2));  // filter ids: whatever the pattern
    EXPECT_EQ(GetCapturedStderr(),
              "[Signal] (Warnning): connect 'key=k, id=3' already exist !\n\n"
              "[Signal] (Warnning): filter 'keys=*, id=2' already exist !\n\n");
    EXPECT_EQ(bus.registrations(), 5);
    bus.emit("k", &arg, int_value(42));
    EXPECT_EQ(log, (Log{"a:k", "[i]42", "c:k"}));
    // Filters match a leading or trailing star, case and all.
    log.clear();
    ASSERT_TRUE(bus.connect("*.done", recorder(&log, "done"), -1));
    CaptureStderr();
    for (const char* key : {"job.start", "jobs", "task.done", "Task.DONE"})
        bus.emit(key, nullptr, int_value(1));
    EXPECT_EQ(GetCapturedStderr(),
              "[Singal] (Warnning) no listener for 'key=jobs'   ---> val=[i]1\n"
              "[Singal] (Warnning) no listener for 'key=Task.DONE'   ---> val=[i]1\n");
    EXPECT_EQ(log, (Log{"job:job.start", "done:task.done"}));
    // Removal: by key and id, or for a pattern the first filter with that id, whatever pattern.
    log.clear();
    CaptureStderr();
    EXPECT_FALSE(bus.remove("k", -1));
    EXPECT_TRUE(bus.remove("k", 3));
    EXPECT_TRUE(bus.remove("x.*", 2));
    EXPECT_FALSE(bus.remove("k", 3));
    EXPECT_EQ(GetCapturedStderr(),
              "[Singal] remove listener 'key=k, id=3' OK !!!\n\n"
              "[Singal] remove filter 'id=2, describ=x.*' OK !!!\n\n");
    bus.emit("k", &arg, int_value(1));
    bus.emit("job.done", nullptr, Value());
    EXPECT_EQ(log, (Log{"[i]1", "c:k", "done:job.done"}));
    EXPECT_EQ(bus.registrations(), 6);  // removal never lowers the count
    log.clear();

    ASSERT_TRUE(bus.connect(
        "tick",
        [&](const char*, void*, const Value&) {
            log.push_back("once");
            bus.remove("tick", 1);  // removes itself while running
            bus.connect("tick", recorder(&log, "late"), 2);
            bus.connect("tock", recorder(&log, "tock"), 1);
            bus.emit("tock", nullptr, Value());  // nested emission
        },
        1));
    ASSERT_TRUE(bus.connect("tick", recorder(&log, "steady"), 3));
    CaptureStderr();
    bus.emit("tick", nullptr, Value());
    bus.emit("tick", nullptr, Value());
    GetCapturedStderr();
    // The listeners of an emission are fixed before the first one runs.
    EXPECT_EQ(log, (Log{"once", "tock:tock", "steady:tick", "steady:tick", "late:tick"}));
}

// Emitters on several threads while others connect and remove listeners and filters: the
// steady receivers see every emission exactly once.
TEST_F(SignalTest, EmissionRacesWithConnectionAndRemoval) {
    constexpr int kEmitters = 3, kEach = 2000;
    std::atomic<int> steady{0}, churn{0}, rounds{0}, done{0};
    auto count = [](std::atomic<int>* n) {
        return [n](const char*, void*, const Value&) { ++*n; };
    };
    ASSERT_TRUE(bus.connect("evt", count(&steady), 1));
    ASSERT_TRUE(bus.connect("ev*", count(&steady), 1));
    CaptureStderr();  // the removals print their lines
    // Threads 0 and 1 churn until every emitter is done.
    kinefix_test::on_threads(2 + kEmitters, [&](int c) {
        for (int id = 1000 + c * 100000; c < 2 && done < kEmitters; ++id, ++rounds) {
            bus.connect("evt", count(&churn), id);
            bus.connect(c ? "*t" : "e*", count(&churn), id);
            bus.remove("evt", id);
            bus.remove("*", id);
        }
        if (c < 2) return;
        while (rounds == 0) std::this_thread::yield();  // emit while the bus churns
        for (int i = 0; i < kEach; ++i) bus.emit("evt", nullptr, int_value(9));
        ++done;
    });
    GetCapturedStderr();
    EXPECT_EQ(steady.load(), 2 * kEmitters * kEach);
}

}  // namespace
