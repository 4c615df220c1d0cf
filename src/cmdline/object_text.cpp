// zp::ObjectText: token scan and key/value pairing of a flat object text.
#include "cmdline/object_text.h"

#include <cctype>
#include <cstring>

namespace zp {

namespace {

bool is_space(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

// Copies a bracketed value, nesting counted, up to its closing bracket or the text's end.
size_t capture_nested(const std::string& s, size_t p, char open, char close,
                      std::vector<std::string>* tokens) {
    const size_t start = p;
    int depth = 0;
    for (; p < s.size(); ++p) {
        if (s[p] == open) {
            ++depth;
        } else if (s[p] == close && --depth == 0) {
            ++p;
            break;
        }
    }
    tokens->push_back(s.substr(start, p - start));
    return p;
}

// The last non-space byte before `p`, or 0 at the text's start.
char previous_byte(const std::string& s, size_t p) {
    while (p > 0) {
        if (!is_space(s[--p])) return s[p];
    }
    return 0;
}

// A key or text value: runs to a ',' or ':' outside double quotes; one outer pair of quotes
// goes. Backslashes are ordinary bytes.
size_t capture_text(const std::string& s, size_t p, std::vector<std::string>* tokens) {
    const size_t start = p;
    int quotes = 0;
    for (; p < s.size(); ++p) {
        if (s[p] == '"') {
            ++quotes;
        } else if ((s[p] == ',' || s[p] == ':') && quotes % 2 == 0) {
            break;
        }
    }
    std::string token = s.substr(start, p - start);
    const size_t first = token.find('"');
    const size_t last = token.rfind('"');
    if (first != std::string::npos && last != first) {
        token.erase(last, 1);
        token.erase(first, 1);
    }
    tokens->push_back(std::move(token));
    return p;
}

std::vector<std::string> tokenize(const std::string& s) {
    std::vector<std::string> tokens;
    size_t p = 0;
    while (p < s.size()) {
        const char c = s[p];
        if (is_space(c)) {
            ++p;
        } else if (c == '{') {
            p = capture_nested(s, p, '{', '}', &tokens);
        } else if (c == '[') {
            p = capture_nested(s, p, '[', ']', &tokens);
        } else if ((std::isdigit(static_cast<unsigned char>(c)) || c == '-') &&
                   previous_byte(s, p) == ':') {
            size_t end = s.find(',', p);
            if (end == std::string::npos) end = s.size();
            tokens.push_back(s.substr(p, end - p));
            p = end;
        } else if (c == 't' && s.compare(p, 4, "true") == 0) {
            tokens.emplace_back("true");
            p += 4;
        } else if (c == 'f' && s.compare(p, 5, "false") == 0) {
            tokens.emplace_back("false");
            p += 5;
        } else if (c == ',' || c == ':') {
            ++p;
        } else {
            p = capture_text(s, p, &tokens);
        }
    }
    if (tokens.empty()) tokens.push_back(s);
    return tokens;
}

}  // namespace

bool ObjectText::parse(const std::string& text) {
    std::string body = text;
    const size_t open = text.find('{');
    const size_t close = text.rfind('}');
    if (open != std::string::npos && close != std::string::npos && open < close)
        body = text.substr(open + 1, close - open - 1);

    std::vector<std::string> tokens = tokenize(body);
    std::vector<Member> members;
    members.reserve(tokens.size() / 2);
    for (size_t i = 0; i + 1 < tokens.size(); i += 2)
        members.emplace_back(std::move(tokens[i]), std::move(tokens[i + 1]));
    members_.swap(members);
    return true;
}

const ObjectText::Member* ObjectText::find(const std::string& key) const {
    for (const Member& m : members_) {
        if (m.first.size() == key.size() && memcmp(m.first.data(), key.data(), key.size()) == 0)
            return &m;
    }
    return nullptr;
}

std::string ObjectText::get_string(const std::string& key, const std::string& def) const {
    const Member* m = find(key);
    return m ? m->second : def;
}

bool ObjectText::get_bool(const std::string& key, bool def) const {
    const Member* m = find(key);
    return m ? m->second == "true" : def;
}

}  // namespace zp
