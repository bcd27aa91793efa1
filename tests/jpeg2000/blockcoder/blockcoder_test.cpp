#include <gtest/gtest.h>

#include <cmath>
#include <numeric>
#include <tuple>

#include "block_support.h"
#include "support/buffer.h"

namespace qelj::test {
namespace {

constexpr int kCausal = 1, kBypass = 2, kTerminate = 4, kReset = 8, kSymbols = 16, kLossless = 32;
constexpr int kCut = 0x10000, kKeepSamples = 0x20000, kKeepMidPoint = 0x40000, kKeepFlags = 0x80000;
constexpr int kPredictable = 0x100000;

// One call of the decoder, with the samples between guards and the bytes in front of an inaccessible page.
struct Decoded {
  QelStatus status;
  std::vector<int32_t> samples;
  uint32_t reached = 77;
};
Decoded decodeBlock(const std::vector<uint8_t>& bytes, const std::vector<uint32_t>& lengths, QelSize size,
                    int subband, uint32_t planes, uint32_t passes, int style) {
  static Random random(1);
  Guarded dst(random, size_t(size.width) * 4, size_t(size.height),
              size_t(size.width) * 4 + size_t(random.in(0, 9)), size_t(random.in(0, 7)));
  Guarded state(random, stateSize(size), 1, 0, size_t(random.in(0, 40)));
  PageBuffer exact(std::max<size_t>(bytes.size(), 1));
  if (!bytes.empty()) exact.assign(bytes.data(), bytes.size());
  Decoded d;
  static const uint32_t none = 0;
  d.status = qeliDecodeCodeBlock_JPEG2K_1u32s_C1R(
      exact.data(), dst.data<int32_t>(), dst.step(), size, subband, planes, passes,
      lengths.empty() ? &none : lengths.data(), int32_t(lengths.size()), style, &d.reached, state.data());
  EXPECT_TRUE(dst.intact() && state.intact());
  for (int32_t y = 0; y < size.height; ++y)
    for (int32_t x = 0; x < size.width; ++x) {
      int32_t v;
      std::memcpy(&v, dst.data(size_t(y)) + 4 * x, 4);
      d.samples.push_back(v);
    }
  return d;
}

// Samples of `bits` left-aligned bits as the decoder gives them.
std::vector<int32_t> aligned(std::vector<int32_t> samples, int bits) {
  for (auto& s : samples)
    s = int32_t((uint32_t(s) & 0x80000000u) | (uint32_t(s) & 0x7FFFFFFF) >> (31 - bits));
  return samples;
}
int planesOf(const CodedBlock& b, int bits) { return b.planes ? b.planes - (31 - bits) : 0; }

const QelSize kShapes[] = {{1, 1},  {1, 7},   {7, 1},   {3, 2},  {4, 4}, {5, 3},
                           {16, 9}, {13, 13}, {64, 64}, {33, 5}, {4, 70}};

TEST(BlockCoder, EveryStyleShapeAndBandComesBack) {
  Random random(2);
  for (int style = 0; style < 32; ++style)
    for (const QelSize size : kShapes)
      for (const int bits : {1, 4, 5, 9, 31}) {
        const int subband = int(random.in(0, 3));
        SCOPED_TRACE(testing::Message() << style << " " << size.width << "x" << size.height << " " << bits);
        const auto samples = randomBlock(random, size, bits);
        const CodedBlock b = encodeBlock(samples, size, subband, bits, style);
        ASSERT_EQ(b.status, qelStatusOk);
        ASSERT_EQ(std::accumulate(b.lengths.begin(), b.lengths.end(), size_t(0)), b.bytes.size());
        const int planes = planesOf(b, bits);
        ASSERT_EQ(b.passes, planes ? 3 * planes - 2 : 0);
        const Decoded d =
            decodeBlock(b.bytes, b.lengths, size, subband, uint32_t(planes), uint32_t(b.passes), style);
        EXPECT_EQ(d.status, qelStatusOk);
        EXPECT_EQ(d.samples, aligned(samples, bits));
      }
}

// The scan and the coder of the standard as plainly as they can be written: no flags, neighbours looked up.
TEST(BlockCoder, CutAtAnyPassTheSamplesAreTheKnownBits) {
  Random random(3);
  const QelSize size{19, 14};
  for (const int style : {0, kBypass, kTerminate, kBypass | kTerminate | kReset, kCausal | kSymbols}) {
    const int bits = 12;
    const auto samples = randomBlock(random, size, bits);
    const CodedBlock b = encodeBlock(samples, size, 3, bits, style);
    double before = INFINITY;
    for (int passes = 1; passes <= b.passes; ++passes) {
      SCOPED_TRACE(testing::Message() << style << " " << passes);
      // The bytes that the rate tells, in as many segments as they reach into.
      std::vector<uint32_t> lengths;
      auto left = uint32_t(b.rates[size_t(passes - 1)]);
      ASSERT_LE(left, b.bytes.size());
      for (const uint32_t length : b.lengths) {
        lengths.push_back(std::min(length, left));
        left -= lengths.back();
      }
      const Decoded d =
          decodeBlock({b.bytes.begin(), b.bytes.begin() + b.rates[size_t(passes - 1)]}, lengths, size, 3,
                      uint32_t(planesOf(b, bits)), uint32_t(passes), style | kKeepMidPoint);
      ASSERT_EQ(d.status, qelStatusOk);
      // Every decoded sample's interval holds the true one.
      double error = 0;
      const auto truth = aligned(samples, bits);
      const int plane = planesOf(b, bits) - 1 - (passes + 1) / 3;  // of the last whole pass or the one before
      for (size_t i = 0; i < truth.size(); ++i) {
        const int t = truth[i] & 0x7FFFFFFF, v = d.samples[i] & 0x7FFFFFFF;
        if (v) {
          ASSERT_EQ(truth[i] < 0, d.samples[i] < 0);
        }
        ASSERT_LE(std::abs(t - v), 2 << (plane + 1));
        error += double(t - v) * (t - v);
      }
      ASSERT_LT(error, before * 1.02 + 1);
      before = error;
    }
    EXPECT_EQ(before, 0);
  }
}

TEST(BlockCoder, RatesRiseAndEndAtTheLength) {
  Random random(4);
  for (int style = 0; style < 32; ++style) {
    const auto b = encodeBlock(randomBlock(random, {32, 21}, 14), {32, 21}, 0, 14, style);
    for (size_t i = 1; i < b.rates.size(); ++i) {
      EXPECT_LE(b.rates[i - 1], b.rates[i]);
      EXPECT_LE(b.distortions[i - 1], b.distortions[i] + 1e3);
    }
    EXPECT_EQ(size_t(b.rates.back()), b.bytes.size());
    if (style & kTerminate) {
      EXPECT_EQ(b.segments, b.passes);
    }
    if (!(style & (kTerminate | kBypass))) {
      EXPECT_EQ(b.segments, 1);
    }
    if ((style & (kTerminate | kBypass)) == kBypass) {
      EXPECT_EQ(b.segments, 1 + 2 * (14 - 4));
    }
    size_t at = 0;
    for (const uint32_t n : b.lengths)
      if (at += n; n) {
        EXPECT_NE(b.bytes[at - 1], 255);
      }
  }
}

// The drop of squared error that the tables state, in units of the lowest plane's square, and against the
// squared error of a decoded block.
TEST(BlockCoder, DistortionIsTheDropOfSquaredError) {
  const auto last = [](int32_t sample, int bits, int style) {
    const auto b = encodeBlock({sample}, {1, 1}, 0, bits, style);
    return b.distortions.back();
  };
  const int bits = 6;  // lowest plane 25
  const auto lone = [&](uint32_t m) { return int32_t(m << 25); };
  // Significant in its lowest plane: (6144 or 2 * 64^2) / 2^13.
  EXPECT_EQ(last(lone(1), bits, 0), 0.75);
  EXPECT_EQ(last(lone(1), bits, kLossless), 1.0);
  // 2, then its 0 below: index 0 in plane 1, 4 * 0.75, and a refinement of index 0, 0.75 or 1.
  EXPECT_EQ(last(lone(2), bits, 0), 3.75);
  EXPECT_EQ(last(lone(2), bits, kLossless), 4.0);
  EXPECT_EQ(last(lone(3), bits, kLossless), 4 * (6144 + 384 * 32) / 8192.0);
  // Bits below the lowest plane count: 1.5 in one plane.
  EXPECT_EQ(last(int32_t(3u << 29), 1, 0), (6144 + 384 * 32) / 8192.0);

  Random random(5);
  // With six planes the tables see every bit, so that the drops add up to the energy.
  const QelSize size{40, 31};
  const auto samples = randomBlock(random, size, bits);
  double energy = 0;
  for (const int32_t s : aligned(samples, bits)) energy += std::pow(s & 0x7FFFFFFF, 2);
  EXPECT_EQ(encodeBlock(samples, size, 1, bits, kLossless).distortions.back(), energy);
}

TEST(BlockCoder, StoringInPiecesGivesTheSameBytes) {
  Random random(6);
  for (const int style : {0, kBypass, kTerminate | kBypass}) {
    const auto samples = randomBlock(random, {17, 23}, 13);
    const auto whole = encodeBlock(samples, {17, 23}, 2, 13, style);
    for (const int32_t room : {1, 2, 7, int32_t(whole.bytes.size())}) {
      const auto parts = encodeBlock(samples, {17, 23}, 2, 13, style, room);
      EXPECT_EQ(parts.bytes, whole.bytes);
      EXPECT_EQ(parts.rates, whole.rates);
    }
  }
}

TEST(BlockCoder, BlocksWithoutPasses) {
  for (const int style : {0, kTerminate}) {
    const auto zero = encodeBlock(std::vector<int32_t>(20), {5, 4}, 0, 8, style);
    EXPECT_EQ(std::tuple(zero.planes, zero.passes, zero.segments, zero.bytes.size()),
              std::tuple(0, 0, !style, 0u));
  }
  // Below the lowest plane: reported, not coded.
  const auto low = encodeBlock({1 << 5, 0}, {2, 1}, 0, 8, 0);
  EXPECT_EQ(std::tuple(low.planes, low.passes, low.segments, low.bytes.size()), std::tuple(6, 0, 1, 0u));
  const auto top = encodeBlock({int32_t(1u << 30), 0}, {2, 1}, 0, 1, 0);
  EXPECT_EQ(std::tuple(top.planes, top.passes), std::tuple(31, 1));
}

// Annex C stuffs a bit behind 0xFF, and shifts once more before the first byte: the bytes come out the same.
TEST(BlockCoder, ByteInFrontOfTheBlock) {
  Random random(7);
  const auto samples = randomBlock(random, {12, 12}, 8);
  const auto plain = encodeBlock(samples, {12, 12}, 0, 8, 0);
  for (const int before : {100, 255})
    EXPECT_EQ(encodeBlock(samples, {12, 12}, 0, 8, 0, 999, before).bytes, plain.bytes);
}

// A lone sample of magnitude 1 in one plane, by hand. Context 2, Qe 0x0521: an LPS takes A to 0x0521 << 5 =
// 0xA420 and leaves C at 0. Context 11, Qe 0x5601: an MPS, and 0xA420 - 0x5601 is below Qe, so A is 0x5601 <<
// 1, C still 0: six shifts. Flush: C is 0xFFFF - 0x8000, six shifts on 0x1FFFC0, whose byte from bit 19 is 3;
// the next is 0xFF and left out.
TEST(BlockCoder, KnownBytes) {
  EXPECT_EQ(encodeBlock({1 << 30}, {1, 1}, 0, 1, 0).bytes, std::vector<uint8_t>{3});
}

TEST(BlockCoder, SignMagnitudeAtATruncatedEnd) {
  // One negative sample of magnitude 5 of three planes, cut behind its first plane.
  const std::vector<int32_t> sample{int32_t(0x80000000u | 5u << 28)};
  for (const int style : {0, kTerminate}) {
    const auto b = encodeBlock(sample, {1, 1}, 0, 3, style);
    const std::vector<uint32_t> first{b.lengths[0]};
    // Without termination the plane stays at 2; with it, it falls to 1, and the mask keeps the mid-point bit.
    EXPECT_EQ(uint32_t(decodeBlock(b.bytes, first, {1, 1}, 0, 3, 1, style).samples[0]),
              style ? 0x80000006u : 0x80000004u);
    EXPECT_EQ(uint32_t(decodeBlock(b.bytes, first, {1, 1}, 0, 3, 1, style | kKeepMidPoint).samples[0]),
              0x80000006u);
  }
}

TEST(BlockCoder, CorruptedSymbolIsReportedAndCut) {
  const int style = kTerminate | kSymbols;
  const std::vector<int32_t> samples{int32_t(0x80000000u | 9u << 27), 1 << 27, 0, 0, 3 << 27, 0};
  auto b = encodeBlock(samples, {3, 2}, 0, 4, style);
  // Emptied segments read as ones: 1111 or something else, but not 1010, from the second cleanup on.
  b.lengths[3] = 0;
  const auto d = decodeBlock(b.bytes, b.lengths, {3, 2}, 0, 4, 10, style | kCut);
  EXPECT_EQ(d.status, qelStatusJpeg2kBadCodeBlock);
  EXPECT_EQ(d.reached, 1u);
  for (const int32_t v : d.samples) EXPECT_EQ(uint32_t(v) & 1, 0u) << v;
  for (const int32_t v : d.samples) EXPECT_TRUE(v == 0 || (v & 0x7FFFFFFE)) << v;  // no negative zero
}

TEST(BlockCoder, PredictableTermination) {
  // A segment that ends with bytes which nothing needs is not predictable; and an empty one is, its coder
  // having stood at the end from the start.
  const auto b = encodeBlock({1 << 30, int32_t(0xC0000000u)}, {2, 1}, 0, 1, 0);
  auto longer = b.bytes;
  longer.insert(longer.end(), {0, 0, 0, 0, 0});
  const auto status = [](const std::vector<uint8_t>& bytes, int style) {
    return decodeBlock(bytes, {uint32_t(bytes.size())}, {2, 1}, 0, 1, 1, style).status;
  };
  EXPECT_EQ(status(longer, 0), qelStatusOk);
  EXPECT_EQ(status(longer, kPredictable), qelStatusJpeg2kBadCodeBlock);
  EXPECT_EQ(status({}, 0), qelStatusOk);
}

// Any bytes, lengths, counts and styles: no write outside, no read behind the bytes, an end.
TEST(BlockCoder, HostileSegments) {
  Random random(8);
  for (int round = 0; round < 3000; ++round) {
    const QelSize size{int32_t(random.in(1, 24)), int32_t(random.in(1, 24))};
    auto bytes = random.vector<uint8_t>(size_t(random.in(0, 200)), 0, random.chance(30) ? 0x90 : 255);
    if (random.chance(20)) std::fill(bytes.begin(), bytes.end(), uint8_t(255));
    std::vector<uint32_t> lengths;
    for (size_t left = bytes.size(); left && lengths.size() < 100;) {
      lengths.push_back(uint32_t(random.in(0, int64_t(left))));
      left -= lengths.back();
    }
    const uint32_t counts[] = {0, 1, 5, 31, 32, 33, 1000, 0x7FFFFFFF, 0x80000000u, 0xFFFFFFFFu};
    const int style = int(random.in(0, 31)) | (int(random.in(0, 31)) << 16);
    const auto d = decodeBlock(bytes, lengths, size, int(random.in(-1, 4)), counts[random.in(0, 9)],
                               counts[random.in(0, 9)], style);
    ASSERT_TRUE(d.status == qelStatusOk || d.status == qelStatusJpeg2kBadCodeBlock);
  }
}

struct ProgressiveState {
  explicit ProgressiveState(QelSize size) { qeliDecodeCBProgrInitAlloc_JPEG2K(&state, size); }
  ~ProgressiveState() { qeliDecodeCBProgrFree_JPEG2K(state); }
  QelDecodeStateJPEG2K* state = nullptr;
};

TEST(ProgressiveDecoder, PassByPassEqualsOneCall) {
  Random random(9);
  for (const int style : {0, kBypass, kTerminate, kBypass | kTerminate}) {
    const QelSize size{21, 18};
    const auto b = encodeBlock(randomBlock(random, size, 9), size, 2, 9, style);
    ProgressiveState p(size);
    std::vector<int32_t> samples(size_t(size.width) * size_t(size.height), 99);
    ASSERT_EQ(
        qeliDecodeCBProgrAttach_JPEG2K_32s_C1R(samples.data(), size.width * 4, size, p.state, 2, 9, style),
        0);
    ASSERT_EQ(qeliDecodeCBProgrSetPassCounter_JPEG2K(b.passes, p.state), 0);
    size_t at = 0;
    int32_t counter = b.passes, plane = 8;
    for (size_t i = 0; i < b.lengths.size(); at += b.lengths[i++]) {
      ASSERT_EQ(qeliDecodeCBProgrStep_JPEG2K(b.bytes.data() + at, int32_t(b.lengths[i]), p.state), 0);
      int32_t left = -1;
      qeliDecodeCBProgrGetPassCounter_JPEG2K(p.state, &left);
      EXPECT_EQ(counter - left, style & kTerminate ? 1 : !style ? counter : i == 0 ? 10 : i % 2 ? 2 : 1);
      counter = left;
      qeliDecodeCBProgrGetCurBitPlaneNum_JPEG2K(p.state, &plane);
      // Every third pass lowers the plane when each ends a segment; else only if passes remain.
      if (style & kTerminate) {
        EXPECT_EQ(plane, 8 - int(i + 3) / 3);
      }
    }
    EXPECT_EQ(counter, 0);
    EXPECT_EQ(plane, style & kTerminate ? -1 : 0);
    EXPECT_EQ(samples, decodeBlock(b.bytes, b.lengths, size, 2, 9, uint32_t(b.passes), style).samples);
    // Nothing is left to do.
    const auto done = samples;
    EXPECT_EQ(qeliDecodeCBProgrStep_JPEG2K(b.bytes.data(), 5, p.state), 0);
    EXPECT_EQ(samples, done);
  }
}

// The plane after the last MQ segment of a bypass block: with 5 planes only plane 0 has raw passes, with 4
// none.
TEST(ProgressiveDecoder, BypassBeginsFourPlanesBelowTheTop) {
  Random random(10);
  for (const int bits : {3, 4, 5}) {
    std::vector<int32_t> samples = randomBlock(random, {8, 8}, bits);
    samples[0] = 1 << 30;
    EXPECT_EQ(encodeBlock(samples, {8, 8}, 0, bits, kBypass).segments, bits == 5 ? 3 : 1);
  }
}

TEST(ProgressiveDecoder, KeptSamplesAndFlagsGoOn) {
  Random random(11);
  const QelSize size{9, 10};
  const auto samples = randomBlock(random, size, 6);
  const auto b = encodeBlock(samples, size, 0, 6, kTerminate);
  ProgressiveState p(size);
  std::vector<int32_t> dst(90);
  qeliDecodeCBProgrAttach_JPEG2K_32s_C1R(dst.data(), 36, size, p.state, 0, 6, kTerminate);
  qeliDecodeCBProgrSetPassCounter_JPEG2K(1, p.state);
  qeliDecodeCBProgrStep_JPEG2K(b.bytes.data(), int32_t(b.lengths[0]), p.state);
  const auto first = dst;
  // Attached again with both kept, a cleanup of the plane below skips every significant sample.
  qeliDecodeCBProgrAttach_JPEG2K_32s_C1R(dst.data(), 36, size, p.state, 0, 5,
                                         kTerminate | kKeepSamples | kKeepFlags);
  EXPECT_EQ(dst, first);
  qeliDecodeCBProgrSetPassCounter_JPEG2K(1, p.state);
  const uint8_t noise[] = {0x12, 0x34, 0x56, 0x78};
  qeliDecodeCBProgrStep_JPEG2K(noise, 4, p.state);
  for (size_t i = 0; i < dst.size(); ++i)
    if (first[i]) {
      EXPECT_EQ(dst[i], first[i]);
    }
  qeliDecodeCBProgrAttach_JPEG2K_32s_C1R(dst.data(), 36, size, p.state, 0, 6, 0);
  EXPECT_EQ(dst, std::vector<int32_t>(90));
}

TEST(BlockCoder, EncoderArguments) {
  const QelSize one{4, 4};
  QelEncodeStateJPEG2K* state = nullptr;
  EXPECT_EQ(qeliEncodeInitAlloc_JPEG2K(nullptr, {0, 0}), qelStatusNullPointer);
  EXPECT_EQ(qeliEncodeInitAlloc_JPEG2K(&state, {4, 0}), qelStatusBadSize);
  EXPECT_EQ(qeliEncodeInitAlloc_JPEG2K(&state, {1 << 30, 1 << 30}), qelStatusNoMemory);
  ASSERT_EQ(qeliEncodeInitAlloc_JPEG2K(&state, one), qelStatusOk);
  std::vector<int32_t> src(64, 1 << 30);
  int32_t planes = -5, passes = -5, segments = -5;
  std::vector<uint8_t> none(64);
  auto* bad = reinterpret_cast<QelEncodeStateJPEG2K*>(none.data());
  const auto load = [&](const int32_t* from, int32_t step, QelSize size, QelEncodeStateJPEG2K* s,
                        int32_t* result) {
    return qeliEncodeLoadCodeBlock_JPEG2K_32s_C1R(from, step, size, s, 0, 8, 0, 0, 0, result, &passes,
                                                  &segments);
  };
  EXPECT_EQ(load(nullptr, 0, {0, 0}, nullptr, nullptr), qelStatusNullPointer);
  EXPECT_EQ(load(nullptr, 0, {0, 0}, bad, nullptr), qelStatusContextMismatch);
  EXPECT_EQ(load(nullptr, 0, {0, 0}, state, nullptr), qelStatusNullPointer);
  EXPECT_EQ(load(nullptr, 0, {1, 0}, state, &planes), qelStatusBadSize);
  EXPECT_EQ(load(nullptr, 0, one, state, &planes), qelStatusNullPointer);
  EXPECT_EQ(load(src.data(), 0, one, state, &planes), qelStatusBadStep);
  EXPECT_EQ(load(src.data(), 32, {8, 8}, state, &planes), qelStatusBadSize);  // larger than the state
  EXPECT_EQ(planes, -5);
  ASSERT_EQ(load(src.data(), 16, one, state, &planes), qelStatusOk);

  uint8_t dst[100];
  int32_t n = 0, more = -1;
  EXPECT_EQ(qeliEncodeStoreBits_JPEG2K_1u(dst, &n, nullptr, &more), qelStatusNullPointer);
  EXPECT_EQ(qeliEncodeStoreBits_JPEG2K_1u(nullptr, &n, bad, &more), qelStatusContextMismatch);
  EXPECT_EQ(qeliEncodeStoreBits_JPEG2K_1u(nullptr, &n, state, &more), qelStatusNullPointer);
  EXPECT_EQ(qeliEncodeStoreBits_JPEG2K_1u(dst, &n, state, nullptr), qelStatusNullPointer);
  EXPECT_EQ(qeliEncodeStoreBits_JPEG2K_1u(dst, &n, state, &more), qelStatusBadSize);
  for (int round = 0; round < 2; ++round) {  // the second call finds nothing left
    n = 100;
    EXPECT_EQ(qeliEncodeStoreBits_JPEG2K_1u(dst, &n, state, &more), qelStatusOk);
    EXPECT_EQ(more, 0);
    EXPECT_EQ(n > 0, round == 0);
  }
  int32_t rate = 0;
  double dist = 0;
  EXPECT_EQ(qeliEncodeGetRate_JPEG2K(bad, -1, nullptr), qelStatusContextMismatch);
  EXPECT_EQ(qeliEncodeGetRate_JPEG2K(state, -1, nullptr), qelStatusNullPointer);
  EXPECT_EQ(qeliEncodeGetRate_JPEG2K(state, -1, &rate), qelStatusJpeg2kBadPassNumber);
  EXPECT_EQ(qeliEncodeGetRate_JPEG2K(state, passes, &rate), qelStatusJpeg2kBadPassNumber);
  EXPECT_EQ(qeliEncodeGetDist_JPEG2K(state, passes, &dist), qelStatusJpeg2kBadPassNumber);
  EXPECT_EQ(qeliEncodeGetTermPassLen_JPEG2K(state, segments, &rate), qelStatusJpeg2kBadPassNumber);
  EXPECT_EQ(qeliEncodeGetTermPassLen_JPEG2K(nullptr, 0, &rate), qelStatusNullPointer);
  EXPECT_EQ(qeliEncodeFree_JPEG2K(state), qelStatusOk);
  EXPECT_EQ(qeliEncodeFree_JPEG2K(nullptr), qelStatusNullPointer);
}

TEST(ProgressiveDecoder, Arguments) {
  const QelSize size{3, 3};
  std::vector<uint8_t> memory(stateSize(size) + 3, 0);
  void* state = memory.data() + 3;  // at an odd address
  std::vector<int32_t> dst(9);
  int32_t value = 0;
  const uint8_t byte = 0;
  const auto attach = [&](int32_t* to, int32_t step, QelSize s, void* at) {
    return qeliDecodeCBProgrAttach_JPEG2K_32s_C1R(to, step, s, at, 0, 3, 0);
  };
  EXPECT_EQ(attach(dst.data(), 12, size, state), qelStatusContextMismatch);  // not initialised
  EXPECT_EQ(qeliDecodeCBProgrFree_JPEG2K(state), qelStatusContextMismatch);
  EXPECT_EQ(qeliDecodeCBProgrInit_JPEG2K(nullptr), qelStatusNullPointer);
  ASSERT_EQ(qeliDecodeCBProgrInit_JPEG2K(state), qelStatusOk);
  EXPECT_EQ(std::vector<uint8_t>(memory.begin() + 3, memory.begin() + 7),
            (std::vector<uint8_t>{0x50, 0x41, 0x4D, 0x43}));
  EXPECT_EQ(qeliDecodeCBProgrStep_JPEG2K(nullptr, 1, state), qelStatusNullPointer);
  EXPECT_EQ(qeliDecodeCBProgrStep_JPEG2K(&byte, 1, nullptr), qelStatusNullPointer);
  EXPECT_EQ(qeliDecodeCBProgrStep_JPEG2K(&byte, 1, state), qelStatusJpeg2kNotAttached);
  EXPECT_EQ(attach(nullptr, 0, {0, 0}, nullptr), qelStatusNullPointer);
  EXPECT_EQ(attach(nullptr, 0, {0, 0}, state), qelStatusNullPointer);
  EXPECT_EQ(attach(dst.data(), 0, {0, 0}, state), qelStatusBadStep);
  EXPECT_EQ(attach(dst.data(), 12, {0, 0}, state), qelStatusBadSize);
  ASSERT_EQ(attach(dst.data(), 12, size, state), qelStatusOk);
  EXPECT_EQ(qeliDecodeCBProgrStep_JPEG2K(&byte, 1, state), qelStatusOk);  // the counter is 0
  EXPECT_EQ(qeliDecodeCBProgrGetCurBitPlaneNum_JPEG2K(state, &value), qelStatusOk);
  EXPECT_EQ(value, 2);
  EXPECT_EQ(qeliDecodeCBProgrSetPassCounter_JPEG2K(7, state), qelStatusOk);
  EXPECT_EQ(qeliDecodeCBProgrGetPassCounter_JPEG2K(state, &value), qelStatusOk);
  EXPECT_EQ(value, 7);
  EXPECT_EQ(qeliDecodeCBProgrGetPassCounter_JPEG2K(state, nullptr), qelStatusNullPointer);
  EXPECT_EQ(qeliDecodeCBProgrGetCurBitPlaneNum_JPEG2K(state, nullptr), qelStatusNullPointer);
  EXPECT_EQ(qeliDecodeCBProgrSetPassCounter_JPEG2K(7, memory.data() + 60), qelStatusContextMismatch);
  QelDecodeStateJPEG2K* made = nullptr;
  EXPECT_EQ(qeliDecodeCBProgrInitAlloc_JPEG2K(nullptr, {0, 0}), qelStatusNullPointer);
  EXPECT_EQ(qeliDecodeCBProgrInitAlloc_JPEG2K(&made, {0, 1}), qelStatusBadSize);
  EXPECT_EQ(qeliDecodeCBProgrInitAlloc_JPEG2K(&made, {1 << 30, 1 << 30}), qelStatusNoMemory);

  const uint32_t length = 1;
  const auto whole = [&](const uint8_t* src, int32_t* to, int32_t step, QelSize s, const uint32_t* lengths,
                         void* at) {
    return qeliDecodeCodeBlock_JPEG2K_1u32s_C1R(src, to, step, s, 0, 3, 1, lengths, 1, 0, nullptr,
                                                static_cast<uint8_t*>(at));
  };
  EXPECT_EQ(whole(nullptr, nullptr, 0, {0, 0}, nullptr, state), qelStatusNullPointer);
  EXPECT_EQ(whole(&byte, nullptr, 0, {0, 0}, nullptr, nullptr), qelStatusNullPointer);
  EXPECT_EQ(whole(&byte, nullptr, 0, {0, 1}, nullptr, state), qelStatusBadSize);
  EXPECT_EQ(whole(&byte, dst.data(), 0, size, nullptr, state), qelStatusNullPointer);
  EXPECT_EQ(whole(&byte, nullptr, 0, size, &length, state), qelStatusNullPointer);
  EXPECT_EQ(whole(&byte, dst.data(), 0, size, &length, state), qelStatusBadStep);
  EXPECT_EQ(whole(&byte, dst.data(), 12, size, &length, state), qelStatusOk);
}

}  // namespace
}  // namespace qelj::test
