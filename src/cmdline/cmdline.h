#pragma once
// cmdline::parser: declares flags and typed options, parses an argument vector, writes usage.

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "cmdline/cmdline_option.h"
#include "cmdline/cmdline_reader.h"

namespace cmdline {

class parser {
  public:
    parser() = default;
    parser(const parser&) = delete;
    parser& operator=(const parser&) = delete;

    // Raises cmdline_error "multiple definition: <name>" for a name declared before.
    void add_flag(const std::string& name, char short_name, const std::string& desc);

    template <class T>
    void add_option(const std::string& name, char short_name, const std::string& desc,
                    bool required, const T& def) {
        check_new(name);
        using option = option_with_value_with_reader<T, default_reader<T>>;
        insert(
            std::make_unique<option>(name, short_name, required, def, desc, default_reader<T>()));
    }

    // True when the parse found no error. Option values of earlier parses are kept.
    bool parse(int argc, const char* const* argv);

    // Raises "there is no flag: --<name>" for an undeclared name.
    bool is_set(const std::string& name) const;

    // The given value or the default; raises for an undeclared name and for a declared
    // option of another type ("type mismatch flag '<name>'").
    template <class T>
    const T& get_value(const std::string& name) const {
        const option_base* opt = find(name);
        auto typed = dynamic_cast<const option_with_value<T>*>(opt);
        if (!typed) throw cmdline_error("type mismatch flag '" + name + "'");
        return typed->get();
    }

    std::string usage_text() const;

    const std::vector<std::string>& error_list() const { return errors_; }
    const std::vector<std::string>& remaining_args() const { return remaining_; }
    void set_footer(const std::string& footer) { footer_ = footer; }
    void set_program_name(const std::string& name) { program_name_ = name; }
    const std::string& program_name() const { return program_name_; }

  private:
    void check_new(const std::string& name) const;
    void insert(std::unique_ptr<option_base> opt);
    const option_base* find(const std::string& name) const;
    bool build_short_table(std::map<char, std::string>* table);
    void parse_long(const std::string& text, int argc, const char* const* argv, int* i);
    void parse_short(const std::string& arg, const std::map<char, std::string>& table, int argc,
                     const char* const* argv, int* i);
    void set_option(const std::string& name);
    void set_option(const std::string& name, const std::string& value);

    std::map<std::string, std::unique_ptr<option_base>> options_;
    std::vector<option_base*> ordered_;
    std::string footer_;
    std::string program_name_;
    std::vector<std::string> remaining_;
    std::vector<std::string> errors_;
};

}  // namespace cmdline
