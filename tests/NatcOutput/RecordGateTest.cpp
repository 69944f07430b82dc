// The gate between a collection and the printer of a command that promised so many updates:
// open, everything passes; closed, an update beyond the promise prints nothing, and the stop's
// notices come out as Stopping, Stopped whatever order the two threads sent them in.
#include "common/CollectionLifetime.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace
{
using collector::ni::ICollectionTypes;

class CState : public ICollectionTypes::IState
{
public:
  explicit CState(ICollectionTypes::States state) : m_state(state) {}
  ICollectionTypes::States GetState() const override { return m_state; }
  tstring GetDescription() const override { return {}; }

private:
  ICollectionTypes::States m_state;
};

// Remembers what reaches it: record batches by their size, states by their value.
class CSeen : public ICollectionTypes::ISubscriber
{
public:
  void OnRecords(const GUID&, ICollectionTypes::Records records) override { batches.push_back(records.size()); }
  void OnStateChanged(const GUID&, const ICollectionTypes::IState& state) override { states.push_back(state.GetState()); }
  std::vector<std::size_t> batches;
  std::vector<ICollectionTypes::States> states;
};

const GUID kCollection{};

void Send(CRecordGate& gate, ICollectionTypes::States state)
{
  gate.OnStateChanged(kCollection, CState(state));
}

TEST(RecordGate, OpenPassesEverything)
{
  auto seen = std::make_shared<CSeen>();
  CRecordGate gate(seen);
  Send(gate, ICollectionTypes::Starting);
  gate.OnRecords(kCollection, {});
  Send(gate, ICollectionTypes::Running);
  Send(gate, ICollectionTypes::Stopped);
  Send(gate, ICollectionTypes::Stopping);
  EXPECT_EQ(seen->batches.size(), 1U);
  EXPECT_EQ(seen->states, (std::vector<ICollectionTypes::States>{ICollectionTypes::Starting, ICollectionTypes::Running,
                                                                  ICollectionTypes::Stopped, ICollectionTypes::Stopping}));
}

TEST(RecordGate, ClosedDropsAFurtherUpdateAndOrdersTheStop)
{
  auto seen = std::make_shared<CSeen>();
  CRecordGate gate(seen);
  Send(gate, ICollectionTypes::Running);
  gate.Close();
  // An update that began before the stop: its records and Running are not printed; its Stopped
  // comes before the caller's Stopping.
  gate.OnRecords(kCollection, {});
  Send(gate, ICollectionTypes::Running);
  Send(gate, ICollectionTypes::Stopped);
  Send(gate, ICollectionTypes::Stopping);
  gate.Flush();
  EXPECT_TRUE(seen->batches.empty());
  EXPECT_EQ(seen->states, (std::vector<ICollectionTypes::States>{ICollectionTypes::Running, ICollectionTypes::Stopping,
                                                                  ICollectionTypes::Stopped}));
}

TEST(RecordGate, FlushPassesAStoppedThatNoStoppingPreceded)
{
  auto seen = std::make_shared<CSeen>();
  CRecordGate gate(seen);
  gate.Close();
  Send(gate, ICollectionTypes::Stopped);
  EXPECT_TRUE(seen->states.empty());
  gate.Flush();
  EXPECT_EQ(seen->states, (std::vector<ICollectionTypes::States>{ICollectionTypes::Stopped}));
}
} // namespace
