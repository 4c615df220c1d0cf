// zp::Value: storage, copying and the text form (writing and the lenient reader).

#include "value/value.h"

#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <type_traits>
#include <utility>

#include "core/testing_hooks.h"

namespace zp {

namespace {

testing_hooks::AllocFn g_alloc = &std::malloc;

std::string format(const char* fmt, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 1, 2)))
#endif
    ;

std::string format(const char* fmt, ...) {
    char small[64];
    va_list ap;
    va_start(ap, fmt);
    int n = std::vsnprintf(small, sizeof small, fmt, ap);
    va_end(ap);
    if (n < 0) return std::string();
    if (static_cast<size_t>(n) < sizeof small) return std::string(small, static_cast<size_t>(n));
    std::string out(static_cast<size_t>(n) + 1, '\0');
    va_start(ap, fmt);
    std::vsnprintf(&out[0], out.size(), fmt, ap);
    va_end(ap);
    out.resize(static_cast<size_t>(n));
    return out;
}

// Numeric conversion that saturates instead of overflowing when a floating value does not
// fit an integer type (NaN gives 0).
template <class T, class S>
T num_cast(S v) {
    if constexpr (std::is_floating_point_v<S> && std::is_integral_v<T> &&
                  !std::is_same_v<T, bool>) {
        if (std::isnan(v)) return 0;
        if (v <= static_cast<S>(std::numeric_limits<T>::min()))
            return std::numeric_limits<T>::min();
        if (v >= static_cast<S>(std::numeric_limits<T>::max()))
            return std::numeric_limits<T>::max();
        return static_cast<T>(v);
    } else {
        return static_cast<T>(v);
    }
}

// Scans the length after the tag's colon (at `colon`); -1 when the tag has no colon there,
// and -1 with the missing-length message when nothing numeric follows it.
int framed_length(const std::string& tag, size_t colon) {
    if (tag.size() <= colon || tag[colon] != ':') return -1;
    int length = -1;
    if (std::sscanf(tag.c_str() + colon + 1, "%d", &length) != 1) {
        std::fprintf(stderr, "> zp::Value:read() err: type='%s', missing 'len'.\n", tag.c_str());
        length = -1;
    }
    return length;
}

}  // namespace

namespace testing_hooks {

void set_value_allocator(AllocFn fn) {
    g_alloc = fn ? fn : &std::malloc;
}

}  // namespace testing_hooks

Value::Value() {
    clear_scalar();
}

Value::Value(const Value& other) {
    clear_scalar();
    copy_from(other);
}

Value::Value(Value&& other) noexcept {
    std::memcpy(&scalar_, &other.scalar_, sizeof scalar_);
    kind_ = other.kind_;
    payload_ = other.payload_;
    length_ = other.length_;
    std::memcpy(flags_, other.flags_, sizeof flags_);
    other.payload_ = nullptr;
    other.length_ = 0;
    other.kind_ = kValueNull;
}

Value& Value::operator=(const Value& other) {
    if (this == &other) return *this;
    free_payload();
    copy_from(other);
    return *this;
}

Value& Value::operator=(Value&& other) noexcept {
    if (this == &other) return *this;
    free_payload();
    std::memcpy(&scalar_, &other.scalar_, sizeof scalar_);
    kind_ = other.kind_;
    payload_ = other.payload_;
    length_ = other.length_;
    std::memcpy(flags_, other.flags_, sizeof flags_);
    other.payload_ = nullptr;
    other.length_ = 0;
    other.kind_ = kValueNull;
    return *this;
}

Value::~Value() {
    free_payload();
}

void Value::clear_scalar() {
    std::memset(&scalar_, 0, sizeof scalar_);
}

void Value::free_payload() {
    // The pointer-with-size block is borrowed: only let go of it.
    if (payload_ && kind_ != kValuePtrSize) std::free(payload_);
    payload_ = nullptr;
    length_ = 0;
}

bool Value::own_payload(const char* bytes, size_t length) {
    char* copy = static_cast<char*>(g_alloc(length + 1));
    if (!copy) return false;
    if (length) std::memcpy(copy, bytes, length);
    copy[length] = '\0';
    payload_ = copy;
    length_ = static_cast<int32_t>(length);
    return true;
}

// Expects this value to hold no payload.
void Value::copy_from(const Value& other) {
    std::memcpy(&scalar_, &other.scalar_, sizeof scalar_);
    kind_ = other.kind_;
    std::memcpy(flags_, other.flags_, sizeof flags_);
    if (other.kind_ == kValuePtrSize) {
        payload_ = other.payload_;
        length_ = other.length_;
    } else if (other.payload_ && other.length_ > 0) {
        if (!own_payload(other.payload_, static_cast<size_t>(other.length_))) reset();
    }
}

void Value::reset() {
    free_payload();
    clear_scalar();
    kind_ = kValueNull;
    std::memset(flags_, 0, sizeof flags_);
}

void Value::set_kind(int16_t kind) {
    ValueKind next = static_cast<ValueKind>(kind);
    // Keep ownership consistent with the tag: a borrowed block is never freed, an owned
    // payload never becomes "borrowed".
    if (kind_ == kValuePtrSize && next != kValuePtrSize) {
        payload_ = nullptr;
        length_ = 0;
    } else if (kind_ != kValuePtrSize && next == kValuePtrSize) {
        free_payload();
    }
    kind_ = next;
}

void Value::set_int(int32_t v) {
    set_scalar(&Scalar::i, v, kValueInt);
}

void Value::set_uint(uint32_t v) {
    set_scalar(&Scalar::u, v, kValueUint);
}

void Value::set_float(float v) {
    set_scalar(&Scalar::f, v, kValueFloat);
}

void Value::set_double(double v) {
    set_scalar(&Scalar::d, v, kValueDouble);
}

void Value::set_pointer(const void* v) {
    set_scalar(&Scalar::p, v, kValuePointer);
}

void Value::set_int64(int64_t v) {
    set_scalar(&Scalar::ll, v, kValueInt64);
}

void Value::set_uint64(uint64_t v) {
    set_scalar(&Scalar::ull, v, kValueUint64);
}

void Value::set_bool(bool v) {
    set_scalar(&Scalar::b, v, kValueBool);
}

void Value::set_string(const char* text) {
    set_string(text, text ? static_cast<int>(std::strlen(text)) : 0);
}

void Value::set_string(const char* bytes, int length) {
    free_payload();
    clear_scalar();
    kind_ = kValueString;
    if (bytes && length > 0) own_payload(bytes, static_cast<size_t>(length));
}

void Value::set_map(const char* text) {
    set_string(text);
    kind_ = kValueMap;
}

void Value::set_list(const char* text) {
    set_string(text);
    kind_ = kValueList;
}

void Value::set_error(int32_t code, const char* text) {
    set_string(text);
    scalar_.i = code;
    kind_ = kValueError;
}

void Value::set_ptr_size(void* block, int32_t length) {
    free_payload();
    clear_scalar();
    kind_ = kValuePtrSize;
    payload_ = static_cast<char*>(block);
    length_ = length;
}

void Value::set_payload(const char* bytes, int length) {
    if (kind_ == kValuePtrSize) kind_ = kValueNull;
    free_payload();
    if (bytes && length > 0) own_payload(bytes, static_cast<size_t>(length));
}

namespace {

template <class T>
T numeric(ValueKind kind, int32_t i, uint32_t u, float f, double d, int64_t ll, uint64_t ull,
          bool b) {
    switch (kind) {
        case kValueInt:
            return num_cast<T>(i);
        case kValueUint:
            return num_cast<T>(u);
        case kValueFloat:
            return num_cast<T>(f);
        case kValueDouble:
            return num_cast<T>(d);
        case kValueInt64:
            return num_cast<T>(ll);
        case kValueUint64:
            return num_cast<T>(ull);
        case kValueBool:
            return static_cast<T>(b ? 1 : 0);
        default:
            return T();
    }
}

}  // namespace

// The bool is passed as its byte: loading scalar_.b while another kind is stored would read a
// byte that is not a valid bool.
#define ZP_VALUE_NUMERIC(T)                                                                \
    numeric<T>(kind_, scalar_.i, scalar_.u, scalar_.f, scalar_.d, scalar_.ll, scalar_.ull, \
               scalar_.raw[0] != 0)

int32_t Value::as_int() const {
    return ZP_VALUE_NUMERIC(int32_t);
}
uint32_t Value::as_uint() const {
    return ZP_VALUE_NUMERIC(uint32_t);
}
float Value::as_float() const {
    return ZP_VALUE_NUMERIC(float);
}
double Value::as_double() const {
    return ZP_VALUE_NUMERIC(double);
}
int64_t Value::as_int64() const {
    return ZP_VALUE_NUMERIC(int64_t);
}
uint64_t Value::as_uint64() const {
    return ZP_VALUE_NUMERIC(uint64_t);
}

#undef ZP_VALUE_NUMERIC

bool Value::as_bool() const {
    switch (kind_) {
        case kValueBool:
            return scalar_.b;
        case kValueInt:
            return scalar_.i != 0;
        case kValueUint:
            return scalar_.u != 0;
        case kValueFloat:
            return scalar_.f != 0.0f;
        case kValueDouble:
            return scalar_.d != 0.0;
        case kValueInt64:
            return scalar_.ll != 0;
        case kValueUint64:
            return scalar_.ull != 0;
        default:
            return false;
    }
}

void* Value::as_pointer() const {
    if (kind_ == kValuePointer) return const_cast<void*>(scalar_.p);
    if (kind_ == kValuePtrSize) return payload_;
    return nullptr;
}

int32_t Value::error_code() const {
    return kind_ == kValueError ? scalar_.i : 0;
}

std::string Value::as_string() const {
    if (!payload_ || length_ <= 0) return std::string();
    return std::string(payload_, static_cast<size_t>(length_));
}

uint8_t Value::flag(int index) const {
    return (index >= 0 && index < 3) ? flags_[index] : 0;
}

void Value::set_flag(int index, uint8_t v) {
    if (index >= 0 && index < 3) flags_[index] = v;
}

std::string Value::write() const {
    std::string out;
    const char* bytes = payload_ ? payload_ : "";
    size_t count = (payload_ && length_ > 0) ? static_cast<size_t>(length_) : 0;
    switch (kind_) {
        case kValueNull:
            return "<null>";
        case kValueMap:
            out = format("[map:%d]", length_);
            break;
        case kValueInt:
            return format("[i]%d", scalar_.i);
        case kValueUint:
            return format("[u]%u", scalar_.u);
        case kValueFloat:
            return format("[f]%f", static_cast<double>(scalar_.f));
        case kValueDouble:
            return format("[d]%lf", scalar_.d);
        case kValuePointer:
            // The same 16 upper-case digits on every platform.
            return format("[v]%016" PRIXPTR, reinterpret_cast<uintptr_t>(scalar_.p));
        case kValueInt64:
            return format("[lld]%lld", static_cast<long long>(scalar_.ll));
        case kValueUint64:
            return format("[llu]%llu", static_cast<unsigned long long>(scalar_.ull));
        case kValueString:
            out = format("[str:%d]", length_);
            break;
        case kValueBool:
            return scalar_.b ? "[b]true" : "[b]false";
        case kValueList:
            out = format("[list:%d]", length_);
            break;
        case kValuePtrSize:
            return format("[ptr]%llu,%d",
                          static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(payload_)),
                          length_);
        case kValueError:
            out = format("[err:%d]%d,", length_, scalar_.i);
            break;
        default:
            out = "<variant>";
            break;
    }
    out.append(bytes, count);
    return out;
}

// Payload kinds: the length after the colon limits how much of `rest` is taken.
void Value::read_framed(const std::string& tag, const char* rest, ValueKind kind, size_t colon) {
    kind_ = kind;
    int length = framed_length(tag, colon);
    size_t available = std::strlen(rest);
    size_t count = length < 0 ? available : std::min(static_cast<size_t>(length), available);
    if (count > 0) own_payload(rest, count);
}

// KEPT: the length counts from the code on while the writer counts only the text, so a written
// error loses as many trailing bytes as its code and comma take. Readers rely on that.
void Value::read_error(const std::string& tag, const char* rest) {
    kind_ = kValueError;
    int length = framed_length(tag, 3);
    int code = 0;
    if (std::sscanf(rest, "%d", &code) == 1) scalar_.i = code;
    const char* comma = std::strchr(rest, ',');
    if (!comma) return;
    const char* text = comma + 1;
    long long available = static_cast<long long>(std::strlen(text));
    if (length < 0) {
        if (available > 0) own_payload(rest, std::strlen(rest));
        return;
    }
    long long count = static_cast<long long>(length) - static_cast<long long>(text - rest);
    if (count > available) count = available;
    if (count >= 1) own_payload(text, static_cast<size_t>(count));
}

void Value::read(const char* text) {
    reset();
    if (!text || !text[0] || !text[1] || !text[2] || !text[3]) return;
    if (std::strncmp(text, "<variant>", 9) == 0) {
        set_payload(text + 9, static_cast<int>(std::strlen(text + 9)));
        return;
    }
    const char* close = std::strchr(text, ']');
    if (!close) return;
    if (std::strncmp(text, "<null>", 6) == 0) return;

    // The opening byte is skipped untested; the tag runs to the next ']'.
    const char* tag_end = std::strchr(text + 1, ']');
    std::string tag(text + 1,
                    tag_end ? static_cast<size_t>(tag_end - (text + 1)) : std::strlen(text + 1));
    const char* rest = close + 1;

    if (tag == "lld") {
        long long v = 0;
        if (std::sscanf(rest, "%lld", &v) == 1) set_int64(static_cast<int64_t>(v));
    } else if (tag == "llu") {
        unsigned long long v = 0;
        if (std::sscanf(rest, "%llu", &v) == 1) set_uint64(static_cast<uint64_t>(v));
    } else if (tag.compare(0, 4, "list") == 0) {
        read_framed(tag, rest, kValueList, 4);
    } else if (tag.compare(0, 3, "str") == 0) {
        read_framed(tag, rest, kValueString, 3);
    } else if (tag.compare(0, 3, "map") == 0) {
        read_framed(tag, rest, kValueMap, 3);
    } else if (tag.compare(0, 3, "err") == 0) {
        read_error(tag, rest);
    } else if (tag == "ptr") {
        unsigned long long address = 0;
        int length = 0;
        if (std::sscanf(rest, "%llu,%d", &address, &length) == 2)
            set_ptr_size(reinterpret_cast<void*>(static_cast<uintptr_t>(address)), length);
    } else if (tag == "b") {
        set_bool(std::strncmp(rest, "true", 4) == 0);
    } else if (tag == "d") {
        double v = 0;
        if (std::sscanf(rest, "%lf", &v) == 1) set_double(v);
    } else if (tag == "f") {
        float v = 0;
        if (std::sscanf(rest, "%f", &v) == 1) set_float(v);
    } else if (tag == "i") {
        int v = 0;
        if (std::sscanf(rest, "%d", &v) == 1) set_int(v);
    } else if (tag == "u") {
        unsigned v = 0;
        if (std::sscanf(rest, "%u", &v) == 1) set_uint(v);
    } else if (tag == "v") {
        // Accepts the 16-digit form written above as well as "0x...".
        unsigned long long v = 0;
        if (std::sscanf(rest, "%llx", &v) == 1)
            set_pointer(reinterpret_cast<const void*>(static_cast<uintptr_t>(v)));
    }
}

}  // namespace zp
