#pragma once
// zp::Config: one module's key/value settings, loaded from and saved to its ".conf" file.

#include <deque>
#include <map>
#include <string>

#include "core/abstract_base.h"
#include "sync/mutex.h"

namespace zp {

class Abstract_Config : public Abstract_Base {
  public:
    using Abstract_Base::Abstract_Base;
    ~Abstract_Config() override = default;

    virtual bool load() = 0;
    // Writes the file only when something changed since the last save.
    virtual bool save() = 0;
    // False for a key of 512 bytes or more.
    virtual bool set(const char* key, const char* value) = 0;
    virtual bool get(const char* key, std::string* value, bool* found) = 0;
    // The value, kept alive in a cache of recent texts; null when the key is missing.
    virtual const char* get_text(const char* key) = 0;
    // The value, or `def` after storing it so that the next save writes it.
    virtual const char* get(const char* key, const char* def) = 0;
    virtual bool exists(const char* key) = 0;

    // Values under "Software\<organisation>\<application>" in the registry.
    virtual bool reg_read(const char* name, std::string* value) = 0;
    virtual bool reg_write(const char* name, const char* value) = 0;
    virtual bool reg_delete(const char* name) = 0;
    virtual void set_reg_names(const char* organisation, const char* application) = 0;
};

class Config : public Abstract_Config {
  public:
    static constexpr int kKeyLimit = 511;
    static constexpr int kLineBuffer = 102400;
    static constexpr size_t kCacheMax = 100;
    static constexpr size_t kCacheKeep = 70;

    // Loads `path` at once; a missing file gives an empty store.
    Config(const char* path, Admin* owner);
    ~Config() override;

    bool load() override;
    bool save() override;
    bool set(const char* key, const char* value) override;
    bool get(const char* key, std::string* value, bool* found) override;
    const char* get_text(const char* key) override;
    const char* get(const char* key, const char* def) override;
    bool exists(const char* key) override;
    bool reg_read(const char* name, std::string* value) override;
    bool reg_write(const char* name, const char* value) override;
    bool reg_delete(const char* name) override;
    void set_reg_names(const char* organisation, const char* application) override;

    size_t cache_size();
    bool dirty();

  private:
    bool key_ok(const char* key);
    const char* cache_locked(const std::string& text);
    std::string reg_path();

    std::string path_;
    std::map<std::string, std::string> entries_;
    bool dirty_ = false;
    std::deque<std::string> cache_;
    Mutex lock_;
    std::string organisation_ = "Tavrik";
    std::string application_;
};

}  // namespace zp
