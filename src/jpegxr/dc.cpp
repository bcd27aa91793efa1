// DC block coding (ITU-T T.832, 8.7): the second-stage block of a macroblock, in the symbols of the block coders.
#include "frame/fronts.h"
#include "jpegxr/symbols.h"

namespace qelj {
namespace {

using namespace jpegxr;

template <const BlockKind& kind>
QELJ_INLINE QelStatus encodeDC(const int32_t* pairs, int32_t pairCount, int32_t mostPairs, int32_t chroma,
                               BitStream<uint8_t> stream, VLCState* state) {
  // *stream.bytes is not tested: while the bits fit the buffer, nobody asks for it.
  if (auto s = nonNull(state, pairs, stream.bytes, stream.bitBuffer, stream.bitCount); s) return s;
  if (auto s = check(bitsHeld(*stream.bitCount), require(pairCount <= mostPairs, qelStatusOutOfRange)); s) return s;
  UnitWriter::Room room;
  BlockEncoder<kind> encoder(stream, room, *state, chroma);
  if (pairCount > 0) encoder.encodePairs(pairs, pairCount);
  encoder.finish();
  return qelStatusOk;
}

QelStatus checkDecoder(const BitStream<const uint8_t>& stream, const int32_t* dst, const int32_t* count,
                       const VLCState* state) {
  if (auto s = check(nonNull(state, dst, count), nonNull(stream)); s) return s;
  return bitsHeld(*stream.bitCount);
}

// The values of a subsampled plane in their coded order. A coefficient behind the last one leaves the count alone.
template <const BlockKind& kind>
QELJ_INLINE QelStatus decodeLinear(BitStream<const uint8_t> stream, int32_t* dst, int32_t* count, VLCState* state) {
  if (auto s = checkDecoder(stream, dst, count, state); s) return s;
  for (int i = kind.firstPlace; i < kPlaces; ++i) put(dst, i - kind.firstPlace, 0);
  BlockDecoder<kind> decoder(stream, *state, 0);
  const int decoded =
      decoder.decode([=](int place, int32_t level) QELJ_INLINE_LAMBDA { put(dst, place - kind.firstPlace, level); });
  decoder.finish();
  if (decoded != kStopped) *count = decoded;
  return qelStatusOk;
}

}  // namespace

QelStatus qeliVLCEncodeDC444_JPEGXR_32s1u(const int32_t* pairs, int32_t pairCount, int32_t chroma, uint8_t** stream,
                                          uint32_t* bitBuffer, int32_t* bitCount, VLCState* state) {
  return encodeDC<kDC444>(pairs, pairCount, 16, chroma, {stream, bitBuffer, bitCount}, state);
}
QelStatus qeliVLCEncodeDC422_JPEGXR_32s1u(const int32_t* pairs, int32_t pairCount, uint8_t** stream,
                                          uint32_t* bitBuffer, int32_t* bitCount, VLCState* state) {
  return encodeDC<kDC422>(pairs, pairCount, 14, 0, {stream, bitBuffer, bitCount}, state);
}
QelStatus qeliVLCEncodeDC420_JPEGXR_32s1u(const int32_t* pairs, int32_t pairCount, uint8_t** stream,
                                          uint32_t* bitBuffer, int32_t* bitCount, VLCState* state) {
  return encodeDC<kDC420>(pairs, pairCount, 6, 0, {stream, bitBuffer, bitCount}, state);
}

// Here place 1 can move as well, though only past a DC place of a lower count than any reset leaves.
QelStatus qeliVLCDecodeDC444_JPEGXR_1u32s(const uint8_t** stream, uint32_t* bitBuffer, int32_t* bitCount, int32_t* dst,
                                          int32_t chroma, int32_t* count, VLCState* state) {
  if (auto s = checkDecoder({stream, bitBuffer, bitCount}, dst, count, state); s) return s;
  ScanEntry* const scan = state->scanTable2;
  BlockDecoder<kDC444> decoder({stream, bitBuffer, bitCount}, *state, chroma);
  *count = decoder.decode([=](int place, int32_t level) QELJ_INLINE_LAMBDA {
    put(dst, inBlock(scan[place].position), level);
    countSignificant<1>(scan, place);
  });
  decoder.finish();
  return qelStatusOk;
}
QelStatus qeliVLCDecodeDC422_JPEGXR_1u32s(const uint8_t** stream, uint32_t* bitBuffer, int32_t* bitCount, int32_t* dst,
                                          int32_t* count, VLCState* state) {
  return decodeLinear<kDC422>({stream, bitBuffer, bitCount}, dst, count, state);
}
QelStatus qeliVLCDecodeDC420_JPEGXR_1u32s(const uint8_t** stream, uint32_t* bitBuffer, int32_t* bitCount, int32_t* dst,
                                          int32_t* count, VLCState* state) {
  return decodeLinear<kDC420>({stream, bitBuffer, bitCount}, dst, count, state);
}

}  // namespace qelj
