// Linux bodies of the SID calls declared in Platform/linux/Sddl.h. There is no account database
// behind a Linux host, so only the SIDs that mean the same on every Windows machine are resolved.
#include "Platform/Sddl.h"

#include <algorithm>
#include <cstddef>
#include <cwchar>
#include <string>
#include <string_view>

namespace
{
struct WellKnownAccount
{
  std::wstring_view sid;
  std::wstring_view domain;
  std::wstring_view name;
  SID_NAME_USE use;
};

// The names Windows (English) gives these SIDs on every machine.
constexpr WellKnownAccount kAccounts[] = {
  {L"S-1-0-0", L"", L"NULL SID", SidTypeWellKnownGroup},
  {L"S-1-1-0", L"", L"Everyone", SidTypeWellKnownGroup},
  {L"S-1-2-0", L"", L"LOCAL", SidTypeWellKnownGroup},
  {L"S-1-2-1", L"", L"CONSOLE LOGON", SidTypeWellKnownGroup},
  {L"S-1-3-0", L"", L"CREATOR OWNER", SidTypeWellKnownGroup},
  {L"S-1-3-1", L"", L"CREATOR GROUP", SidTypeWellKnownGroup},
  {L"S-1-3-4", L"", L"OWNER RIGHTS", SidTypeWellKnownGroup},
  {L"S-1-5-1", L"NT AUTHORITY", L"DIALUP", SidTypeWellKnownGroup},
  {L"S-1-5-2", L"NT AUTHORITY", L"NETWORK", SidTypeWellKnownGroup},
  {L"S-1-5-3", L"NT AUTHORITY", L"BATCH", SidTypeWellKnownGroup},
  {L"S-1-5-4", L"NT AUTHORITY", L"INTERACTIVE", SidTypeWellKnownGroup},
  {L"S-1-5-6", L"NT AUTHORITY", L"SERVICE", SidTypeWellKnownGroup},
  {L"S-1-5-7", L"NT AUTHORITY", L"ANONYMOUS LOGON", SidTypeWellKnownGroup},
  {L"S-1-5-8", L"NT AUTHORITY", L"PROXY", SidTypeWellKnownGroup},
  {L"S-1-5-9", L"NT AUTHORITY", L"ENTERPRISE DOMAIN CONTROLLERS", SidTypeWellKnownGroup},
  {L"S-1-5-10", L"NT AUTHORITY", L"SELF", SidTypeWellKnownGroup},
  {L"S-1-5-11", L"NT AUTHORITY", L"Authenticated Users", SidTypeWellKnownGroup},
  {L"S-1-5-12", L"NT AUTHORITY", L"RESTRICTED", SidTypeWellKnownGroup},
  {L"S-1-5-13", L"NT AUTHORITY", L"TERMINAL SERVER USER", SidTypeWellKnownGroup},
  {L"S-1-5-14", L"NT AUTHORITY", L"REMOTE INTERACTIVE LOGON", SidTypeWellKnownGroup},
  {L"S-1-5-15", L"NT AUTHORITY", L"This Organization", SidTypeWellKnownGroup},
  {L"S-1-5-17", L"NT AUTHORITY", L"IUSR", SidTypeWellKnownGroup},
  {L"S-1-5-18", L"NT AUTHORITY", L"SYSTEM", SidTypeWellKnownGroup},
  {L"S-1-5-19", L"NT AUTHORITY", L"LOCAL SERVICE", SidTypeWellKnownGroup},
  {L"S-1-5-20", L"NT AUTHORITY", L"NETWORK SERVICE", SidTypeWellKnownGroup},
  {L"S-1-5-32", L"BUILTIN", L"BUILTIN", SidTypeDomain},
  {L"S-1-5-32-544", L"BUILTIN", L"Administrators", SidTypeAlias},
  {L"S-1-5-32-545", L"BUILTIN", L"Users", SidTypeAlias},
  {L"S-1-5-32-546", L"BUILTIN", L"Guests", SidTypeAlias},
  {L"S-1-5-32-547", L"BUILTIN", L"Power Users", SidTypeAlias},
  {L"S-1-5-32-548", L"BUILTIN", L"Account Operators", SidTypeAlias},
  {L"S-1-5-32-549", L"BUILTIN", L"Server Operators", SidTypeAlias},
  {L"S-1-5-32-550", L"BUILTIN", L"Print Operators", SidTypeAlias},
  {L"S-1-5-32-551", L"BUILTIN", L"Backup Operators", SidTypeAlias},
  {L"S-1-5-32-552", L"BUILTIN", L"Replicator", SidTypeAlias},
  {L"S-1-5-32-555", L"BUILTIN", L"Remote Desktop Users", SidTypeAlias},
  {L"S-1-5-32-556", L"BUILTIN", L"Network Configuration Operators", SidTypeAlias},
  {L"S-1-5-32-558", L"BUILTIN", L"Performance Monitor Users", SidTypeAlias},
  {L"S-1-5-32-559", L"BUILTIN", L"Performance Log Users", SidTypeAlias},
  {L"S-1-5-32-562", L"BUILTIN", L"Distributed COM Users", SidTypeAlias},
  {L"S-1-5-32-568", L"BUILTIN", L"IIS_IUSRS", SidTypeAlias},
  {L"S-1-5-32-569", L"BUILTIN", L"Cryptographic Operators", SidTypeAlias},
  {L"S-1-5-32-573", L"BUILTIN", L"Event Log Readers", SidTypeAlias},
  {L"S-1-5-32-578", L"BUILTIN", L"Hyper-V Administrators", SidTypeAlias},
  {L"S-1-5-32-580", L"BUILTIN", L"Remote Management Users", SidTypeAlias},
  {L"S-1-5-64-10", L"NT AUTHORITY", L"NTLM Authentication", SidTypeWellKnownGroup},
  {L"S-1-5-64-14", L"NT AUTHORITY", L"SChannel Authentication", SidTypeWellKnownGroup},
  {L"S-1-5-64-21", L"NT AUTHORITY", L"Digest Authentication", SidTypeWellKnownGroup},
  {L"S-1-5-80-0", L"NT SERVICE", L"ALL SERVICES", SidTypeWellKnownGroup},
  {L"S-1-5-113", L"NT AUTHORITY", L"Local account", SidTypeWellKnownGroup},
  {L"S-1-5-114", L"NT AUTHORITY", L"Local account and member of Administrators group", SidTypeWellKnownGroup},
  {L"S-1-15-2-1", L"APPLICATION PACKAGE AUTHORITY", L"ALL APPLICATION PACKAGES", SidTypeWellKnownGroup},
  {L"S-1-16-4096", L"Mandatory Label", L"Low Mandatory Level", SidTypeLabel},
  {L"S-1-16-8192", L"Mandatory Label", L"Medium Mandatory Level", SidTypeLabel},
  {L"S-1-16-12288", L"Mandatory Label", L"High Mandatory Level", SidTypeLabel},
  {L"S-1-16-16384", L"Mandatory Label", L"System Mandatory Level", SidTypeLabel},
};

// Two-letter SDDL aliases that ConvertStringSidToSidW accepts in place of the numeric text.
struct SidAlias
{
  std::wstring_view alias;
  std::wstring_view sid;
};
constexpr SidAlias kAliases[] = {
  {L"WD", L"S-1-1-0"},      {L"CO", L"S-1-3-0"},      {L"CG", L"S-1-3-1"},      {L"OW", L"S-1-3-4"},
  {L"NU", L"S-1-5-2"},      {L"IU", L"S-1-5-4"},      {L"SU", L"S-1-5-6"},      {L"AN", L"S-1-5-7"},
  {L"ED", L"S-1-5-9"},      {L"PS", L"S-1-5-10"},     {L"AU", L"S-1-5-11"},     {L"RC", L"S-1-5-12"},
  {L"SY", L"S-1-5-18"},     {L"LS", L"S-1-5-19"},     {L"NS", L"S-1-5-20"},     {L"BA", L"S-1-5-32-544"},
  {L"BU", L"S-1-5-32-545"}, {L"BG", L"S-1-5-32-546"}, {L"PU", L"S-1-5-32-547"}, {L"AO", L"S-1-5-32-548"},
  {L"SO", L"S-1-5-32-549"}, {L"PO", L"S-1-5-32-550"}, {L"BO", L"S-1-5-32-551"}, {L"RE", L"S-1-5-32-552"},
  {L"RU", L"S-1-5-32-554"}, {L"RD", L"S-1-5-32-555"}, {L"NO", L"S-1-5-32-556"}, {L"MU", L"S-1-5-32-558"},
  {L"LU", L"S-1-5-32-559"}, {L"IS", L"S-1-5-32-568"}, {L"CY", L"S-1-5-32-569"}, {L"ER", L"S-1-5-32-573"},
  {L"HA", L"S-1-5-32-578"}, {L"RM", L"S-1-5-32-580"}, {L"AC", L"S-1-15-2-1"},   {L"LW", L"S-1-16-4096"},
  {L"ME", L"S-1-16-8192"},  {L"HI", L"S-1-16-12288"}, {L"SI", L"S-1-16-16384"},
};

constexpr std::size_t kHeaderSize = offsetof(SID, SubAuthority);

std::size_t SidSize(std::size_t subAuthorities) { return kHeaderSize + subAuthorities * sizeof(DWORD); }

// Reads an unsigned decimal (or "0x" hexadecimal) number no greater than limit.
bool ParseNumber(std::wstring_view& text, std::uint64_t limit, std::uint64_t& value)
{
  int base = 10;
  if (text.size() > 2 && text[0] == L'0' && (text[1] == L'x' || text[1] == L'X'))
  {
    base = 16;
    text.remove_prefix(2);
  }
  value = 0;
  std::size_t digits = 0;
  while (digits < text.size())
  {
    const wchar_t c = text[digits];
    int digit = -1;
    if (c >= L'0' && c <= L'9')
      digit = c - L'0';
    else if (base == 16 && c >= L'a' && c <= L'f')
      digit = c - L'a' + 10;
    else if (base == 16 && c >= L'A' && c <= L'F')
      digit = c - L'A' + 10;
    if (digit < 0)
      break;
    value = value * static_cast<std::uint64_t>(base) + static_cast<std::uint64_t>(digit);
    if (value > limit)
      return false;
    ++digits;
  }
  text.remove_prefix(digits);
  return digits > 0;
}

// Parses "S-1-<authority>(-<sub>)*" into the parts of a SID; false for anything malformed.
bool ParseSidText(std::wstring_view text, std::uint64_t& authority, DWORD* subs, std::size_t& count)
{
  if (text.size() < 2 || (text[0] != L'S' && text[0] != L's') || text[1] != L'-')
    return false;
  text.remove_prefix(2);
  std::uint64_t revision = 0;
  if (!ParseNumber(text, 0xFF, revision) || revision != SID_REVISION)
    return false;
  if (text.empty() || text[0] != L'-')
    return false;
  text.remove_prefix(1);
  if (!ParseNumber(text, 0xFFFFFFFFFFFFull, authority))
    return false;
  count = 0;
  while (!text.empty())
  {
    if (text[0] != L'-' || count == SID_MAX_SUB_AUTHORITIES)
      return false;
    text.remove_prefix(1);
    std::uint64_t sub = 0;
    if (!ParseNumber(text, 0xFFFFFFFFu, sub))
      return false;
    subs[count++] = static_cast<DWORD>(sub);
  }
  return true;
}

std::wstring_view ResolveAlias(std::wstring_view text)
{
  for (const auto& alias : kAliases)
    if (alias.alias == text)
      return alias.sid;
  return text;
}

std::wstring SidToText(const SID& sid)
{
  std::uint64_t authority = 0;
  for (const BYTE b : sid.IdentifierAuthority.Value)
    authority = (authority << 8) | b;
  std::wstring text = L"S-" + std::to_wstring(sid.Revision) + L"-";
  // Windows writes authorities that do not fit 32 bits in hexadecimal.
  if (authority > 0xFFFFFFFFull)
  {
    wchar_t hex[20];
    std::swprintf(hex, 20, L"0x%012llX", static_cast<unsigned long long>(authority));
    text += hex;
  }
  else
  {
    text += std::to_wstring(authority);
  }
  const DWORD* subs = reinterpret_cast<const DWORD*>(reinterpret_cast<const BYTE*>(&sid) + kHeaderSize);
  for (std::size_t i = 0; i < sid.SubAuthorityCount; ++i)
  {
    DWORD sub = 0;
    std::memcpy(&sub, subs + i, sizeof sub);
    text += L'-';
    text += std::to_wstring(sub);
  }
  return text;
}

const SID* AsValidSid(PSID sid)
{
  const auto* value = static_cast<const SID*>(sid);
  if (value == nullptr || value->Revision != SID_REVISION || value->SubAuthorityCount > SID_MAX_SUB_AUTHORITIES)
    return nullptr;
  return value;
}

// Copies a name with its terminating zero; the caller has checked the capacity.
void CopyName(std::wstring_view name, LPWSTR out)
{
  std::copy(name.begin(), name.end(), out);
  out[name.size()] = L'\0';
}
} // namespace

BOOL ConvertStringSidToSidW(LPCWSTR stringSid, PSID* sid) noexcept
{
  if (stringSid == nullptr || sid == nullptr)
  {
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
  }
  std::uint64_t authority = 0;
  DWORD subs[SID_MAX_SUB_AUTHORITIES] = {};
  std::size_t count = 0;
  if (!ParseSidText(ResolveAlias(stringSid), authority, subs, count))
  {
    SetLastError(ERROR_INVALID_SID);
    return FALSE;
  }
  auto* bytes = static_cast<BYTE*>(LocalAlloc(LPTR, SidSize(count)));
  if (bytes == nullptr)
    return FALSE;
  auto* value = reinterpret_cast<SID*>(bytes);
  value->Revision = SID_REVISION;
  value->SubAuthorityCount = static_cast<BYTE>(count);
  // The identifier authority is stored big-endian, the sub-authorities in machine order.
  for (int i = 5; i >= 0; --i, authority >>= 8)
    value->IdentifierAuthority.Value[i] = static_cast<BYTE>(authority & 0xFF);
  std::memcpy(bytes + kHeaderSize, subs, count * sizeof(DWORD));
  *sid = value;
  return TRUE;
}

BOOL ConvertSidToStringSidW(PSID sid, LPWSTR* stringSid) noexcept
{
  const SID* value = AsValidSid(sid);
  if (value == nullptr || stringSid == nullptr)
  {
    SetLastError(value == nullptr ? ERROR_INVALID_SID : ERROR_INVALID_PARAMETER);
    return FALSE;
  }
  try
  {
    const std::wstring text = SidToText(*value);
    auto* out = static_cast<LPWSTR>(LocalAlloc(LMEM_FIXED, (text.size() + 1) * sizeof(wchar_t)));
    if (out == nullptr)
      return FALSE;
    CopyName(text, out);
    *stringSid = out;
    return TRUE;
  }
  catch (const std::bad_alloc&)
  {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return FALSE;
  }
}

BOOL IsValidSid(PSID sid) noexcept { return AsValidSid(sid) != nullptr ? TRUE : FALSE; }

DWORD GetLengthSid(PSID sid) noexcept
{
  const SID* value = AsValidSid(sid);
  return value == nullptr ? 0 : static_cast<DWORD>(SidSize(value->SubAuthorityCount));
}

BOOL LookupAccountSidW(LPCWSTR, PSID sid, LPWSTR name, LPDWORD nameSize, LPWSTR domainName, LPDWORD domainNameSize,
                       PSID_NAME_USE use) noexcept
{
  const SID* value = AsValidSid(sid);
  if (value == nullptr)
  {
    SetLastError(ERROR_INVALID_SID);
    return FALSE;
  }
  if (nameSize == nullptr || domainNameSize == nullptr || use == nullptr)
  {
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
  }
  try
  {
    const std::wstring text = SidToText(*value);
    const auto* found = std::find_if(std::begin(kAccounts), std::end(kAccounts),
                                     [&](const WellKnownAccount& account) { return account.sid == text; });
    if (found == std::end(kAccounts))
    {
      SetLastError(ERROR_NONE_MAPPED);
      return FALSE;
    }
    const auto nameNeeded = static_cast<DWORD>(found->name.size() + 1);
    const auto domainNeeded = static_cast<DWORD>(found->domain.size() + 1);
    if (name == nullptr || domainName == nullptr || *nameSize < nameNeeded || *domainNameSize < domainNeeded)
    {
      *nameSize = nameNeeded;
      *domainNameSize = domainNeeded;
      SetLastError(ERROR_INSUFFICIENT_BUFFER);
      return FALSE;
    }
    CopyName(found->name, name);
    CopyName(found->domain, domainName);
    *nameSize = nameNeeded - 1;
    *domainNameSize = domainNeeded - 1;
    *use = found->use;
    return TRUE;
  }
  catch (const std::bad_alloc&)
  {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return FALSE;
  }
}
