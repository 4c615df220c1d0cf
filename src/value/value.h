#pragma once
// zp::Value: the framework's tagged variant and its self-delimiting text form.

#include <cstddef>
#include <cstdint>
#include <string>

namespace zp {

// Kind tags; the numbers appear in stored texts and messages, so they never change.
enum ValueKind : int16_t {
    kValueNull = 0,
    kValueMap = 1,
    kValueInt = 2,
    kValueUint = 3,
    kValueFloat = 4,
    kValueDouble = 5,
    kValuePointer = 6,
    kValueInt64 = 7,
    kValueUint64 = 8,
    kValueString = 9,
    kValueBool = 10,
    kValueList = 11,
    kValuePtrSize = 12,  // a borrowed block and its length; never freed, shared by copies
    kValueError = 99,
};

class Value {
  public:
    Value();
    Value(const Value& other);
    Value(Value&& other) noexcept;
    Value& operator=(const Value& other);
    Value& operator=(Value&& other) noexcept;
    virtual ~Value();

    // The text form: "[i]42", "[str:5]hello", "[err:7]-3,no file", "<null>" ...
    virtual std::string write() const;
    // Replaces the content with the value described by `text`; malformed text leaves null.
    virtual void read(const char* text);

    // Back to null: frees an owned payload, clears the scalar area and the flags.
    void reset();

    ValueKind kind() const { return kind_; }
    bool is_null() const { return kind_ == kValueNull; }
    // Changes only the tag (payload and scalar area stay), e.g. for kinds this build
    // does not know, which write as "<variant>" and their payload. Moving to or from the
    // pointer-with-size kind drops the payload.
    void set_kind(int16_t kind);

    // Scalars. Each drops the old payload and keeps the flags.
    void set_int(int32_t v);
    void set_uint(uint32_t v);
    void set_float(float v);
    void set_double(double v);
    void set_pointer(const void* v);
    void set_int64(int64_t v);
    void set_uint64(uint64_t v);
    void set_bool(bool v);

    // Payload kinds own a NUL-terminated copy; a null text leaves an empty payload.
    void set_string(const char* text);
    void set_string(const char* bytes, int length);
    void set_map(const char* text);
    void set_list(const char* text);
    void set_error(int32_t code, const char* text);
    // Borrows `block`; the caller keeps it alive while any copy of this value exists.
    void set_ptr_size(void* block, int32_t length);
    // Replaces only the payload (the kind stays), copying `length` bytes.
    void set_payload(const char* bytes, int length);

    // Readers. Numeric readers convert between the numeric kinds (bool counts as 0/1) and
    // give 0 for any other kind.
    int32_t as_int() const;
    uint32_t as_uint() const;
    float as_float() const;
    double as_double() const;
    int64_t as_int64() const;
    uint64_t as_uint64() const;
    bool as_bool() const;
    // The pointer kind's address, or the borrowed block of the pointer-with-size kind.
    void* as_pointer() const;
    // The error kind's code (the first 32 bits of the scalar area).
    int32_t error_code() const;

    // Payload bytes (NUL-terminated unless borrowed) and length; null and 0 when absent.
    const char* payload() const { return payload_; }
    int32_t payload_length() const { return length_; }
    // The payload as a string ("" when absent).
    std::string as_string() const;

    // Three spare one-byte flags that travel with the value.
    uint8_t flag(int index) const;
    void set_flag(int index, uint8_t v);

  private:
    void free_payload();
    void clear_scalar();
    bool own_payload(const char* bytes, size_t length);
    void copy_from(const Value& other);
    void read_framed(const std::string& tag, const char* rest, ValueKind kind, size_t len_pos);
    void read_error(const std::string& tag, const char* rest);

    union Scalar {
        int32_t i;
        uint32_t u;
        float f;
        double d;
        const void* p;
        int64_t ll;
        uint64_t ull;
        bool b;
        unsigned char raw[32];
    };

    // Drops the payload, clears the scalar area, stores one scalar and its kind.
    template <typename T>
    void set_scalar(T Scalar::*member, T v, ValueKind kind) {
        free_payload();
        clear_scalar();
        scalar_.*member = v;
        kind_ = kind;
    }

    Scalar scalar_;
    ValueKind kind_ = kValueNull;
    char* payload_ = nullptr;
    int32_t length_ = 0;
    uint8_t flags_[3] = {0, 0, 0};
};

}  // namespace zp
