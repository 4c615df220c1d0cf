// zp::DataAuth: forwards to the shared store under this view's owner identity.

#include "data/data_auth.h"

namespace zp {

DataAuth::DataAuth(Data* data, const char* who, Admin* owner)
    : Abstract_Base(owner), data_(data), who_(who ? who : "") {}

bool DataAuth::set(const char* key, const Value& value) {
    return data_ && data_->set(key, value, who_.c_str());
}

Value DataAuth::get(const char* key) const {
    return data_ ? data_->get(key) : Value();
}

bool DataAuth::exists(const char* key) const {
    return data_ && data_->exists(key);
}

bool DataAuth::remove(const char* key) {
    return data_ && data_->remove(key, who_.c_str());
}

Value DataAuth::convert(const Value& value) const {
    return data_ ? data_->convert(value) : value;
}

void DataAuth::dump(FILE* stream) const {
    if (data_) data_->dump(stream);
}

}  // namespace zp
