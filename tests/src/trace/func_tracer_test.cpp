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
using kinefix_test::read_text;
using kinefix_test::TempDir;
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
    std::string text() {
        fflush(stream_);
        std::string out;
        rewind(stream_);
        char buf[4096];
        size_t n;
        while ((n = fread(buf, 1, sizeof buf, stream_)) > 0) out.append(buf, n);
        fseek(stream_, 0, SEEK_END);
        return out;
    }

  private:
    FILE* stream_;
    Func_Tracer tracer_;
};

std::string tid() {
    char buf[32];
    snprintf(buf, sizeof buf, "%6d", static_cast<int>(zp::current_thread_id()));
    return buf;
}

std::string indent(int depth) {
    std::string s;
    for (int i = 0; i < depth; ++i) s += "|   ";
    return s;
}

TEST(FuncTracerTest, EntryAndExitLinesShareTheirIndent) {
    StreamTracer t;
    int64_t start = t->enter("run", "main.cpp", 12);
    EXPECT_GT(start, 0);
    int64_t inner = t->enter("step", "engine.cpp", 40);
    t->leave(41, inner);
    t->leave(13, start);

    auto lines = lines_of(t.text());
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[0], tid() + indent(1) + "|__[12]main.cpp run");
    EXPECT_EQ(lines[1], tid() + indent(2) + "|__[40]engine.cpp step");
    EXPECT_TRUE(
        std::regex_match(lines[2], std::regex(tid() + R"(\|   \|   \|__\[41\]@ \(\d+\.\d{3}us\))")))
        << lines[2];
    EXPECT_TRUE(
        std::regex_match(lines[3], std::regex(tid() + R"(\|   \|__\[13\]@ \(\d+\.\d{3}us\))")))
        << lines[3];
}

TEST(FuncTracerTest, ElapsedTimeIsMeasuredFromTheStart) {
    StreamTracer t;
    int64_t start = t->enter("sleep", "f.cpp", 1);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    t->leave(2, start);
    t->leave(3, 0);  // no start: nothing elapsed
    auto lines = lines_of(t.text());
    ASSERT_EQ(lines.size(), 3u);
    std::smatch m;
    ASSERT_TRUE(std::regex_search(lines[1], m, std::regex(R"(\((\d+\.\d{3})us\)$)")));
    EXPECT_GE(std::stod(m[1]), 20000.0);
    EXPECT_EQ(lines[2], tid() + "|__[3]@ (0.000us)");  // depth is back at 0 here
}

TEST(FuncTracerTest, IndentStopsAt160CharactersWithTwoDots) {
    StreamTracer t;
    for (int i = 1; i <= 41; ++i) t->enter("f", "deep.cpp", i);
    auto lines = lines_of(t.text());
    ASSERT_EQ(lines.size(), 41u);
    EXPECT_EQ(lines[39], tid() + indent(40) + "|__[40]deep.cpp f");
    EXPECT_EQ(lines[40], tid() + indent(40) + "..|__[41]deep.cpp f");
}

TEST(FuncTracerTest, OverlongTextIsCutToTheLineBuffer) {
    StreamTracer t;
    const std::string text(1000, 'x');
    t->enter(text.c_str(), "long.cpp", 1);
    std::string out = t.text();
    EXPECT_EQ(out.size(), size_t{Func_Tracer::kLineSize - 1});
    EXPECT_EQ(out.back(), 'x');  // the newline was cut off with the rest
}

TEST(FuncTracerTest, FileIsOpenedAtTheFirstEntryWithItsSeparator) {
    TempDir dir;
    const std::string path = dir / "Admin2024-01-02.tcr";
    {
        Func_Tracer t(path.c_str(), "Admin", nullptr);
        EXPECT_EQ(t.file_path(), path);
        t.leave(1, 0);  // nothing open yet: an exit alone writes nothing
        EXPECT_FALSE(std::filesystem::exists(path));
        ScopeTrace scope(&t, "work", "a.cpp", 7);
        EXPECT_TRUE(std::filesystem::exists(path));
    }
    auto lines = lines_of(read_text(path));
    ASSERT_EQ(lines.size(), 4u) << read_text(path);
    EXPECT_TRUE(std::regex_match(
        lines[0],
        std::regex(R"(===\+===\+===\+===\+===\+===\+=== \d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2})")))
        << lines[0];
    EXPECT_EQ(lines[1], tid() + indent(1) + "|__[7]a.cpp work");
    EXPECT_EQ(lines[2].substr(0, tid().size() + 11), tid() + indent(1) + "|__[7]@");
    EXPECT_EQ(lines[3], "");  // the destructor's closing newline

    // A second tracer on the same file appends below.
    {
        Func_Tracer t(path.c_str(), "Admin", nullptr);
        t.enter("again", "b.cpp", 1);
    }
    EXPECT_EQ(lines_of(read_text(path)).size(), 7u);
}

TEST(FuncTracerTest, UnopenableFileSendsLinesToStandardError) {
    TempDir dir;
    const std::string path = (dir.path() / "missing" / "x.tcr").string();
    testing::internal::CaptureStderr();
    {
        Func_Tracer t(path.c_str(), "Admin", nullptr);
        t.enter("run", "main.cpp", 5);
    }
    std::string err = testing::internal::GetCapturedStderr();
    EXPECT_NE(err.find("===+===+===+===+===+===+=== "), std::string::npos) << err;
    EXPECT_NE(err.find(tid() + indent(1) + "|__[5]main.cpp run\n"), std::string::npos) << err;
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST(FuncTracerTest, SinkTakesTheLinesInsteadOfTheStream) {
    StreamTracer t;
    struct Got {
        std::string text, module;
        int line;
    };
    std::vector<Got> got;
    Func_Tracer::sink() = [&](const char* text, const char* module, int line) {
        got.push_back({text, module, line});
    };
    int64_t s = t->enter("run", "main.cpp", 8);
    t->leave(9, s);
    Func_Tracer::sink() = nullptr;

    EXPECT_EQ(t.text(), "");
    ASSERT_EQ(got.size(), 2u);
    EXPECT_EQ(got[0].text, tid() + indent(1) + "|__[8]main.cpp run\n");
    EXPECT_EQ(got[0].module, "Test");
    EXPECT_EQ(got[0].line, 8);
    EXPECT_EQ(got[1].line, 9);
}

TEST(FuncTracerTest, ScopesCloseInReverseOrderAndEarlyCloseHappensOnce) {
    StreamTracer t;
    {
        ZP_TRACE_SCOPE(t.get());
        ScopeTrace inner(t.get(), "inner", "x.cpp", 50);
        inner.close();
        ScopeTrace none(nullptr, "ignored", "x.cpp", 51);
    }
    auto lines = lines_of(t.text());
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_NE(lines[0].find("|__["), std::string::npos);
    EXPECT_NE(lines[0].find("func_tracer_test.cpp TestBody"), std::string::npos) << lines[0];
    EXPECT_EQ(lines[1], tid() + indent(2) + "|__[50]x.cpp inner");
    EXPECT_EQ(lines[2].substr(0, tid().size() + 18), tid() + indent(2) + "|__[50]@ (");
    EXPECT_EQ(lines[3].substr(0, tid().size() + 8), tid() + indent(1) + "|__[");
}

// The depth is shared by all threads; every line stays whole and the tree closes at the end.
TEST(FuncTracerTest, ThreadsTraceConcurrentlyWithoutTornLines) {
    StreamTracer t;
    constexpr int kThreads = 4, kEach = 300;
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] {
            for (int n = 0; n < kEach; ++n) {
                ScopeTrace outer(t.get(), "outer", "mt.cpp", 1);
                ScopeTrace inner(t.get(), "inner", "mt.cpp", 2);
            }
        });
    }
    for (auto& th : threads) th.join();
    t->enter("after", "mt.cpp", 3);

    auto lines = lines_of(t.text());
    ASSERT_EQ(lines.size(), size_t{kThreads * kEach * 4 + 1});
    const std::regex shape(
        R"( *\d+(\|   )*\|__\[[12]\](mt\.cpp (outer|inner)|@ \(\d+\.\d{3}us\)))");
    for (size_t i = 0; i + 1 < lines.size(); ++i)
        ASSERT_TRUE(std::regex_match(lines[i], shape)) << i << ": " << lines[i];
    EXPECT_EQ(lines.back(), tid() + indent(1) + "|__[3]mt.cpp after");
}

}  // namespace
