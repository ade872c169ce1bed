#include "common/MemoryBuffer.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "base/HostFaults.h"

using CustomScanPlugin::MemoryBuffer;

namespace {

class MemoryBufferTest : public ::testing::Test {
 protected:
  void TearDown() override { HostFaults::reset(); }

  static bool allZeroFrom(const MemoryBuffer& b, std::uint32_t from) {
    for (std::uint32_t k = from; k < b.getSize(); ++k) {
      if (b.getData()[k] != 0) return false;
    }
    return true;
  }

  // What dump(stream) writes, and its result.
  static std::string dumpText(const MemoryBuffer& b, int* result) {
    char* text = nullptr;
    std::size_t length = 0;
    std::FILE* stream = open_memstream(&text, &length);
    *result = b.dump(stream);
    std::fclose(stream);
    std::string out(text, length);
    std::free(text);
    return out;
  }
};

TEST_F(MemoryBufferTest, CommandOutputBufferHoldsOneStepOfZeroBytes) {
  MemoryBuffer b(1024, 4096);
  EXPECT_EQ(b.getSize(), 4096u);
  EXPECT_EQ(b.getStep(), 4096u);
  ASSERT_NE(b.getData(), nullptr);
  EXPECT_TRUE(allZeroFrom(b, 0));
}

TEST_F(MemoryBufferTest, GrowingPastAStepAddsAWholeStepAndKeepsTheBytes) {
  MemoryBuffer b(1024, 4096);
  for (std::uint32_t k = 0; k < 4096; ++k) b.getData()[k] = static_cast<std::uint8_t>(k % 251 + 1);
  ASSERT_NE(b.resize(4097), nullptr);
  EXPECT_EQ(b.getSize(), 8192u);
  for (std::uint32_t k = 0; k < 4096; ++k) {
    ASSERT_EQ(b.getData()[k], static_cast<std::uint8_t>(k % 251 + 1)) << "index " << k;
  }
  EXPECT_TRUE(allZeroFrom(b, 4096));
}

TEST_F(MemoryBufferTest, ShrinkingClearsEverythingPastTheRequestedSize) {
  MemoryBuffer b(1024, 4096);
  b.resize(4097);
  for (std::uint32_t k = 0; k < b.getSize(); ++k) b.getData()[k] = 0xAB;
  void* data = b.resize(10);
  EXPECT_EQ(data, b.getData());
  EXPECT_EQ(b.getSize(), 4096u);
  for (std::uint32_t k = 0; k < 10; ++k) EXPECT_EQ(b.getData()[k], 0xAB) << "index " << k;
  EXPECT_TRUE(allZeroFrom(b, 10));
}

TEST_F(MemoryBufferTest, ShrinkingWithinTheSameStepStillClearsTheTail) {
  MemoryBuffer b(4096, 4096);
  for (std::uint32_t k = 0; k < 4096; ++k) b.getData()[k] = 0x11;
  b.resize(4000);
  EXPECT_EQ(b.getSize(), 4096u);
  EXPECT_EQ(b.getData()[3999], 0x11);
  EXPECT_TRUE(allZeroFrom(b, 4000));
}

TEST_F(MemoryBufferTest, ResizeToAMultipleOfTheStepIsNotRoundedFurther) {
  MemoryBuffer b(0, 1024);
  b.resize(2048);
  EXPECT_EQ(b.getSize(), 2048u);
  b.resize(2049);
  EXPECT_EQ(b.getSize(), 3072u);
}

TEST_F(MemoryBufferTest, ResizeToZeroOnAnEmptyBufferDoesNothingAndReturnsNull) {
  MemoryBuffer b(0, 4096);
  EXPECT_EQ(b.getData(), nullptr);
  EXPECT_EQ(b.resize(0), nullptr);
  EXPECT_EQ(b.getData(), nullptr);
  EXPECT_EQ(b.getSize(), 0u);
}

TEST_F(MemoryBufferTest, ResizeToZeroFreesTheStorage) {
  MemoryBuffer b(100, 64);
  EXPECT_EQ(b.getSize(), 128u);
  EXPECT_EQ(b.resize(0), nullptr);
  EXPECT_EQ(b.getData(), nullptr);
  EXPECT_EQ(b.getSize(), 0u);
  // And it can grow again from nothing.
  EXPECT_NE(b.resize(1), nullptr);
  EXPECT_EQ(b.getSize(), 64u);
  EXPECT_TRUE(allZeroFrom(b, 0));
}

TEST_F(MemoryBufferTest, ZeroClearsEveryByteAndFreesNothing) {
  MemoryBuffer b(8, 8);
  for (int k = 0; k < 8; ++k) b.getData()[k] = 'x';
  std::uint8_t* before = b.getData();
  EXPECT_EQ(b.zero(), before);
  EXPECT_EQ(b.getSize(), 8u);
  EXPECT_TRUE(allZeroFrom(b, 0));
}

TEST_F(MemoryBufferTest, ZeroOnAnEmptyBufferReturnsNull) {
  MemoryBuffer b(0, 8);
  EXPECT_EQ(b.zero(), nullptr);
}

// Left to the implementer: a step of 0 would divide by zero; it is taken as 1.
TEST_F(MemoryBufferTest, StepOfZeroIsTakenAsOne) {
  MemoryBuffer b(3, 0);
  EXPECT_EQ(b.getStep(), 1u);
  EXPECT_EQ(b.getSize(), 3u);
}

TEST_F(MemoryBufferTest, SizePastTheLargestIsRefusedAndLeavesTheBufferAsItWas) {
  MemoryBuffer b(10, 4096);
  b.getData()[0] = 'k';
  EXPECT_EQ(b.resize(MemoryBuffer::kMaxSize), nullptr);  // rounds past 2^32 - 1
  EXPECT_EQ(b.getSize(), 4096u);
  EXPECT_EQ(b.getData()[0], 'k');
}

TEST_F(MemoryBufferTest, AllocatorFailureOnFirstStorageLeavesTheBufferEmpty) {
  HostFaults::instance().failAllocationAt = 1;
  MemoryBuffer b(10, 16);
  EXPECT_EQ(b.getData(), nullptr);
  EXPECT_EQ(b.getSize(), 0u);
}

TEST_F(MemoryBufferTest, AllocatorFailureOnGrowthKeepsTheOldStorage) {
  MemoryBuffer b(16, 16);
  b.getData()[15] = 'z';
  std::uint8_t* before = b.getData();
  HostFaults::instance().failAllocationAt = 1;
  EXPECT_EQ(b.resize(17), nullptr);
  EXPECT_EQ(b.getData(), before);
  EXPECT_EQ(b.getSize(), 16u);
  EXPECT_EQ(b.getData()[15], 'z');
}

TEST_F(MemoryBufferTest, DumpOfSixteenBytesWritesNineItemsThenSeven) {
  MemoryBuffer b(16, 16);
  for (int k = 0; k < 16; ++k) b.getData()[k] = static_cast<std::uint8_t>('A' + k);
  int result = 0;
  std::string text = dumpText(b, &result);
  EXPECT_EQ(text,
            "size: 16 (step 16)\n"
            "41 (A) 42 (B) 43 (C) 44 (D) 45 (E) 46 (F) 47 (G) 48 (H) 49 (I) \n"
            "4a (J) 4b (K) 4c (L) 4d (M) 4e (N) 4f (O) 50 (P) \n");
  EXPECT_EQ(result, 1);  // the last fprintf wrote the final line break
}

TEST_F(MemoryBufferTest, DumpBreaksAfterEveryEighthIndexFromTheNinthByte) {
  MemoryBuffer b(17, 17);
  for (int k = 0; k < 17; ++k) b.getData()[k] = static_cast<std::uint8_t>('a' + k);
  int result = 0;
  std::string text = dumpText(b, &result);
  EXPECT_EQ(text,
            "size: 17 (step 17)\n"
            "61 (a) 62 (b) 63 (c) 64 (d) 65 (e) 66 (f) 67 (g) 68 (h) 69 (i) \n"
            "6a (j) 6b (k) 6c (l) 6d (m) 6e (n) 6f (o) 70 (p) 71 (q) \n"
            "\n");
}

TEST_F(MemoryBufferTest, DumpWritesBytesAboveOneHundredTwentySevenAsUnsigned) {
  MemoryBuffer b(1, 1);
  b.getData()[0] = 0xE9;
  int result = 0;
  std::string text = dumpText(b, &result);
  EXPECT_EQ(text, std::string("size: 1 (step 1)\ne9 (\xE9) \n"));
}

TEST_F(MemoryBufferTest, DumpOfAnEmptyBufferWritesOnlyTheHeader) {
  MemoryBuffer b(0, 4096);
  int result = 0;
  EXPECT_EQ(dumpText(b, &result), "size: 0 (step 4096)\n\n");
  EXPECT_EQ(result, 1);
}

TEST_F(MemoryBufferTest, DumpWithoutAStreamWritesToStandardOutput) {
  MemoryBuffer b(2, 2);
  b.getData()[0] = 'o';
  b.getData()[1] = 'k';
  ::testing::internal::CaptureStdout();
  int result = b.dump();
  std::fflush(stdout);
  std::string text = ::testing::internal::GetCapturedStdout();
  EXPECT_EQ(text, "size: 2 (step 2)\n6f (o) 6b (k) \n");
  EXPECT_EQ(result, 1);
}

}  // namespace
