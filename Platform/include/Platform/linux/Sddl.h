// Linux declarations of the Windows SID calls the collection uses. Names, values and the
// buffer-size protocol follow Windows; bodies live in Platform/linux/Sddl.cpp.
#pragma once

#include "Platform/linux/WinBase.h"

using PSID = void*;
using LPDWORD = DWORD*;
using PDWORD = DWORD*;

struct SID_IDENTIFIER_AUTHORITY
{
  BYTE Value[6];
};

// The binary SID layout; SubAuthority really holds SubAuthorityCount entries.
struct SID
{
  BYTE Revision;
  BYTE SubAuthorityCount;
  SID_IDENTIFIER_AUTHORITY IdentifierAuthority;
  DWORD SubAuthority[1];
};

constexpr BYTE SID_REVISION = 1;
constexpr BYTE SID_MAX_SUB_AUTHORITIES = 15;
constexpr DWORD SECURITY_MAX_SID_SIZE = 68;

enum SID_NAME_USE
{
  SidTypeUser = 1,
  SidTypeGroup,
  SidTypeDomain,
  SidTypeAlias,
  SidTypeWellKnownGroup,
  SidTypeDeletedAccount,
  SidTypeInvalid,
  SidTypeUnknown,
  SidTypeComputer,
  SidTypeLabel,
  SidTypeLogonSession
};
using PSID_NAME_USE = SID_NAME_USE*;

// "S-1-5-18" (or an SDDL alias such as "SY") to a binary SID allocated with LocalAlloc.
// Fails with ERROR_INVALID_SID for malformed text, ERROR_INVALID_PARAMETER for null pointers.
BOOL ConvertStringSidToSidW(LPCWSTR stringSid, PSID* sid) noexcept;
// A binary SID to its "S-1-..." text, allocated with LocalAlloc.
BOOL ConvertSidToStringSidW(PSID sid, LPWSTR* stringSid) noexcept;
BOOL IsValidSid(PSID sid) noexcept;
DWORD GetLengthSid(PSID sid) noexcept;
// Names of a well-known SID. Sizes are in characters: too small a buffer fails with
// ERROR_INSUFFICIENT_BUFFER and both sizes are set to what is needed, terminating zero included;
// on success they hold the lengths without it. Unknown SIDs fail with ERROR_NONE_MAPPED.
BOOL LookupAccountSidW(LPCWSTR systemName, PSID sid, LPWSTR name, LPDWORD nameSize, LPWSTR domainName,
                       LPDWORD domainNameSize, PSID_NAME_USE use) noexcept;
