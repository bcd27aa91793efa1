// The memory helpers are internal: this program compiles their source itself, on the core library that it
// supplies.
#include "frame/memory.h"

#include <gtest/gtest.h>

#include <vector>

#include "frame/core_stub.h"
#include "qelj.h"
#include "support/buffer.h"

namespace qelj::test {
namespace {

TEST(Memory, AllocationAsksOnlyForSomething) {
  core.allocations = 0;
  EXPECT_EQ(nullptr, ownAlloc(0));
  EXPECT_EQ(nullptr, ownAlloc(-1));
  EXPECT_EQ(0, core.allocations);
  void* block = ownAlloc(10);
  EXPECT_NE(nullptr, block);
  EXPECT_EQ(1, core.allocations);
  ownFree(block);
  core.refuseAllocations = true;
  EXPECT_EQ(nullptr, ownAlloc(10));
  core.refuseAllocations = false;
}

TEST(Memory, ChecksItsArguments) {
  uint8_t byte = 5, other = 6;
  EXPECT_EQ(qelStatusNullPointer, ownZero8u(nullptr, 0));
  EXPECT_EQ(qelStatusBadSize, ownSet8u(1, &byte, 0));
  EXPECT_EQ(qelStatusNullPointer, ownCopy8u(&byte, nullptr, 1));
  EXPECT_EQ(qelStatusBadSize, ownCopy8u(&byte, &other, -1));
  EXPECT_EQ(5, byte);
}

TEST(Memory, OnlyLargeFillsAskForTheCacheSize) {
  std::vector<uint8_t> buffer(0x200001);
  core.cacheQuestions = 0;
  EXPECT_EQ(qelStatusOk, ownZero8u(buffer.data(), 0x200000));
  EXPECT_EQ(0, core.cacheQuestions);
  EXPECT_EQ(qelStatusOk, ownZero8u(buffer.data(), 0x200001));
  EXPECT_EQ(1, core.cacheQuestions);
}

// With a cache of 1 byte every large fill streams; with an unknown one none does. The bytes are the same.
TEST(Memory, StreamingFillsTheSameBytes) {
  Random random;
  for (const int32_t cache : {0, 1}) {
    core.cacheBytes = cache;
    for (const size_t offset : {0, 1, 31, 63}) {
      Guarded bytes(random, 0x200000 + 137, 1, 0, offset);
      EXPECT_EQ(qelStatusOk, ownSet8u(0xA5, bytes.data(), int32_t(bytes.rowBytes())));
      EXPECT_TRUE(bytes.intact());
      EXPECT_EQ(std::vector<uint8_t>(bytes.rowBytes(), 0xA5),
                std::vector<uint8_t>(bytes.data(), bytes.data() + bytes.rowBytes()));
      Guarded words(random, 4 * 0x80003, 1, 0, offset / 4 * 4);
      ownSet32s(0x01020304, words.data<int32_t>(), 0x80003);
      EXPECT_TRUE(words.intact());
      for (size_t i = 0; i < 0x80003; ++i) ASSERT_EQ(0x01020304, words.data<int32_t>()[i]) << i;
    }
  }
  core.cacheBytes = 0;
}

}  // namespace
}  // namespace qelj::test
