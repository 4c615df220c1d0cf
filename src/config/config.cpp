// zp::Config: text settings in key order, written back only when changed.
#include "config/config.h"

#include <cstring>
#include <vector>

#include "utils/registry.h"
#include "utils/utils.h"

namespace zp {

Config::Config(const char* path, Admin* owner) : Abstract_Config(owner), path_(path ? path : "") {
    load();
}

Config::~Config() = default;

bool Config::key_ok(const char* key) {
    const size_t n = strlen(key);
    if (n <= static_cast<size_t>(kKeyLimit)) return true;
    fprintf(stderr, "[zp::Config] ERROR, 'key' is too long (limit=%d): strlen(key)=%d, %s\n",
            kKeyLimit, static_cast<int>(n), key);
    return false;
}

bool Config::load() {
    Utils* u = Utils::instance();
    FILE* f = u->open_file(path_.c_str(), "rt");
    if (f == nullptr) return false;
    std::vector<char> line(kLineBuffer);
    MutexGuard g(lock_);
    while (fgets(line.data(), kLineBuffer, f) != nullptr) {
        if (line[0] == '#') continue;
        if (strchr(line.data(), ':') == nullptr) continue;
        char* text = u->trim_space(line.data());
        if (*text == '\0') continue;
        char* colon = strchr(text, ':');
        if (colon == text) continue;  // no key before the colon
        *colon = '\0';
        u->trim_right_space(text);  // "key : value" as save writes it
        if (!key_ok(text)) continue;
        char* value = u->trim_space(colon + 1);
        entries_[text] = value;
    }
    fclose(f);
    return true;
}

bool Config::save() {
    MutexGuard g(lock_);
    if (!dirty_) return true;
    FILE* f = Utils::instance()->open_file(path_.c_str(), "wt");
    if (f == nullptr) {
        // Dropped on purpose: a read-only directory must not make every later save retry.
        dirty_ = false;
        return false;
    }
    fputs("#Zephra Config (#note)\n", f);
    for (const auto& e : entries_) fprintf(f, "%s : %s\n", e.first.c_str(), e.second.c_str());
    fclose(f);
    dirty_ = false;
    return true;
}

bool Config::set(const char* key, const char* value) {
    if (key == nullptr || !key_ok(key)) return false;
    MutexGuard g(lock_);
    entries_[key] = value ? value : "";
    dirty_ = true;
    return true;
}

bool Config::get(const char* key, std::string* value, bool* found) {
    MutexGuard g(lock_);
    auto it = key ? entries_.find(key) : entries_.end();
    const bool has = it != entries_.end();
    if (found) *found = has;
    if (has && value) *value = it->second;
    return has;
}

const char* Config::cache_locked(const std::string& text) {
    if (cache_.size() > kCacheMax) {
        fprintf(stderr, "[zp::Config] : cache is full(n>100), reserve 70\n");
        while (cache_.size() > kCacheKeep) cache_.pop_front();
    }
    cache_.push_back(text);
    return cache_.back().c_str();
}

const char* Config::get_text(const char* key) {
    MutexGuard g(lock_);
    auto it = key ? entries_.find(key) : entries_.end();
    if (it == entries_.end()) return nullptr;
    return cache_locked(it->second);
}

const char* Config::get(const char* key, const char* def) {
    if (exists(key)) return get_text(key);
    set(key, def);
    return def;
}

bool Config::exists(const char* key) {
    MutexGuard g(lock_);
    return key != nullptr && entries_.count(key) != 0;
}

size_t Config::cache_size() {
    MutexGuard g(lock_);
    return cache_.size();
}

bool Config::dirty() {
    MutexGuard g(lock_);
    return dirty_;
}

void Config::set_reg_names(const char* organisation, const char* application) {
    MutexGuard g(lock_);
    organisation_ = organisation ? organisation : "";
    application_ = application ? application : "";
}

std::string Config::reg_path() {
    MutexGuard g(lock_);
    return "Software\\" + organisation_ + "\\" + application_;
}

bool Config::reg_read(const char* name, std::string* value) {
    std::vector<char> buf(4096, '\0');
    if (reg_get(reg_path().c_str(), name, buf.data(), static_cast<int>(buf.size())) != 0)
        return false;
    if (value) *value = buf.data();
    return true;
}

bool Config::reg_write(const char* name, const char* value) {
    return reg_set(reg_path().c_str(), name, value) == 0;
}

bool Config::reg_delete(const char* name) {
    return zp::reg_delete(reg_path().c_str(), name) == 0;
}

}  // namespace zp
