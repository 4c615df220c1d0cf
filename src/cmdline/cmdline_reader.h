#pragma once
// Option value types: their labels, how defaults are shown and how option texts are converted.

#include <cctype>
#include <cstdint>
#include <exception>
#include <sstream>
#include <string>
#include <type_traits>
#include <typeinfo>

namespace cmdline {

// Raised by declarations and look-ups that name a duplicate or unknown option.
class cmdline_error : public std::exception {
  public:
    explicit cmdline_error(const std::string& msg) : msg_(msg) {}
    ~cmdline_error() noexcept override = default;
    const char* what() const noexcept override { return msg_.c_str(); }

  private:
    std::string msg_;
};

// The label shown for a value type. Fixed texts rather than the compiler's type names, so
// that every platform prints what the reference platform prints.
template <class T>
std::string type_label() {
    if constexpr (std::is_same_v<T, std::string>) {
        return "string";
    } else if constexpr (std::is_same_v<T, bool>) {
        return "bool";
    } else if constexpr (std::is_same_v<T, float>) {
        return "float";
    } else if constexpr (std::is_same_v<T, double>) {
        return "double";
    } else {
        static_assert(std::is_integral_v<T> && (sizeof(T) == 4 || sizeof(T) == 8),
                      "options hold 32/64-bit integers, float, double, bool or string");
        if constexpr (sizeof(T) == 4)
            return std::is_signed_v<T> ? "int" : "unsigned int";
        else
            return std::is_signed_v<T> ? "__int64" : "unsigned __int64";
    }
}

// A default as the usage text shows it: strings as they are, the rest through a text stream
// in default formatting (bool as 1 or 0, floating point with six significant digits).
template <class T>
std::string default_text(const T& v) {
    if constexpr (std::is_same_v<T, std::string>) {
        return v;
    } else {
        std::ostringstream out;
        out << v;
        return out.str();
    }
}

// Converts an option's text; raises std::bad_cast when the text is not exactly one value of
// the type (trailing characters, out of range, a sign on an unsigned type).
template <class T>
struct default_reader {
    T operator()(const std::string& text) const {
        if constexpr (std::is_same_v<T, std::string>) {
            return text;
        } else {
            if constexpr (std::is_integral_v<T> && std::is_unsigned_v<T> &&
                          !std::is_same_v<T, bool>) {
                // The stream would wrap "-1" round to the maximum.
                size_t first = text.find_first_not_of(" \t\n\v\f\r");
                if (first != std::string::npos && text[first] == '-') throw std::bad_cast();
            }
            std::istringstream in(text);
            T value{};
            in >> value;
            if (in.fail() || in.bad() || !in.eof()) throw std::bad_cast();
            return value;
        }
    }
};

}  // namespace cmdline
