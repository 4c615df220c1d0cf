#pragma once
// Starts the framework once per test program in a temporary home and collects its log lines.

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "log/logger.h"
#include "support/test_support.h"
#include "zephra_init.h"

namespace kinefix_test {

struct LogLine {
    int level = 0;
    std::string message;  // the text between the line's outer double quotes
};

class LogCapture {
  public:
    // Starts the framework (HOME and the XDG folders in a temporary directory) on first use.
    static LogCapture& instance() {
        static LogCapture capture;
        return capture;
    }

    void clear() { lines_.clear(); }
    const std::vector<LogLine>& lines() const { return lines_; }
    // The messages of one level, in order.
    std::vector<std::string> messages(int level) const {
        std::vector<std::string> out;
        for (const LogLine& l : lines_)
            if (l.level == level) out.push_back(l.message);
        return out;
    }

  private:
    LogCapture() : home_(std::make_unique<TempDir>()) {
        for (const auto& kv : isolated_env(*home_)) setenv(kv.first.c_str(), kv.second.c_str(), 1);
        static char arg0[] = "kinefix_test";
        static char* argv[] = {arg0, nullptr};
        zp::InitFramework(1, argv);
        zp::Logger::sink() = [this](int& level, const char*&, const char*& text) {
            const std::string line = text;
            const size_t open = line.find(": \"");
            const size_t close = line.rfind('"');
            LogLine l;
            l.level = level;
            if (open != std::string::npos && close > open + 2)
                l.message = line.substr(open + 3, close - open - 3);
            else
                l.message = line;
            lines_.push_back(l);
        };
    }
    ~LogCapture() {
        zp::Logger::sink() = nullptr;
        zp::ShutdownFramework();
    }

    std::unique_ptr<TempDir> home_;
    std::vector<LogLine> lines_;
};

}  // namespace kinefix_test
