#include "common/PlainArray.h"

#include <gtest/gtest.h>

#include <cstdlib>

using CustomScanPlugin::PlainArray;

namespace {

// The C allocator, failing the Nth call from now when armed.
struct FailingAllocator {
  static int failAt;
  static int calls;
  static bool fails() {
    ++calls;
    return failAt > 0 && --failAt == 0;
  }
  static void* allocate(std::size_t bytes) { return fails() ? nullptr : std::malloc(bytes); }
  static void* reallocate(void* block, std::size_t bytes) {
    return fails() ? nullptr : std::realloc(block, bytes);
  }
  static void release(void* block) { std::free(block); }
};
int FailingAllocator::failAt = 0;
int FailingAllocator::calls = 0;

class PlainArrayTest : public ::testing::Test {
 protected:
  void SetUp() override {
    FailingAllocator::failAt = 0;
    FailingAllocator::calls = 0;
  }
};

TEST_F(PlainArrayTest, ZeroLengthHasNoStorage) {
  PlainArray<int> a(0);
  EXPECT_EQ(a.getItems(), nullptr);
  EXPECT_EQ(a.getLength(), 0);
  EXPECT_EQ(a.getAllocated(), 0);
}

TEST_F(PlainArrayTest, AllocationFollowsPowersOfTwoAndTheHalfShrinkRule) {
  PlainArray<int> a(0);
  EXPECT_EQ(a.setLength(3), 0);
  EXPECT_EQ(a.getLength(), 3);
  EXPECT_EQ(a.getAllocated(), 4);
  EXPECT_EQ(a.setLength(2), 0);  // at least half of 4: only the length changes
  EXPECT_EQ(a.getLength(), 2);
  EXPECT_EQ(a.getAllocated(), 4);
  EXPECT_EQ(a.setLength(1), 0);  // below half: down to the power of two for 1
  EXPECT_EQ(a.getLength(), 1);
  EXPECT_EQ(a.getAllocated(), 1);
  EXPECT_EQ(a.setLength(-1), -101);
  EXPECT_EQ(a.getLength(), 1);
  EXPECT_EQ(a.getAllocated(), 1);
}

TEST_F(PlainArrayTest, AllocationIsTheSmallestPowerOfTwoNotLessThanTheLength) {
  const struct {
    int length;
    int allocated;
  } rows[] = {{1, 1}, {2, 2},  {3, 4},       {4, 4},       {5, 8},
              {8, 8}, {9, 16}, {1000, 1024}, {1024, 1024}, {1025, 2048}};
  for (const auto& row : rows) {
    PlainArray<int> a(0);
    EXPECT_EQ(a.setLength(row.length), 0) << row.length;
    EXPECT_EQ(a.getAllocated(), row.allocated) << row.length;
  }
}

TEST_F(PlainArrayTest, ConstructorLengthGivesZeroItems) {
  PlainArray<long> a(3);
  EXPECT_EQ(a.getLength(), 3);
  EXPECT_EQ(a.getAllocated(), 4);
  for (int k = 0; k < 4; ++k) EXPECT_EQ(a[k], 0) << k;
}

TEST_F(PlainArrayTest, LengthWithinTheAllocationKeepsTheStorage) {
  PlainArray<int> a(8);
  int* storage = a.getItems();
  EXPECT_EQ(a.setLength(4), 0);
  EXPECT_EQ(a.setLength(7), 0);
  EXPECT_EQ(a.getItems(), storage);
  EXPECT_EQ(a.getAllocated(), 8);
}

TEST_F(PlainArrayTest, GrowthZeroesItemsFromTheOldLength) {
  PlainArray<int> a(2);
  a[0] = 7;
  a[1] = 8;
  EXPECT_EQ(a.setLength(5), 0);
  EXPECT_EQ(a.getAllocated(), 8);
  EXPECT_EQ(a[0], 7);
  EXPECT_EQ(a[1], 8);
  for (int k = 2; k < 8; ++k) EXPECT_EQ(a[k], 0) << k;
}

TEST_F(PlainArrayTest, ZeroLengthFreesTheStorage) {
  PlainArray<int> a(5);
  EXPECT_EQ(a.setLength(0), 0);
  EXPECT_EQ(a.getItems(), nullptr);
  EXPECT_EQ(a.getAllocated(), 0);
  EXPECT_EQ(a.getLength(), 0);
}

TEST_F(PlainArrayTest, NegativeLengthIsInvalidAndChangesNothing) {
  PlainArray<int> a(3);
  int* storage = a.getItems();
  EXPECT_EQ(a.setLength(-5), -101);
  EXPECT_EQ(a.getItems(), storage);
  EXPECT_EQ(a.getLength(), 3);
  EXPECT_EQ(a.getAllocated(), 4);
}

TEST_F(PlainArrayTest, NegativeConstructorLengthLeavesTheArrayEmpty) {
  PlainArray<int> a(-1);
  EXPECT_EQ(a.getItems(), nullptr);
  EXPECT_EQ(a.getLength(), 0);
}

// Left to the implementer: a failed allocation leaves length AND allocation as
// they were, so that the allocation never claims more items than exist.
TEST_F(PlainArrayTest, FailedGrowthReturnsMinus100AndLeavesTheArrayAsItWas) {
  PlainArray<int, FailingAllocator> a(3);
  a[2] = 42;
  int* storage = a.getItems();
  FailingAllocator::failAt = 1;
  EXPECT_EQ(a.setLength(5), -100);
  EXPECT_EQ(a.getLength(), 3);
  EXPECT_EQ(a.getAllocated(), 4);
  EXPECT_EQ(a.getItems(), storage);
  EXPECT_EQ(a[2], 42);
  // Still usable within what it has.
  EXPECT_EQ(a.setLength(4), 0);
  EXPECT_EQ(a[3], 0);
}

TEST_F(PlainArrayTest, FailedFirstAllocationReturnsMinus100) {
  PlainArray<int, FailingAllocator> a(0);
  FailingAllocator::failAt = 1;
  EXPECT_EQ(a.setLength(1), -100);
  EXPECT_EQ(a.getItems(), nullptr);
  EXPECT_EQ(a.getAllocated(), 0);
  EXPECT_EQ(a.getLength(), 0);
}

TEST_F(PlainArrayTest, LengthWhosePowerOfTwoAnIntCannotHoldReturnsMinus100WithoutAllocating) {
  PlainArray<int, FailingAllocator> a(0);
  EXPECT_EQ(a.setLength(PlainArray<int>::kMaxAllocated + 1), -100);
  EXPECT_EQ(a.setLength(INT_MAX), -100);
  EXPECT_EQ(FailingAllocator::calls, 0);
  EXPECT_EQ(a.getLength(), 0);
  EXPECT_EQ(a.getAllocated(), 0);
}

}  // namespace
