#include "common/Progress.h"

#include <unistd.h>

#include <algorithm>
#include <numeric>

namespace natc
{
namespace
{
// A terminal redrawn more often than this only flickers.
constexpr std::chrono::milliseconds kRedrawEvery{250};
} // namespace

CProgressLine::CProgressLine(std::FILE* out) : m_out(out) {}

CProgressLine::~CProgressLine()
{
  Finish();
}

bool CProgressLine::Wanted()
{
  return isatty(STDERR_FILENO) == 1;
}

void CProgressLine::Name(const GUID& collectionId, std::string label)
{
  const std::lock_guard lock(m_lock);
  m_collections.push_back({collectionId, std::move(label)});
}

void CProgressLine::OnRecords(const GUID& collectionId, collector::ni::ICollectionTypes::Records records)
{
  const std::lock_guard lock(m_lock);
  const auto found = std::find_if(m_collections.begin(), m_collections.end(),
                                  [&](const SCounted& counted) { return counted.id == collectionId; });
  if (found == m_collections.end())
  {
    return;
  }
  found->records += records.size();
  const Clock::time_point now = Clock::now();
  if (!m_shown || now - m_lastDraw >= kRedrawEvery)
  {
    draw(now);
  }
}

void CProgressLine::draw(Clock::time_point now)
{
  const unsigned long long total = std::accumulate(m_collections.begin(), m_collections.end(), 0ULL,
                                                   [](unsigned long long sum, const SCounted& c) { return sum + c.records; });
  std::string line = "\r";
  for (const auto& counted : m_collections)
  {
    line += counted.label + ": " + std::to_string(counted.records) + " | ";
  }
  const double seconds = std::chrono::duration<double>(now - m_lastDraw).count();
  const auto rate = m_shown && seconds > 0 ? static_cast<unsigned long long>((total - m_recordsAtLastDraw) / seconds) : 0ULL;
  line += std::to_string(rate) + " events/s\033[K";
  std::fputs(line.c_str(), m_out);
  std::fflush(m_out);
  m_shown = true;
  m_lastDraw = now;
  m_recordsAtLastDraw = total;
}

void CProgressLine::Finish()
{
  const std::lock_guard lock(m_lock);
  if (m_shown)
  {
    std::fputs("\r\033[K", m_out);
    std::fflush(m_out);
    m_shown = false;
  }
}
} // namespace natc
