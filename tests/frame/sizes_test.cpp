// What code-block states take against their formula in exact arithmetic, from the smallest sizes to the largest that
// can be passed; and what is told when there is no memory.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "frame/core_stub.h"
#include "qelj.h"

namespace qelj::test {
namespace {

__extension__ typedef __int128 Exact;

// Both sides of every power of two, and where the results of some function leave 31 bits.
std::set<int32_t> corners() {
  std::set<int32_t> all{3, 5, 46340, 46341};
  for (int bit = 0; bit <= 31; ++bit)
    for (int64_t d : {-9, -1, 0, 1}) all.insert(int32_t(std::clamp<int64_t>((int64_t(1) << bit) + d, 1, INT32_MAX)));
  return all;
}

template <class Record>
QelStatus initAlloc(QelStatus (*function)(Record**, QelSize), QelSize size) {
  Record* record = reinterpret_cast<Record*>(1);
  const QelStatus s = function(&record, size);
  EXPECT_TRUE(s == qelStatusBadSize || record == nullptr);
  return s;
}

TEST(Sizes, CodeBlockStates) {
  const auto exact = [](int32_t w, int32_t h) {
    return (Exact(w) * 4 + 8 + 31) / 32 * 32 * ((Exact(h) + 1) / 2 + 2) + 388;
  };
  core.refuseAllocations = true;  // it is noted all the same what was asked for
  const auto asked = [](auto* function, QelSize size) {
    core.requestedBytes = 0;
    EXPECT_EQ(qelStatusNoMemory, initAlloc(function, size));
    return core.requestedBytes.load();
  };
  for (const int32_t w : corners())
    for (const int32_t h : corners()) {
      const bool fits = exact(w, h) <= INT32_MAX;
      for (auto* function : {qeliDecodeGetBufSize_JPEG2K, qeliDecodeCBProgrGetStateSize_JPEG2K}) {
        int32_t bytes = -1;
        ASSERT_EQ(fits ? qelStatusOk : qelStatusBadSize, function({w, h}, &bytes)) << w << ' ' << h;
        ASSERT_EQ(fits ? int32_t(exact(w, h)) : -1, bytes) << w << ' ' << h;
      }
      ASSERT_EQ(fits ? int32_t(exact(w, h)) : 0, asked(qeliDecodeCBProgrInitAlloc_JPEG2K, {w, h}));
      // An encoder has flags, samples, symbols and bytes: somewhat more than 400 bytes a column of four samples.
      const Exact columns = Exact(w) * ((Exact(h) + 3) / 4);
      const int32_t encoder = asked(qeliEncodeInitAlloc_JPEG2K, {w, h});
      ASSERT_TRUE(encoder > 0 ? encoder > 400 * columns : 430 * columns + 16384 > INT32_MAX) << w << ' ' << h;
    }
  // It refuses no size whose bytes can be asked for.
  for (const int32_t other : {1, 64})
    for (const bool across : {false, true}) {
      const auto bytes = [&](int32_t n) {
        return asked(qeliEncodeInitAlloc_JPEG2K, across ? QelSize{n, other} : QelSize{other, n});
      };
      int32_t largest = 1;
      for (int32_t bit = 1 << 30; bit > 0; bit >>= 1)
        if (bytes(largest + bit)) largest += bit;
      EXPECT_GT(bytes(largest), INT32_MAX - 430 * other) << largest;
    }
  core.refuseAllocations = false;
}

TEST(Sizes, HuffmanRecordsWithoutMemory) {
  const uint8_t bits[16] = {}, vals[1] = {};
  const auto refused = []<class Record>(auto* initAlloc, auto... lists) {
    Record* record = reinterpret_cast<Record*>(1);
    core.requestedBytes = 0;
    EXPECT_EQ(qelStatusNullPointer, initAlloc(lists..., &record));
    EXPECT_EQ(nullptr, record);
    return core.requestedBytes.load();
  };
  core.refuseAllocations = true;
  EXPECT_EQ(1644, refused.operator()<QelDecodeHuffmanSpec>(qeliDecodeHuffmanSpecInitAlloc_JPEG_8u, bits, vals));
  EXPECT_EQ(1024, refused.operator()<QelEncodeHuffmanSpec>(qeliEncodeHuffmanSpecInitAlloc_JPEG_8u, bits, vals));
  EXPECT_EQ(24, refused.operator()<QelDecodeHuffmanState>(qeliDecodeHuffmanStateInitAlloc_JPEG_8u));
  EXPECT_EQ(1048, refused.operator()<QelEncodeHuffmanState>(qeliEncodeHuffmanStateInitAlloc_JPEG_8u));
  core.refuseAllocations = false;
}

}  // namespace
}  // namespace qelj::test
