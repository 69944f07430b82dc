// Runs a checked `natc run` configuration: builds the collector through create_collector and its
// pools only, configures every collection through its init interface, subscribes a JSON-line
// printer to each (and to the target collection of every "MiPerf"), and runs them.
//   natc::run::CRunner runner(config, "natc-run.json", stdout);   // builds; throws on failure
//   runner.Start(); ...wait... runner.Stop();                      // Stop(true) on everything
#pragma once

#include "RunConfig.h"

#include "Collector/Interfaces/ICollection.h"
#include "Collector/Interfaces/ICollector.h"
#include "KeldaKernel/Pool.h"

#include <cstdio>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace natc
{
class JsonLinePrinter;
}

namespace natc::run
{
class CRunner
{
public:
  // Builds everything and starts nothing. A failure (a type this library lacks, a filter the
  // collection refuses) throws std::runtime_error naming the file, the line and the reason;
  // what was built is stopped and released. With `skipUnavailable`, a collection whose type is
  // not built in is left out with a note on stderr instead (for the embedded default).
  CRunner(const SRunConfig& config, const std::string& fileName, std::FILE* out, unsigned threads = 0,
          bool skipUnavailable = false);
  ~CRunner();
  CRunner(const CRunner&) = delete;
  CRunner& operator=(const CRunner&) = delete;

  // Adds a subscriber to every collection (call before Start to see every change).
  void Subscribe(const std::shared_ptr<collector::ni::ICollectionTypes::ISubscriber>& subscriber);
  // Runs every collection.
  void Start();
  // Stops every collection and waits for running updates (the collector's Stop(true)).
  void Stop();

  std::size_t CollectionCount() const noexcept { return m_collections.size(); }
  // Each "WindowsEvents" collection with its channels ("System+Security"), for a progress line.
  const std::vector<std::pair<GUID, std::string>>& EventCollections() const noexcept { return m_eventCollections; }
  std::size_t RecordCount() const;
  // Each collection, with its task's name and its place in the task's "collections".
  struct SPlace
  {
    std::wstring task;
    std::size_t index = 0;
    std::shared_ptr<collector::ni::ICollection> collection;
  };
  const std::vector<SPlace>& Places() const noexcept { return m_places; }
  // The final state of each collection (after Stop).
  std::vector<collector::ni::ICollectionTypes::States> States() const;

private:
  void build(const SRunConfig& config, const std::string& fileName, std::FILE* out, bool skipUnavailable);

  pool m_workers;
  std::shared_ptr<collector::ni::ICollector> m_collector;
  std::vector<std::shared_ptr<collector::ni::ICollection>> m_collections;
  std::vector<std::shared_ptr<JsonLinePrinter>> m_printers;
  std::vector<std::pair<GUID, std::string>> m_eventCollections;
  std::vector<SPlace> m_places;
  bool m_stopped = false;
};
} // namespace natc::run
