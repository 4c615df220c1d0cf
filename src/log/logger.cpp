// zp::Logger: lazily opened, lock-guarded, one fixed line buffer.
#include "log/logger.h"

#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "core/testing_hooks.h"
#include "utils/c_text.h"
#include "utils/utils.h"

namespace zp {

namespace testing_hooks {

LogSink& log_sink() {
    static LogSink s;
    return s;
}

}  // namespace testing_hooks

Logger::Logger(const char* path, Admin* owner)
    : Abstract_Logger(owner), path_(copy_text(path ? path : "")) {
    line_[0] = '\0';
}

Logger::~Logger() {
    if (stream_ != nullptr) fputs("\n", stream_);
    set_stream(stderr);
    free(path_);
    free(tag_);
}

void Logger::set_stream(FILE* stream) {
    MutexGuard g(lock_);
    if (stream_ != nullptr && !borrowed_) fclose(stream_);
    stream_ = stream;
    borrowed_ = true;
}

FILE* Logger::stream() {
    return stream_;
}

void Logger::set_level(int level) {
    level_ = level;
    if (level == 0) close();
}

int Logger::level() {
    return level_;
}

void Logger::set_tag(const char* tag) {
    if (tag_ != nullptr && tag != nullptr && strcmp(tag_, tag) == 0) return;
    if (tag_ == nullptr && (tag == nullptr || *tag == '\0')) return;
    free(tag_);
    tag_ = (tag != nullptr && *tag != '\0') ? copy_text(tag) : nullptr;
}

const char* Logger::tag() {
    return tag_ != nullptr ? tag_ : "";
}

void Logger::open_locked() {
    FILE* f = Utils::instance()->open_file(path_, "a+");
    if (f != nullptr) {
        stream_ = f;
        borrowed_ = false;
    } else {
        stream_ = stderr;
        borrowed_ = true;
    }
    const std::string when =
        Utils::instance()->time_str(static_cast<int64_t>(time(nullptr)), "%Y-%m-%d %H:%M:%S");
    fprintf(stream_, "%s %s\n", "-------------------------", when.c_str());
}

void Logger::log(int level, const char* tag, const char* format, ...) {
    testing_hooks::LogSink& sink = testing_hooks::log_sink();
    if (sink) {
        // A buffer of the caller's own: the shared one belongs to the lock, which the sink
        // must not hold (it may log).
        char line[sizeof line_];
        va_list ap;
        va_start(ap, format);
        vsnprintf(line, sizeof line, format, ap);
        va_end(ap);
        const char* text = line;
        sink(level, tag, text);
        return;
    }
    if (level > level_) return;
    if (tag_ != nullptr && tag != nullptr && strcmp(tag_, tag) != 0) return;

    MutexGuard g(lock_);
    if (stream_ == nullptr) open_locked();
    va_list ap;
    va_start(ap, format);
    // KEPT: a line longer than kLineMax (4095) characters is cut and loses its line end.
    vsnprintf(line_, sizeof line_, format, ap);
    va_end(ap);
    fputs(line_, stream_);
    fflush(stream_);
}

std::string Logger::file_path() {
    return path_ != nullptr ? path_ : "";
}

std::string Logger::file_dir() {
    return Utils::instance()->dir_name(file_path());
}

void Logger::close() {
    MutexGuard g(lock_);
    level_ = 0;
    if (stream_ != nullptr && !borrowed_) {
        fclose(stream_);
        stream_ = nullptr;
        borrowed_ = false;
    }
}

}  // namespace zp
