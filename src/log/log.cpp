// Log call plumbing: reaches the root's logger and clock, or nothing before start-up.
#include "log/log.h"

#include "loader/admin.h"
#include "utils/utils.h"
#include "zephra_init.h"

namespace zp {

Abstract_Logger* root_logger() {
    return ppCD != nullptr ? ppCD->logger : nullptr;
}

const char* log_time() {
    Abstract_Utils* u =
        (ppCD != nullptr && ppCD->utils != nullptr) ? ppCD->utils : Utils::instance();
    return u->now_str("%m%d-%H:%M:%S");
}

}  // namespace zp
