#pragma once
// Rewrites a header's quoted #define texts into protected uint16_t arrays, in place.

#include <cstdint>
#include <string>
#include <vector>

namespace zp {

class Abstract_Crypt;

// One `#define NAME "text"  // note` line, cut into its parts.
struct DefineText {
    std::string head;  // up to and including the macro name
    std::string name;
    std::string literal;  // between the quotes, escapes as written
    std::string tail;     // after the closing quote, without the line end
};

// The header keeps "<path>.~bak"; the new text is written to "<path>.~tmp" first. Each array
// follows a comment `  // "<text as written>"`; arrays of an earlier run are made again from
// that comment, so a second run changes nothing and an edited comment changes its array. False,
// with nothing changed, when either file will not open.
bool rewrite_protected_header(const char* path, Abstract_Crypt* crypt);

// Helpers of the rewriting, public for the developer tool and the tests.
bool parse_define_text(const std::string& line, DefineText* out);
// C escapes (\n, \t, \", \\, octal, \x..) to bytes; false on an escape C does not know.
bool unescape_literal(const std::string& literal, std::string* out);
// "const static uint16_t <name>[] = {0x..,...};" with the units "0x%02x,", wrapped.
std::string format_units(const std::string& name, const std::vector<uint16_t>& units,
                         const std::string& eol);

}  // namespace zp
