// One updating line on a terminal's stderr while collections deliver records: the records of
// each collection so far and the records per second, e.g.
//   System+Security: 12034 | Application: 803 | 5120 events/s
// Subscribe it to each collection with its label; Finish() (or the destructor) clears the line.
// Make one only when stderr is a terminal (CProgressLine::Wanted()); elsewhere nothing is shown.
#pragma once

#include "Collector/Interfaces/ICollection.h"

#include <chrono>
#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

namespace natc
{
class CProgressLine : public collector::ni::ICollectionTypes::ISubscriber
{
public:
  explicit CProgressLine(std::FILE* out);
  ~CProgressLine() override;
  CProgressLine(const CProgressLine&) = delete;
  CProgressLine& operator=(const CProgressLine&) = delete;

  // Whether stderr is a terminal.
  static bool Wanted();

  // Names the collection in the line; records of collections not named are not counted.
  void Name(const GUID& collectionId, std::string label);
  void OnRecords(const GUID& collectionId, collector::ni::ICollectionTypes::Records records) override;
  void OnStateChanged(const GUID&, const collector::ni::ICollectionTypes::IState&) override {}
  // Clears the line.
  void Finish();

private:
  using Clock = std::chrono::steady_clock;
  struct SCounted
  {
    GUID id;
    std::string label;
    unsigned long long records = 0;
  };
  void draw(Clock::time_point now);

  std::FILE* m_out;
  std::mutex m_lock;
  std::vector<SCounted> m_collections;
  Clock::time_point m_lastDraw{};
  unsigned long long m_recordsAtLastDraw = 0;
  bool m_shown = false;
};
} // namespace natc
