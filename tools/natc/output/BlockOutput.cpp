#include "output/BlockOutput.h"

#include <map>
#include <utility>

namespace natc
{
std::shared_ptr<CBlockOutput> CBlockOutput::For(std::FILE* stream)
{
  static std::mutex registryLock;
  static std::map<std::FILE*, std::weak_ptr<CBlockOutput>> registry;
  const std::lock_guard lock(registryLock);
  auto& entry = registry[stream];
  auto output = entry.lock();
  if (!output)
  {
    output = std::make_shared<CBlockOutput>(stream);
    entry = output;
  }
  return output;
}

CBlockOutput::CBlockOutput(std::FILE* stream)
  : m_stream(stream), m_flusher([this](const std::stop_token& stop) { flushLater(stop); })
{
}

CBlockOutput::~CBlockOutput()
{
  m_flusher.request_stop();
  m_flusher.join();
  Flush();
}

void CBlockOutput::Flush()
{
  std::unique_lock lock(m_lock);
  writeOut(lock);
}

void CBlockOutput::writeOut(std::unique_lock<std::mutex>& lock)
{
  const std::lock_guard writing(m_writeLock);
  std::swap(m_block, m_spare);
  lock.unlock();
  // Other writers of the stream (a command's own messages) keep their lines whole too.
  flockfile(m_stream);
  if (m_spare.GetSize() != 0)
    std::fwrite(m_spare.GetString(), 1, m_spare.GetSize(), m_stream);
  std::fflush(m_stream);
  funlockfile(m_stream);
  m_spare.Clear();
}

void CBlockOutput::flushLater(const std::stop_token& stop)
{
  std::unique_lock lock(m_lock);
  while (m_wake.wait(lock, stop, [this] { return m_block.GetSize() != 0; }))
  {
    // Lines come in bursts (an update's batches): let the burst fill the block first.
    m_wake.wait_for(lock, stop, flushDelay, [] { return false; });
    if (m_block.GetSize() != 0)
    {
      writeOut(lock);
      lock.lock();
    }
  }
}
} // namespace natc
