// Header rewriting of the string protection: quoted macros become protected arrays.
#include "crypt/header_rewriter.h"

#include <cstdio>
#include <cstring>

#include "crypt/crypt.h"
#include "utils/utils.h"

namespace zp {

namespace {

constexpr int kLineMax = 2048;
const char kCommentLead[] = "  // ";
constexpr size_t kUnitsPerLine = 12;

bool is_blank(char c) {
    return c == ' ' || c == '\t';
}

bool is_ident(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
}

size_t skip_blanks(const std::string& s, size_t p) {
    while (p < s.size() && is_blank(s[p])) ++p;
    return p;
}

// Splits a line read with its end ("\n", "\r\n" or nothing at end of file).
std::string cut_eol(const std::string& line, std::string* eol) {
    size_t end = line.size();
    while (end > 0 && (line[end - 1] == '\n' || line[end - 1] == '\r')) --end;
    if (eol) *eol = line.substr(end);
    return line.substr(0, end);
}

// "#word" (blanks allowed after '#') as the line's first non-blank text.
bool is_directive(const std::string& line, const char* word) {
    size_t p = skip_blanks(line, 0);
    if (p >= line.size() || line[p] != '#') return false;
    p = skip_blanks(line, p + 1);
    return line.compare(p, strlen(word), word) == 0;
}

// A line that opens an array of an earlier run; `name` receives the array's name.
bool is_array_start(const std::string& line, std::string* name) {
    const char kType[] = "const static uint16_t";
    size_t p = line.find(kType);
    if (p == std::string::npos || line.find("[] = {") == std::string::npos) return false;
    p = skip_blanks(line, p + sizeof(kType) - 1);
    if (line.compare(p, 2, "s_") != 0) return false;
    size_t end = p;
    while (end < line.size() && is_ident(line[end])) ++end;
    *name = line.substr(p, end - p);
    return true;
}

bool closes_array(const std::string& line) {
    std::string body = cut_eol(line, nullptr);
    while (!body.empty() && is_blank(body.back())) body.pop_back();
    return body.size() >= 2 && body.compare(body.size() - 2, 2, "};") == 0;
}

int hex_digit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// The text of a generated comment line: quoted, so that a trailing backslash cannot splice
// the next line into the comment.
bool comment_text(const std::string& line, std::string* literal) {
    const size_t lead = sizeof(kCommentLead) - 1;
    if (line.compare(0, lead, kCommentLead) != 0) return false;
    const std::string body = cut_eol(line.substr(lead), nullptr);
    if (body.size() < 2 || body.front() != '"' || body.back() != '"') return false;
    *literal = body.substr(1, body.size() - 2);
    return true;
}

bool put(FILE* f, const std::string& s) {
    return fwrite(s.data(), 1, s.size(), f) == s.size();
}

}  // namespace

bool parse_define_text(const std::string& line, DefineText* out) {
    size_t p = skip_blanks(line, 0);
    if (p >= line.size() || line[p] != '#') return false;
    p = skip_blanks(line, p + 1);
    if (line.compare(p, 6, "define") != 0) return false;
    p += 6;
    if (p >= line.size() || !is_blank(line[p])) return false;
    p = skip_blanks(line, p);
    const size_t name_at = p;
    while (p < line.size() && is_ident(line[p])) ++p;
    if (p == name_at || (line[name_at] >= '0' && line[name_at] <= '9')) return false;
    const size_t name_end = p;
    if (p >= line.size() || !is_blank(line[p])) return false;
    p = skip_blanks(line, p);
    if (p >= line.size() || line[p] != '"') return false;
    const size_t text_at = ++p;
    // A "//" or an escaped quote inside the text does not end it.
    while (p < line.size() && line[p] != '"') {
        if (line[p] == '\\') ++p;
        if (p < line.size()) ++p;
    }
    if (p >= line.size()) return false;
    const size_t text_end = p;
    std::string tail = cut_eol(line.substr(p + 1), nullptr);
    size_t q = skip_blanks(tail, 0);
    if (q < tail.size() && tail.compare(q, 2, "//") != 0) return false;
    out->head = line.substr(0, name_end);
    out->name = line.substr(name_at, name_end - name_at);
    out->literal = line.substr(text_at, text_end - text_at);
    out->tail = tail;
    return true;
}

bool unescape_literal(const std::string& literal, std::string* out) {
    std::string s;
    for (size_t i = 0; i < literal.size(); ++i) {
        char c = literal[i];
        if (c != '\\') {
            s.push_back(c);
            continue;
        }
        if (++i >= literal.size()) return false;
        c = literal[i];
        switch (c) {
            case 'n':
                s.push_back('\n');
                break;
            case 't':
                s.push_back('\t');
                break;
            case 'r':
                s.push_back('\r');
                break;
            case 'a':
                s.push_back('\a');
                break;
            case 'b':
                s.push_back('\b');
                break;
            case 'f':
                s.push_back('\f');
                break;
            case 'v':
                s.push_back('\v');
                break;
            case '\\':
            case '"':
            case '\'':
            case '?':
                s.push_back(c);
                break;
            case 'x': {
                int value = 0, digits = 0;
                while (digits < 2 && i + 1 < literal.size() && hex_digit(literal[i + 1]) >= 0) {
                    value = value * 16 + hex_digit(literal[++i]);
                    ++digits;
                }
                if (digits == 0) return false;
                s.push_back(static_cast<char>(value));
                break;
            }
            default: {
                if (c < '0' || c > '7') return false;
                int value = c - '0', digits = 1;
                while (digits < 3 && i + 1 < literal.size() && literal[i + 1] >= '0' &&
                       literal[i + 1] <= '7') {
                    value = value * 8 + (literal[++i] - '0');
                    ++digits;
                }
                s.push_back(static_cast<char>(value & 0xff));
            }
        }
    }
    out->swap(s);
    return true;
}

std::string format_units(const std::string& name, const std::vector<uint16_t>& units,
                         const std::string& eol) {
    std::string text = "const static uint16_t " + name + "[] = {";
    char unit[16];
    for (size_t i = 0; i < units.size(); ++i) {
        if (i > 0 && i % kUnitsPerLine == 0) text += eol + "    ";
        snprintf(unit, sizeof(unit), "0x%02x,", units[i]);
        text += unit;
    }
    return text + "};" + eol;
}

bool rewrite_protected_header(const char* path, Abstract_Crypt* crypt) {
    if (!path || !*path || !crypt) return false;
    Utils* utils = Utils::instance();
    const std::string tmp_path = std::string(path) + ".~tmp";
    const std::string bak_path = std::string(path) + ".~bak";
    FILE* in = utils->open_file(path, "rb");
    if (!in) return false;
    FILE* out = utils->open_file(tmp_path.c_str(), "wb");
    if (!out) {
        fclose(in);
        return false;
    }

    char buffer[kLineMax];
    bool ok = true;
    bool in_array = false;     // inside an array of an earlier run
    bool keep_array = false;   // ... that could not be made again, so it is copied
    bool has_pending = false;  // the previous line was a generated comment
    std::string pending;       // its text: the macro's text as written
    int depth = 0, pending_depth = 0;
    while (ok && fgets(buffer, sizeof(buffer), in)) {
        const std::string line(buffer);
        if (in_array) {
            if (keep_array) ok = put(out, line);
            if (closes_array(line)) in_array = false;
            continue;
        }
        const size_t first = skip_blanks(line, 0);
        if (line.compare(first, 2, "//") == 0) {
            ok = put(out, line);
            has_pending = comment_text(line, &pending);
            pending_depth = depth;
            continue;
        }
        std::string name;
        if (is_array_start(line, &name)) {
            std::string clear, eol;
            cut_eol(line, &eol);
            keep_array =
                !(has_pending && pending_depth == depth && unescape_literal(pending, &clear));
            ok = put(out, keep_array ? line
                                     : format_units(name, crypt->protect(clear),
                                                    eol.empty() ? "\n" : eol));
            in_array = !closes_array(line);
            has_pending = false;
            continue;
        }
        has_pending = false;
        if (is_directive(line, "if")) {
            ++depth;
        } else if (is_directive(line, "endif")) {
            if (depth > 0) --depth;
        }
        DefineText define;
        std::string clear;
        if (line.find("FData->decrypt(") == std::string::npos && parse_define_text(line, &define) &&
            unescape_literal(define.literal, &clear)) {
            std::string eol;
            cut_eol(line, &eol);
            if (eol.empty()) eol = "\n";
            const std::string array = "s_" + define.name;
            ok = put(out, kCommentLead + ('"' + define.literal + '"') + eol) &&
                 put(out, format_units(array, crypt->protect(clear), eol)) &&
                 put(out, define.head + " ZpTrDe(" + array + ")" + define.tail + eol) &&
                 put(out, eol);
            continue;
        }
        ok = put(out, line);
    }
    if (ferror(in)) ok = false;
    fclose(in);
    if (fclose(out) != 0) ok = false;
    if (!ok) {
        utils->remove_file(tmp_path.c_str());
        return false;
    }
    utils->remove_file(bak_path.c_str());
    if (utils->rename_file(path, bak_path.c_str()) != 0) {
        utils->remove_file(tmp_path.c_str());
        return false;
    }
    if (utils->rename_file(tmp_path.c_str(), path) != 0) {
        utils->rename_file(bak_path.c_str(), path);
        return false;
    }
    return true;
}

}  // namespace zp
