// zp::Func_Tracer and ScopeTrace: line shapes, nesting and its cap, lazy file opening, the
// fall-back to standard error, the sink, and tracing from several threads.
#include "trace/func_tracer.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "support/test_support.h"
#include "sync/thread_id.h"
#include "utils/utils.h"

namespace {

using kinefix_test::lines_of;
using zp::Func_Tracer;
using zp::ScopeTrace;

// A tracer writing to a temporary stream.
class StreamTracer {
  public:
    StreamTracer() : stream_(tmpfile()), tracer_("", "Test", nullptr) {
        zp::Utils::instance();  // created once, before any thread shares it
        tracer_.set_stream(stream_);
    }
    ~StreamTracer() {
        tracer_.set_stream(nullptr);
        fclose(stream_);
    }
    Func_Tracer* operator->() { return &tracer_; }
    Func_Tracer* get() { return &tracer_; }
    std::vector<std::string> lines() {
        fflush(stream_);
        rewind(stream_);
        std::string out;
        char buf[4096];
        for (size_t n; (n = fread(buf, 1, sizeof buf, stream_)) > 0;) out.append(buf, n);
        fseek(stream_, 0, SEEK_END);
        return lines_of(out);
    }

  private:
    FILE* stream_;
    Func_Tracer tracer_;
};

// Thread id and the indent of `depth` levels.
std::string head(int depth) {
    char buf[32];
    snprintf(buf, sizeof buf, "%6d", static_cast<int>(zp::current_thread_id()));
    std::string s = buf;
    for (int i = 0; i < depth; ++i) s += "|   ";
    return s;
}

TEST(FuncTracerTest, ScopesNestAndExitLinesCarryTheirDuration) {
    StreamTracer t;
    {
        ScopeTrace outer(t.get(), "run", "main.cpp", 12);
        ScopeTrace inner(t.get(), "step", "engine.cpp", 40);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        inner.close();
        ScopeTrace none(nullptr, "ignored", "x.cpp", 51);
    }
    auto lines = t.lines();
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[0], head(1) + "|__[12]main.cpp run");
    EXPECT_EQ(lines[1], head(2) + "|__[40]engine.cpp step");
    std::smatch m;
    ASSERT_TRUE(std::regex_match(lines[2], m, std::regex(R"((.*)\|__\[40\]@ \((\d+\.\d{3})us\))")))
        << lines[2];
    EXPECT_EQ(m[1].str(), head(2));
    EXPECT_GE(std::stod(m[2]), 20000.0);
    EXPECT_EQ(lines[3].substr(0, head(1).size() + 8), head(1) + "|__[12]@");
}

TEST(FuncTracerTest, IndentAndLineLengthAreCapped) {
    StreamTracer t;
    for (int i = 1; i <= 41; ++i) t->enter("f", "deep.cpp", i);
    t->enter(std::string(1000, 'x').c_str(), "long.cpp", 1);
    auto lines = t.lines();
    ASSERT_EQ(lines.size(), 42u);
    EXPECT_EQ(lines[39], head(40) + "|__[40]deep.cpp f");
    EXPECT_EQ(lines[40], head(40) + "..|__[41]deep.cpp f");
    EXPECT_EQ(lines[41].size(), size_t{Func_Tracer::kLineSize - 1});  // newline cut off too
}

TEST(FuncTracerTest, FileOpensAtTheFirstEntryOrFallsBackToStandardError) {
    kinefix_test::TempDir dir;
    const std::string path = dir / "Admin2024-01-02.tcr";
    {
        Func_Tracer t(path.c_str(), "Admin", nullptr);
        t.leave(1, 0);  // an exit alone opens nothing
        EXPECT_FALSE(std::filesystem::exists(path));
        t.enter("work", "a.cpp", 7);
        EXPECT_TRUE(std::filesystem::exists(path));
    }
    EXPECT_EQ(lines_of(kinefix_test::read_text(path))[1], head(1) + "|__[7]a.cpp work");

    const std::string unopenable = dir / "missing/x.tcr";
    testing::internal::CaptureStderr();
    {
        Func_Tracer t(unopenable.c_str(), "Admin", nullptr);
        t.enter("run", "main.cpp", 5);
    }
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_NE(err.find("===+===+===+===+===+===+=== "), std::string::npos) << err;
    EXPECT_NE(err.find(head(1) + "|__[5]main.cpp run\n"), std::string::npos) << err;
}

TEST(FuncTracerTest, SinkTakesTheLinesInsteadOfTheStream) {
    StreamTracer t;
    std::vector<std::string> got;
    Func_Tracer::sink() = [&](const char* text, const char* module, int line) {
        got.push_back(std::string(module) + ":" + std::to_string(line) + ":" + text);
    };
    t->leave(9, t->enter("run", "main.cpp", 8));
    Func_Tracer::sink() = nullptr;
    EXPECT_TRUE(t.lines().empty());
    ASSERT_EQ(got.size(), 2u);
    EXPECT_EQ(got[0], "Test:8:" + head(1) + "|__[8]main.cpp run\n");
    EXPECT_EQ(got[1].substr(0, 7), "Test:9:");
}

// The depth is shared by all threads; every line stays whole and the tree closes at the end.
TEST(FuncTracerTest, ThreadsTraceConcurrentlyWithoutTornLines) {
    StreamTracer t;
    constexpr int kThreads = 4, kEach = 300;
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back([&] {
            for (int n = 0; n < kEach; ++n) {
                ScopeTrace outer(t.get(), "outer", "mt.cpp", 1);
                ScopeTrace inner(t.get(), "inner", "mt.cpp", 2);
            }
        });
    for (auto& th : threads) th.join();
    t->enter("after", "mt.cpp", 3);

    auto lines = t.lines();
    ASSERT_EQ(lines.size(), size_t{kThreads * kEach * 4 + 1});
    const std::regex shape(
        R"( *\d+(\|   )*\|__\[[12]\](mt\.cpp (outer|inner)|@ \(\d+\.\d{3}us\)))");
    for (size_t i = 0; i + 1 < lines.size(); ++i)
        ASSERT_TRUE(std::regex_match(lines[i], shape)) << i << ": " << lines[i];
    EXPECT_EQ(lines.back(), head(1) + "|__[3]mt.cpp after");
}

}  // namespace
