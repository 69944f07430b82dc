// Linux bodies of the Windows base calls declared in Platform/linux/WinBase.h.
#include "Platform/Windows.h"

#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid.hpp>
#include <chrono>
#include <cstdlib>
#include <cwchar>
#include <cwctype>
#include <exception>

namespace
{
thread_local DWORD t_lastError = 0;
}

DWORD GetLastError() noexcept { return t_lastError; }
void SetLastError(DWORD code) noexcept { t_lastError = code; }
void RestoreLastError(DWORD code) noexcept { t_lastError = code; }

ULONGLONG GetTickCount64() noexcept
{
  using namespace std::chrono;
  return static_cast<ULONGLONG>(duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}

RPC_STATUS UuidCreate(UUID* uuid) noexcept
{
  boost::uuids::uuid value{};
  try
  {
    // One generator per thread: seeding is costly and the generator is not thread-safe.
    thread_local boost::uuids::random_generator generator;
    value = generator();
  }
  catch (const std::exception&)
  {
    // The generator throws when the system's entropy source cannot be read.
    return RPC_S_OUT_OF_RESOURCES;
  }
  const auto* b = value.data;
  uuid->Data1 = (std::uint32_t{b[0]} << 24) | (std::uint32_t{b[1]} << 16) | (std::uint32_t{b[2]} << 8) | b[3];
  uuid->Data2 = static_cast<std::uint16_t>((b[4] << 8) | b[5]);
  uuid->Data3 = static_cast<std::uint16_t>((b[6] << 8) | b[7]);
  std::memcpy(uuid->Data4, b + 8, 8);
  return RPC_S_OK;
}

int StringFromGUID2(const GUID& guid, LPOLESTR buffer, int capacity) noexcept
{
  constexpr int length = 38;
  if (buffer == nullptr || capacity < length + 1)
    return 0;
  std::swprintf(buffer, static_cast<size_t>(capacity), L"{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}",
                guid.Data1, guid.Data2, guid.Data3, guid.Data4[0], guid.Data4[1], guid.Data4[2], guid.Data4[3],
                guid.Data4[4], guid.Data4[5], guid.Data4[6], guid.Data4[7]);
  return length + 1;
}

BOOL InitializeCriticalSectionEx(LPCRITICAL_SECTION section, DWORD, DWORD) noexcept
{
  pthread_mutexattr_t attributes;
  if (pthread_mutexattr_init(&attributes) != 0)
  {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return FALSE;
  }
  pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
  const int result = pthread_mutex_init(&section->mutex, &attributes);
  pthread_mutexattr_destroy(&attributes);
  if (result != 0)
  {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return FALSE;
  }
  return TRUE;
}

void InitializeCriticalSection(LPCRITICAL_SECTION section) noexcept { InitializeCriticalSectionEx(section, 0, 0); }
void EnterCriticalSection(LPCRITICAL_SECTION section) noexcept { pthread_mutex_lock(&section->mutex); }
BOOL TryEnterCriticalSection(LPCRITICAL_SECTION section) noexcept
{
  return pthread_mutex_trylock(&section->mutex) == 0 ? TRUE : FALSE;
}
void LeaveCriticalSection(LPCRITICAL_SECTION section) noexcept { pthread_mutex_unlock(&section->mutex); }
void DeleteCriticalSection(LPCRITICAL_SECTION section) noexcept { pthread_mutex_destroy(&section->mutex); }

HLOCAL LocalAlloc(UINT flags, SIZE_T bytes) noexcept
{
  void* memory = (flags & LMEM_ZEROINIT) ? std::calloc(1, bytes ? bytes : 1) : std::malloc(bytes ? bytes : 1);
  if (memory == nullptr)
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return memory;
}

HLOCAL LocalFree(HLOCAL memory) noexcept
{
  std::free(memory);
  return nullptr;
}

int CompareStringOrdinal(const wchar_t* string1, int count1, const wchar_t* string2, int count2,
                         BOOL ignoreCase) noexcept
{
  if (string1 == nullptr || string2 == nullptr)
  {
    SetLastError(ERROR_INVALID_PARAMETER);
    return 0;
  }
  const size_t length1 = count1 < 0 ? std::wcslen(string1) : static_cast<size_t>(count1);
  const size_t length2 = count2 < 0 ? std::wcslen(string2) : static_cast<size_t>(count2);
  const size_t common = length1 < length2 ? length1 : length2;
  for (size_t i = 0; i < common; ++i)
  {
    // Case folding for ordinal comparison maps each code unit to upper case on its own.
    wchar_t a = string1[i];
    wchar_t b = string2[i];
    if (ignoreCase)
    {
      a = static_cast<wchar_t>(std::towupper(static_cast<wint_t>(a)));
      b = static_cast<wchar_t>(std::towupper(static_cast<wint_t>(b)));
    }
    if (a != b)
      return a < b ? CSTR_LESS_THAN : CSTR_GREATER_THAN;
  }
  if (length1 == length2)
    return CSTR_EQUAL;
  return length1 < length2 ? CSTR_LESS_THAN : CSTR_GREATER_THAN;
}
