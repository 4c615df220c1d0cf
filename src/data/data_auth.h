#pragma once
// zp::DataAuth: a view over a shared zp::Data that acts under one owner identity.

#include <cstdio>
#include <string>

#include "data/data.h"

namespace zp {

class DataAuth : public Abstract_Base {
  public:
    // Borrows `data`; it must outlive this view.
    DataAuth(Data* data, const char* who, Admin* owner = nullptr);
    ~DataAuth() override = default;

    virtual bool set(const char* key, const Value& value);
    virtual Value get(const char* key) const;
    virtual bool exists(const char* key) const;
    virtual bool remove(const char* key);
    virtual Value convert(const Value& value) const;
    virtual void dump(FILE* stream) const;

    const char* who() const { return who_.c_str(); }
    Data* data() const { return data_; }

  private:
    Data* data_;
    std::string who_;
};

}  // namespace zp
