// Keeps the state file of `natc run --state FILE` up to date while collections run. It hands
// each "WindowsEvents" collection the bookmarks the file holds for it (before Run), and, as a
// subscriber, saves every collection's bookmarks after records were delivered, after flushing
// the output, so that the file never names an event not yet written: itself after every 99
// records (before the collection goes on), so that a crash repeats at most one batch of 100, and
// on its own thread for the records since, once they pause.
//   CStateKeeper keeper(path, loaded, stdout);
//   keeper.Add(L"event logs", "collections[0]", collection);   // restores its bookmarks
//   runner.Subscribe(keeper.Subscriber()); runner.Start(); ... runner.Stop(); keeper.Stop();
#pragma once

#include "Runner.h"
#include "StateFile.h"
#include "output/BlockOutput.h"

#include "Collector/Interfaces/ICollection.h"

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace natc::run
{
class CStateKeeper
{
public:
  // loaded: the file's collections (empty for a fresh start); out: the records' stream.
  CStateKeeper(std::string path, std::vector<SCollectionState> loaded, std::FILE* out);
  ~CStateKeeper();
  CStateKeeper(const CStateKeeper&) = delete;
  CStateKeeper& operator=(const CStateKeeper&) = delete;

  // Restores the collection's bookmarks from the file, and keeps them from now on.
  void Add(const std::wstring& task, const std::string& collection,
           const std::shared_ptr<collector::ni::win_events::ICollectionInit>& init);
  // Subscribe it to every collection: records delivered make the keeper save.
  std::shared_ptr<collector::ni::ICollectionTypes::ISubscriber> Subscriber();
  // Ends the saving thread and saves once more (call after the collections stopped).
  void Stop();
  // Saves now; false, with a line on stderr, when the file cannot be written.
  bool Save();

private:
  class CSubscriber;
  void run();
  void recordsDelivered(std::size_t count);
  // Records after which the subscriber itself saves: the record being delivered is not in the
  // bookmarks yet, so a crash repeats at most this many plus one, an Event Log API batch of 100.
  static constexpr std::size_t saveEvery = 99;
  // The pause in the records after which the keeper's thread saves the rest: the output's own
  // delay before it writes the end of a burst.
  static constexpr std::chrono::milliseconds quietDelay = natc::CBlockOutput::flushDelay;

  struct SKept
  {
    std::wstring task;
    std::string collection;
    std::shared_ptr<collector::ni::win_events::ICollectionInit> init;
  };

  std::string m_path;
  // The printers' block sink of the records' stream: their lines wait there, not in stdio.
  std::shared_ptr<natc::CBlockOutput> m_output;
  // Entries of the file that no collection of this run claims: written back unchanged.
  std::vector<SCollectionState> m_others;
  std::vector<SKept> m_kept;
  std::mutex m_saveLock;
  std::mutex m_lock;
  std::condition_variable m_wake;
  bool m_dirty = false;
  std::size_t m_sinceSave = 0;
  std::size_t m_delivered = 0;
  bool m_stopping = false;
  std::shared_ptr<CSubscriber> m_subscriber;
  std::thread m_thread;
};
// A keeper of the runner's "WindowsEvents" collections, their bookmarks restored and itself
// subscribed to them (call before runner.Start()).
std::unique_ptr<CStateKeeper> KeepState(CRunner& runner, const std::string& path, std::vector<SCollectionState> loaded,
                                        std::FILE* out);
} // namespace natc::run
