// Whole lines written to a stream in large blocks, for the printers of every natc command.
// Writers append complete lines into one shared buffer under its lock (lines never interleave);
// the block goes out when it holds blockSize bytes, at Flush, and at the latest flushDelay
// after its first line was appended (a background thread), so that the last lines of a quiet
// collection's update are never held back. Every printer of one stream shares one sink:
//   auto out = CBlockOutput::For(stdout);
//   out->Append([&](rapidjson::StringBuffer& block) { ...write whole lines... });
#pragma once

#include <rapidjson/stringbuffer.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <memory>
#include <mutex>
#include <stop_token>
#include <thread>

namespace natc
{
class CBlockOutput
{
public:
  static constexpr std::size_t blockSize = 1u << 20;
  static constexpr std::chrono::milliseconds flushDelay{50};

  // The sink of this stream, shared with every other printer of it while one is alive.
  static std::shared_ptr<CBlockOutput> For(std::FILE* stream);

  explicit CBlockOutput(std::FILE* stream);
  ~CBlockOutput();
  CBlockOutput(const CBlockOutput&) = delete;
  CBlockOutput& operator=(const CBlockOutput&) = delete;

  // Calls format(block) under the lock; format appends whole lines only.
  template <class Format>
  void Append(Format&& format)
  {
    std::unique_lock lock(m_lock);
    const bool wasEmpty = m_block.GetSize() == 0;
    format(m_block);
    if (m_block.GetSize() >= blockSize)
      writeOut(lock);
    else if (wasEmpty)
      m_wake.notify_one();
  }

  // Writes what is buffered and flushes the stream before returning.
  void Flush();

private:
  // Hands the block to the stream; releases lock, keeping the order of blocks.
  void writeOut(std::unique_lock<std::mutex>& lock);
  void flushLater(const std::stop_token& stop);

  std::FILE* m_stream;
  std::mutex m_lock;
  // Taken under m_lock, held while a block is written, so that blocks leave in order.
  std::mutex m_writeLock;
  rapidjson::StringBuffer m_block;
  rapidjson::StringBuffer m_spare;
  std::condition_variable_any m_wake;
  std::jthread m_flusher;
};
} // namespace natc
