// Many collections on one pool: N collections (default 10,000) with a 1 s period and an empty
// update run for D seconds (default 30). Reports how late each update starts against its
// intended start (the previous start plus the period) as p50 / p99 / max, the lateness of the
// first updates after Run, and the process CPU time during the run as a share of one core.
//   bench_collections [--collections N] [--seconds D] [--threads T]
#include "CollectionBase.h"
#include "KeldaKernel/Cancellation.h"
#include "KeldaKernel/Logger.h"
#include "KeldaKernel/Pool.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <vector>

namespace
{
using Clock = std::chrono::steady_clock;
using collector::ni::impl::CCollectionBase;

// Start times of one collection's updates; updates of one collection never overlap.
class CEmptyCollection : public CCollectionBase
{
public:
  CEmptyCollection(const std::shared_ptr<CLog>& log, const pool& threadPool, const std::shared_ptr<ICancellationToken>& token)
    : CCollectionBase(log, threadPool, token, nullptr, nullptr, nullptr)
  {
    m_starts.reserve(64);
  }

  const std::vector<Clock::time_point>& Starts() const { return m_starts; }

protected:
  void updateImpl() override
  {
    if (m_starts.size() < m_starts.capacity())
    {
      m_starts.push_back(Clock::now());
    }
  }

private:
  std::vector<Clock::time_point> m_starts;
};

double CpuSeconds()
{
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

double Percentile(std::vector<double>& values, double share)
{
  if (values.empty())
  {
    return 0.0;
  }
  const auto index = static_cast<std::size_t>(share * static_cast<double>(values.size() - 1));
  std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(index), values.end());
  return values[index];
}
} // namespace

int main(int argc, char** argv)
{
  int collections = 10000;
  int seconds = 30;
  unsigned threads = 2;
  for (int i = 1; i + 1 < argc; i += 2)
  {
    if (std::strcmp(argv[i], "--collections") == 0)
      collections = std::atoi(argv[i + 1]);
    else if (std::strcmp(argv[i], "--seconds") == 0)
      seconds = std::atoi(argv[i + 1]);
    else if (std::strcmp(argv[i], "--threads") == 0)
      threads = static_cast<unsigned>(std::atoi(argv[i + 1]));
  }
  // Only failures are printed; the per-update debug lines are still formatted and skipped.
  CKeldaLogger::instance().setLevel(ELogLevel::Error);

  pool threadPool(threads);
  const auto root = create_cancellation();
  const auto log = std::make_shared<CLog>(nullptr, L"[Bench]");
  std::vector<std::shared_ptr<CEmptyCollection>> all;
  all.reserve(static_cast<std::size_t>(collections));
  for (int i = 0; i < collections; ++i)
  {
    all.push_back(std::make_shared<CEmptyCollection>(log, threadPool, root));
    all.back()->SetUpdatePeriod(1);
  }

  const double cpuBefore = CpuSeconds();
  const auto wallBefore = Clock::now();
  std::vector<Clock::time_point> runAt(all.size());
  for (std::size_t i = 0; i < all.size(); ++i)
  {
    runAt[i] = Clock::now();
    all[i]->Run();
  }
  std::this_thread::sleep_for(std::chrono::seconds(seconds));
  const double cpuAfter = CpuSeconds();
  const std::chrono::duration<double> wall = Clock::now() - wallBefore;

  for (const auto& collection : all)
  {
    collection->Stop(false);
  }
  for (const auto& collection : all)
  {
    collection->Stop(true);
  }

  std::vector<double> lateMs;
  std::vector<double> firstMs;
  for (std::size_t i = 0; i < all.size(); ++i)
  {
    const auto& starts = all[i]->Starts();
    if (!starts.empty())
    {
      firstMs.push_back(std::chrono::duration<double, std::milli>(starts[0] - runAt[i]).count());
    }
    for (std::size_t k = 1; k < starts.size(); ++k)
    {
      const auto intended = starts[k - 1] + std::chrono::seconds(1);
      lateMs.push_back(std::chrono::duration<double, std::milli>(starts[k] - intended).count());
    }
  }
  const double maxLate = lateMs.empty() ? 0.0 : *std::max_element(lateMs.begin(), lateMs.end());
  const double minLate = lateMs.empty() ? 0.0 : *std::min_element(lateMs.begin(), lateMs.end());
  const double maxFirst = firstMs.empty() ? 0.0 : *std::max_element(firstMs.begin(), firstMs.end());
  std::printf("collections %d, period 1 s, pool threads %u, run %.1f s\n", collections, threads, wall.count());
  std::printf("periodic updates measured: %zu (expected about %d)\n", lateMs.size(), collections * (seconds - 1));
  std::printf("lateness vs previous start + period, ms: p50 %.3f  p99 %.3f  max %.3f  (min %.3f)\n",
              Percentile(lateMs, 0.50), Percentile(lateMs, 0.99), maxLate, minLate);
  std::printf("first update after Run, ms: p50 %.3f  p99 %.3f  max %.3f\n", Percentile(firstMs, 0.50),
              Percentile(firstMs, 0.99), maxFirst);
  std::printf("process CPU during the run: %.2f s = %.1f %% of one core\n", cpuAfter - cpuBefore,
              100.0 * (cpuAfter - cpuBefore) / wall.count());
  return 0;
}
