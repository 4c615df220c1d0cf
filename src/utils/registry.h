#pragma once
// Per-user registry values: the Windows registry under the current user, files elsewhere.

#include <string>

namespace zp {

// Key paths use '\\' between levels ("Software\\Org\\App"); texts are UTF-8.
// All three return 0 on success and -1 on failure, after a message on standard error.

// Copies the value into buf, cut to capacity - 1 bytes at a character boundary.
int reg_get(const char* path, const char* name, char* buf, int capacity);
// Creates the key when missing.
int reg_set(const char* path, const char* name, const char* value);
int reg_delete(const char* path, const char* name);

namespace reg_detail {

// The failure lines, shared by every platform. KEPT: they name the narrow calls on purpose.
void report_open(const char* path);
void report_query(const char* name);
void report_create(const char* path);
void report_set(const char* name, const char* value);
void report_open_for_delete(const char* path, const char* name);
void report_delete(const char* name);

// NUL-terminated copy of at most capacity - 1 bytes that does not end inside a character.
void copy_value(const std::string& value, char* buf, int capacity);

}  // namespace reg_detail

}  // namespace zp
