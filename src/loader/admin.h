#pragma once
// zp::Admin: the framework's administrator and root object. It finds the configuration and
// log directories, creates the components, applies the log settings and sequences the
// other modules' start, abort and uninit.

#include <string>

#include "loader/zephra_a.h"

namespace zp {

class Admin : public Zephra_A {
  public:
    Admin();
    // Takes the framework down in its fixed order; writes the last "Done!" line.
    ~Admin() override;

    bool init() override;
    bool start() override;
    bool uninit() override;
    // Prints the message on standard error, replies with it, answers with the root's address.
    Value process(const char* from, int id, const Value& msg, const Reply& reply) override;
    Value send(const char* from, int id, const Value& msg, const Reply& reply) override;
    Value dispatch(const char* module, const char* from, int id, const Value& msg,
                   const Reply& reply) override;

    // First writeable of the four candidates, resolved once and cached. Empty when none.
    static std::string base_dir();

  protected:
    bool is_root_module() const override { return true; }
};

// Overrides the configuration and log directory for the next resolution.
void SetConfigLogDir(const char* dir);

}  // namespace zp
