// zp::Signal: exact keys and ids, filters by pattern, removal, the bus's messages, callbacks
// that change the bus, and emission racing with connection.
#include "signal/signal.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace {

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;
using zp::Signal;
using zp::Value;

Value int_value(int v) {
    Value x;
    x.set_int(v);
    return x;
}

// Records "<tag>:<key>" for every call.
zp::SignalCallback recorder(std::vector<std::string>* log, const std::string& tag) {
    return [log, tag](const char* key, void*, const Value&) { log->push_back(tag + ":" + key); };
}

TEST(SignalTest, ListenersGetKeyArgumentAndValueInConnectionOrder) {
    Signal bus(nullptr);
    std::vector<std::string> log;
    int arg = 5;
    void* seen_arg = nullptr;
    std::string seen_value;
    ASSERT_TRUE(bus.connect("job.start", recorder(&log, "a"), 1));
    ASSERT_TRUE(bus.connect(
        "job.start",
        [&](const char*, void* a, const Value& v) {
            seen_arg = a;
            seen_value = v.write();
        },
        2));
    ASSERT_TRUE(bus.connect("job.start", recorder(&log, "c"), -1));
    ASSERT_TRUE(bus.connect("job.stop", recorder(&log, "other"), 1));
    bus.emit("job.start", &arg, int_value(42));
    EXPECT_EQ(log, (std::vector<std::string>{"a:job.start", "c:job.start"}));
    EXPECT_EQ(seen_arg, &arg);
    EXPECT_EQ(seen_value, "[i]42");
    EXPECT_EQ(bus.registrations(), 4);
}

TEST(SignalTest, DuplicateKeyAndIdKeepsTheFirstAndWarns) {
    Signal bus(nullptr);
    std::vector<std::string> log;
    ASSERT_TRUE(bus.connect("k", recorder(&log, "first"), 3));
    CaptureStderr();
    EXPECT_FALSE(bus.connect("k", recorder(&log, "second"), 3));
    EXPECT_EQ(GetCapturedStderr(),
              "[Signal] (Warnning): connect 'key=k, id=3' already exist !\n\n");
    // Same id under another key, and id -1 twice, are all accepted.
    EXPECT_TRUE(bus.connect("k2", recorder(&log, "other"), 3));
    EXPECT_TRUE(bus.connect("k", recorder(&log, "anon1"), -1));
    EXPECT_TRUE(bus.connect("k", recorder(&log, "anon2"), -1));
    // Empty callbacks and keys are ignored.
    EXPECT_FALSE(bus.connect("k", zp::SignalCallback(), 1));
    EXPECT_FALSE(bus.connect(nullptr, recorder(&log, "x"), 1));
    EXPECT_FALSE(bus.connect("", recorder(&log, "x"), 1));
    bus.emit("k", nullptr, Value());
    EXPECT_EQ(log, (std::vector<std::string>{"first:k", "anon1:k", "anon2:k"}));
    EXPECT_EQ(bus.registrations(), 4);
}

TEST(SignalTest, FiltersMatchLeadingAndTrailingStars) {
    Signal bus(nullptr);
    std::vector<std::string> log;
    ASSERT_TRUE(bus.connect("*", recorder(&log, "all"), 1));
    ASSERT_TRUE(bus.connect("job.*", recorder(&log, "job"), 2));
    ASSERT_TRUE(bus.connect("*.done", recorder(&log, "done"), 3));
    for (const char* key : {"job.start", "jobs", "task.done", "job.done", "Task.DONE"})
        bus.emit(key, nullptr, Value());
    EXPECT_EQ(log, (std::vector<std::string>{"all:job.start", "job:job.start", "all:jobs",
                                             "all:task.done", "done:task.done", "all:job.done",
                                             "job:job.done", "done:job.done", "all:Task.DONE"}));
}

TEST(SignalTest, FilterIdsAreUniqueWhateverThePattern) {
    Signal bus(nullptr);
    std::vector<std::string> log;
    ASSERT_TRUE(bus.connect("job.*", recorder(&log, "job"), 7));
    CaptureStderr();
    EXPECT_FALSE(bus.connect("*.done", recorder(&log, "done"), 7));
    EXPECT_EQ(GetCapturedStderr(),
              "[Signal] (Warnning): filter 'keys=*.done, id=7' already exist !\n\n");
    EXPECT_TRUE(bus.connect("*.done", recorder(&log, "done"), -1));
    EXPECT_TRUE(bus.connect("*.done", recorder(&log, "done2"), -1));
    bus.emit("job.done", nullptr, Value());
    EXPECT_EQ(log, (std::vector<std::string>{"job:job.done", "done:job.done", "done2:job.done"}));
}

TEST(SignalTest, UndeliveredEmissionPrintsTheValue) {
    Signal bus(nullptr);
    std::vector<std::string> log;
    ASSERT_TRUE(bus.connect("job.*", recorder(&log, "job"), 1));
    CaptureStderr();
    bus.emit("nobody", nullptr, int_value(42));
    Value s;
    s.set_string("hi");
    bus.emit("jobs", nullptr, s);
    bus.emit("job.x", nullptr, s);  // delivered: silent
    EXPECT_EQ(GetCapturedStderr(),
              "[Singal] (Warnning) no listener for 'key=nobody'   ---> val=[i]42\n"
              "[Singal] (Warnning) no listener for 'key=jobs'   ---> val=[str:2]hi\n");
}

TEST(SignalTest, RemoveByKeyAndId) {
    Signal bus(nullptr);
    std::vector<std::string> log;
    ASSERT_TRUE(bus.connect("k", recorder(&log, "one"), 1));
    ASSERT_TRUE(bus.connect("k", recorder(&log, "two"), 2));
    ASSERT_TRUE(bus.connect("k", recorder(&log, "anon"), -1));

    CaptureStderr();
    EXPECT_FALSE(bus.remove("k", -1));
    EXPECT_FALSE(bus.remove("", 1));
    EXPECT_FALSE(bus.remove(nullptr, 1));
    EXPECT_FALSE(bus.remove("k", 9));
    EXPECT_FALSE(bus.remove("other", 1));
    EXPECT_EQ(GetCapturedStderr(), "");

    CaptureStderr();
    EXPECT_TRUE(bus.remove("k", 1));
    EXPECT_EQ(GetCapturedStderr(), "[Singal] remove listener 'key=k, id=1' OK !!!\n\n");
    EXPECT_FALSE(bus.remove("k", 1));
    bus.emit("k", nullptr, Value());
    EXPECT_EQ(log, (std::vector<std::string>{"two:k", "anon:k"}));
    EXPECT_EQ(bus.registrations(), 3);  // removal never lowers the count
}

TEST(SignalTest, RemovingAPatternTakesTheFirstFilterWithThatId) {
    Signal bus(nullptr);
    std::vector<std::string> log;
    ASSERT_TRUE(bus.connect("*.done", recorder(&log, "done"), 7));
    ASSERT_TRUE(bus.connect("job.*", recorder(&log, "job"), 8));
    CaptureStderr();
    EXPECT_TRUE(bus.remove("job.*", 7));
    EXPECT_EQ(GetCapturedStderr(), "[Singal] remove filter 'id=7, describ=job.*' OK !!!\n\n");
    EXPECT_FALSE(bus.remove("*", 7));
    bus.emit("job.done", nullptr, Value());
    EXPECT_EQ(log, (std::vector<std::string>{"job:job.done"}));
    // A plain key never removes a filter, a pattern never a listener.
    ASSERT_TRUE(bus.connect("job.x", recorder(&log, "listener"), 8));
    EXPECT_FALSE(bus.remove("job.y", 8));
    CaptureStderr();
    EXPECT_TRUE(bus.remove("*", 8));
    EXPECT_TRUE(bus.remove("job.x", 8));
    GetCapturedStderr();
}

TEST(SignalTest, ListenersMayChangeTheBusFromInsideACallback) {
    Signal bus(nullptr);
    std::vector<std::string> log;
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
    // A filter's callback may do the same.
    ASSERT_TRUE(bus.connect(
        "ti*",
        [&](const char* key, void*, const Value&) {
            log.push_back(std::string("filter:") + key);
            bus.connect("reply", recorder(&log, "reply"), 1);
            bus.emit("reply", nullptr, Value());
        },
        4));
    CaptureStderr();
    bus.emit("tick", nullptr, Value());
    // The listeners of this emission were fixed before the first one ran.
    EXPECT_EQ(log, (std::vector<std::string>{"once", "tock:tock", "steady:tick", "filter:tick",
                                             "reply:reply"}));
    log.clear();
    bus.emit("tick", nullptr, Value());
    GetCapturedStderr();
    EXPECT_EQ(log,
              (std::vector<std::string>{"steady:tick", "late:tick", "filter:tick", "reply:reply"}));
}

// Emitters on several threads while others connect and remove listeners and filters: the
// steady receivers see every emission exactly once.
TEST(SignalTest, EmissionRacesWithConnectionAndRemoval) {
    Signal bus(nullptr);
    constexpr int kEmitters = 3, kEach = 2000;
    std::atomic<int> steady{0}, steady_filter{0}, churn{0};
    ASSERT_TRUE(bus.connect(
        "evt",
        [&](const char*, void*, const Value& v) {
            EXPECT_EQ(v.as_int(), 9);
            ++steady;
        },
        1));
    ASSERT_TRUE(bus.connect(
        "ev*", [&](const char*, void*, const Value&) { ++steady_filter; }, 1));

    std::atomic<bool> stop{false};
    std::atomic<int> rounds{0};
    CaptureStderr();  // the removals print their lines
    std::vector<std::thread> churners;
    for (int c = 0; c < 2; ++c) {
        churners.emplace_back([&, c] {
            int id = 1000 + c * 100000;
            while (!stop) {
                bus.connect(
                    "evt", [&](const char*, void*, const Value&) { ++churn; }, id);
                bus.connect(
                    c ? "*t" : "e*", [&](const char*, void*, const Value&) { ++churn; }, id);
                bus.remove("evt", id);
                bus.remove("*", id);
                ++id;
                ++rounds;
            }
        });
    }
    std::vector<std::thread> emitters;
    for (int e = 0; e < kEmitters; ++e) {
        emitters.emplace_back([&] {
            Value v = int_value(9);
            while (rounds == 0) std::this_thread::yield();  // emit while the bus churns
            for (int i = 0; i < kEach; ++i) bus.emit("evt", nullptr, v);
        });
    }
    for (auto& t : emitters) t.join();
    stop = true;
    for (auto& t : churners) t.join();
    GetCapturedStderr();
    EXPECT_EQ(steady.load(), kEmitters * kEach);
    EXPECT_EQ(steady_filter.load(), kEmitters * kEach);
}

}  // namespace
