// Block coefficient coding (ITU-T T.832, 8.7): the fifteen AC coefficients of a 4x4 block.
#include "frame/fronts.h"
#include "jpegxr/symbols.h"

namespace qelj {
namespace {

using namespace jpegxr;

// What is split off the coefficients, and where it goes, if anywhere.
struct LowBits {
  uint32_t modelBits, trimBits = 0;
  uint32_t* residual = nullptr;
};

template <bool kFlex, class T>
QELJ_INLINE QelStatus encode(const T* src, int32_t srcStep, int32_t chroma, LowBits low, BitStream<uint8_t> stream,
                             int32_t* pairCount, VLCState* state) {
  const auto [modelBits, trimBits, residual] = low;
  if (auto s =
          check(nonNull(state, src, pairCount), require(!kFlex || residual, qelStatusNullPointer), nonNull(stream));
      s)
    return s;
  ScanEntry* const scan = scanInUse(*state);
  if (auto s = check(bitsHeld(*stream.bitCount), fieldBits(trimBits), fieldBits(modelBits),
                     require(scan, qelStatusContextMismatch));
      s)
    return s;

  Significant block = significantOf<kFlex>(scan, src, srcStep, modelBits, trimBits, residual);
  UnitWriter::Room room;
  BlockEncoder<kBlock> encoder(stream, room, *state, chroma);
  if (block.places)
    encoder.encode(scan, block, [=, split = modelBits](int place) {
      const uint32_t position = inBlock(scan[place].position);
      return magnitude(int32_t(at(row(src, srcStep, kRow[position]), kColumn[position]))) >> split;
    });
  encoder.finish();
  *pairCount = std::popcount(block.places);
  return qelStatusOk;
}

template <class T>
QELJ_INLINE QelStatus decode(BitStream<const uint8_t> stream, T scale, T* dst, int32_t dstStep, int32_t chroma,
                             int32_t* count, VLCState* state) {
  if (auto s = check(nonNull(state, dst, count), nonNull(stream)); s) return s;
  ScanEntry* const scan = scanInUse(*state);
  if (auto s = check(bitsHeld(*stream.bitCount), require(scan, qelStatusContextMismatch)); s) return s;

  // Coefficients are written as they come: rows that are gathered first wait, when they are read, for the last of them
  // to be stored, and what refines them waits too. The DC is the caller's, but where a record leads a level to it.
  for (int c = 1; c < 4; ++c) put(dst, c, T(0));
  for (int r = 1; r < 4; ++r) std::memset(row(dst, dstStep, r), 0, 4 * sizeof(T));
  BlockDecoder<kBlock> decoder(stream, *state, chroma);
  *count = decoder.decode([&](int place, int32_t level) QELJ_INLINE_LAMBDA {
    T* const line = row(dst, dstStep, scan[place].row & 3);
    put(line, scan[place].column & 3, T(uint32_t(scale) * uint32_t(level)));  // wraps
    countSignificant(scan, place);
  });
  decoder.finish();
  return qelStatusOk;
}

}  // namespace

QelStatus qeliVLCEncode4x4_JPEGXR_16s1u_C1R(const int16_t* src, int32_t srcStep, int32_t chroma, uint32_t modelBits,
                                            uint8_t** stream, uint32_t* bitBuffer, int32_t* bitCount,
                                            int32_t* pairCount, VLCState* state) {
  return encode<false>(src, srcStep, chroma, {modelBits}, {stream, bitBuffer, bitCount}, pairCount, state);
}
QelStatus qeliVLCEncode4x4_JPEGXR_32s1u_C1R(const int32_t* src, int32_t srcStep, int32_t chroma, uint32_t modelBits,
                                            uint8_t** stream, uint32_t* bitBuffer, int32_t* bitCount,
                                            int32_t* pairCount, VLCState* state) {
  return encode<false>(src, srcStep, chroma, {modelBits}, {stream, bitBuffer, bitCount}, pairCount, state);
}

QelStatus qeliVLCEncode4x4Flex_JPEGXR_16s1u_C1R(const int16_t* src, int32_t srcStep, int32_t chroma, uint32_t modelBits,
                                                uint32_t trimBits, uint32_t* residual, uint8_t** stream,
                                                uint32_t* bitBuffer, int32_t* bitCount, int32_t* pairCount,
                                                VLCState* state) {
  return encode<true>(src, srcStep, chroma, {modelBits, trimBits, residual}, {stream, bitBuffer, bitCount}, pairCount,
                      state);
}
QelStatus qeliVLCEncode4x4Flex_JPEGXR_32s1u_C1R(const int32_t* src, int32_t srcStep, int32_t chroma, uint32_t modelBits,
                                                uint32_t trimBits, uint32_t* residual, uint8_t** stream,
                                                uint32_t* bitBuffer, int32_t* bitCount, int32_t* pairCount,
                                                VLCState* state) {
  return encode<true>(src, srcStep, chroma, {modelBits, trimBits, residual}, {stream, bitBuffer, bitCount}, pairCount,
                      state);
}

QelStatus qeliVLCDecode4x4_JPEGXR_1u16s_C1R(const uint8_t** stream, uint32_t* bitBuffer, int32_t* bitCount,
                                            int16_t scale, int16_t* dst, int32_t dstStep, int32_t chroma,
                                            int32_t* count, VLCState* state) {
  return decode({stream, bitBuffer, bitCount}, scale, dst, dstStep, chroma, count, state);
}
QelStatus qeliVLCDecode4x4_JPEGXR_1u32s_C1R(const uint8_t** stream, uint32_t* bitBuffer, int32_t* bitCount,
                                            int32_t scale, int32_t* dst, int32_t dstStep, int32_t chroma,
                                            int32_t* count, VLCState* state) {
  return decode({stream, bitBuffer, bitCount}, scale, dst, dstStep, chroma, count, state);
}

}  // namespace qelj
