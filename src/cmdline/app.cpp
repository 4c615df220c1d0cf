// zp::App: identity fields with logged setters, the data-store forwards and the printed block.

#include "cmdline/app.h"

#include "data/data.h"
#include "log/log.h"
#include "zephra_init.h"

namespace zp {

App::App(Admin* owner) : Abstract_Base(owner), data_(new Data(owner)) {}

App::~App() {
    delete data_;
    data_ = nullptr;
}

// The setter lines carry no time, file or line prefix, so they bypass the log macros.
void App::set_field(std::string* field, const char* format, const char* v) {
    *field = v ? v : "";
    if (Abstract_Logger* logger = root_logger())
        logger->log(kLogDebug, "zp", format, field->c_str());
}

const char* App::name() const {
    return name_.c_str();
}
void App::set_name(const char* v) {
    set_field(&name_, "[App] name=%s\n", v);
}
const char* App::display() const {
    return display_.c_str();
}
void App::set_display(const char* v) {
    set_field(&display_, "[App] display=%s\n", v);
}
const char* App::version() const {
    return version_.c_str();
}
void App::set_version(const char* v) {
    set_field(&version_, "[App] version=%s\n", v);
}
const char* App::release() const {
    return release_.c_str();
}
void App::set_release(const char* v) {
    set_field(&release_, "[App] release=%s\n", v);
}
void App::set_organization(const char* v) {
    set_field(&organization_, "[App] organization=%s\n", v);
}
const char* App::organization() const {
    return organization_.c_str();
}
const char* App::describe() const {
    return describe_.c_str();
}
void App::set_describe(const char* v) {
    set_field(&describe_, "[App] describe=%s\n", v);
}

const char* App::app_dir() const {
    return g_programDir.c_str();
}
const char* App::app_filepath() const {
    return g_programPath.c_str();
}
const char* App::app_name() const {
    return g_programName.c_str();
}

bool App::set_data(const char* key, const Value& value, const char* who) {
    return data_->set(key, value, who);
}

Value App::get_data(const char* key, const Value& def, bool convert) {
    if (!data_->exists(key)) return def;
    Value stored = data_->get(key);
    return convert ? data_->convert(stored) : stored;
}

bool App::exist_data(const char* key) {
    return data_->exists(key);
}

bool App::remove_data(const char* key, const char* who) {
    return data_->remove(key, who);
}

void App::print(FILE* stream) {
    if (!stream) return;
    std::fprintf(stream, "------------ [App] ------------\n");
    std::fprintf(stream, ">> app_name      = %s\n", app_name());
    std::fprintf(stream, ">> app_dir       = %s\n", app_dir());
    std::fprintf(stream, ">> app_filepath  = %s\n", app_filepath());
    std::fprintf(stream, ">> version       = %s\n", version_.c_str());
    std::fprintf(stream, ">> organization  = %s\n", organization_.c_str());
    std::fprintf(stream, ">> release_time  = %s\n", release_.c_str());
    std::fprintf(stream, ">> describe      = %s\n", describe_.c_str());
    data_->dump(stream);
    std::fprintf(stream, "-------------------------------\n\n");
    std::fflush(stream);
}

const char* App::default_organization() const {
    return "Tavrik";
}

}  // namespace zp
