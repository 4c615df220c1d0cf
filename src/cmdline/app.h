#pragma once
// zp::App: the running application's identity, its private data store and its printed record.

#include <cstdio>
#include <string>

#include "core/abstract_base.h"
#include "value/value.h"

namespace zp {

class Data;

class App : public Abstract_Base {
  public:
    explicit App(Admin* owner = nullptr);
    // Destroys the data store first.
    ~App() override;
    App(const App&) = delete;
    App& operator=(const App&) = delete;

    // Getters return the field's text, valid until the field is next set. Setters copy the
    // text (null counts as empty) and log it at level 5.
    virtual const char* name() const;
    virtual void set_name(const char* v);
    virtual const char* display() const;
    virtual void set_display(const char* v);
    virtual const char* version() const;
    virtual void set_version(const char* v);
    virtual const char* release() const;
    virtual void set_release(const char* v);
    virtual void set_organization(const char* v);
    virtual const char* organization() const;
    virtual const char* describe() const;
    virtual void set_describe(const char* v);

    // The process's directory, full path and name as start-up computed them.
    virtual const char* app_dir() const;
    virtual const char* app_filepath() const;
    virtual const char* app_name() const;

    // Forwards to the owned store.
    virtual bool set_data(const char* key, const Value& value, const char* who = nullptr);
    // A copy of `def` when the key is absent; otherwise the stored value, passed through the
    // store's conversion when `convert` is set.
    virtual Value get_data(const char* key, const Value& def, bool convert);
    virtual bool exist_data(const char* key);
    virtual bool remove_data(const char* key, const char* who = nullptr);

    // The framed record (name and display are not part of it), then a flush.
    virtual void print(FILE* stream);
    virtual const char* default_organization() const;

    Data* data() const { return data_; }

  private:
    void set_field(std::string* field, const char* format, const char* v);

    std::string name_;
    std::string display_;
    std::string version_;
    std::string release_;
    std::string organization_;
    std::string describe_;
    Data* data_;
};

}  // namespace zp
