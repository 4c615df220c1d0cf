// cmdline::parser: declarations, the parse with its collected messages, and the usage text.

#include "cmdline/cmdline.h"

#include <algorithm>
#include <sstream>

namespace cmdline {

void parser::check_new(const std::string& name) const {
    if (options_.count(name)) throw cmdline_error("multiple definition: " + name);
}

void parser::insert(std::unique_ptr<option_base> opt) {
    option_base* raw = opt.get();
    options_.emplace(raw->long_name(), std::move(opt));
    ordered_.push_back(raw);
}

void parser::add_flag(const std::string& name, char short_name, const std::string& desc) {
    check_new(name);
    insert(std::make_unique<option_without_value>(name, short_name, desc));
}

const option_base* parser::find(const std::string& name) const {
    auto it = options_.find(name);
    if (it == options_.end()) throw cmdline_error("there is no flag: --" + name);
    return it->second.get();
}

bool parser::is_set(const std::string& name) const {
    return find(name)->is_set();
}

// A short char claimed twice fails the whole parse before any argument is looked at.
bool parser::build_short_table(std::map<char, std::string>* table) {
    for (const auto& entry : options_) {
        if (entry.first.empty()) continue;
        char c = entry.second->short_char();
        if (!c) continue;
        auto it = table->find(c);
        if (it != table->end()) {
            it->second.clear();
            errors_.push_back(std::string("short option '") + c + "' is ambiguous");
            return false;
        }
        (*table)[c] = entry.first;
    }
    return true;
}

void parser::set_option(const std::string& name) {
    auto it = options_.find(name);
    if (it == options_.end()) {
        errors_.push_back("undefined option: --" + name);
        return;
    }
    if (!it->second->set_flag()) errors_.push_back("option needs value: --" + name);
}

void parser::set_option(const std::string& name, const std::string& value) {
    auto it = options_.find(name);
    if (it == options_.end()) {
        errors_.push_back("undefined option: --" + name);
        return;
    }
    if (!it->second->set_with_text(value))
        errors_.push_back("option value is invalid: --" + name + "=" + value);
}

// "--name=value", or "--name" with the value (if any) in the next argument, whatever it is.
// A bare "--" is just an option with the empty name.
void parser::parse_long(const std::string& text, int argc, const char* const* argv, int* i) {
    size_t eq = text.find('=');
    if (eq != std::string::npos) {
        set_option(text.substr(0, eq), text.substr(eq + 1));
        return;
    }
    auto it = options_.find(text);
    if (it == options_.end()) {
        errors_.push_back("undefined option: --" + text);
        return;
    }
    if (!it->second->takes_value()) {
        set_option(text);
        return;
    }
    if (*i + 1 >= argc) {
        errors_.push_back("option needs value: --" + text);
        return;
    }
    ++*i;
    set_option(text, argv[*i] ? argv[*i] : "");
}

// "-abc": a and b are flags; c is a flag or takes the next argument as its value. Characters
// after the first are never an attached value ("-k5" is k and 5).
void parser::parse_short(const std::string& arg, const std::map<char, std::string>& table, int argc,
                         const char* const* argv, int* i) {
    size_t last = arg.size() - 1;
    for (size_t j = 1; j < last; ++j) {
        auto it = table.find(arg[j]);
        if (it == table.end()) {
            errors_.push_back(std::string("undefined short option: -") + arg[j]);
            continue;
        }
        if (it->second.empty()) {
            errors_.push_back(std::string("ambiguous short option: -") + arg[j]);
            continue;
        }
        set_option(it->second);
    }
    auto it = table.find(arg[last]);
    if (it == table.end()) {
        errors_.push_back(std::string("undefined short option: -") + arg[last]);
        return;
    }
    if (it->second.empty()) {
        errors_.push_back(std::string("ambiguous short option: -") + arg[last]);
        return;
    }
    if (*i + 1 < argc && options_.at(it->second)->takes_value()) {
        ++*i;
        set_option(it->second, argv[*i] ? argv[*i] : "");
    } else {
        set_option(it->second);
    }
}

bool parser::parse(int argc, const char* const* argv) {
    errors_.clear();
    remaining_.clear();
    if (argc < 1) {
        errors_.push_back("argument number must be longer than 0");
        return false;
    }
    if (program_name_.empty() && argv[0]) program_name_ = argv[0];

    std::map<char, std::string> table;
    if (!build_short_table(&table)) return false;

    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i] ? argv[i] : "";
        if (arg.compare(0, 2, "--") == 0) {
            parse_long(arg.substr(2), argc, argv, &i);
        } else if (arg.compare(0, 1, "-") == 0) {
            if (arg.size() > 1) parse_short(arg, table, argc, argv, &i);
        } else {
            remaining_.push_back(arg);
        }
    }

    for (const auto& entry : options_)
        if (!entry.second->is_satisfied()) errors_.push_back("need option: --" + entry.first);
    return errors_.empty();
}

std::string parser::usage_text() const {
    std::ostringstream out;
    out << "usage: " << program_name_ << " ";
    for (const option_base* opt : ordered_)
        if (opt->is_required()) out << opt->usage_token() << " ";
    out << "[options] ... " << footer_ << "\n";
    out << "options:\n";

    size_t width = 0;
    for (const option_base* opt : ordered_) width = std::max(width, opt->long_name().size());
    for (const option_base* opt : ordered_) {
        if (opt->short_char())
            out << "  -" << opt->short_char() << ", ";
        else
            out << "      ";
        const std::string& name = opt->long_name();
        out << "--" << name << std::string(width + 4 - name.size(), ' ') << opt->help_text()
            << "\n";
    }
    return out.str();
}

}  // namespace cmdline
