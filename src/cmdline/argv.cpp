// zp::Argv: maps value kinds onto the parser's option types and reports on standard output.

#include "cmdline/argv.h"

#include <cstdint>
#include <cstdio>

#include "cmdline/cmdline.h"

namespace zp {

namespace {

const char* safe(const char* s) {
    return s ? s : "";
}

}  // namespace

Argv::Argv(Admin* owner) : Abstract_Argv(owner) {}

Argv::~Argv() = default;

void Argv::add(const char* name, char short_name, const char* desc, bool required,
               const Value& def) {
    if (!parser_) parser_ = std::make_unique<cmdline::parser>();
    const std::string n = safe(name);
    const std::string d = safe(desc);
    switch (def.kind()) {
        case kValueInt:
            parser_->add_option<int32_t>(n, short_name, d, required, def.as_int());
            break;
        case kValueUint:
            parser_->add_option<uint32_t>(n, short_name, d, required, def.as_uint());
            break;
        case kValueFloat:
            parser_->add_option<float>(n, short_name, d, required, def.as_float());
            break;
        case kValueDouble:
            parser_->add_option<double>(n, short_name, d, required, def.as_double());
            break;
        case kValueInt64:
            parser_->add_option<int64_t>(n, short_name, d, required, def.as_int64());
            break;
        case kValueUint64:
            parser_->add_option<uint64_t>(n, short_name, d, required, def.as_uint64());
            break;
        case kValueString:
            parser_->add_option<std::string>(n, short_name, d, required, def.as_string());
            break;
        case kValueBool:
            parser_->add_option<bool>(n, short_name, d, required, def.as_bool());
            break;
        default:
            std::printf("** Argv add: unknow type '%s'\n", n.c_str());
            parser_->add_flag(n, short_name, d);
            break;
    }
}

Value Argv::get(const char* name, const Value& expected) {
    const std::string n = safe(name);
    if (!parser_) {
        std::printf("** Have not add 'argv'; Argv get: '%s' not exist. \n", n.c_str());
        return expected;
    }
    if (!exist(name)) {
        // The caller's expected value is the default, not the declared one.
        std::printf("** Argv get: '%s' not exist. \n", n.c_str());
        return expected;
    }
    Value out;
    switch (expected.kind()) {
        case kValueInt:
            out.set_int(parser_->get_value<int32_t>(n));
            break;
        case kValueUint:
            out.set_uint(parser_->get_value<uint32_t>(n));
            break;
        case kValueFloat:
            out.set_float(parser_->get_value<float>(n));
            break;
        case kValueDouble:
            out.set_double(parser_->get_value<double>(n));
            break;
        case kValueInt64:
            out.set_int64(parser_->get_value<int64_t>(n));
            break;
        case kValueUint64:
            out.set_uint64(parser_->get_value<uint64_t>(n));
            break;
        case kValueString: {
            const std::string& s = parser_->get_value<std::string>(n);
            out.set_string(s.data(), static_cast<int>(s.size()));
            break;
        }
        case kValueBool:
            out.set_bool(parser_->get_value<bool>(n));
            break;
        default:
            std::printf(
                "** Argv get: '%s' exist!  but not type: "
                "string,bool,int,uint,int64,float,double\n",
                n.c_str());
            return expected;
    }
    return out;
}

bool Argv::parse(int argc, const char* const* argv) {
    return parser_ ? parser_->parse(argc, argv) : false;
}

bool Argv::exist(const char* name) {
    if (!parser_) return false;
    try {
        return parser_->is_set(safe(name));
    } catch (const cmdline::cmdline_error&) {
        return false;
    }
}

std::string Argv::usage() {
    return parser_ ? parser_->usage_text() : std::string();
}

Abstract_Argv* Argv::new_instance() {
    return new Argv(owner_);
}

void Argv::delete_instance(Abstract_Argv** instance) {
    if (!instance || !*instance) return;
    delete *instance;
    *instance = nullptr;
}

std::vector<std::string> Argv::errors() const {
    return parser_ ? parser_->error_list() : std::vector<std::string>();
}

}  // namespace zp
