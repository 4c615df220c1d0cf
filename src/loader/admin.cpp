// zp::Admin: directories, component set-up, log settings and the modules' lifecycle.
#include "loader/admin.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <vector>

#include "channel/channel.h"
#include "cmdline/argv.h"
#include "config/config.h"
#include "crypt/crypt.h"
#include "data/data.h"
#include "log/log.h"
#include "pool/mem_pool.h"
#include "signal/signal.h"
#include "trace/func_tracer.h"
#include "utils/utils.h"
#include "value/value.h"
#include "zephra_init.h"

namespace zp {

// The root's data_auth is cleared, not deleted; it stays reachable here for leak checkers.
DataAuth* g_retiredDataAuth = nullptr;

namespace {

constexpr const char* kProbeFile = "~test_writeable~.tmp";

std::string& override_dir() {
    static std::string dir;
    return dir;
}

std::string join(const std::string& dir, const std::string& name) {
    if (!dir.empty() && (dir.back() == '/' || dir.back() == '\\')) return dir + name;
    return dir + "/" + name;
}

bool take_override(Utils* u, const std::string& dir) {
    if (u->is_dir_writable(dir.c_str(), kProbeFile)) return true;
    if (make_dirs(dir.c_str())) return true;
    fprintf(stderr, "[Admin] dir='%s'，can't writeable...\n", dir.c_str());
    return false;
}

// A candidate's directory named after the program; empty for a root that is not set or is the
// filesystem root itself.
std::string join_named(const std::string& root) {
    if (root.empty() || root == "/" || root == "\\") return std::string();
    return join(root, g_programName);
}

std::string resolve_base_dir(Utils* u) {
    // Candidates in order; one whose environment names no directory is skipped. None of them
    // may be the filesystem root: nothing is ever written there.
    const std::string dirs[] = {join_named(local_data_dir()), join_named(home_dir()),
                                join_named(app_data_dir()),
                                last_resort_dir(g_programDir, g_programName)};
    for (const std::string& dir : dirs) {
        if (dir.empty()) continue;
        if (!make_dirs(dir.c_str())) {
            fprintf(stderr, "\n\n[Zephra Error] can't mkdir:  %s\n\n", dir.c_str());
            continue;
        }
        if (!u->is_dir_writable(dir.c_str(), kProbeFile)) {
            fprintf(stderr, "\n\n[Zephra Error] no write access:  %s\n\n", dir.c_str());
            continue;
        }
        fprintf(stderr, "[Zephra] config dir = %s\n", dir.c_str());
        return dir;
    }
    return "";
}

std::string pointer_text(const void* p) {
    char buf[32];
    snprintf(buf, sizeof buf, "%016llX",
             static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(p)));
    return buf;
}

}  // namespace

void SetConfigLogDir(const char* dir) {
    override_dir() = dir ? dir : "";
}

std::string Admin::base_dir() {
    Utils* u = Utils::instance();
    const std::string& over = override_dir();
    if (!over.empty()) {
        if (take_override(u, over)) return over;
    } else {
        fprintf(stderr,
                "[Admin] zp::SetConfigLogDir(\"my-config-dir\") can redirect Config&Log dir\n");
    }
    static const std::string cached = resolve_base_dir(u);
    return cached;
}

Admin::Admin() {
    strncpy(name_, "Admin", sizeof name_ - 1);
    create_parent_set(this);
}

Admin::~Admin() {
    ScopeTrace scope(tracer, __func__, source_name(__FILE__), __LINE__);
    uninit();

    delete argv;
    argv = nullptr;
    delete config;
    config = nullptr;
    delete crypt;
    crypt = nullptr;
    delete mem_pool;
    mem_pool = nullptr;
    delete data;
    data = nullptr;
    delete signal;
    signal = nullptr;

    app = nullptr;
    g_retiredDataAuth = data_auth;
    data_auth = nullptr;
    signal_borrowed = nullptr;
    channel = nullptr;
    delete_parent_set();

    ZP_LOGE("Done!");
    Abstract_Logger* last = logger;
    logger = nullptr;
    delete last;
    utils = nullptr;
    delete Utils::instance();

    // The tracer outlives everything it traced, the root's own scope included.
    scope.close();
    delete tracer;
    tracer = nullptr;
}

bool Admin::init() {
    fprintf(stderr, "\n[Admin] ::init @==@\n");
    fflush(stderr);
    Utils* u = Utils::instance();

    // No usable base directory: the logger falls back to standard error and no conf or log
    // file is made anywhere (an empty base would otherwise mean the filesystem root).
    const std::string base = base_dir();
    if (!base.empty()) {
        make_dirs((base + "/conf/").c_str());
        make_dirs((base + "/log/").c_str());
    }

    LogSettings log;  // level 6, standard output on, tag "zp" until the config speaks
    modules()[name_] = this;
    const bool ok = create_components(base, log, parent_);
    srand(static_cast<unsigned>(time(nullptr)));

    if (ok) {
        const bool missing = !config->exists("log.stdout") || !config->exists("log.level") ||
                             !config->exists("log.tag");
        const std::string to_stdout = config->get("log.stdout", "false");
        const std::string level_text = config->get("log.level", u->format("%d", 2).c_str());
        const std::string tag = config->get("log.tag", "");
        if (missing) config->save();

        log.level = atoi(level_text.c_str());
        log.tag = tag;
        log.to_stdout = strncmp(to_stdout.c_str(), "true", 4) == 0;
        logger->set_level(log.level);
        logger->set_tag(log.tag.c_str());
        logger->set_stream(log.to_stdout ? stdout : nullptr);
        tracer->enable(log.level >= 4);
        fprintf(stderr, "[Admin] ::init OK\n");
        fflush(stderr);
    }
    return ok;
}

bool Admin::start() {
    set_flag(kStarted);
    srand(static_cast<unsigned>(time(nullptr)));
    for (auto& entry : modules()) {
        Content* m = entry.second;
        if (m == this || m->started()) continue;
        m->set_flag(kStarted);
        m->start();
    }
    return true;
}

bool Admin::uninit() {
    ZP_TRACE_SCOPE(tracer);
    ZP_LOGE("[Admin] ::uninit @==@");
    set_flag(kAborting);
    for (auto& entry : modules()) {
        Content* m = entry.second;
        if (m == this) continue;
        ZP_LOGD("set aborting cmps: key=%s, inst=%s", entry.first.c_str(), pointer_text(m).c_str());
        m->set_flag(kAborting);
        // Wakes the module's threads blocked on its channel before its components go.
        if (m->channel != nullptr) m->channel->abort();
        ZP_LOGD("set aborting cmps '%s' End", entry.first.c_str());
    }
    if (channel != nullptr) channel->abort();
    ZP_LOGE("set all abort success");
    ZP_LOGE("[Admin] abort all thread success");

    for (auto& entry : modules()) {
        Content* m = entry.second;
        if (m == this) continue;
        ZP_LOGE("> before uninit cmp '%s'", entry.first.c_str());
        m->uninit();
        if (auto* module = dynamic_cast<Interface*>(m)) module->release_components();
        ZP_LOGE("> uninit cmp '%s' OK", entry.first.c_str());
    }
    modules().clear();
    ZP_LOGE("[Admin] ::uninit end @==@");
    return true;
}

Value Admin::process(const char* from, int id, const Value& msg, const Reply& reply) {
    fprintf(stderr, "[Admin]::process() : from=%s, id=%d, msg=%s\n", from ? from : "", id,
            msg.write().c_str());
    if (reply) reply(msg);
    Value answer;
    answer.set_pointer(this);
    return answer;
}

Value Admin::send(const char* from, int id, const Value& msg, const Reply& reply) {
    return dispatch(name_, from, id, msg, reply);
}

Value Admin::dispatch(const char* module, const char* from, int id, const Value& msg,
                      const Reply& reply) {
    auto it = modules().find(module ? module : "");
    if (it != modules().end()) return it->second->process(from, id, msg, reply);
    fprintf(stderr, "=== Admin: module (%s) not exist !! ERROR !\n", module ? module : "");
    Value answer;
    answer.set_string("module not exsit");
    if (reply) reply(answer);
    return answer;
}

}  // namespace zp
