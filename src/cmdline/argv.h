#pragma once
// zp::Argv: the component through which a program declares, parses and reads its options.

#include <memory>
#include <vector>
#include <string>

#include "core/abstract_base.h"
#include "value/value.h"

namespace cmdline {
class parser;
}

namespace zp {

class Abstract_Argv : public Abstract_Base {
  public:
    using Abstract_Base::Abstract_Base;
    ~Abstract_Argv() override = default;

    // The option's type follows the default's kind; other kinds declare a flag. A name
    // declared twice raises cmdline::cmdline_error.
    virtual void add(const char* name, char short_name, const char* desc, bool required,
                     const Value& def) = 0;
    // The given value in the expected value's kind, or a copy of `expected` when the option
    // was not given. A declared type other than the expected kind raises
    // cmdline::cmdline_error.
    virtual Value get(const char* name, const Value& expected) = 0;
    virtual bool parse(int argc, const char* const* argv) = 0;
    // Whether the option was given; never raises.
    virtual bool exist(const char* name) = 0;
    virtual std::string usage() = 0;
    virtual Abstract_Argv* new_instance() = 0;
    // Destroys *instance and clears it; nothing for a null reference or pointer.
    virtual void delete_instance(Abstract_Argv** instance) = 0;
};

class Argv : public Abstract_Argv {
  public:
    explicit Argv(Admin* owner = nullptr);
    ~Argv() override;
    Argv(const Argv&) = delete;
    Argv& operator=(const Argv&) = delete;

    void add(const char* name, char short_name, const char* desc, bool required,
             const Value& def) override;
    Value get(const char* name, const Value& expected) override;
    bool parse(int argc, const char* const* argv) override;
    bool exist(const char* name) override;
    std::string usage() override;
    Abstract_Argv* new_instance() override;
    void delete_instance(Abstract_Argv** instance) override;

    // The parser's messages of the last parse (empty before anything was declared).
    std::vector<std::string> errors() const;

  private:
    std::unique_ptr<cmdline::parser> parser_;
};

}  // namespace zp
