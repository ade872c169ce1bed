#include "base/Memory.h"

#include <gtest/gtest.h>

#include <cstring>

#include "base/HostFaults.h"

namespace {

class MemoryTest : public ::testing::Test {
 protected:
  void SetUp() override { HostFaults::reset(); }
  void TearDown() override { HostFaults::reset(); }
};

TEST_F(MemoryTest, MallocGivesWritableBlock) {
  auto* block = static_cast<unsigned char*>(zelm_malloc(4096));
  ASSERT_NE(block, nullptr);
  std::memset(block, 0xAB, 4096);
  EXPECT_EQ(block[4095], 0xAB);
  zelm_free(block);
}

TEST_F(MemoryTest, MallocOfZeroBytesGivesAFreeableBlock) {
  void* block = zelm_malloc(0);
  EXPECT_NE(block, nullptr);
  zelm_free(block);
}

TEST_F(MemoryTest, ReallocKeepsContentWhenGrowingAndShrinking) {
  auto* block = static_cast<char*>(zelm_malloc(4));
  ASSERT_NE(block, nullptr);
  const char bytes[4] = {'a', 'b', 'c', 'd'};
  std::memcpy(block, bytes, sizeof bytes);
  block = static_cast<char*>(zelm_realloc(block, 1 << 20));
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(std::memcmp(block, bytes, sizeof bytes), 0);
  block[(1 << 20) - 1] = 'z';
  block = static_cast<char*>(zelm_realloc(block, 2));
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(std::memcmp(block, bytes, 2), 0);
  zelm_free(block);
}

TEST_F(MemoryTest, ReallocOfNullActsAsMalloc) {
  void* block = zelm_realloc(nullptr, 16);
  ASSERT_NE(block, nullptr);
  zelm_free(block);
}

TEST_F(MemoryTest, ReallocToZeroBytesKeepsAFreeableBlock) {
  void* block = zelm_malloc(16);
  ASSERT_NE(block, nullptr);
  block = zelm_realloc(block, 0);
  EXPECT_NE(block, nullptr);
  zelm_free(block);
}

TEST_F(MemoryTest, FreeOfNullIsHarmless) { zelm_free(nullptr); }

TEST_F(MemoryTest, AllocationCountCountsMallocAndRealloc) {
  void* a = zelm_malloc(1);
  a = zelm_realloc(a, 2);
  void* b = zelm_malloc(3);
  EXPECT_EQ(HostFaults::instance().allocationCount, 3);
  zelm_free(a);
  zelm_free(b);
  EXPECT_EQ(HostFaults::instance().allocationCount, 3);
}

TEST_F(MemoryTest, FailAllocationAtOneFailsTheNextAllocationOnly) {
  HostFaults::instance().failAllocationAt = 1;
  EXPECT_EQ(zelm_malloc(8), nullptr);
  void* block = zelm_malloc(8);
  EXPECT_NE(block, nullptr);
  zelm_free(block);
}

TEST_F(MemoryTest, FailAllocationAtCountsMallocAndRealloc) {
  HostFaults::instance().failAllocationAt = 3;
  void* a = zelm_malloc(8);
  ASSERT_NE(a, nullptr);
  a = zelm_realloc(a, 16);
  ASSERT_NE(a, nullptr);
  // The third allocation fails; a failed realloc leaves the old block alone.
  EXPECT_EQ(zelm_realloc(a, 32), nullptr);
  void* b = zelm_realloc(a, 32);
  EXPECT_NE(b, nullptr);
  zelm_free(b);
}

TEST_F(MemoryTest, FailedAllocationsAreCounted) {
  HostFaults::instance().failAllocationAt = 1;
  EXPECT_EQ(zelm_malloc(8), nullptr);
  EXPECT_EQ(HostFaults::instance().allocationCount, 1);
}

TEST_F(MemoryTest, ResetTurnsFaultOffAndClearsCount) {
  HostFaults::instance().failAllocationAt = 1;
  void* a = zelm_malloc(1);
  EXPECT_EQ(a, nullptr);
  HostFaults::reset();
  EXPECT_EQ(HostFaults::instance().allocationCount, 0);
  EXPECT_EQ(HostFaults::instance().failAllocationAt, -1);
  a = zelm_malloc(1);
  EXPECT_NE(a, nullptr);
  zelm_free(a);
}

TEST_F(MemoryTest, FaultsAreOffByDefault) {
  const HostFaults& faults = HostFaults::instance();
  EXPECT_EQ(faults.failProcessCreationAt, -1);
  EXPECT_FALSE(faults.noOutputStream);
  EXPECT_EQ(faults.streamEndAfterBytes, -1);
  EXPECT_EQ(faults.failAllocationAt, -1);
}

TEST_F(MemoryTest, HostFaultsIsOneObject) {
  EXPECT_EQ(&HostFaults::instance(), &HostFaults::instance());
}

}  // namespace
