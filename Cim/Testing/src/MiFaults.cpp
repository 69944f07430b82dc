#include "Cim/Testing/MiFaults.h"

namespace cim::testing
{
Monitor& MiMonitor() { return Monitor::Instance(); }

ScopedMiFault::ScopedMiFault(MiCall call, std::uint32_t code) : m_call(call)
{
  Monitor::Instance().SetFault(call, code);
}

ScopedMiFault::~ScopedMiFault() { Monitor::Instance().ClearFault(m_call); }
} // namespace cim::testing
