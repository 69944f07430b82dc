#include "KeldaKernel/Cancellation.h"
#include "KeldaKernel/Exceptions.h"
#include "KeldaKernel/Pool.h"

#include <gtest/gtest.h>

#include <future>
#include <thread>

TEST(Cancellation, RootIsCancelledOnlyByItsSource)
{
  const auto root = create_cancellation();
  EXPECT_FALSE(root->is_cancelled());
  EXPECT_NO_THROW(root->throw_if_cancelled());
  EXPECT_EQ(root->get_cancellation(), root);
  root->cancel();
  EXPECT_TRUE(root->is_cancelled());
  try
  {
    root->throw_if_cancelled();
    FAIL() << "no exception";
  }
  catch (const CInterruptedException& error)
  {
    EXPECT_EQ(get_hresult(error), static_cast<HRESULT>(0x800704C7u));
    EXPECT_GT(get_throw_line(error), 0);
  }
}

TEST(Cancellation, CancelledParentCancelsChildren)
{
  const auto parent = create_cancellation();
  const auto child = create_child_cancellation(parent);
  const auto grandchild = create_child_cancellation(child);
  const auto sibling = create_child_cancellation(parent);
  EXPECT_FALSE(grandchild->is_cancelled());
  parent->cancel();
  EXPECT_TRUE(child->is_cancelled());
  EXPECT_TRUE(grandchild->is_cancelled());
  EXPECT_TRUE(sibling->is_cancelled());
  EXPECT_THROW(grandchild->throw_if_cancelled(), CInterruptedException);
  // A child made after the parent was cancelled starts cancelled.
  EXPECT_TRUE(create_child_cancellation(parent)->is_cancelled());
}

TEST(Cancellation, CancelledChildLeavesParentAlone)
{
  const auto parent = create_cancellation();
  const auto child = create_child_cancellation(parent);
  const auto grandchild = create_child_cancellation(child);
  child->cancel();
  EXPECT_FALSE(parent->is_cancelled());
  EXPECT_TRUE(grandchild->is_cancelled());
  const auto orphan = create_child_cancellation(nullptr);
  EXPECT_FALSE(orphan->is_cancelled());
}

TEST(Cancellation, StopIsRecordedWithItsFlag)
{
  const auto token = create_cancellation();
  EXPECT_FALSE(token->stop_requested());
  token->stop(true);
  EXPECT_TRUE(token->stop_requested());
  EXPECT_TRUE(token->stop_is_sync());
  token->stop(false);
  EXPECT_FALSE(token->stop_is_sync());
  // A stop request is not a cancellation.
  EXPECT_FALSE(token->is_cancelled());
}

TEST(Cancellation, InterruptionPointThrowsOnlyInScopeOfCancelledToken)
{
  const auto cancelled = create_cancellation();
  cancelled->cancel();
  // Outside any scope nothing is tested.
  EXPECT_EQ(current_cancellation(), nullptr);
  EXPECT_NO_THROW(interruption_point());
  const auto live = create_cancellation();
  {
    const interruption_scope outer(live);
    EXPECT_EQ(current_cancellation(), live);
    EXPECT_NO_THROW(interruption_point());
    {
      const interruption_scope inner(cancelled);
      EXPECT_THROW(interruption_point(), CInterruptedException);
    }
    // The outer token is current again.
    EXPECT_EQ(current_cancellation(), live);
    EXPECT_NO_THROW(interruption_point());
  }
  EXPECT_EQ(current_cancellation(), nullptr);
}

TEST(Cancellation, ScopeBelongsToItsThread)
{
  const auto cancelled = create_cancellation();
  cancelled->cancel();
  const interruption_scope scope(cancelled);
  bool otherThrew = true;
  std::thread([&] {
    try
    {
      interruption_point();
      otherThrew = false;
    }
    catch (const CInterruptedException&)
    {
    }
  }).join();
  EXPECT_FALSE(otherThrew);
  EXPECT_THROW(interruption_point(), CInterruptedException);
}

TEST(Cancellation, PoolTaskStopsAtInterruptionPointWhenParentIsCancelled)
{
  pool workers(2);
  const auto parent = create_cancellation();
  const auto child = create_child_cancellation(parent);
  std::promise<void> started;
  bool interrupted = false;
  auto task = workers.dispatch_proc([&] {
    const interruption_scope scope(child);
    started.set_value();
    try
    {
      for (;;)
        interruption_point();
    }
    catch (const CInterruptedException&)
    {
      interrupted = true;
    }
  });
  started.get_future().wait();
  parent->cancel();
  task.halt(false, false);
  EXPECT_TRUE(task.finished());
  EXPECT_TRUE(interrupted);
}
