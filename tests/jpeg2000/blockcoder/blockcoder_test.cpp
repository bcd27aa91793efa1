#include <gtest/gtest.h>

#include <cmath>
#include <numeric>
#include <string_view>

#include "jpeg2000/blockcoder/mq.h"
#include "qelj.h"
#include "support/random.h"

namespace qelj::test {
namespace {

using namespace jpeg2000;

using Bytes = std::vector<uint8_t>;

// Magnitudes of `bits` bits, left-aligned; small ones are the many, as in a wavelet's bands.
std::vector<int32_t> randomBlock(Random& random, QelSize size, int bits) {
  std::vector<int32_t> samples(size_t(size.width) * size_t(size.height));
  for (auto& s : samples) {
    const int kept = int(random.in(0, bits));
    const auto magnitude = uint32_t(random.bits() & ((uint64_t(1) << kept) - 1)) << (31 - bits);
    s = int32_t(magnitude | (magnitude && random.chance(50) ? 0x80000000u : 0));
  }
  return samples;
}
// Samples of `bits` left-aligned bits as the decoder gives them.
std::vector<int32_t> aligned(std::vector<int32_t> samples, int bits) {
  for (auto& s : samples) s = int32_t((uint32_t(s) & 0x80000000u) | (uint32_t(s) & 0x7FFFFFFF) >> (31 - bits));
  return samples;
}
int32_t magnitude(int32_t sample) { return sample & 0x7FFFFFFF; }
int32_t value(int32_t sample) { return sample < 0 ? -magnitude(sample) : sample; }

struct CodedBlock {
  int32_t planes = 0, passes = 0, segments = 0;
  Bytes bytes;
  std::vector<uint32_t> lengths;
  std::vector<int32_t> rates;
  std::vector<double> distortions;
  int planesOf(int bits) const { return planes ? planes - (31 - bits) : 0; }
};

// Codes a block; `room`: bytes for each store.
CodedBlock encodeBlock(const std::vector<int32_t>& samples, QelSize size, int subband, int bits, int style,
                       int32_t room = 1 << 20, int prevByte = 0) {
  CodedBlock b;
  QelEncodeStateJPEG2K* state = nullptr;
  qeliEncodeInitAlloc_JPEG2K(&state, size);
  qeliEncodeLoadCodeBlock_JPEG2K_32s_C1R(samples.data(), size.width * 4, size, state, subband, bits, prevByte, 0, style,
                                         &b.planes, &b.passes, &b.segments);
  Bytes part(size_t(room), 0);
  for (int32_t more = 1, n = room; more && n > 0;) {
    n = room;
    EXPECT_EQ(qeliEncodeStoreBits_JPEG2K_1u(part.data(), &n, state, &more), qelStatusOk);
    b.bytes.insert(b.bytes.end(), part.begin(), part.begin() + n);
  }
  for (int32_t i = 0, rate = -1; i < b.passes; ++i) {
    double distortion = -1;
    qeliEncodeGetRate_JPEG2K(state, i, &rate);
    qeliEncodeGetDist_JPEG2K(state, i, &distortion);
    b.rates.push_back(rate), b.distortions.push_back(distortion);
  }
  for (int32_t i = 0, length = -1; i < b.segments; ++i) {
    qeliEncodeGetTermPassLen_JPEG2K(state, i, &length);
    b.lengths.push_back(uint32_t(length));
  }
  EXPECT_EQ(qeliEncodeFree_JPEG2K(state), qelStatusOk);
  return b;
}

struct Decoded {
  QelStatus status;
  std::vector<int32_t> samples;
  uint32_t reached = 77;
};
Decoded decodeBlock(Bytes bytes, std::vector<uint32_t> lengths, QelSize size, int subband, uint32_t planes,
                    uint32_t passes, int style) {
  int32_t stateBytes = 0;
  qeliDecodeGetBufSize_JPEG2K(size, &stateBytes);
  Bytes state(size_t(stateBytes), 0);
  bytes.reserve(1), lengths.reserve(1);  // not null
  Decoded d;
  d.samples.assign(size_t(size.width) * size_t(size.height), 99);
  d.status = qeliDecodeCodeBlock_JPEG2K_1u32s_C1R(bytes.data(), d.samples.data(), 4 * size.width, size, subband, planes,
                                                  passes, lengths.data(), int32_t(lengths.size()), style, &d.reached,
                                                  state.data());
  return d;
}

// --- streams of others -------------------------------------------------------------------------------------

Bytes fromHex(std::string_view text) {
  Bytes bytes;
  for (size_t i = 0; i + 1 < text.size(); i += 2)
    bytes.push_back(uint8_t(std::stoi(std::string(text.substr(i, 2)), nullptr, 16)));
  return bytes;
}

// ITU-T T.88, H.2: 256 decisions in one context, and the bytes that they are coded in, without the marker behind them.
TEST(MqCoder, TestSequenceOfTheStandard) {
  const Bytes decisions = fromHex("00020051000000C00352872AAAAAAAAA82C02000FCD79EF6BF7FED904F46A3BF");
  const Bytes coded = fromHex("84C73BFCE1A1430402200000410DBB86F4317FFF88FF37471ADB6ADF");
  constexpr uint32_t kContext = kSign;  // starts in state 0
  Bytes symbols;
  for (const uint8_t byte : decisions)
    for (int bit = 7; bit >= 0; --bit) symbols.push_back(uint8_t(kContext << 1 | (byte >> bit & 1)));

  Bytes written(64, 0);
  MqContexts contexts;
  contexts.reset();
  MqEncoder encoder(&written[1]);
  encoder.encode(symbols.data(), symbols.data() + symbols.size(), contexts);
  EXPECT_EQ(Bytes(&written[1], encoder.flush()), coded);

  contexts.reset();
  MqDecoder decoder(coded.data(), coded.size());
  for (const uint8_t symbol : symbols) ASSERT_EQ(decoder.decode(contexts.state[kContext]), symbol & 1u);
}

// ISO/IEC 15444-1, J.10.1: the second code-block, of the LH band.
TEST(BlockCoder, ExampleOfTheStandard) {
  EXPECT_EQ(decodeBlock(fromHex("0FB176"), {3}, {1, 4}, 1, 3, 7, 0).samples, (std::vector<int32_t>{1, 5, 1, 0}));
}

// The code-blocks of two files that OpenJPEG 2.5.0 made of the picture below: opj_compress -i picture.pgm -o x.j2k
// -n 2 -M 0, and -M 63, which are all styles together: bypass, reset, termination on each pass, vertically causal,
// predictable termination, segmentation symbols.
int pixel(int x, int y) { return ((x + y) % 3 ? x * x * 7 + y * y * 13 + x * y * 5 : x * 9 + y * 5) & 255; }
// In the order of the band planes, whose numbers are also those of subbands.
struct ForeignBlock {
  const char* hex;
  std::vector<uint32_t> lengths;
};
void decodePicture(const ForeignBlock (&blocks)[4], int style) {
  constexpr int32_t kSide = 16, kBand = kSide / 2;
  std::vector<int32_t> bands, picture(kSide * kSide);
  for (int i = 0; i < 4; ++i) {
    const uint32_t planes = i == 3 ? 9 : 8;
    const auto d =
        decodeBlock(fromHex(blocks[i].hex), blocks[i].lengths, {kBand, kBand}, i, planes, 3 * planes - 2, style);
    EXPECT_EQ(d.status, qelStatusOk) << i;
    for (const int32_t sample : d.samples) bands.push_back(value(sample));
  }
  const int32_t* const planes[] = {&bands[0], &bands[64], &bands[128], &bands[192]};
  const int32_t steps[] = {4 * kBand, 4 * kBand, 4 * kBand, 4 * kBand};
  const QelRect tile{0, 0, kSide, kSide};
  Bytes work(4000);
  ASSERT_EQ(qeliWTInv_B53_JPEG2K_32s_C1R(planes, steps, picture.data(), 4 * kSide, &tile, work.data()), qelStatusOk);
  for (int i = 0; i < kSide * kSide; ++i) ASSERT_EQ(picture[size_t(i)] + 128, pixel(i % kSide, i / kSide)) << i;
}
TEST(BlockCoder, BlocksOfAnotherEncoder) {
  decodePicture({{"10e19fc6ec37dde2242a28fa540740d2d6c80c85adaa6d417194618f5b7439c2f41e417ba162aeb5bd32c56d7f55a55d"
                  "43921e3ff54fadd916145a730d76d02f23f357",
                  {67}},
                 {"0761a90a03e6b80c946f75e88b4038ebc8065904d24d7f3bcdb4aaadae97a405beeecbcf696b0c1fbf7e93308280455a"
                  "f279b1eb563c2eb86f3503cae09b29d74956d02b",
                  {68}},
                 {"03c5c2ce0375937d557763b874b39f9a42653cfebbcc133b24f1b1030a3401f453c906855b96c2108cdb30972c430779"
                  "f27772b656e7a45fb3a8bcd85bd158b31383d3a9f544f7",
                  {71}},
                 {"3db9d8a221a210a2fac528f1067d1ed0dfdc9d5724dc2cf158a859cbe15e9dd0ba1aff78a51c25314f81704c1a24b060"
                  "b49e35fb17c85e98d5c54835f06343d43cac8641b6f66dab4871b56e9f",
                  {77}}},
                0);
  decodePicture({{"10e196e070402795dcc8272a09899d8825e0edcd55df7a990ae69d56028bf04c1a967a59a952e0b6f746ff2a04d89180"
                  "b20255b6cd328072a52c328345b6f5073f1a0de480106db657aa63288c7e526db6",
                  {3, 2, 1, 7, 9, 2, 3, 7, 5, 1, 4, 7, 1, 1, 8, 1, 1, 8, 1, 0, 8, 1}},
                 {"0761a949bbc2def3474004f9fed92676a7001a07b5b2407aebdc52700c1dce89be9d3968da297338b653df52cad6e852"
                  "528025b6a900303f34c1c537aab6d30e154832be9cf4b688fe6492f6e3c5e1b6",
                  {4, 5, 1, 7, 8, 2, 1, 6, 6, 1, 3, 7, 1, 1, 8, 1, 0, 8, 1, 0, 8, 1}},
                 {"03c5c2cdfe619c74b8b4754a7c1166a99b58aebc5cff4774e87fcbbc0734371a7b01044548fc0ada25a6c156b68bf215"
                  "f78ab00d6e6125b6308b8459b4c8bcde95b6c8590dcfef68ce942ab6ed7206d310e7ca2d82b6",
                  {6, 6, 1, 6, 9, 3, 1, 6, 6, 1, 3, 7, 1, 1, 8, 1, 1, 8, 1, 1, 8, 1}},
                 {"3dbdb035f00006d43a5dad7c29a76d351687ea60973174c6c50be870ca35c2e01cf0b04f93e506a8b68c9c2a2d344453"
                  "552445b6254a3b51fa8c051dc22ab6b2ab3f8d6700cb8bf2b6959d2c07532c8c6b5ab6da69840294011538b6",
                  {2, 3, 1, 9, 9, 3, 1, 6, 6, 1, 3, 7, 1, 2, 8, 1, 1, 8, 1, 1, 8, 1, 0, 8, 1}}},
                31 | qelCodeStylePredictable);
}

// --- round trips -------------------------------------------------------------------------------------------

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
        ASSERT_EQ(std::accumulate(b.lengths.begin(), b.lengths.end(), size_t(0)), b.bytes.size());
        const int planes = b.planesOf(bits);
        ASSERT_EQ(b.passes, planes ? 3 * planes - 2 : 0);
        const Decoded d = decodeBlock(b.bytes, b.lengths, size, subband, uint32_t(planes), uint32_t(b.passes), style);
        EXPECT_EQ(d.status, qelStatusOk);
        EXPECT_EQ(d.samples, aligned(samples, bits));
      }
}

// Up to each pass, from the bytes that its rate tells: the squared error against the decoder's samples has dropped by
// exactly the pass's distortion. The tables see 6 planes, so that these are all.
TEST(BlockCoder, CutAtAnyPassTheErrorIsWhatTheDistortionTells) {
  Random random(3);
  const QelSize size{19, 14};
  const int bits = 6;
  for (const int style : std::initializer_list<int>{0, qelCodeStyleBypass, qelCodeStyleTerminate,
                                                    qelCodeStyleBypass | qelCodeStyleTerminate | qelCodeStyleReset,
                                                    qelCodeStyleCausal | qelCodeStyleSymbols}) {
    const auto samples = randomBlock(random, size, bits), truth = aligned(samples, bits);
    double energy = 0;
    for (const int32_t s : truth) energy += double(magnitude(s)) * magnitude(s);
    const CodedBlock b = encodeBlock(samples, size, 3, bits, style | qelCodeStyleLossless);
    for (size_t pass = 0; pass < size_t(b.passes); ++pass) {
      SCOPED_TRACE(testing::Message() << style << " " << pass);
      std::vector<uint32_t> lengths;  // of the segments that these bytes reach into
      auto left = uint32_t(b.rates[pass]);
      ASSERT_LE(left, b.bytes.size());
      for (const uint32_t length : b.lengths) {
        lengths.push_back(std::min(length, left));
        left -= lengths.back();
      }
      const Decoded d = decodeBlock({b.bytes.begin(), b.bytes.begin() + b.rates[pass]}, lengths, size, 3,
                                    uint32_t(b.planesOf(bits)), uint32_t(pass + 1), style | qelCodeStyleKeepMidPoint);
      ASSERT_EQ(d.status, qelStatusOk);
      double error = 0;
      for (size_t i = 0; i < truth.size(); ++i) error += std::pow(value(truth[i]) - value(d.samples[i]), 2);
      ASSERT_EQ(b.distortions[pass], energy - error);
    }
    EXPECT_EQ(b.distortions.back(), energy);
  }
}

// Annex C stuffs a bit behind 0xFF, and shifts once more before the first byte: the bytes come out the same, as they
// do in pieces.
TEST(BlockCoder, ByteInFrontOfTheBlockAndPieces) {
  Random random(7);
  for (const int style :
       std::initializer_list<int>{0, qelCodeStyleBypass, qelCodeStyleTerminate | qelCodeStyleBypass}) {
    const auto samples = randomBlock(random, {17, 23}, 13);
    const auto plain = encodeBlock(samples, {17, 23}, 0, 13, style);
    for (const int before : {100, 255})
      EXPECT_EQ(encodeBlock(samples, {17, 23}, 0, 13, style, 999, before).bytes, plain.bytes);
    for (const int32_t room : {1, 7, int32_t(plain.bytes.size())})
      EXPECT_EQ(encodeBlock(samples, {17, 23}, 0, 13, style, room).bytes, plain.bytes);
  }
}

// More planes than there are count as 31; more passes than planes have do no harm.
TEST(BlockCoder, CountsOutOfRange) {
  Random random(8);
  for (int style = 0; style < 32; ++style) {
    const auto bytes = random.vector<uint8_t>(300, 0, 255);
    const auto decode = [&](uint32_t planes, uint32_t passes) {
      return decodeBlock(bytes, std::vector<uint32_t>(100, 3), {13, 10}, 2, planes, passes, style).samples;
    };
    for (const uint32_t many : {94u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu})
      EXPECT_EQ(decode(many, many), decode(31, 94));
  }
}

TEST(ProgressiveDecoder, PassByPassEqualsOneCall) {
  Random random(9);
  for (const int style : std::initializer_list<int>{0, qelCodeStyleBypass, qelCodeStyleTerminate,
                                                    qelCodeStyleBypass | qelCodeStyleTerminate}) {
    const QelSize size{21, 18};
    const auto b = encodeBlock(randomBlock(random, size, 9), size, 2, 9, style);
    QelDecodeStateJPEG2K* state = nullptr;
    ASSERT_EQ(qeliDecodeCBProgrInitAlloc_JPEG2K(&state, size), qelStatusOk);
    std::vector<int32_t> samples(size_t(size.width) * size_t(size.height), 99);
    qeliDecodeCBProgrAttach_JPEG2K_32s_C1R(samples.data(), size.width * 4, size, state, 2, 9, style);
    qeliDecodeCBProgrSetPassCounter_JPEG2K(b.passes, state);
    int32_t left = b.passes, plane = 8;
    for (size_t i = 0, at = 0; i < b.lengths.size(); at += b.lengths[i++]) {
      const int32_t before = left;
      ASSERT_EQ(qeliDecodeCBProgrStep_JPEG2K(b.bytes.data() + at, int32_t(b.lengths[i]), state), 0);
      qeliDecodeCBProgrGetPassCounter_JPEG2K(state, &left);
      qeliDecodeCBProgrGetCurBitPlaneNum_JPEG2K(state, &plane);
      const int inBypass = i == 0 ? 10 : i % 2 ? 2 : 1;
      EXPECT_EQ(before - left, style & qelCodeStyleTerminate ? 1 : style ? inBypass : before);
    }
    EXPECT_EQ(qeliDecodeCBProgrFree_JPEG2K(state), qelStatusOk);
    EXPECT_EQ(left, 0);
    // Without termination the last cleanup lowers it only if passes remain.
    EXPECT_EQ(plane, style & qelCodeStyleTerminate ? -1 : 0);
    EXPECT_EQ(samples, decodeBlock(b.bytes, b.lengths, size, 2, 9, uint32_t(b.passes), style).samples);
  }
}

}  // namespace
}  // namespace qelj::test
