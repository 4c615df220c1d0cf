#pragma once
// zp::Logger: one module's log file, written line by line in the framework's fixed format.

#include <cstdio>
#include <string>

#include "core/abstract_base.h"
#include "sync/mutex.h"

namespace zp {

// Levels: a lower number is more important. The program writes 2 ([E]) and 5 ([D]).
enum LogLevel { kLogError = 2, kLogDebug = 5 };

class Abstract_Logger : public Abstract_Base {
  public:
    using Abstract_Base::Abstract_Base;
    ~Abstract_Logger() override = default;

    // Takes `stream` as borrowed (null: the file is opened again at the next line).
    virtual void set_stream(FILE* stream) = 0;
    virtual FILE* stream() = 0;
    // Level 0 closes the log file.
    virtual void set_level(int level) = 0;
    virtual int level() = 0;
    // Only lines with exactly this tag pass; null or "" clears the filter.
    virtual void set_tag(const char* tag) = 0;
    virtual const char* tag() = 0;
    virtual void log(int level, const char* tag, const char* format, ...)
#if defined(__GNUC__)
        __attribute__((format(printf, 4, 5)))
#endif
        = 0;
    virtual std::string file_path() = 0;
    virtual std::string file_dir() = 0;
    virtual void close() = 0;
};

class Logger : public Abstract_Logger {
  public:
    static constexpr int kLineMax = 4095;

    Logger(const char* path, Admin* owner);
    ~Logger() override;
    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

    void set_stream(FILE* stream) override;
    FILE* stream() override;
    void set_level(int level) override;
    int level() override;
    void set_tag(const char* tag) override;
    const char* tag() override;
    void log(int level, const char* tag, const char* format, ...) override
#if defined(__GNUC__)
        __attribute__((format(printf, 4, 5)))
#endif
        ;
    std::string file_path() override;
    std::string file_dir() override;
    void close() override;

  private:
    void open_locked();

    char* path_;
    char line_[kLineMax + 1];
    FILE* stream_ = nullptr;
    bool borrowed_ = false;
    int level_ = 6;
    char* tag_ = nullptr;
    Mutex lock_;
};

}  // namespace zp
