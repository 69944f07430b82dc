// SIDs for the SDDL tests: ConvertStringSidToSidW's result, freed with LocalFree.
#pragma once

#include "Platform/Sddl.h"

#include <memory>

namespace sddl_test
{
struct LocalFreeDeleter
{
  void operator()(void* memory) const { LocalFree(memory); }
};
using SidPtr = std::unique_ptr<void, LocalFreeDeleter>;

inline SidPtr Convert(const wchar_t* text)
{
  PSID sid = nullptr;
  if (!ConvertStringSidToSidW(text, &sid))
    return nullptr;
  return SidPtr(sid);
}
} // namespace sddl_test
