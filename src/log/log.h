#pragma once
// The framework's log call: ZP_LOGE / ZP_LOGD supply the time stamp, source file and line.
//
//   ZP_LOGE("无法打开moov文件: %s", path);
// writes   1115-16:55:04[E][zp] moov_parser.cpp 42  : "无法打开moov文件: /x.idx"

#include "log/logger.h"

namespace zp {

// The root's logger, or null before start-up and after shut-down. Both are defined with the
// root, in zephra_init.cpp.
Abstract_Logger* root_logger();
// Current local time as "%m%d-%H:%M:%S" from the root's Utils.
const char* log_time();

// File name of a compile-time path (after the last '/' or '\').
constexpr const char* source_name(const char* path) {
    const char* name = path;
    for (const char* p = path; *p; ++p)
        if (*p == '/' || *p == '\\') name = p + 1;
    return name;
}

}  // namespace zp

#define ZP_LOG_AT(level, letter, fmt, ...)                                            \
    do {                                                                              \
        if (::zp::Abstract_Logger* zp_logger_ = ::zp::root_logger())                  \
            zp_logger_->log(level, "zp", "%s[" letter "][zp] %s %-4d: \"" fmt "\"\n", \
                            ::zp::log_time(), ::zp::source_name(__FILE__), __LINE__,  \
                            ##__VA_ARGS__);                                           \
    } while (0)

#define ZP_LOGE(fmt, ...) ZP_LOG_AT(::zp::kLogError, "E", fmt, ##__VA_ARGS__)
#define ZP_LOGD(fmt, ...) ZP_LOG_AT(::zp::kLogDebug, "D", fmt, ##__VA_ARGS__)
