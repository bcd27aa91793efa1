// The progressive code-block decoder and the one-call decoder on top of it (ISO/IEC 15444-1, Annexes C and D).
#include <algorithm>
#include <cstring>

#include "frame/check.h"
#include "frame/fronts.h"
#include "frame/memory.h"
#include "jpeg2000/blockcoder/mq.h"
#include "jpeg2000/blockcoder/passes.h"

namespace qelj {
namespace {

using namespace jpeg2000;

constexpr uint32_t kDecoderMagic = 0x434d4150;

// The pass to come. Behind a raw significance pass comes a raw refinement, and behind that a cleanup which
// starts an MQ segment of its own.
enum PassKind : int32_t {
  kCleanup,
  kRefinementMq,
  kSignificanceMq,
  kCleanupBehindRaw,
  kRefinementRaw,
  kSignificanceRaw,
};

// The record at the start of the state memory. That memory may stand anywhere, so a call takes the record
// out, and puts it back; the flags follow at the next 32-byte boundary.
struct Decoder {
  uint32_t magic, attached;
  uint8_t* dst;
  int32_t dstStep, width, height;
  int32_t plane, passes, bypassLimit, style, band;
  PassKind next;
  int32_t corrupted;
  MqContexts contexts;

  bool has(int32_t bit) const { return style & bit; }
};

constexpr int32_t kFlagAlignment = 32, kFixedBytes = 388;
static_assert(sizeof(Decoder) + kFlagAlignment - 1 <= kFixedBytes);

FlagGroup* flagMemory(void* state) {
  const auto end = reinterpret_cast<uintptr_t>(state) + sizeof(Decoder);
  return reinterpret_cast<FlagGroup*>((end + kFlagAlignment - 1) / kFlagAlignment * kFlagAlignment);
}

QelStatus isDecoder(const void* state) {
  return require(load<uint32_t>(state) == kDecoderMagic, qelStatusContextMismatch);
}

// Room for a word of 16 bits a sample, in rows of two, and two border rows: more than the flags as they are kept here
// take, which is a group of 32 bytes for four rows of eight columns, one beside each such row, and one more. Exact for
// every size: 2^63 and a little at most.
uint64_t stateBytes(QelSize size) {
  const uint64_t rowBytes = (uint64_t(size.width) * 4 + 8 + 31) / 32 * 32;
  return rowBytes * (((uint64_t(size.height) + 1) >> 1) + 2) + kFixedBytes;
}

// Decodes the symbols of one pass into the samples.
template <class Bits>
struct BlockReader {
  Bits bits;
  MqContexts contexts;
  uint8_t* dst;
  ptrdiff_t step;
  int32_t plane;
  uint8_t* samples = nullptr;  // of the group

  QELJ_INLINE void group(int32_t stripe, int32_t g) { samples = dst + stripe * kStripe * step + ptrdiff_t(g) * 32; }
  QELJ_INLINE uint8_t* sample(int p) const {
    const int i = place::kIndex[size_t(p)];
    return samples + ((i & 3) * step + (i & ~3));  // a column is four bytes wide
  }
  QELJ_INLINE uint32_t decode(uint32_t context) { return bits.decode(contexts.state[context]); }
  QELJ_INLINE uint32_t significance(uint32_t context, int) { return decode(context); }
  QELJ_INLINE uint32_t sign(uint32_t entry, int p) {
    const uint32_t negative = decode(entry & 31) ^ (Bits::kRaw ? 0 : entry >> 7);
    store(sample(p), negative << 31 | (uint32_t(3) << plane >> 1));
    return negative;
  }
  QELJ_INLINE void refine(uint32_t context, int p) {
    const uint32_t known = uint32_t(-2) << plane, midPoint = uint32_t(1) << plane >> 1;
    uint8_t* at = sample(p);
    store(at, (load<uint32_t>(at) & known) | decode(context) << plane | midPoint);
  }
  QELJ_INLINE int run(int) {
    if (!bits.decodeLikely(contexts.state[kRunLength])) return 4;
    const int high = int(decode(kUniform));
    return high << 1 | int(decode(kUniform));
  }
};

struct Passes {
  Decoder& d;
  FlagGrid grid;

  template <class Bits>
  BlockReader<Bits> reader(const Bits& bits) const {
    return {bits, d.contexts, d.dst, d.dstStep, d.plane};
  }

  // Each counts its pass and tells whether the stream is corrupted as far as the pass itself can see.

  template <class Bits>
  __attribute__((noinline)) bool significance(Bits& bits) const {
    auto block = reader(bits);
    ownSignificancePass(grid, d.has(qelCodeStyleCausal), kSignificanceTables[d.band], block);
    return end(bits, block);
  }
  template <class Bits>
  __attribute__((noinline)) bool refinement(Bits& bits) const {
    auto block = reader(bits);
    ownRefinementPass(grid, block);
    return end(bits, block);
  }
  __attribute__((noinline)) bool cleanup(MqDecoder& bits) const {
    auto block = reader(bits);
    ownCleanupPass(grid, d.has(qelCodeStyleCausal), kSignificanceTables[d.band], block);
    uint32_t symbol = 10;
    if (d.has(qelCodeStyleSymbols)) {
      symbol = 0;
      for (int i = 0; i < 4; ++i) symbol = symbol << 1 | block.decode(kUniform);
    }
    return end(bits, block) || symbol != 10;
  }

 private:
  template <class Bits>
  bool end(Bits& bits, const BlockReader<Bits>& block) const {
    bits = block.bits;
    d.contexts = block.contexts;
    if (!Bits::kRaw && d.has(qelCodeStyleReset)) d.contexts.reset();
    --d.passes;
    return false;
  }
};

// A segment of exactly one pass.
bool decodeTerminatedPass(Passes p, const uint8_t* src, size_t length) {
  Decoder& d = p.d;
  if (d.next == kSignificanceRaw || d.next == kRefinementRaw) {
    RawDecoder raw(src, length);
    const bool first = d.next == kSignificanceRaw;
    d.next = first ? kRefinementRaw : kCleanupBehindRaw;
    return first ? p.significance(raw) : p.refinement(raw);
  }
  MqDecoder mq(src, length);
  bool bad = false;
  switch (d.next) {
    case kSignificanceMq:
      bad = p.significance(mq);
      d.next = kRefinementMq;
      break;
    case kRefinementMq:
      bad = p.refinement(mq);
      d.next = kCleanup;
      break;
    default:
      bad = p.cleanup(mq);
      --d.plane;
      d.next = d.next == kCleanup && d.plane >= d.bypassLimit ? kSignificanceMq : kSignificanceRaw;
  }
  return bad | (d.has(qelCodeStylePredictable) && mq.terminatedBadly());
}

// A segment of as many passes as belong together: all of a block's MQ passes down to the bypass limit, two
// raw passes, or the cleanup behind them. The plane stays where the counter ends.
bool decodeSegment(Passes p, const uint8_t* src, size_t length) {
  Decoder& d = p.d;
  bool bad = false;
  if (d.next == kSignificanceRaw) {
    RawDecoder raw(src, length);
    bad |= p.significance(raw);
    if (d.passes > 0) bad |= p.refinement(raw);
    d.next = kCleanupBehindRaw;
    return bad;
  }
  MqDecoder mq(src, length);
  const auto cleanup = [&] {
    bad |= p.cleanup(mq);
    if (d.has(qelCodeStylePredictable) && (d.next == kCleanupBehindRaw || d.plane == d.bypassLimit))
      bad |= mq.terminatedBadly();
    return d.passes > 0;
  };
  if (d.next == kCleanupBehindRaw) {
    if (cleanup()) --d.plane, d.next = kSignificanceRaw;
    return bad;
  }
  while (cleanup()) {
    if (d.plane-- <= d.bypassLimit) {
      d.next = kSignificanceRaw;
      break;
    }
    bad |= p.significance(mq);
    if (d.passes <= 0) break;
    bad |= p.refinement(mq);
    if (d.passes <= 0) break;
  }
  return bad;
}

void ownInit(void* state) {
  Decoder d{};
  d.magic = kDecoderMagic;
  store(state, d);
}

void ownAttach(void* state, int32_t* dst, int32_t dstStep, QelSize size, int32_t subband, int32_t numBitPlanes,
               int32_t style) {
  auto d = load<Decoder>(state);
  d.dst = reinterpret_cast<uint8_t*>(dst);
  d.dstStep = dstStep;
  d.width = size.width;
  d.height = size.height;
  numBitPlanes = std::clamp(numBitPlanes, 0, kMagnitudeBits);
  d.plane = numBitPlanes - 1;
  d.bypassLimit = style & qelCodeStyleBypass ? std::max(numBitPlanes - kPlanesBeforeBypass, 0) : 0;
  d.style = style;
  d.band = bandTable(subband);
  d.passes = 0;
  d.next = kCleanup;
  d.corrupted = 0;
  d.attached = 1;
  d.contexts.reset();
  store(state, d);
  if (!d.has(qelCodeStyleKeepSamples))
    for (int32_t y = 0; y < size.height; ++y) std::memset(row(dst, dstStep, y), 0, size_t(size.width) * 4);
  if (!d.has(qelCodeStyleKeepFlags))
    std::memset(flagMemory(state), 0, size_t(FlagGrid::bytes(size.width, size.height)));
}

QelStatus ownDecodeStep(void* state, const uint8_t* src, size_t length) {
  auto d = load<Decoder>(state);
  if (d.passes < 1 || d.plane < 0) return qelStatusOk;
  const Passes p{d, {flagMemory(state), d.width, d.height}};
  const bool bad = d.has(qelCodeStyleTerminate) ? decodeTerminatedPass(p, src, length) : decodeSegment(p, src, length);
  if (bad) d.corrupted = 1;
  store(state, d);
  return bad ? qelStatusJpeg2kBadCodeBlock : qelStatusOk;
}

template <class Operation>
void forEachSample(const Decoder& d, Operation&& operation) {
  for (int32_t y = 0; y < d.height; ++y) {
    uint8_t* line = d.dst + y * ptrdiff_t(d.dstStep);
    for (ptrdiff_t x = 0; x < d.width; ++x) store(line + 4 * x, operation(load<uint32_t>(line + 4 * x)));
  }
}

void ownSetPassCounter(void* state, int32_t passes) {
  auto d = load<Decoder>(state);
  d.passes = passes;
  store(state, d);
}

}  // namespace

QelStatus qeliDecodeCBProgrGetStateSize_JPEG2K(QelSize size, int32_t* stateSize) {
  if (auto s = check(area(size), nonNull(stateSize)); s) return s;
  const uint64_t bytes = stateBytes(size);
  if (bytes > INT32_MAX) return qelStatusBadSize;
  *stateSize = int32_t(bytes);
  return qelStatusOk;
}
QelStatus qeliDecodeGetBufSize_JPEG2K(QelSize size, int32_t* stateSize) {
  return qelj::qeliDecodeCBProgrGetStateSize_JPEG2K(size, stateSize);
}

QelStatus qeliDecodeCBProgrInit_JPEG2K(void* state) {
  if (auto s = nonNull(state); s) return s;
  ownInit(state);
  return qelStatusOk;
}

QelStatus qeliDecodeCBProgrInitAlloc_JPEG2K(QelDecodeStateJPEG2K** state, QelSize size) {
  if (auto s = check(nonNull(state), area(size)); s) return s;
  const uint64_t bytes = stateBytes(size);
  void* memory = bytes > INT32_MAX ? nullptr : ownAlloc(int32_t(bytes));
  *state = static_cast<QelDecodeStateJPEG2K*>(memory);
  if (!memory) return qelStatusNoMemory;
  ownInit(memory);
  return qelStatusOk;
}

QelStatus qeliDecodeCBProgrFree_JPEG2K(void* state) {
  if (!state) return qelStatusNullPointer;
  if (auto s = isDecoder(state); s) return s;
  store(state, uint32_t(0));
  ownFree(state);
  return qelStatusOk;
}

QelStatus qeliDecodeCBProgrAttach_JPEG2K_32s_C1R(int32_t* dst, int32_t dstStep, QelSize size, void* state,
                                                 int32_t subband, int32_t numBitPlanes, int32_t codeStyle) {
  if (!state) return qelStatusNullPointer;
  if (auto s = check(isDecoder(state), nonNull(dst), step(dstStep), area(size)); s) return s;
  ownAttach(state, dst, dstStep, size, subband, numBitPlanes, codeStyle);
  return qelStatusOk;
}

QelStatus qeliDecodeCBProgrSetPassCounter_JPEG2K(int32_t numPasses, void* state) {
  if (!state) return qelStatusNullPointer;
  if (auto s = isDecoder(state); s) return s;
  ownSetPassCounter(state, numPasses);
  return qelStatusOk;
}

QelStatus qeliDecodeCBProgrGetPassCounter_JPEG2K(const void* state, int32_t* numPasses) {
  if (auto s = nonNull(state, numPasses); s) return s;
  if (auto s = isDecoder(state); s) return s;
  *numPasses = load<Decoder>(state).passes;
  return qelStatusOk;
}

QelStatus qeliDecodeCBProgrGetCurBitPlaneNum_JPEG2K(const void* state, int32_t* bitPlane) {
  if (!state) return qelStatusNullPointer;
  if (auto s = check(isDecoder(state), nonNull(bitPlane)); s) return s;
  *bitPlane = load<Decoder>(state).plane;
  return qelStatusOk;
}

QelStatus qeliDecodeCBProgrStep_JPEG2K(const uint8_t* src, int32_t srcLen, void* state) {
  if (auto s = nonNull(src, state); s) return s;
  if (auto s = isDecoder(state); s) return s;
  if (!load<Decoder>(state).attached) return qelStatusJpeg2kNotAttached;
  return ownDecodeStep(state, src, size_t(std::max(srcLen, 0)));
}

QelStatus qeliDecodeCodeBlock_JPEG2K_1u32s_C1R(const uint8_t* src, int32_t* dst, int32_t dstStep, QelSize size,
                                               int32_t subband, uint32_t numBitPlanes, uint32_t numPasses,
                                               const uint32_t* segmentLengths, int32_t numSegments, int32_t codeStyle,
                                               uint32_t* bitPlaneReached, uint8_t* state) {
  if (auto s = check(nonNull(src, state), area(size), nonNull(segmentLengths, dst), step(dstStep)); s) return s;
  ownInit(state);
  ownAttach(state, dst, dstStep, size, subband, int32_t(std::min<uint32_t>(numBitPlanes, kMagnitudeBits)), codeStyle);
  ownSetPassCounter(state, saturate<int32_t>(numPasses));

  QelStatus status = qelStatusOk;
  for (int32_t i = 0; i < numSegments && status == qelStatusOk; ++i) {
    const uint32_t length = at(segmentLengths, i);
    status = ownDecodeStep(state, src, length);
    src += length;
  }

  const auto d = load<Decoder>(state);
  const int32_t c = d.plane;
  if (status == qelStatusJpeg2kBadCodeBlock) {
    if (bitPlaneReached) *bitPlaneReached = uint32_t(c);
    if (d.has(qelCodeStyleCut) && c >= 0) {
      const uint32_t kept = uint32_t(-1) << c, half = uint32_t(1) << c;
      forEachSample(d, [=](uint32_t v) { return v & kept & 0x7FFFFFFF ? (v & kept) | half : 0; });
    }
  }
  // The mid-point bit and what stands below it.
  if (!d.has(qelCodeStyleKeepMidPoint) && c >= 1) forEachSample(d, [=](uint32_t v) { return v & uint32_t(-1) << c; });
  return status;
}

}  // namespace qelj
