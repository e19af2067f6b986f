#include <foundation/msg_svc/eventmgr/type_information.hpp>

namespace foundation::msg_svc::eventmgr {

TypeInformation::~TypeInformation() = default;

} // namespace foundation::msg_svc::eventmgr
