// MI_Session to one host, resolved from the destination by cim::Hosts: this machine ("", ".",
// "localhost", its name) or a host that tests attached. Any other destination is refused with
// MI_RESULT_NOT_SUPPORTED: this API reaches no remote machine.
#pragma once

#include "Platform/Mi.h"

namespace platform::mi
{
MI_Result NewSession(MI_Application* application, const MI_Char* protocol, const MI_Char* destination,
                     MI_DestinationOptions* options, MI_Session* session);
} // namespace platform::mi
