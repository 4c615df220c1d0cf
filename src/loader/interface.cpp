// zp::Interface: a module's components, created in the framework's fixed order.
#include "loader/interface.h"

#include <cstdio>

#include "channel/channel.h"
#include "cmdline/argv.h"
#include "config/config.h"
#include "crypt/crypt.h"
#include "data/data.h"
#include "data/data_auth.h"
#include "log/logger.h"
#include "pool/mem_pool.h"
#include "signal/signal.h"
#include "trace/func_tracer.h"
#include "utils/utils.h"
#include "zephra_init.h"

namespace zp {

namespace {

uint32_t g_moduleCounter = 0;

}  // namespace

bool Interface::create_components(const std::string& base, const LogSettings& log,
                                  const ParentSet& parent) {
    if (created()) return true;
    index_ = static_cast<uint16_t>(g_moduleCounter++);

    Utils* u = Utils::instance();
    const std::string date = u->now_str("%Y-%m-%d");
    // Empty paths when there is no base directory: every open then fails and nothing is written.
    if (!base.empty()) {
        config_path_ = base + "/conf/" + name_ + ".conf";
        log_path_ = base + "/log/" + name_ + date + ".log";
        trace_path_ = base + "/log/" + name_ + date + ".tcr";
    }

    Admin* root = ppCD;
    app = parent.app;
    data_auth = new DataAuth(parent.data, name_, root);
    signal_borrowed = parent.signal;
    channel = parent.channel;
    argv = new Argv(root);
    data = new Data(root);
    signal = new Signal(root);
    config = new Config(config_path_.c_str(), root);
    logger = new Logger(log_path_.c_str(), root);
    logger->set_level(log.level);
    logger->set_tag(log.tag.c_str());
    if (log.to_stdout) logger->set_stream(stdout);
    tracer = new Func_Tracer(trace_path_.c_str(), name_, root);
    tracer->enable(log.level >= 4);
    utils = u;
    crypt = new Crypt(root);
    mem_pool = new Mem_Pool(2048, root);

    if (is_root_module()) {
        set_flag(kCreated);
        return true;
    }
    set_flag(kCreated);
    if (!init()) {
        uninit();
        return false;
    }
    return true;
}

void Interface::release_components() {
    delete argv;
    argv = nullptr;
    delete config;
    config = nullptr;
    delete logger;
    logger = nullptr;
    delete tracer;
    tracer = nullptr;
    delete crypt;
    crypt = nullptr;
    delete mem_pool;
    mem_pool = nullptr;
    delete data;
    data = nullptr;
    delete data_auth;
    data_auth = nullptr;
    delete signal;
    signal = nullptr;
    // Utils is the process-wide instance: only the root releases it.
    utils = nullptr;
    app = nullptr;
    signal_borrowed = nullptr;
    channel = nullptr;
}

}  // namespace zp
