#pragma once
// zp::Func_Tracer: an indented call tree of traced scopes, with durations, in a ".tcr" file.

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <string>

#include "core/abstract_base.h"
#include "log/log.h"
#include "sync/mutex.h"
#include "utils/utils.h"

namespace zp {

class Abstract_FTracer : public Abstract_Base {
  public:
    using Abstract_Base::Abstract_Base;
    ~Abstract_FTracer() override = default;

    // Takes `stream` as borrowed; an owned stream is closed first.
    virtual void set_stream(FILE* stream) = 0;
    virtual void enable(bool on) = 0;
    virtual std::string file_path() = 0;
    // Writes the entry line; returns the start time in nanoseconds, 0 when disabled.
    virtual int64_t enter(const char* text, const char* file, int line, int reserved = 0) = 0;
    // Writes the exit line with the time elapsed since `start` (0: none).
    virtual void leave(int line, int64_t start) = 0;
};

class Func_Tracer : public Abstract_FTracer {
  public:
    static constexpr int kLineSize = 512;
    static constexpr int kIndentMax = 160;

    Func_Tracer(const char* path, const char* name, Admin* owner);
    ~Func_Tracer() override;
    Func_Tracer(const Func_Tracer&) = delete;
    Func_Tracer& operator=(const Func_Tracer&) = delete;

    void set_stream(FILE* stream) override;
    void enable(bool on) override;
    std::string file_path() override;
    int64_t enter(const char* text, const char* file, int line, int reserved = 0) override;
    void leave(int line, int64_t start) override;

    const char* name() const { return name_; }
    bool enabled() const { return enabled_.load(std::memory_order_relaxed); }

  private:
    // Opens the trace file (or falls back to standard error) and writes the separator.
    void open_locked();
    // Thread id and indent for the current depth; returns the length written into line_.
    int prefix_locked();
    void emit_locked();

    // A private toolbox for the clock and the file: the root's closing scope is left after
    // the root's own Utils is gone.
    Utils utils_;
    FILE* stream_ = nullptr;
    bool borrowed_ = false;
    char* path_;
    char* name_;
    int32_t depth_ = 0;
    std::atomic<bool> enabled_{true};
    char line_[kLineSize];
    Mutex lock_;
};

// Opens a traced scope on construction and closes it on destruction (or at close()).
class ScopeTrace {
  public:
    ScopeTrace(Abstract_FTracer* tracer, const char* text, const char* file, int line);
    ~ScopeTrace() { close(); }
    ScopeTrace(const ScopeTrace&) = delete;
    ScopeTrace& operator=(const ScopeTrace&) = delete;

    // Writes the exit line now; the destructor then does nothing.
    void close();

  private:
    Abstract_FTracer* tracer_;
    int line_;
    int64_t start_ = 0;
};

}  // namespace zp

#define ZP_TRACE_CAT2(a, b) a##b
#define ZP_TRACE_CAT(a, b) ZP_TRACE_CAT2(a, b)
// Traces the enclosing scope on `tracer` (an Abstract_FTracer*, may be null).
#define ZP_TRACE_SCOPE(tracer)                                \
    ::zp::ScopeTrace ZP_TRACE_CAT(zp_scope_trace_, __LINE__)( \
        (tracer), __func__, ::zp::source_name(__FILE__), __LINE__)
