// Registry helpers shared by every platform: the failure lines and the value copy-out.
#include "utils/registry.h"

#include <cstdio>
#include <cstring>

#include "utils/utf.h"

namespace zp {
namespace reg_detail {

namespace {
const char* text(const char* s) {
    return s != nullptr ? s : "";
}
}  // namespace

void report_open(const char* path) {
    fprintf(stderr, "[zp] Error: RegOpenKeyExA() can't open path='%s'\n", text(path));
    fflush(stderr);
}

void report_query(const char* name) {
    fprintf(stderr, "[zp] Error: RegQueryValueExA() can't read key='%s'\n", text(name));
    fflush(stderr);
}

void report_create(const char* path) {
    // No line break here; the line has always ended like this.
    fprintf(stderr, "[zp] Error: RegCreateKeyExA() can't create path='%s'", text(path));
    fflush(stderr);
}

void report_set(const char* name, const char* value) {
    fprintf(stderr, "[zp] Error: RegSetValueExA() can't write '%s'--->'%s'\n", text(name),
            text(value));
    fflush(stderr);
}

void report_open_for_delete(const char* path, const char* name) {
    fprintf(stderr, "[zp] Error: RegOpenKeyExA() can't open path='%s'  for delete key='%s'\n",
            text(path), text(name));
    fflush(stderr);
}

void report_delete(const char* name) {
    fprintf(stderr, "[zp] Error: RegDeleteValueA() can't delete key='%s'\n", text(name));
    fflush(stderr);
}

void copy_value(const std::string& value, char* buf, int capacity) {
    if (buf == nullptr || capacity <= 0) return;
    const size_t n = utf8_prefix_length(value, static_cast<size_t>(capacity) - 1);
    memcpy(buf, value.data(), n);
    buf[n] = '\0';
}

}  // namespace reg_detail
}  // namespace zp
