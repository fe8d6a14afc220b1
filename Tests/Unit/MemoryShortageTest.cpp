#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <memory>
#include <new>
#include <stdexcept>

#include "Tests/Unit/AllocationFailure.h"
#include "Utilities/MemoryShortage.h"

namespace ombrix {
namespace {

using ::testing::ExitedWithCode;
using ::testing::HasSubstr;
using ::testing::KilledBySignal;
using tests::AllocationFailure;

constexpr std::size_t wanted = 4711;

void allocate() {
  const AllocationFailure noMemory(tests::ofExactly(wanted));
  const auto memory = std::make_unique<char[]>(wanted);
  ASSERT_TRUE(noMemory.happened());
}

TEST(MemoryReserve, LetsTheFirstAllocationThatFailsSucceedAfterAll) {
  const MemoryReserve reserve;
  EXPECT_TRUE(reserve.isReady());
  EXPECT_NO_THROW(allocate());
  EXPECT_FALSE(reserve.isReady());
}

TEST(MemoryReserve, HelpsNoFurtherAllocation) {
  const MemoryReserve reserve;
  EXPECT_NO_THROW(allocate());
  EXPECT_THROW(allocate(), std::bad_alloc);
}

TEST(MemoryReserve, HelpsAgainWhenItHasBeenRestored) {
  MemoryReserve reserve;
  EXPECT_NO_THROW(allocate());
  EXPECT_TRUE(reserve.restore());
  EXPECT_TRUE(reserve.isReady());
  EXPECT_NO_THROW(allocate());
}

TEST(MemoryReserve, IsRestoredAsFarAsTheMachineGives) {
  MemoryReserve reserve;
  EXPECT_NO_THROW(allocate());
  const AllocationFailure noMemory(tests::ofAtLeast(1024 * std::size_t{1024}));
  EXPECT_TRUE(reserve.restore());
  EXPECT_TRUE(noMemory.happened());
}

TEST(MemoryReserve, ThatHasBeenReleasedHelpsNobody) {
  MemoryReserve reserve;
  reserve.release();
  EXPECT_FALSE(reserve.isReady());
  EXPECT_THROW(allocate(), std::bad_alloc);
}

TEST(MemoryReserve, ThatIsNoMoreHelpsNobody) {
  { const MemoryReserve reserve; }
  EXPECT_THROW(allocate(), std::bad_alloc);
}

void failWithoutCare() noexcept { allocate(); }
void goWrong() { throw std::logic_error("wrong"); }
void goWrongWithoutCare() noexcept { goWrong(); }

TEST(NoMemory, ThatNobodyBearsEndsTheProcessInOrder) {
  endInOrderWithoutMemory();
  EXPECT_EXIT(failWithoutCare(), ExitedWithCode(1), HasSubstr("No memory is left. Quitting.\n"));
}

TEST(NoMemory, IsNoNameForAnotherMistake) {
  endInOrderWithoutMemory();
  EXPECT_EXIT(goWrongWithoutCare(), KilledBySignal(SIGABRT), "");
}

}  // namespace
}  // namespace ombrix
