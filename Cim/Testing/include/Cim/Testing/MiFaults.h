// What the MI API did and failures on demand, for tests (see PlatformMi/Monitor.h):
//   auto& monitor = cim::testing::MiMonitor();
//   ScopedMiFault fault(MiCall::NewSession, MI_RESULT_ACCESS_DENIED); // until the scope ends
//   EXPECT_EQ(monitor.Live().destinationOptions, 0);
#pragma once

#include "PlatformMi/Monitor.h"

#include <cstdint>

namespace cim::testing
{
using MiCall = platform::mi::Call;
using platform::mi::Monitor;

Monitor& MiMonitor();

class ScopedMiFault
{
public:
  ScopedMiFault(MiCall call, std::uint32_t code);
  ~ScopedMiFault();
  ScopedMiFault(const ScopedMiFault&) = delete;
  ScopedMiFault& operator=(const ScopedMiFault&) = delete;

private:
  MiCall m_call;
};
} // namespace cim::testing
