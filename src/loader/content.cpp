// zp::Content and the module registry.
#include "loader/content.h"

namespace zp {

Content::Content() = default;
Content::~Content() = default;

std::map<std::string, Content*>& modules() {
    static std::map<std::string, Content*> registry;
    return registry;
}

}  // namespace zp
