// Linux declarations of the Windows base API that the library uses.
// Names, values and semantics follow Windows; bodies live in Platform/linux/WinBase.cpp.
// Strings are wchar_t (UTF-32 on Linux), so wide code written for Windows compiles unchanged.
#pragma once

#include <cstdint>
#include <cstring>
#include <pthread.h>

// Windows' own spellings, which portable code uses as they are.
// NOLINTBEGIN(bugprone-reserved-identifier)
#define __int64 long long
#define WINAPI
#define __cdecl
// NOLINTEND(bugprone-reserved-identifier)

using BYTE = std::uint8_t;
using BOOLEAN = std::uint8_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using BOOL = int;
using INT = int;
using UINT = unsigned int;
using LONG = std::int32_t;
using ULONG = std::uint32_t;
using LONGLONG = std::int64_t;
using ULONGLONG = std::uint64_t;
using DWORD64 = std::uint64_t;
using ULONG_PTR = std::uintptr_t;
using SIZE_T = std::size_t;
using WCHAR = wchar_t;
using LPWSTR = wchar_t*;
using LPCWSTR = const wchar_t*;
using PWSTR = wchar_t*;
using PCWSTR = const wchar_t*;
using LPOLESTR = wchar_t*;
using PVOID = void*;
using LPVOID = void*;
using HANDLE = void*;
using HLOCAL = void*;
using HRESULT = std::int32_t;
using RPC_STATUS = long;
using DATE = double;

#ifndef TRUE
#  define TRUE 1
#  define FALSE 0
#endif

// HRESULT values and helpers.
constexpr HRESULT S_OK = 0;
constexpr HRESULT S_FALSE = 1;
constexpr HRESULT E_NOTIMPL = static_cast<HRESULT>(0x80004001u);
constexpr HRESULT E_POINTER = static_cast<HRESULT>(0x80004003u);
constexpr HRESULT E_ABORT = static_cast<HRESULT>(0x80004004u);
constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005u);
constexpr HRESULT E_UNEXPECTED = static_cast<HRESULT>(0x8000FFFFu);
constexpr HRESULT E_ACCESSDENIED = static_cast<HRESULT>(0x80070005u);
constexpr HRESULT E_OUTOFMEMORY = static_cast<HRESULT>(0x8007000Eu);
constexpr HRESULT E_INVALIDARG = static_cast<HRESULT>(0x80070057u);
constexpr bool SUCCEEDED(HRESULT hr) { return hr >= 0; }
constexpr bool FAILED(HRESULT hr) { return hr < 0; }
// A positive Win32 code becomes 0x8007xxxx; zero and negative values are already HRESULTs.
constexpr HRESULT HRESULT_FROM_WIN32(unsigned long code)
{
  return static_cast<HRESULT>(code) <= 0
           ? static_cast<HRESULT>(code)
           : static_cast<HRESULT>((code & 0x0000FFFFu) | 0x80070000u);
}

// Win32 error codes (winerror.h).
constexpr DWORD ERROR_SUCCESS = 0;
constexpr DWORD NO_ERROR = 0;
constexpr DWORD ERROR_INVALID_FUNCTION = 1;
constexpr DWORD ERROR_FILE_NOT_FOUND = 2;
constexpr DWORD ERROR_PATH_NOT_FOUND = 3;
constexpr DWORD ERROR_ACCESS_DENIED = 5;
constexpr DWORD ERROR_INVALID_HANDLE = 6;
constexpr DWORD ERROR_NOT_ENOUGH_MEMORY = 8;
constexpr DWORD ERROR_INVALID_DATA = 13;
constexpr DWORD ERROR_OUTOFMEMORY = 14;
constexpr DWORD ERROR_NOT_SUPPORTED = 50;
constexpr DWORD ERROR_INVALID_PARAMETER = 87;
constexpr DWORD ERROR_INSUFFICIENT_BUFFER = 122;
constexpr DWORD ERROR_NO_MORE_ITEMS = 259;
constexpr DWORD ERROR_OPERATION_ABORTED = 995;
constexpr DWORD ERROR_CANCELLED = 1223;
constexpr DWORD ERROR_LOGON_FAILURE = 1326;
constexpr DWORD ERROR_NONE_MAPPED = 1332;
constexpr DWORD ERROR_INVALID_SID = 1337;
constexpr DWORD ERROR_TIMEOUT = 1460;
constexpr RPC_STATUS RPC_S_OUT_OF_RESOURCES = 1721;
constexpr DWORD RPC_S_SERVER_UNAVAILABLE = 1722;
constexpr RPC_STATUS RPC_S_OK = 0;

// The calling thread's last-error code, as on Windows.
DWORD GetLastError() noexcept;
void SetLastError(DWORD code) noexcept;
void RestoreLastError(DWORD code) noexcept;

// Milliseconds since an arbitrary start (a steady clock), as on Windows.
ULONGLONG GetTickCount64() noexcept;

// GUIDs: the same layout and text form as on Windows.
struct GUID
{
  std::uint32_t Data1;
  std::uint16_t Data2;
  std::uint16_t Data3;
  std::uint8_t Data4[8];
};
using UUID = GUID;
using IID = GUID;
using CLSID = GUID;
using REFGUID = const GUID&;
inline constexpr GUID GUID_NULL{0, 0, 0, {0, 0, 0, 0, 0, 0, 0, 0}};
inline bool operator==(const GUID& a, const GUID& b) noexcept { return std::memcmp(&a, &b, sizeof(GUID)) == 0; }
inline bool operator!=(const GUID& a, const GUID& b) noexcept { return !(a == b); }
inline bool IsEqualGUID(const GUID& a, const GUID& b) noexcept { return a == b; }

// A random (version 4) UUID; returns RPC_S_OK, or RPC_S_OUT_OF_RESOURCES when the system has no
// randomness to give.
RPC_STATUS UuidCreate(UUID* uuid) noexcept;
// Writes "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}" (upper case) and returns the characters
// written including the terminating zero, or 0 when the buffer is smaller than 39.
int StringFromGUID2(const GUID& guid, LPOLESTR buffer, int capacity) noexcept;

// Critical sections: recursive locks, as on Windows.
struct CRITICAL_SECTION
{
  pthread_mutex_t mutex;
};
using LPCRITICAL_SECTION = CRITICAL_SECTION*;
BOOL InitializeCriticalSectionEx(LPCRITICAL_SECTION section, DWORD spinCount, DWORD flags) noexcept;
void InitializeCriticalSection(LPCRITICAL_SECTION section) noexcept;
void EnterCriticalSection(LPCRITICAL_SECTION section) noexcept;
BOOL TryEnterCriticalSection(LPCRITICAL_SECTION section) noexcept;
void LeaveCriticalSection(LPCRITICAL_SECTION section) noexcept;
void DeleteCriticalSection(LPCRITICAL_SECTION section) noexcept;

// Date and time structures.
struct SYSTEMTIME
{
  WORD wYear;
  WORD wMonth;
  WORD wDayOfWeek;
  WORD wDay;
  WORD wHour;
  WORD wMinute;
  WORD wSecond;
  WORD wMilliseconds;
};
struct FILETIME
{
  DWORD dwLowDateTime;
  DWORD dwHighDateTime;
};

// Memory returned by Windows calls that document LocalFree (for example SIDs).
HLOCAL LocalAlloc(UINT flags, SIZE_T bytes) noexcept;
HLOCAL LocalFree(HLOCAL memory) noexcept;
constexpr UINT LMEM_FIXED = 0;
constexpr UINT LMEM_ZEROINIT = 0x40;
constexpr UINT LPTR = LMEM_FIXED | LMEM_ZEROINIT;

// Ordinal comparison of two UTF-16 strings (a length of -1 means zero-terminated).
// Returns CSTR_LESS_THAN, CSTR_EQUAL or CSTR_GREATER_THAN; 0 on bad arguments.
constexpr int CSTR_LESS_THAN = 1;
constexpr int CSTR_EQUAL = 2;
constexpr int CSTR_GREATER_THAN = 3;
int CompareStringOrdinal(const wchar_t* string1, int count1, const wchar_t* string2, int count2,
                         BOOL ignoreCase) noexcept;
