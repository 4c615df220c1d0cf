#pragma once
// Declared options of the command-line parser: flags and typed valued options.

#include <string>

#include "cmdline/cmdline_reader.h"

namespace cmdline {

class option_base {
  public:
    virtual ~option_base() = default;

    virtual bool takes_value() const = 0;
    virtual bool set_with_text(const std::string& text) = 0;
    virtual bool set_flag() = 0;
    virtual bool is_set() const = 0;
    // False only for a required valued option that was not given.
    virtual bool is_satisfied() const = 0;
    virtual bool is_required() const = 0;
    virtual const std::string& long_name() const = 0;
    // 0 when the option has no short form.
    virtual char short_char() const = 0;
    virtual const std::string& help_text() const = 0;
    // How a required option appears in the usage head line.
    virtual std::string usage_token() const = 0;
};

class option_without_value : public option_base {
  public:
    option_without_value(const std::string& name, char short_name, const std::string& desc)
        : name_(name), short_(short_name), desc_(desc) {}

    bool takes_value() const override { return false; }
    bool set_with_text(const std::string&) override { return false; }
    bool set_flag() override {
        given_ = true;
        return true;
    }
    bool is_set() const override { return given_; }
    bool is_satisfied() const override { return true; }
    bool is_required() const override { return false; }
    const std::string& long_name() const override { return name_; }
    char short_char() const override { return short_; }
    const std::string& help_text() const override { return desc_; }
    std::string usage_token() const override { return "--" + name_; }

  private:
    std::string name_;
    char short_;
    bool given_ = false;
    std::string desc_;
};

template <class T>
class option_with_value : public option_base {
  public:
    option_with_value(const std::string& name, char short_name, bool required, const T& def,
                      const std::string& desc)
        : name_(name),
          short_(short_name),
          required_(required),
          def_(def),
          actual_(def),
          desc_(full_description(desc)) {}

    bool takes_value() const override { return true; }
    bool set_with_text(const std::string& text) override {
        try {
            actual_ = read_text(text);
        } catch (...) {
            return false;
        }
        given_ = true;
        return true;
    }
    bool set_flag() override { return false; }
    bool is_set() const override { return given_; }
    bool is_satisfied() const override { return !required_ || given_; }
    bool is_required() const override { return required_; }
    const std::string& long_name() const override { return name_; }
    char short_char() const override { return short_; }
    const std::string& help_text() const override { return desc_; }
    std::string usage_token() const override { return "--" + name_ + "=" + type_label<T>(); }

    // The given value, or the default while none was given.
    const T& get() const { return actual_; }

  protected:
    virtual T read_text(const std::string& text) = 0;

  private:
    // Built once: "repeat (int [=3])", or "input file (string)" when required.
    std::string full_description(const std::string& desc) const {
        std::string out = desc + " (" + type_label<T>();
        if (!required_) out += " [=" + default_text(def_) + "]";
        return out + ")";
    }

    std::string name_;
    char short_;
    bool required_;
    bool given_ = false;
    T def_;
    T actual_;
    std::string desc_;
};

template <class T, class F>
class option_with_value_with_reader : public option_with_value<T> {
  public:
    option_with_value_with_reader(const std::string& name, char short_name, bool required,
                                  const T& def, const std::string& desc, F reader)
        : option_with_value<T>(name, short_name, required, def, desc), reader_(reader) {}

  protected:
    T read_text(const std::string& text) override { return reader_(text); }

  private:
    F reader_;
};

}  // namespace cmdline
