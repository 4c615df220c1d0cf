// zp::Utils: the process-wide instance and the portable string, path and environment helpers.
#include "utils/utils.h"

#include <atomic>
#include <cctype>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "sync/thread_id.h"
#include "utils/utils_sys.h"

namespace zp {

namespace {

Utils* g_instance = nullptr;
std::atomic<uint32_t> g_random_calls{0};

const char kRandomAlphabet[] = "1234567890abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";

bool is_space(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}
bool is_sep(char c) {
    return c == '/' || c == '\\';
}
bool is_empty(const char* s) {
    return s == nullptr || *s == '\0';
}

int hex_value(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

}  // namespace

Utils* Utils::instance() {
    if (g_instance == nullptr) g_instance = new Utils();
    return g_instance;
}

Utils::Utils(Admin* owner) : Abstract_Utils(owner) {}

Utils::~Utils() {
    if (g_instance == this) g_instance = nullptr;
}

// ---- strings

const char* Utils::skip_space(const char* s) {
    if (s == nullptr) return s;
    while (is_space(*s)) ++s;
    return s;
}

char* Utils::skip_space(char* s) {
    if (s == nullptr) return s;
    while (is_space(*s)) ++s;
    return s;
}

char* Utils::trim_right_space(char* s) {
    if (is_empty(s)) return s;
    char* p = s + strlen(s) - 1;
    while (p > s && is_space(*p)) --p;
    p[1] = '\0';
    return s;
}

char* Utils::trim_space(char* s) {
    return skip_space(trim_right_space(s));
}

std::string Utils::trimmed(const char* s) {
    if (s == nullptr) return std::string();
    std::string copy(s);
    return std::string(trim_space(&copy[0]));
}

char* Utils::skip_chars(char* s, const char* set) {
    if (is_empty(s) || is_empty(set)) return s;
    while (*s != '\0' && strchr(set, *s) != nullptr) ++s;
    return s;
}

char* Utils::trim_right_chars(char* s, const char* set) {
    if (is_empty(s) || is_empty(set)) return s;
    char* p = s + strlen(s) - 1;
    while (p > s && strchr(set, *p) != nullptr) *p-- = '\0';
    return s;
}

char* Utils::trim_chars(char* s, const char* set) {
    return skip_chars(trim_right_chars(s, set), set);
}

std::string Utils::trimmed_chars(const char* s, const char* set) {
    if (s == nullptr) return std::string();
    std::string copy(s);
    return std::string(trim_chars(&copy[0], set));
}

std::string Utils::replace_all(const std::string& s, const std::string& from,
                               const std::string& to) {
    std::string out(s);
    if (from.empty()) return out;
    for (size_t pos = out.find(from); pos != std::string::npos; pos = out.find(from))
        out.replace(pos, from.size(), to);
    return out;
}

std::string Utils::replace_all_forward(const std::string& s, const std::string& from,
                                       const std::string& to) {
    std::string out(s);
    if (from.empty()) return out;
    for (size_t pos = out.find(from); pos != std::string::npos;
         pos = out.find(from, pos + to.size()))
        out.replace(pos, from.size(), to);
    return out;
}

bool Utils::starts_with(const char* s, const char* prefix, bool case_sensitive) {
    if (s == nullptr || prefix == nullptr) return false;
    const size_t n = strlen(prefix);
    if (strlen(s) < n) return false;
    return (case_sensitive ? strncmp(s, prefix, n) : sys::compare_nocase(s, prefix, n)) == 0;
}

bool Utils::ends_with(const char* s, const char* suffix, bool case_sensitive) {
    if (s == nullptr || suffix == nullptr) return false;
    const size_t n = strlen(suffix);
    const size_t len = strlen(s);
    if (len < n) return false;
    const char* end = s + len - n;
    return (case_sensitive ? strncmp(end, suffix, n) : sys::compare_nocase(end, suffix, n)) == 0;
}

std::string Utils::format(const char* pattern, ...) {
    if (pattern == nullptr) return std::string();
    va_list args;
    va_start(args, pattern);
    va_list again;
    va_copy(again, args);
    const int len = vsnprintf(nullptr, 0, pattern, args);
    va_end(args);
    std::string out;
    if (len >= 0) {
        out.resize(static_cast<size_t>(len) + 1);
        if (vsnprintf(&out[0], out.size(), pattern, again) < 0) {
            out.clear();
        } else {
            out.resize(static_cast<size_t>(len));
        }
    }
    va_end(again);
    return out;
}

std::vector<std::string> Utils::split(const char* text, const char* delims, bool keep_empty) {
    std::vector<std::string> out;
    if (text == nullptr || is_empty(delims)) return out;
    std::string copy(text);
    char* base = &copy[0];
    char* context = nullptr;
    char* token = sys::tokenize(base, delims, &context);
    while (token != nullptr) {
        out.emplace_back(token);
        const size_t end = static_cast<size_t>(token - base) + strlen(token);
        char* next = sys::tokenize(nullptr, delims, &context);
        if (keep_empty && next != nullptr) {
            // Only delimiters lie between two tokens; every one past the first marks an empty
            // field.
            const size_t run = static_cast<size_t>(next - base) - end;
            for (size_t k = 1; k < run; ++k) out.emplace_back();
        }
        token = next;
    }
    return out;
}

char* Utils::to_lower_inplace(char* s) {
    if (s == nullptr) return s;
    for (char* p = s; *p != '\0'; ++p)
        *p = static_cast<char>(tolower(static_cast<unsigned char>(*p)));
    return s;
}

char* Utils::to_upper_inplace(char* s) {
    if (s == nullptr) return s;
    for (char* p = s; *p != '\0'; ++p)
        *p = static_cast<char>(toupper(static_cast<unsigned char>(*p)));
    return s;
}

std::string Utils::to_lower(const std::string& s) {
    std::string out(s);
    for (char& c : out) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return out;
}

std::string Utils::to_upper(const std::string& s) {
    std::string out(s);
    for (char& c : out) c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
    return out;
}

std::string Utils::random_string(int n) {
    // The counter keeps two calls within one microsecond from drawing the same text.
    const uint32_t calls = g_random_calls.fetch_add(1, std::memory_order_relaxed);
    srand(static_cast<unsigned>(now_us(0) + calls));
    std::string out;
    if (n <= 0) return out;
    out.reserve(static_cast<size_t>(n));
    for (int i = 0; i < n; ++i) out.push_back(kRandomAlphabet[rand() % 62]);
    return out;
}

const char* Utils::tail(const char* s, size_t n) {
    if (s == nullptr) return s;
    const size_t len = strlen(s);
    return len <= n ? s : s + (len - n);
}

// ---- paths

std::string Utils::normalize_path(const std::string& path) {
    return normalized_path(path);
}

std::string normalized_path(const std::string& path) {
    std::string out;
    out.reserve(path.size());
    const char sep = sys::native_separator();
    for (size_t i = 0; i < path.size(); ++i) {
        if (!is_sep(path[i])) {
            out.push_back(path[i]);
        } else if (i == 0 || !is_sep(path[i - 1])) {
            out.push_back(sep);
        }
    }
    return out;
}

std::string Utils::file_name(const std::string& path) {
    const size_t pos = path.find_last_of("/\\");
    return pos == std::string::npos ? path : path.substr(pos + 1);
}

std::string Utils::dir_name(const std::string& path) {
    const size_t pos = path.find_last_of("/\\");
    return pos == std::string::npos ? std::string() : path.substr(0, pos + 1);
}

std::string Utils::file_stem(const std::string& path) {
    const std::string name = file_name(path);
    return name.substr(0, name.find('.'));
}

// ---- environment and process

int Utils::set_env_ptr(const char* name, const void* p) {
    // Windows' "%p" text on every platform: 16 upper-case hex digits, no prefix.
    char text[32];
    snprintf(text, sizeof text, "%016llX",
             static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(p)));
    return set_env(name, text, 1);
}

void Utils::get_env_ptr(const char* name, void** out) {
    if (out == nullptr) return;
    *out = nullptr;
    const char* text = get_env(name);
    if (text == nullptr) return;
    if (text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) text += 2;
    uint64_t value = 0;
    int digits = 0;
    for (; *text != '\0'; ++text, ++digits) {
        const int v = hex_value(*text);
        if (v < 0 || digits == 16) return;
        value = (value << 4) | static_cast<uint64_t>(v);
    }
    if (digits == 0 || static_cast<uint64_t>(static_cast<uintptr_t>(value)) != value) return;
    *out = reinterpret_cast<void*>(static_cast<uintptr_t>(value));
}

uint32_t Utils::thread_id() {
    return current_thread_id();
}

int Utils::reserved() {
    return static_cast<int>(reserved_word_);
}

}  // namespace zp
