// Every operation of the vector wrapper against its meaning, lane by lane, on all vector sizes. This file is compiled
// for the processor of every image, so that the processor's forms are what is tested.
#include "frame/simd.h"

#include <gtest/gtest.h>

#include <vector>

#include "support/random.h"

namespace qelj::test {
namespace {

using namespace simd;

template <class V>
V randomVector(Random& random) {
  V v;
  for (int i = 0; i < kLanes<V>; ++i) {
    // Extremes and near-equal lanes now and then.
    const auto bits = random.bits();
    v[i] = Lane<V>(random.chance(20)   ? std::numeric_limits<Lane<V>>::min() + Lane<V>(bits % 3)
                   : random.chance(20) ? std::numeric_limits<Lane<V>>::max() - Lane<V>(bits % 3)
                                       : Lane<V>(bits));
  }
  return v;
}

template <class R, class V, class Model>
void expectLanes(R result, V a, V b, Model model) {
  for (int i = 0; i < kLanes<R>; ++i) ASSERT_EQ(Lane<R>(model(a, b, i)), Lane<R>(result[i])) << "lane " << i;
}

template <class T, int Bytes, class Operation, class Model>
void checkLanewise(Operation operation, Model model) {
  Random random;
  for (int round = 0; round < 300; ++round) {
    const auto a = randomVector<Vec<T, Bytes>>(random), b = randomVector<Vec<T, Bytes>>(random);
    expectLanes(operation(a, b), a, b, [&](auto x, auto y, int i) { return model(int64_t(x[i]), int64_t(y[i])); });
  }
}

// All vector sizes and the listed lane types.
template <class... T, class Operation, class Model>
void checkAll(Operation operation, Model model) {
  (checkLanewise<T, 16>(operation, [&](int64_t a, int64_t b) { return model(T{}, a, b); }), ...);
  (checkLanewise<T, 32>(operation, [&](int64_t a, int64_t b) { return model(T{}, a, b); }), ...);
  (checkLanewise<T, 64>(operation, [&](int64_t a, int64_t b) { return model(T{}, a, b); }), ...);
}

TEST(Simd, Lanewise) {
  checkAll<int8_t, uint8_t, int16_t, uint16_t>(
      [](auto a, auto b) { return simd::addSat(a, b); },
      [](auto t, int64_t a, int64_t b) { return saturate<decltype(t)>(a + b); });
  checkAll<int8_t, uint8_t, int16_t, uint16_t>(
      [](auto a, auto b) { return simd::subSat(a, b); },
      [](auto t, int64_t a, int64_t b) { return saturate<decltype(t)>(a - b); });
  checkAll<int16_t, uint16_t>([](auto a, auto b) { return mulHi(a, b); },
                              [](auto, int64_t a, int64_t b) { return a * b >> 16; });
  checkAll<int16_t>([](auto a, auto b) { return mulHiRound(a, b); },
                    [](auto, int64_t a, int64_t b) { return (a * b + 0x4000) >> 15; });
  checkAll<int16_t>([](auto a, auto b) { return simd::signAs(a, b); },
                    [](auto, int64_t a, int64_t b) { return b > 0   ? a
                                                            : b < 0 ? -a
                                                                    : 0; });
  // A factor that the compiler knows, for which there are shorter forms.
  const auto byConstant = [](auto c) {
    checkAll<int16_t>([=](auto a, auto) { return mulHi(a, all<decltype(a)>(c)); },
                      [=](auto, int64_t a, int64_t) { return a * c >> 16; });
    checkAll<int16_t>([=](auto a, auto) { return mulHiRound(a, all<decltype(a)>(c)); },
                      [=](auto, int64_t a, int64_t) { return (a * c + 0x4000) >> 15; });
  };
  byConstant(std::integral_constant<int16_t, -32768>()), byConstant(std::integral_constant<int16_t, 23171>());
  checkAll<uint8_t, uint16_t>([](auto a, auto b) { return average(a, b); },
                              [](auto, int64_t a, int64_t b) { return (a + b + 1) >> 1; });
  checkAll<uint8_t, int8_t, uint16_t, int16_t, uint32_t, int32_t>(
      [](auto a, auto b) { return simd::min(a, b); }, [](auto, int64_t a, int64_t b) { return std::min(a, b); });
  checkAll<uint8_t, int8_t, uint16_t, int16_t, uint32_t, int32_t>(
      [](auto a, auto b) { return simd::max(a, b); }, [](auto, int64_t a, int64_t b) { return std::max(a, b); });
  checkAll<int16_t, int32_t>([](auto a, auto b) { return simd::addWrap(a, b); },
                             [](auto, int64_t a, int64_t b) { return a + b; });
  checkAll<int16_t, int32_t>([](auto a, auto b) { return simd::mulWrap(a, b); },
                             [](auto, int64_t a, int64_t b) { return a * b; });
  checkAll<int16_t, int32_t>([](auto a, auto) { return absWrap(a); },
                             [](auto, int64_t a, int64_t) { return std::abs(a); });
  checkAll<int16_t, int32_t, uint8_t>([](auto a, auto b) { return select(a > b, a, b); },
                                      [](auto, int64_t a, int64_t b) { return std::max(a, b); });
}

template <int Bytes>
void checkPairsAndPacks() {
  Random random;
  for (int round = 0; round < 300; ++round) {
    using S = Vec<int16_t, Bytes>;
    using B = Vec<uint8_t, Bytes>;
    using W = Vec<int32_t, Bytes>;
    const S a = randomVector<S>(random), b = randomVector<S>(random);
    expectLanes(mulAddPairs(a, b), a, b, [](S x, S y, int i) {
      return int32_t(uint32_t(int32_t(x[2 * i]) * y[2 * i]) + uint32_t(int32_t(x[2 * i + 1]) * y[2 * i + 1]));
    });
    const B u = randomVector<B>(random), w = randomVector<B>(random);
    expectLanes(mulAddBytes(u, (Vec<int8_t, Bytes>)w), u, w, [](B x, B y, int i) {
      return saturate<int16_t>(x[2 * i] * int8_t(y[2 * i]) + x[2 * i + 1] * int8_t(y[2 * i + 1]));
    });
    expectLanes(addBytePairs(u), u, w, [](B x, B, int i) { return x[2 * i] + x[2 * i + 1]; });
    const auto weighed = weighBytes<3, 1>(u, w);
    for (const bool high : {false, true})
      expectLanes(high ? weighed.high : weighed.low, u, w, [=](B x, B y, int i) {
        const int from = i / 8 * 16 + i % 8 + 8 * high;
        return 3 * x[from] + y[from];
      });
    expectLanes(sumAbsDiff8(u, w), u, w, [](B x, B y, int i) {
      int sum = 0;
      for (int k = 8 * i; k < 8 * i + 8; ++k) sum += std::abs(x[k] - y[k]);
      return sum;
    });
    expectLanes(shuffleBytes(u, w), u, w,
                [](B x, B y, int i) { return y[i] & 0x80 ? 0 : x[i / 16 * 16 + (y[i] & 15)]; });
    if constexpr (Bytes == 16) expectLanes(moveUp<3>(a), a, b, [](S x, S, int i) { return i < 3 ? 0 : x[i - 3]; });
    const W c = randomVector<W>(random), d = randomVector<W>(random);
    expectLanes(addNeighbours(c, d), c, d, [](W x, W y, int i) {
      const W& v = i % 4 < 2 ? x : y;
      const int pair = i / 4 * 4 + i % 2 * 2;
      return int32_t(uint32_t(v[pair]) + uint32_t(v[pair + 1]));
    });
    expectLanes(mulEven(c, d), c, d, [](W x, W y, int i) { return int64_t(x[2 * i]) * y[2 * i]; });
    // orderPacked undoes the blocks of a pack.
    expectLanes(orderPacked(packU8(a, b)), a, b,
                [](S x, S y, int i) { return saturate<uint8_t>(i < kLanes<S> ? x[i] : y[i - kLanes<S>]); });
    expectLanes(orderPacked(packI8(a, b)), a, b,
                [](S x, S y, int i) { return saturate<int8_t>(i < kLanes<S> ? x[i] : y[i - kLanes<S>]); });
    expectLanes(orderPacked(packI16(c, d)), c, d,
                [](W x, W y, int i) { return saturate<int16_t>(i < kLanes<W> ? x[i] : y[i - kLanes<W>]); });
    expectLanes(orderPacked(packU16(c, d)), c, d,
                [](W x, W y, int i) { return saturate<uint16_t>(i < kLanes<W> ? x[i] : y[i - kLanes<W>]); });
    expectLanes(shuffle4<2, 0, 3, 3>(c), c, d, [](W x, W, int i) { return x[i / 4 * 4 + (0x3302 >> i % 4 * 4 & 3)]; });
    expectLanes(shuffle8<7, 1, 0, 3, 2, 2, 5, 4>(a), a, b,
                [](S x, S, int i) { return x[i / 8 * 8 + (0x45223017 >> i % 8 * 4 & 7)]; });
    // A subscript of the conditional itself reads an unset index by GCC 12 with its sanitizer.
    expectLanes(shuffleTwo4<3, 1, 0, 2>(c, d), c, d, [](W x, W y, int i) {
      const W& v = i % 4 < 2 ? x : y;
      return v[i / 4 * 4 + (0x2013 >> i % 4 * 4 & 3)];
    });
    using L = Vec<uint32_t, Bytes>;
    expectLanes(pickLanes(as<L>(c), as<L>(d)), c, d, [](W x, W y, int i) { return x[i / 4 * 4 + (y[i] & 3)]; });
    expectLanes(pickAnyLanes(as<L>(c), as<L>(d)), c, d, [](W x, W y, int i) { return x[y[i] & (kLanes<L> - 1)]; });
    expectLanes(convert<int16_t>(lower(u)), u, w, [](B x, B, int i) { return x[i]; });
    uint8_t memory[Bytes + 1];
    store(memory, w), memory[Bytes] = 7;
    expectLanes(loadAs<S, int8_t>(memory), u, w, [](B, B y, int i) { return int8_t(y[i]); });
    const int count = random.in(0, Bytes);
    expectLanes(loadFirst<B>(memory + Bytes - count, count), u, w,
                [=](B, B y, int i) { return i < count ? y[Bytes - count + i] : 0; });
    storeFirst(memory, u, count);
    for (int i = 0; i <= Bytes; ++i) ASSERT_EQ(i < count ? u[i] : i < Bytes ? w[i] : 7, memory[i]) << i;
    uint64_t bits = 0;
    for (int i = 0; i < Bytes; ++i) bits |= uint64_t(u[i] >> 7) << i;
    ASSERT_EQ(bits, topBits(u));
    ASSERT_EQ(false, isZero(u | 1));
    ASSERT_EQ(true, isZero(u ^ u));
  }
}
TEST(Simd, PairsAndPacks) {
  checkPairsAndPacks<16>();
  checkPairsAndPacks<32>();
  checkPairsAndPacks<64>();
}

TEST(Simd, BitsOfWords) {
  Random random;
  for (int round = 0; round < 1000; ++round) {
    const uint64_t bits = random.bits(), mask = random.bits() & random.bits();
    uint64_t expected = 0;
    for (int i = 0, n = 0; i < 64; ++i)
      if (mask >> i & 1) expected |= (bits >> n++ & 1) << i;
    ASSERT_EQ(expected, depositBits(bits, mask));
    ASSERT_EQ(bits & ((uint64_t(1) << std::popcount(mask)) - 1), extractBits(expected, mask));
    ASSERT_EQ(extractBits(bits, mask), extractBits(bits & mask, mask));
    ASSERT_EQ(uint32_t(bits) % (1u << mask % 32), lowBits(uint32_t(bits), mask % 32));
  }
  ASSERT_EQ(~uint64_t(0), depositBits(~uint64_t(0), ~uint64_t(0)));
  ASSERT_EQ(0u, depositBits(~uint64_t(0), 0));
  ASSERT_EQ(~uint64_t(0), extractBits(~uint64_t(0), ~uint64_t(0)));
  ASSERT_EQ(0u, extractBits(~uint64_t(0), 0));
}

template <class V>
void checkInterleave() {
  Random random;
  const V a = randomVector<V>(random), b = randomVector<V>(random);
  constexpr int n = kLanes<V>;
  const auto mixed = interleave(a, b);
  for (int i = 0; i < 2 * n; ++i)
    ASSERT_EQ(Lane<V>(i % 2 ? b[i / 2] : a[i / 2]), Lane<V>(i < n ? mixed.first[i] : mixed.second[i - n])) << i;
  const auto apart = deinterleave(mixed.first, mixed.second);
  expectLanes(apart.first, a, b, [](V x, V, int i) { return x[i]; });
  expectLanes(apart.second, a, b, [](V, V y, int i) { return y[i]; });
  Lane<V> memory[2 * n];
  store(memory, mixed.first), store(memory + n, mixed.second);
  const auto loaded = loadPairs<V>(memory);
  expectLanes(loaded.first, a, b, [](V x, V, int i) { return x[i]; });
  expectLanes(loaded.second, a, b, [](V, V y, int i) { return y[i]; });
  storePairs(memory, a, b);
  expectLanes(load<V>(memory), mixed.first, b, [](V x, V, int i) { return x[i]; });
  expectLanes(load<V>(memory + n), mixed.second, b, [](V x, V, int i) { return x[i]; });
  expectLanes(evenAndOdd(a, b), a, b, [](V x, V y, int i) { return i % 2 ? y[i] : x[i]; });
  expectLanes(lowerAndUpper(a, b), a, b, [](V x, V y, int i) { return i < n / 2 ? x[i] : y[i]; });
  expectLanes(oneBefore(a, b), a, b, [](V x, V y, int i) { return i ? y[i - 1] : x[n - 1]; });
  OneLate<V> late;
  late(a);
  expectLanes(late(b), a, b, [](V x, V y, int i) { return i ? y[i - 1] : x[n - 1]; });
  expectLanes(oneAfter(a, b), a, b, [](V x, V y, int i) { return i < n - 1 ? x[i + 1] : y[0]; });
}
TEST(Simd, InterleaveAndBack) {
  checkInterleave<Vec<uint8_t, 16>>(), checkInterleave<Vec<uint8_t, 32>>(), checkInterleave<Vec<uint8_t, 64>>();
  checkInterleave<Vec<int16_t, 16>>(), checkInterleave<Vec<int16_t, 32>>(), checkInterleave<Vec<int16_t, 64>>();
  checkInterleave<Vec<int32_t, 16>>(), checkInterleave<Vec<int32_t, 32>>(), checkInterleave<Vec<int32_t, 64>>();
}

template <int Bytes>
void checkPixels() {
  using B = Vec<uint8_t, Bytes>;
  Random random;
  uint8_t pixels[4 * Bytes], back[4 * Bytes];
  random.fill(pixels, sizeof pixels);
  const auto three = loadTriples<B>(pixels);
  const auto four = loadQuadruples<B>(pixels);
  for (int i = 0; i < Bytes; ++i) {
    const uint8_t of3[] = {three.c0[i], three.c1[i], three.c2[i]};
    const uint8_t of4[] = {four.c0[i], four.c1[i], four.c2[i], four.c3[i]};
    EXPECT_EQ(0, std::memcmp(of3, pixels + 3 * i, 3));
    EXPECT_EQ(0, std::memcmp(of4, pixels + 4 * i, 4));
  }
  storeTriples(back, three);
  EXPECT_EQ(0, std::memcmp(pixels, back, 3 * Bytes));
  const auto pairs = loadBytePairs3<B>(pixels);
  expectLanes(pairs.c01.low, three.c0, three.c1, [](B x, B y, int i) { return unpackLow(x, y)[i]; });
  expectLanes(pairs.c01.high, three.c0, three.c1, [](B x, B y, int i) { return unpackHigh(x, y)[i]; });
  expectLanes(pairs.c21.low, three.c2, three.c1, [](B x, B y, int i) { return unpackLow(x, y)[i]; });
  expectLanes(pairs.c21.high, three.c2, three.c1, [](B x, B y, int i) { return unpackHigh(x, y)[i]; });
  // Stored from lanes as unpacking leaves them, of which all that are out of a byte's range are clamped.
  using S = Vec<int16_t, Bytes>;
  const auto widened = [](B v, int16_t add) {
    return Halves<S>{as<int16_t>(unpackLow(v, B{})) + add, as<int16_t>(unpackHigh(v, B{})) + add};
  };
  storeTriplesClamped(back, widened(three.c0, 0), widened(three.c1, 300), widened(three.c2, -300));
  for (int i = 0; i < 3 * Bytes; ++i) EXPECT_EQ(i % 3 == 0 ? pixels[i] : i % 3 == 1 ? 255 : 0, back[i]) << i;
  storeQuadruples(back, four);
  EXPECT_EQ(0, std::memcmp(pixels, back, 4 * Bytes));
  // Blocks that lie in another order.
  if constexpr (kShuffles) {
    const auto turned = [](auto* p, int pixelBytes) {
      return [=](int block) { return p + 16 * pixelBytes * (Bytes / 16 - 1 - block); };
    };
    const auto turn = [&](B v) {
      B result;
      scatterBlocks(turned(reinterpret_cast<uint8_t*>(&result), 1), v);
      return result;
    };
    const uint8_t* const from = pixels;
    const auto triples = loadTriples<B>(turned(from, 3));
    expectLanes(triples.c0, turn(three.c0), triples.c2, [](B x, B, int i) { return x[i]; });
    const auto turnedPairs = loadBytePairs3<B>(turned(from, 3));
    expectLanes(turnedPairs.c21.high, triples.c2, triples.c1, [](B x, B y, int i) { return unpackHigh(x, y)[i]; });
    std::memset(back, 0, sizeof back);
    storeTriplesClamped(turned(back, 3), widened(triples.c0, 0), widened(triples.c1, 0), widened(triples.c2, 0));
    EXPECT_EQ(0, std::memcmp(pixels, back, 3 * Bytes));
    std::memset(back, 0, sizeof back);
    storeQuadruples(turned(back, 4), loadQuadruples<B>(turned(from, 4)));
    EXPECT_EQ(0, std::memcmp(pixels, back, 4 * Bytes));
    const auto halves = [&](int i) { return gatherPart<B>(turned(from, 2), i); };
    scatterPart(turned(back, 2), 0, halves(0)), scatterPart(turned(back, 2), 1, halves(1));
    EXPECT_EQ(0, std::memcmp(pixels, back, 2 * Bytes));
  }
}
TEST(Simd, PixelsOfThreeAndFourBytes) {
  checkPixels<16>();
  checkPixels<32>();
  checkPixels<64>();
}

// Every place once or, in the last group, twice, and none beyond the range.
TEST(Simd, GroupsThatCoverARange) {
  constexpr int kGroup = 16, kFirst = 3;
  for (int length = kGroup; length <= 3 * kGroup; ++length) {
    std::vector<int> times(size_t(kFirst + length + kGroup));
    coverInOneLoop<kGroup>(kFirst, kFirst + length, [&](ptrdiff_t x) {
      for (int i = 0; i < kGroup; ++i) ++times.at(size_t(x + i));
    });
    const int groups = (length + kGroup - 1) / kGroup, twice = groups * kGroup - length;
    for (int i = 0; i < int(times.size()); ++i) {
      const bool inside = i >= kFirst && i < kFirst + length;
      const int lastButOne = kFirst + (groups - 1) * kGroup;
      ASSERT_EQ(inside ? 1 + (i < lastButOne && i >= lastButOne - twice) : 0, times[size_t(i)]) << length << ' ' << i;
    }
  }
}

TEST(Simd, FloatToInteger) {
  const float values[] = {0.5f, 1.5f, -2.5f, 2147483520.f, 2147483648.f, -2147483648.f, NAN, -3e9f};
  const int32_t rounded[] = {0, 2, -2, 2147483520, INT32_MIN, INT32_MIN, INT32_MIN, INT32_MIN};
  const int32_t cut[] = {0, 1, -2, 2147483520, INT32_MIN, INT32_MIN, INT32_MIN, INT32_MIN};
  for (int i = 0; i < 8; ++i) {
    const auto v = Vec<float, 32>{} + values[i];
    EXPECT_EQ(rounded[i], roundToInt(v)[3]) << values[i];
    EXPECT_EQ(cut[i], truncateToInt(v)[5]) << values[i];
    EXPECT_EQ(rounded[i], roundToInt(lower(v))[1]) << values[i];
    EXPECT_EQ(rounded[i], roundToInt(join(v, v))[9]) << values[i];
    EXPECT_EQ(cut[i], truncateToInt(join(v, v))[15]) << values[i];
  }
}

}  // namespace
}  // namespace qelj::test
