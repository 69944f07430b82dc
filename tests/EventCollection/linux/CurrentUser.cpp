// The effective user's login name from the password database.
#include "../CurrentUser.h"

#include "KeldaKernel/Strings.h"

#include <pwd.h>
#include <unistd.h>

std::wstring TestProcessUserName()
{
  const passwd* entry = getpwuid(geteuid());
  return entry != nullptr ? kelda::FromUtf8(entry->pw_name) : std::wstring();
}
