// zp::Func_Tracer and ScopeTrace: line shapes, nesting and its cap, lazy file opening, the
// fall-back to standard error, and tracing from several threads.
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

// Thread id and the indent of `depth` levels.
std::string head(int depth) {
    std::string s = std::to_string(zp::current_thread_id());
    s.insert(0, s.size() < 6 ? 6 - s.size() : 0, ' ');
    for (int i = 0; i < depth; ++i) s += "|   ";
    return s;
}

// A tracer writing to a temporary stream.
class FuncTracerTest : public testing::Test {
  protected:
    FuncTracerTest() { t.set_stream(stream); }
    ~FuncTracerTest() override {
        t.set_stream(nullptr);
        fclose(stream);
    }
    std::vector<std::string> lines() {
        fflush(stream);
        rewind(stream);
        std::string out;
        for (int c; (c = fgetc(stream)) != EOF;) out.push_back(static_cast<char>(c));
        return lines_of(out);
    }
    zp::Utils* utils = zp::Utils::instance();  // created before any thread shares it
    FILE* stream = tmpfile();
    Func_Tracer t{"", "Test", nullptr};
};

TEST_F(FuncTracerTest, ScopesNestUpToACapAndFilesOpenAtTheFirstEntryOrFallBack) {
    {
        ScopeTrace outer(&t, "run", "main.cpp", 12);
        ScopeTrace inner(&t, "step", "engine.cpp", 40);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        inner.close();
        ScopeTrace none(nullptr, "ignored", "x.cpp", 51);
    }
    for (int i = 1; i <= 41; ++i) t.enter("f", "deep.cpp", i);
    t.enter(std::string(1000, 'x').c_str(), "long.cpp", 1);
    auto lines = this->lines();
    ASSERT_EQ(lines.size(), 46u);
    EXPECT_EQ(lines[0], head(1) + "|__[12]main.cpp run");
    EXPECT_EQ(lines[1], head(2) + "|__[40]engine.cpp step");
    std::smatch m;
    ASSERT_TRUE(std::regex_match(lines[2], m, std::regex(R"((.*)\|__\[40\]@ \((\d+\.\d{3})us\))")));
    EXPECT_EQ(m[1].str(), head(2));
    EXPECT_GE(std::stod(m[2]), 20000.0);
    EXPECT_EQ(lines[3].substr(0, head(1).size() + 8), head(1) + "|__[12]@");
    // The indent stops at 160 characters; a line stops at the buffer, newline included.
    EXPECT_EQ(lines[43], head(40) + "|__[40]deep.cpp f");
    EXPECT_EQ(lines[44], head(40) + "..|__[41]deep.cpp f");
    EXPECT_EQ(lines[45].size(), size_t{Func_Tracer::kLineSize - 1});
    // A file opens at the first entry; one that cannot be made falls back to standard error.
    kinefix_test::TempDir dir;
    const std::string path = dir / "Admin2024-01-02.tcr";
    Func_Tracer file(path.c_str(), "Admin", nullptr);
    file.leave(1, 0);  // an exit alone opens nothing
    EXPECT_FALSE(std::filesystem::exists(path));
    file.enter("work", "a.cpp", 7);
    EXPECT_EQ(lines_of(kinefix_test::read_text(path)).at(1), head(1) + "|__[7]a.cpp work");
    testing::internal::CaptureStderr();
    Func_Tracer((dir / "missing/x.tcr").c_str(), "Admin", nullptr).enter("run", "m.cpp", 5);
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(err.find("===+===+===+===+===+===+=== "), 0u) << err;
    EXPECT_NE(err.find(head(1) + "|__[5]m.cpp run\n"), std::string::npos) << err;
}

// The depth is shared by all threads; every line stays whole and the tree closes at the end.
TEST_F(FuncTracerTest, ThreadsTraceConcurrentlyWithoutTornLines) {
    constexpr int kThreads = 4, kEach = 300;
    kinefix_test::on_threads(kThreads, [&](int) {
        for (int n = 0; n < kEach; ++n) {
            ScopeTrace outer(&t, "outer", "mt.cpp", 1);
            ScopeTrace inner(&t, "inner", "mt.cpp", 2);
        }
    });
    t.enter("after", "mt.cpp", 3);
    auto lines = this->lines();
    ASSERT_EQ(lines.size(), size_t{kThreads * kEach * 4 + 1});
    const std::regex shape(
        R"( *\d+(\|   )*\|__\[[12]\](mt\.cpp (outer|inner)|@ \(\d+\.\d{3}us\)))");
    for (size_t i = 0; i + 1 < lines.size(); ++i)
        ASSERT_TRUE(std::regex_match(lines[i], shape)) << i << ": " << lines[i];
    EXPECT_EQ(lines.back(), head(1) + "|__[3]mt.cpp after");
}

}  // namespace
