#pragma once
// Values for the tests, from their written text ("[i]3") or an int.

#include <string>

#include "value/value.h"

namespace kinefix_test {

inline zp::Value value_of(const char* text) {
    zp::Value v;
    v.read(text);
    return v;
}

inline zp::Value int_value(int i) {
    return value_of(("[i]" + std::to_string(i)).c_str());
}

}  // namespace kinefix_test
