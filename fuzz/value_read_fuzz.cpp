// Fuzz target: zp::Value::read on arbitrary text, then write and read back.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "value/value.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);  // read stops at a NUL
    zp::Value value;
    value.read(text.c_str());

    const std::string written = value.write();
    zp::Value again;
    again.read(written.c_str());

    // What the writer produces reads back as the same thing; the error kind loses bytes by
    // design and the float kinds lose digits, so those keep only their kind.
    switch (value.kind()) {
        case zp::kValueString:
        case zp::kValueMap:
        case zp::kValueList:
            if (again.kind() != value.kind() || again.as_string() != value.as_string()) abort();
            break;
        case zp::kValueInt:
        case zp::kValueUint:
        case zp::kValueInt64:
        case zp::kValueUint64:
        case zp::kValueBool:
            if (again.kind() != value.kind() || again.as_int64() != value.as_int64() ||
                again.as_uint64() != value.as_uint64())
                abort();
            break;
        case zp::kValuePointer:
        case zp::kValuePtrSize:
            if (again.kind() != value.kind() || again.as_pointer() != value.as_pointer()) abort();
            break;
        case zp::kValueFloat:
        case zp::kValueDouble:
        case zp::kValueError:
            if (again.kind() != value.kind()) abort();
            break;
        default:
            break;
    }

    // Copies own their payloads: destroying the original must leave the copy intact.
    {
        auto* original = new zp::Value(value);
        zp::Value copy(*original);
        delete original;
        if (copy.kind() != value.kind() || copy.write() != written) abort();
    }
    return 0;
}
