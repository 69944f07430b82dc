#include "Cim/Wql/Execute.h"

#include "Cim/Wql/Parser.h"

#include <exception>
#include <string>

namespace cim::wql
{
namespace
{
std::wstring Widen(const char* text)
{
  std::wstring wide;
  for (const char* p = text; *p; ++p)
    wide.push_back(static_cast<wchar_t>(static_cast<unsigned char>(*p)));
  return wide;
}
} // namespace

Result Execute(const Host& host, std::wstring_view nameSpace, std::wstring_view queryText)
{
  Result result;
  if (!host.HasNamespace(nameSpace))
  {
    result.error = Error{kInvalidNamespace, L"Invalid namespace: " + std::wstring(nameSpace)};
    return result;
  }
  std::optional<BoundQuery> bound;
  std::shared_ptr<Provider> provider;
  try
  {
    const Query query = Parse(queryText);
    provider = host.Find(nameSpace, query.className);
    if (!provider)
      throw Error{kInvalidClass, L"Invalid class: " + query.className};
    bound.emplace(query, provider->Class());
  }
  catch (Error& error)
  {
    result.error = std::move(error);
    return result;
  }
  result.decl = bound->Class();

  // A provider may append some instances and then fail: the ones it made still count.
  std::vector<Instance> all;
  try
  {
    provider->Enumerate(all);
  }
  catch (Error& error)
  {
    result.error = std::move(error);
  }
  catch (const std::exception& error)
  {
    result.error = Error{kFailed, Widen(error.what())};
  }
  result.instances.reserve(all.size());
  for (Instance& instance : all)
  {
    if (instance.elements.size() != result.decl->properties.size())
    {
      // Never hand out an instance whose layout is not the declared class's; report it instead.
      if (!result.error)
        result.error = Error{kFailed, L"Provider returned an instance that is not of class " + result.decl->name};
      continue;
    }
    if (!bound->Matches(instance))
      continue;
    bound->Project(instance);
    result.instances.push_back(std::move(instance));
  }
  return result;
}
} // namespace cim::wql
