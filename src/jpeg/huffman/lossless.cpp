// Differences of lossless JPEG to and from Huffman codes (ISO/IEC 10918-1, H.1.2.2 and H.2): single ones, and
// rows of up to four interleaved components.
#include "frame/check.h"
#include "frame/fronts.h"
#include "jpeg/huffman/bitreader.h"
#include "jpeg/huffman/steps.h"

namespace qelj {
namespace {

using namespace jpeg;

constexpr int kMaxChannels = 4;  // of an interleaved scan; further planes of a caller are not coded

inline QelStatus ownDecodeDifference(BitReader<true>& reader, const QelDecodeHuffmanSpec* table, int16_t* dst) {
  int32_t symbol, value = INT16_MIN;  // category 16: the one difference without value bits
  if (auto s = reader.symbol(table, symbol); s) return s;
  if (symbol < 16)
    if (auto s = reader.value(symbol, value); s) return s;
  store(dst, int16_t(value));
  return qelStatusOk;
}

template <class Sink>
inline QelStatus ownCodeDifference(Sink& sink, const QelEncodeHuffmanSpec* table, int32_t d) {
  const auto [t, bits] = ownValueCode(d);
  return t < 16 ? sink.code(table, unsigned(t), bits, t) : sink.code(table, unsigned(t));
}
constexpr int kMaxDifferenceBits = 16 + 15;

// A row whose channel count is known to the compiler.
template <int kChannels>
inline QelStatus ownDecodeRow(BitReader<true>& reader, int16_t* const* dst, int32_t width,
                              const QelDecodeHuffmanSpec* const* tables) {
  int16_t* planes[kChannels];
  const QelDecodeHuffmanSpec* specs[kChannels];
  for (int c = 0; c < kChannels; ++c) planes[c] = dst[c], specs[c] = tables[c];
  for (int32_t x = 0; x < width; ++x)
    for (int c = 0; c < kChannels; ++c)
      if (auto s = ownDecodeDifference(reader, specs[c], offset(planes[c], x)); s) return s;
  return qelStatusOk;
}

// Columns are coded in groups, so that little room in front of the destination's end is needed for the fast writer.
template <int kChannels>
inline QelStatus ownEncodeRow(const int16_t* const* src, int32_t width, uint8_t* dst, int32_t dstLen, int32_t* dstPos,
                              const QelEncodeHuffmanSpec* const* tables, QelEncodeHuffmanState* state) {
  constexpr int32_t kGroup = 64;
  for (int32_t x = 0; x < width;) {
    const int32_t end = width - x > kGroup ? x + kGroup : width;
    const QelStatus s = ownEncode<kGroup * kChannels * kMaxDifferenceBits>(dst, dstLen, dstPos, state, [=](auto& sink) {
      for (int32_t i = x; i < end; ++i)
        for (int c = 0; c < kChannels; ++c)
          if (auto failed = ownCodeDifference(sink, tables[c], at(src[c], i)); failed) return failed;
      return QelStatus(qelStatusOk);
    });
    if (s) return s;
    x = end;
  }
  return qelStatusOk;
}

constexpr int looked(int32_t channels) { return channels < kMaxChannels ? channels : kMaxChannels; }

// work(N), with the number of channels that are coded as a constant.
template <class Work>
inline QelStatus ownWithChannels(int32_t channels, Work&& work) {
  QelStatus status = qelStatusOk;
  withConstant<1, kMaxChannels>(looked(channels), [&](auto count) { status = work(count); });
  return status;
}

}  // namespace

QelStatus qeliDecodeHuffmanOne_JPEG_1u16s_C1(const uint8_t* src, int32_t srcLen, int32_t* srcPos, int16_t* dst,
                                             int32_t* marker, const QelDecodeHuffmanSpec* table,
                                             QelDecodeHuffmanState* state) {
  if (auto s = check(nonNull(src), length(srcLen), nonNull(srcPos, dst, marker, table, state)); s) return s;
  return ownDecode({src, srcLen, srcPos, marker, state},
                   [&](BitReader<true>& reader) { return ownDecodeDifference(reader, table, dst); });
}

QelStatus qeliDecodeHuffmanRow_JPEG_1u16s_C1P4(const uint8_t* src, int32_t srcLen, int32_t* srcPos, int16_t* const* dst,
                                               int32_t width, int32_t channels, int32_t* marker,
                                               const QelDecodeHuffmanSpec* const* tables,
                                               QelDecodeHuffmanState* state) {
  if (auto s = check(nonNull(src), length(srcLen), nonNull(srcPos, dst), length(width), length(channels),
                     nonNull(marker, tables, state));
      s)
    return s;
  if (auto s = check(planes(dst, looked(channels)), planes(tables, looked(channels))); s) return s;
  return ownDecode({src, srcLen, srcPos, marker, state}, [&](BitReader<true>& reader) {
    return ownWithChannels(channels, [&](auto count) { return ownDecodeRow<count>(reader, dst, width, tables); });
  });
}

QelStatus qeliEncodeHuffmanOne_JPEG_16s1u_C1(const int16_t* src, uint8_t* dst, int32_t dstLen, int32_t* dstPos,
                                             const QelEncodeHuffmanSpec* table, QelEncodeHuffmanState* state,
                                             int32_t flush) {
  if (auto s = check(nonNull(dst), length(dstLen), nonNull(dstPos, state)); s) return s;
  if (flush) return ownFlush(dst, dstLen, dstPos, state);
  if (auto s = nonNull(src, table); s) return s;
  return ownEncode<kMaxDifferenceBits>(dst, dstLen, dstPos, state,
                                       [=](auto& sink) { return ownCodeDifference(sink, table, at(src, 0)); });
}

QelStatus qeliEncodeHuffmanRow_JPEG_16s1u_P4C1(const int16_t* const* src, int32_t width, int32_t channels, uint8_t* dst,
                                               int32_t dstLen, int32_t* dstPos,
                                               const QelEncodeHuffmanSpec* const* tables, QelEncodeHuffmanState* state,
                                               int32_t flush) {
  if (auto s = check(nonNull(dst), length(dstLen), nonNull(dstPos, state)); s) return s;
  if (flush) return ownFlush(dst, dstLen, dstPos, state);
  if (auto s = check(nonNull(src), length(width), length(channels), nonNull(tables)); s) return s;
  if (auto s = check(planes(src, looked(channels)), planes(tables, looked(channels))); s) return s;
  return ownWithChannels(
      channels, [&](auto count) { return ownEncodeRow<count>(src, width, dst, dstLen, dstPos, tables, state); });
}

}  // namespace qelj
