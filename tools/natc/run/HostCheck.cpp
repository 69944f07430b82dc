#include "HostCheck.h"

#include "HostPlatform.h"
#include "MiCollection.h"
#include "MiInstance.h"
#include "MiSession.h"

#include "KeldaKernel/Exceptions.h"
#include "KeldaKernel/Strings.h"

#include <map>
#include <memory>
#include <optional>

namespace natc::run
{
namespace
{
class CHostChecker
{
public:
  explicit CHostChecker(std::string fileName) : m_file(std::move(fileName)) {}

  void Properties(const SCollectionConfig& collection, bool local)
  {
    const std::wstring query = collector::ni::impl::BuildMiPropQuery(collection.miFilter);
    if (const auto problem = WqlSyntaxProblem(query))
    {
      add(collection, ".filter", "WQL \"" + kelda::ToUtf8(query) + "\" does not parse: " + *problem);
      return;
    }
    if (!local)
    {
      return;
    }
    if (const auto reason = refused(collection.miFilter.Namespace, query))
    {
      add(collection, ".filter", "this machine's MI refuses \"" + kelda::ToUtf8(query) + "\": " + *reason);
    }
  }

  void Counters(const SCollectionConfig& collection, bool local)
  {
    if (!local)
    {
      return;
    }
    for (std::size_t i = 0; i < collection.counters.size(); ++i)
    {
      const auto& counter = collection.counters[i];
      const std::wstring query = L"SELECT " + counter.CounterName + L" FROM " + counter.ClassName;
      if (const auto reason = refused(L"root/cimv2", query))
      {
        add(collection, ".counters[" + std::to_string(i) + "]",
            "counter " + kelda::ToUtf8(counter.ClassName) + "." + kelda::ToUtf8(counter.CounterName) +
              " is not known to this machine's MI: " + *reason);
      }
    }
  }

  std::vector<SConfigProblem> Take() { return std::move(m_problems); }

private:
  // Runs `query` up to its first result; the MI API's reason when it is refused.
  std::optional<std::string> refused(const std::wstring& nameSpace, const std::wstring& query)
  {
    try
    {
      CMiInstanceOperation operation = session().QueryInstances(nameSpace, query);
      operation.GetInstance();
      operation.Close();
      return std::nullopt;
    }
    catch (const std::exception& error)
    {
      return kelda::ToUtf8(get_description(error));
    }
  }

  CMiSession& session()
  {
    if (!m_session)
    {
      // Kept only once connected, so that a failed connection is tried again (and reported).
      auto session = std::make_shared<CMiSession>(CMiApplication::CreateInstance());
      session->Connect(L"localhost", L"", L"", L"");
      m_session = std::move(session);
    }
    return *m_session;
  }

  void add(const SCollectionConfig& collection, const std::string& member, const std::string& reason)
  {
    m_problems.push_back({m_file, collection.line, collection.path + member + ": " + reason});
  }

  std::string m_file;
  std::shared_ptr<CMiSession> m_session;
  std::vector<SConfigProblem> m_problems;
};
} // namespace

std::vector<SConfigProblem> CheckAgainstHost(const SRunConfig& config, const std::string& fileName)
{
  std::map<std::string, bool> local;
  for (const auto& host : config.hosts)
  {
    local[host.id] = IsThisMachine(host.name);
  }
  CHostChecker check(fileName);
  for (const auto& task : config.tasks)
  {
    for (const auto& collection : task.collections)
    {
      if (collection.type == L"MiProp")
      {
        check.Properties(collection, local[task.host]);
      }
      else if (collection.type == L"MiPerf")
      {
        check.Counters(collection, local[task.host]);
      }
    }
  }
  return check.Take();
}
} // namespace natc::run
