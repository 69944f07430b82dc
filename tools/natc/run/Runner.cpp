#include "Runner.h"

#include "output/JsonLines.h"

#include "Collector/Interfaces.h"
#include "Collector/WinEvents/CreateCollector.h"
#include "KeldaKernel/Cancellation.h"
#include "KeldaKernel/Exceptions.h"

#include <algorithm>
#include <map>
#include <stdexcept>
#include <thread>

namespace natc::run
{
namespace
{
using namespace collector::ni;

unsigned WorkerCount(unsigned threads)
{
  return threads != 0 ? threads : std::max(2u, std::thread::hardware_concurrency());
}

std::string Describe(const std::exception& error)
{
  try
  {
    return kelda::ToUtf8(get_description(error));
  }
  catch (const std::exception&)
  {
    return error.what();
  }
}

[[noreturn]] void Fail(const std::string& fileName, int line, const std::string& what)
{
  throw std::runtime_error(fileName + ":" + std::to_string(line) + ": " + what);
}

// Hands the collection its type's configuration.
void Configure(ICollection& collection, const SCollectionConfig& config)
{
  if (config.period)
  {
    dynamic_cast<ICollectionInit&>(collection).SetUpdatePeriod(*config.period);
  }
  if (config.type == L"WindowsEvents")
  {
    std::vector<win_events::SFilter> filters = config.eventFilters;
    dynamic_cast<win_events::ICollectionInit&>(collection).SetFilter(filters);
  }
  else if (config.type == L"MiProp")
  {
    dynamic_cast<mi::IMiCollectionInit&>(collection).SetFilter(config.miFilter);
  }
  else if (config.type == L"MiPerf")
  {
    dynamic_cast<performance::IMiPerfCollectionInit&>(collection).SetCounterFilter(config.counters);
  }
}
} // namespace

CRunner::CRunner(const SRunConfig& config, const std::string& fileName, std::FILE* out, unsigned threads,
                 bool skipUnavailable)
  : m_workers(WorkerCount(threads))
{
  m_collector = collector::win_events::create_collector(m_workers, create_cancellation());
  try
  {
    build(config, fileName, out, skipUnavailable);
  }
  catch (...)
  {
    Stop();
    throw;
  }
}

CRunner::~CRunner()
{
  Stop();
}

void CRunner::build(const SRunConfig& config, const std::string& fileName, std::FILE* out, bool skipUnavailable)
{
  std::map<std::string, GUID> hosts;
  for (const auto& host : config.hosts)
  {
    hosts[host.id] = m_collector->GetHostPool()->Create(host.name)->GetId();
  }
  std::map<std::string, GUID> users;
  for (const auto& user : config.users)
  {
    users[user.id] = m_collector->GetUserPool()->Create(user.name, user.password)->GetId();
  }
  // Tasks without a user run as the process's own identity: the default user, no credentials.
  const GUID defaultUser = m_collector->GetUserPool()->CreateDefault(L"", L"")->GetId();
  std::vector<SConfigProblem> refusals;

  for (const auto& taskConfig : config.tasks)
  {
    const GUID user = taskConfig.user.empty() ? defaultUser : users.at(taskConfig.user);
    auto task = m_collector->GetTaskPool()->Deploy(taskConfig.name, hosts.at(taskConfig.host), user);
    for (const auto& collectionConfig : taskConfig.collections)
    {
      const std::string type = kelda::ToUtf8(collectionConfig.type);
      std::shared_ptr<ICollection> collection;
      try
      {
        collection = task->CreateCollection(collectionConfig.type);
        if (!collection && skipUnavailable)
        {
          std::fprintf(stderr, "natc run: collection type \"%s\" is not built into this natc; left out\n",
                       type.c_str());
          continue;
        }
        if (!collection)
        {
          Fail(fileName, collectionConfig.line, "collection type \"" + type + "\" is not built into this natc");
        }
        Configure(*collection, collectionConfig);
      }
      catch (const std::runtime_error&)
      {
        throw;
      }
      catch (const std::exception& error)
      {
        // Every refusal is listed, so that one check shows them all.
        refusals.push_back({fileName, collectionConfig.line,
                            collectionConfig.path + ": \"" + type + "\" collection refused its configuration: " +
                              Describe(error)});
        continue;
      }
      auto printer = std::make_shared<JsonLinePrinter>(collectionConfig.type, out);
      collection->Subscribe(printer);
      m_printers.push_back(printer);
      // A performance collection publishes the identifier of its target collection, whose
      // records describe the targets its counter records refer to.
      if (auto* properties = dynamic_cast<IProperties*>(collection.get()))
      {
        const FieldValue id = properties->GetProperty(L"TargetCollectionId");
        if (const auto* guid = std::get_if<GUID>(&id))
        {
          if (auto targets = task->GetCollection(*guid))
          {
            auto targetPrinter = std::make_shared<JsonLinePrinter>(L"MiPerfTargets", out);
            targets->Subscribe(targetPrinter);
            m_printers.push_back(targetPrinter);
          }
        }
      }
      if (collectionConfig.type == L"WindowsEvents")
      {
        std::string channels;
        for (const auto& filter : collectionConfig.eventFilters)
        {
          channels += (channels.empty() ? "" : "+") + kelda::ToUtf8(filter.Path);
        }
        m_eventCollections.emplace_back(collection->GetId(), channels);
      }
      m_places.push_back({taskConfig.name, static_cast<std::size_t>(&collectionConfig - taskConfig.collections.data()),
                          collection});
      m_collections.push_back(std::move(collection));
    }
  }
  if (!refusals.empty())
  {
    throw CConfigError(std::move(refusals));
  }
}

void CRunner::Subscribe(const std::shared_ptr<ICollectionTypes::ISubscriber>& subscriber)
{
  for (const auto& collection : m_collections)
  {
    collection->Subscribe(subscriber);
  }
}

void CRunner::Start()
{
  for (const auto& collection : m_collections)
  {
    collection->Run();
  }
}

void CRunner::Stop()
{
  if (!m_stopped && m_collector)
  {
    m_stopped = true;
    m_collector->Stop(true);
  }
}

std::size_t CRunner::RecordCount() const
{
  std::size_t count = 0;
  for (const auto& printer : m_printers)
  {
    count += printer->RecordCount();
  }
  return count;
}

std::vector<ICollectionTypes::States> CRunner::States() const
{
  std::vector<ICollectionTypes::States> states;
  for (const auto& collection : m_collections)
  {
    states.push_back(collection->GetState());
  }
  return states;
}
} // namespace natc::run
