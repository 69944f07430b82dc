// MI_DestinationOptions: named numbers, strings and credentials for a new session. The session
// reads the destination credentials from it when it opens.
#pragma once

#include "Platform/Mi.h"
#include "PlatformMi/Monitor.h"

#include <vector>

namespace platform::mi
{
MI_Result NewDestinationOptions(MI_DestinationOptions* options);
// The credentials added under "__MI_DESTINATIONOPTIONS_DESTINATION_CREDENTIALS", and the packet
// privacy number if set; nothing for a handle that is not open.
std::vector<Credentials> DestinationCredentials(const MI_DestinationOptions* options);
std::optional<std::uint32_t> PacketPrivacy(const MI_DestinationOptions* options);
} // namespace platform::mi
