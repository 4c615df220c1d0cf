// zp::Func_Tracer and ScopeTrace: entry/exit lines with thread id, indent and elapsed time.
#include "trace/func_tracer.h"

#include <cstdlib>
#include <cstring>

#include "sync/thread_id.h"
#include "utils/c_text.h"

namespace zp {

namespace {

const char kSeparator[] = "===+===+===+===+===+===+===";

// "|   " forty times; deeper scopes are cut here and marked with "..".
const char kIndent[] =
    "|   |   |   |   |   |   |   |   |   |   |   |   |   |   |   |   |   |   |   |   "
    "|   |   |   |   |   |   |   |   |   |   |   |   |   |   |   |   |   |   |   |   ";
const int kIndentLen = static_cast<int>(strlen(kIndent));

}  // namespace

Func_Tracer::Func_Tracer(const char* path, const char* name, Admin* owner)
    : Abstract_FTracer(owner),
      utils_(owner),
      path_(copy_text(path ? path : "")),
      name_(copy_text(name ? name : "")) {
    line_[0] = '\0';
}

Func_Tracer::~Func_Tracer() {
    MutexGuard g(lock_);
    if (stream_ != nullptr) {
        fputs("\n", stream_);
        fflush(stream_);
        if (!borrowed_) fclose(stream_);
        stream_ = nullptr;
    }
    free(path_);
    free(name_);
}

void Func_Tracer::set_stream(FILE* stream) {
    MutexGuard g(lock_);
    if (stream_ != nullptr && !borrowed_) fclose(stream_);
    stream_ = stream;
    borrowed_ = true;
}

void Func_Tracer::enable(bool on) {
    enabled_.store(on, std::memory_order_relaxed);
}

std::string Func_Tracer::file_path() {
    return path_ != nullptr ? path_ : "";
}

int64_t Func_Tracer::enter(const char* text, const char* file, int line, int /*reserved*/) {
    if (!enabled()) return 0;
    {
        MutexGuard g(lock_);
        if (stream_ == nullptr) open_locked();
        ++depth_;
        int n = prefix_locked();
        snprintf(line_ + n, sizeof(line_) - n, "|__[%d]%s %s\n", line, file ? file : "",
                 text ? text : "");
        emit_locked();
    }
    // Read after the write so that the scope's time excludes its own entry line.
    return utils_.now_ns(1);
}

void Func_Tracer::leave(int line, int64_t start) {
    if (!enabled()) return;
    double elapsed = start > 0 ? (utils_.now_ns(1) - start) / 1000.0 : 0.0;
    MutexGuard g(lock_);
    if (stream_ == nullptr) return;
    int n = prefix_locked();
    snprintf(line_ + n, sizeof(line_) - n, "|__[%d]@ (%.3lfus)\n", line, elapsed);
    emit_locked();
    --depth_;
}

void Func_Tracer::open_locked() {
    stream_ = utils_.open_file(path_, "a+");
    borrowed_ = false;
    if (stream_ == nullptr) {
        stream_ = stderr;
        borrowed_ = true;
    }
    fprintf(stream_, "%s %s\n", kSeparator, utils_.now_str("%Y-%m-%d %H:%M:%S"));
}

int Func_Tracer::prefix_locked() {
    int n = snprintf(line_, sizeof(line_), "%6d", static_cast<int>(current_thread_id()));
    int indent = depth_ > 0 ? depth_ * 4 : 0;
    if (indent > kIndentLen) {
        memcpy(line_ + n, kIndent, kIndentLen);
        n += kIndentLen;
        memcpy(line_ + n, "..", 2);
        n += 2;
    } else {
        memcpy(line_ + n, kIndent, indent);
        n += indent;
    }
    line_[n] = '\0';
    return n;
}

void Func_Tracer::emit_locked() {
    fputs(line_, stream_);
    fflush(stream_);
}

ScopeTrace::ScopeTrace(Abstract_FTracer* tracer, const char* text, const char* file, int line)
    : tracer_(tracer), line_(line) {
    if (tracer_ != nullptr) start_ = tracer_->enter(text, file, line, 0);
}

void ScopeTrace::close() {
    if (tracer_ == nullptr) return;
    tracer_->leave(line_, start_);
    tracer_ = nullptr;
}

}  // namespace zp
