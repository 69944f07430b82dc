#include "StateKeeper.h"

#include <algorithm>

namespace natc::run
{
class CStateKeeper::CSubscriber : public collector::ni::ICollectionTypes::ISubscriber
{
public:
  explicit CSubscriber(CStateKeeper& keeper) : m_keeper(keeper) {}
  void OnRecords(const GUID&, collector::ni::ICollectionTypes::Records records) override
  {
    if (!records.empty())
      m_keeper.recordsDelivered(records.size());
  }
  void OnStateChanged(const GUID&, const collector::ni::ICollectionTypes::IState&) override {}

private:
  CStateKeeper& m_keeper;
};

CStateKeeper::CStateKeeper(std::string path, std::vector<SCollectionState> loaded, std::FILE* out)
  : m_path(std::move(path)), m_output(out != nullptr ? natc::CBlockOutput::For(out) : nullptr),
    m_others(std::move(loaded)), m_subscriber(std::make_shared<CSubscriber>(*this))
{
  m_thread = std::thread([this] { run(); });
}

CStateKeeper::~CStateKeeper()
{
  Stop();
}

void CStateKeeper::Add(const std::wstring& task, const std::string& collection,
                       const std::shared_ptr<collector::ni::win_events::ICollectionInit>& init)
{
  const auto found = std::find_if(m_others.begin(), m_others.end(), [&](const SCollectionState& state) {
    return state.task == task && state.collection == collection;
  });
  if (found != m_others.end())
  {
    init->RestoreBookmarks(found->bookmarks);
    m_others.erase(found);
  }
  const std::lock_guard lock(m_saveLock);
  m_kept.push_back({task, collection, init});
}

std::shared_ptr<collector::ni::ICollectionTypes::ISubscriber> CStateKeeper::Subscriber()
{
  return m_subscriber;
}

void CStateKeeper::recordsDelivered(std::size_t count)
{
  bool saveNow = false;
  bool wasClean = false;
  {
    const std::lock_guard lock(m_lock);
    wasClean = !m_dirty;
    m_dirty = true;
    m_delivered += count;
    m_sinceSave += count;
    if (m_sinceSave >= saveEvery)
    {
      m_sinceSave = 0;
      saveNow = true;
    }
  }
  // A full batch is saved before the collection delivers more, which bounds what a crash repeats;
  // the rest is saved by the keeper's thread once the records pause.
  if (saveNow)
    Save();
  else if (wasClean)
    m_wake.notify_one();
}

void CStateKeeper::run()
{
  std::unique_lock lock(m_lock);
  for (;;)
  {
    m_wake.wait(lock, [this] { return m_dirty || m_stopping; });
    // While records keep coming their deliverer saves every batch; an fsync per record would
    // cost more than the reading.
    for (std::size_t seen = m_delivered;; seen = m_delivered)
    {
      if (m_wake.wait_for(lock, quietDelay, [this] { return m_stopping; }))
        return;
      if (m_delivered == seen)
        break;
    }
    m_dirty = false;
    m_sinceSave = 0;
    lock.unlock();
    Save();
    lock.lock();
  }
}

void CStateKeeper::Stop()
{
  {
    const std::lock_guard lock(m_lock);
    if (m_stopping)
      return;
    m_stopping = true;
  }
  m_wake.notify_one();
  if (m_thread.joinable())
    m_thread.join();
  Save();
}

bool CStateKeeper::Save()
{
  const std::lock_guard lock(m_saveLock);
  std::vector<SCollectionState> states = m_others;
  // Bookmarks first, then the flush: every event they cover was written before they moved.
  for (const auto& kept : m_kept)
    states.push_back({kept.task, kept.collection, kept.init->SaveBookmarks()});
  if (m_output)
    m_output->Flush();
  try
  {
    SaveStateFile(m_path, states);
    return true;
  }
  catch (const CStateError& error)
  {
    std::fprintf(stderr, "natc run: %s\n", error.what());
    return false;
  }
}
std::unique_ptr<CStateKeeper> KeepState(CRunner& runner, const std::string& path, std::vector<SCollectionState> loaded,
                                        std::FILE* out)
{
  auto keeper = std::make_unique<CStateKeeper>(path, std::move(loaded), out);
  for (const auto& place : runner.Places())
  {
    auto init = std::dynamic_pointer_cast<collector::ni::win_events::ICollectionInit>(place.collection);
    if (!init)
      continue;
    keeper->Add(place.task, CollectionStateName(place.index), init);
    place.collection->Subscribe(keeper->Subscriber());
  }
  return keeper;
}
} // namespace natc::run
