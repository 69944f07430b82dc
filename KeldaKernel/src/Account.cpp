// "Is DOMAIN\user the account we run as": the domain must name this machine and the user be the
// process's own, both compared without case; the platform answers the two questions.
#include "KeldaKernel/Account.h"

#include "AccountPlatform.h"

bool IsCurrentFullyQualifiedUser(const tstring& domainAndUser)
{
  const auto separator = domainAndUser.find(L'\\');
  if (separator == tstring::npos)
    return false;
  const std::wstring_view text(domainAndUser);
  const std::wstring_view user = text.substr(separator + 1);
  if (user.empty() || !kelda::account::IsThisMachine(text.substr(0, separator)))
    return false;
  const std::wstring current = kelda::account::CurrentUserName();
  return !current.empty() && kelda::account::NamesEqual(user, current);
}
