#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include "AgentEngine/LocalApprover.h"

namespace quorvane {
namespace {

using namespace std::chrono_literals;

// A watcher's listener refers to the watcher's stack, so leaving must wait for a call that is
// under way on a signing thread, and no call may start afterwards.
TEST(LocalApproverListeners, UnsubscribeWaitsForACallUnderWayAndNoCallFollows) {
  ManualClock clock(Date{1'800'000'000});
  LocalApprover approver(clock);
  std::promise<void> entered;
  std::promise<void> release;
  std::shared_future<void> released = release.get_future().share();
  std::atomic<int> calls = 0;
  std::atomic<bool> firstCall = true;
  int token = approver.subscribe([&](const LocalApprover::Event&) {
    ++calls;
    if (firstCall.exchange(false)) {
      entered.set_value();
      released.wait();
    }
  });

  ApprovalRequest request;
  request.id = UUID::random();
  request.expiresAt = Date{1'800'000'060};
  std::jthread signer([&](std::stop_token stop) { approver.requestApproval(request, stop); });
  entered.get_future().wait();

  auto leaving = std::async(std::launch::async, [&] { approver.unsubscribe(token); });
  EXPECT_EQ(leaving.wait_for(100ms), std::future_status::timeout);
  release.set_value();
  ASSERT_EQ(leaving.wait_for(10s), std::future_status::ready);

  // The request's end is announced to nobody.
  EXPECT_TRUE(approver.answer(request.id, ApprovalResult{ApprovalResult::Denied{}}));
  signer.join();
  EXPECT_EQ(calls.load(), 1);
}

}  // namespace
}  // namespace quorvane
