// Huffman encoders and decoders of all kinds in any order on one set of records: small destinations and short sources,
// failures that nobody heeds, tables whose making failed, tables and states of any content. Nothing outside the buffers
// is touched.
#include "support/huffman.h"

namespace qelj::fuzz {
namespace {

int32_t sumSaturated(int64_t a, int64_t b) { return int32_t(std::clamp<int64_t>(a + b, INT32_MIN, INT32_MAX)); }

}  // namespace

// The record as bytes of the input.
template <class Table>
void fill(Input& input, Table& table, size_t bytes) {
  const auto all = input.bytes(bytes);
  std::memcpy(table.get(), all.data(), bytes);
}

void run(Input input) {
  const uint8_t kinds = input.take();
  const bool anyStates = kinds & 1, anyTables = kinds & 2;
  EncodeTable encodeTable[2];
  DecodeTable decodeTable[2];
  for (int i = 0; i < 2; ++i) {
    const Lists lists = takeLists(input);
    qeliEncodeHuffmanSpecInit_JPEG_8u(lists.bits.data(), lists.vals.data(), encodeTable[i].get());
    qeliDecodeHuffmanSpecInit_JPEG_8u(lists.bits.data(), lists.vals.data(), decodeTable[i].get());
  }
  if (anyTables) fill(input, encodeTable[0], 1024), fill(input, decodeTable[0], 1644);
  EncodeState encode;
  DecodeState decode;
  qeliEncodeHuffmanStateInit_JPEG_8u(encode.get());
  qeliDecodeHuffmanStateInit_JPEG_8u(decode.get());
  if (anyStates) {
    int32_t encodeBytes = 0, decodeBytes = 0;
    qeliEncodeHuffmanStateGetBufSize_JPEG_8u(&encodeBytes);
    qeliDecodeHuffmanStateGetBufSize_JPEG_8u(&decodeBytes);
    // The fields in front of the correction bits, and then those.
    const auto fields = input.bytes(24), decoder = input.bytes(size_t(decodeBytes));
    std::memset(encode.get(), fields[0], size_t(encodeBytes));
    std::memcpy(encode.get(), fields.data(), fields.size());
    std::memcpy(decode.get(), decoder.data(), decoder.size());
  }

  std::vector<uint8_t> coded = input.left() ? input.bytes(input.take()) : std::vector<uint8_t>();
  int32_t codedPosition = 0;
  int32_t counters[2][256] = {};
  int16_t lastDC = 0;
  while (input.left() > 4) {
    const uint8_t code = input.take(), shape = input.take();
    const int32_t flush = code >> 7;
    const auto al = uint32_t(shape & 15);
    const int32_t ss = shape & 16 ? int8_t(input.take()) : 1, se = shape & 32 ? int8_t(input.take()) : 63;
    // A destination of its own, exactly as long as it says.
    std::vector<uint8_t> dst(shape & 64 ? size_t(input.take() % 24) : 512);
    const auto length = int32_t(dst.size());
    dst.reserve(1);
    int32_t position = shape & 128 ? int8_t(input.take()) : 0;
    int16_t block[64] = {};
    for (int16_t& x : block) {
      if (input.left() == 0) break;
      const uint8_t value = input.take();
      if (value > 0xF0) x = int16_t(input.take<uint16_t>());
      else x = int8_t(value) / (1 + (shape & 3) * 20);
    }
    EncodeTable &t0 = encodeTable[shape & 1], &t1 = encodeTable[shape >> 1 & 1];
    DecodeTable &d0 = decodeTable[shape & 1], &d1 = decodeTable[shape >> 1 & 1];
    const int32_t from = position;
    bool encoded = true;
    int32_t marker = 0;
    switch (code & 31) {
      case 0:
        qeliEncodeHuffman8x8_JPEG_16s1u_C1(block, dst.data(), length, &position, &lastDC, t0.get(), t1.get(),
                                           encode.get(), flush);
        break;
      case 1:
        qeliEncodeHuffman8x8_DCFirst_JPEG_16s1u_C1(block, dst.data(), length, &position, &lastDC, al, t0.get(),
                                                   encode.get(), flush);
        break;
      case 2:
        qeliEncodeHuffman8x8_DCRefine_JPEG_16s1u_C1(block, dst.data(), length, &position, al, encode.get(), flush);
        break;
      case 3:
      case 4:
      case 5:
        qeliEncodeHuffman8x8_ACFirst_JPEG_16s1u_C1(block, dst.data(), length, &position, ss, se, al, t0.get(),
                                                   encode.get(), flush);
        break;
      case 6:
      case 7:
      case 8:
        qeliEncodeHuffman8x8_ACRefine_JPEG_16s1u_C1(block, dst.data(), length, &position, ss, se, al, t0.get(),
                                                    encode.get(), flush);
        break;
      case 9:
        qeliEncodeHuffmanOne_JPEG_16s1u_C1(block, dst.data(), length, &position, t0.get(), encode.get(), flush);
        break;
      case 10: {
        const int16_t* planes[] = {block, block + 16, block + 32, block + 48};
        const QelEncodeHuffmanSpec* tables[] = {t0.get(), t1.get(), t0.get(), t1.get()};
        qeliEncodeHuffmanRow_JPEG_16s1u_P4C1(planes, 1 + shape % 16, 1 + shape / 16 % 4, dst.data(), length, &position,
                                             tables, encode.get(), flush);
        break;
      }
      case 11: {
        std::vector<uint8_t> direct(256 + 64 * 8);
        int32_t bits = shape;
        qeliEncodeHuffman8x8_Direct_JPEG_16s1u_C1(block, direct.data(), &bits, &lastDC, t0.get(), t1.get());
        FUZZ_EXPECT(bits >= shape && bits <= int32_t(8 * direct.size()));
        encoded = false;
        break;
      }
      default:
        encoded = false;
    }
    if (encoded) {
      FUZZ_EXPECT(position == from || (position > from && position <= length));
      if (from == 0 && position > 0) coded.assign(dst.begin(), dst.begin() + position), codedPosition = 0;
      continue;
    }
    const std::vector<uint8_t> src(coded.begin() + std::min<int64_t>(codedPosition, int64_t(coded.size())),
                                   coded.end());
    const auto have = int32_t(src.size());
    const uint8_t* data = have ? src.data() : dst.data();
    switch (code & 31) {
      case 12:
      case 13:
        qeliDecodeHuffman8x8_JPEG_1u16s_C1(data, have, &position, block, &lastDC, &marker, d0.get(), d1.get(),
                                           decode.get());
        break;
      case 14:
        qeliDecodeHuffman8x8_DCFirst_JPEG_1u16s_C1(data, have, &position, block, &lastDC, &marker, al, d0.get(),
                                                   decode.get());
        break;
      case 15:
        qeliDecodeHuffman8x8_DCRefine_JPEG_1u16s_C1(data, have, &position, block, &marker, al, decode.get());
        break;
      case 16:
      case 17:
        qeliDecodeHuffman8x8_ACFirst_JPEG_1u16s_C1(data, have, &position, block, &marker, ss, se, al, d0.get(),
                                                   decode.get());
        break;
      case 18:
      case 19:
        qeliDecodeHuffman8x8_ACRefine_JPEG_1u16s_C1(data, have, &position, block, &marker, ss, se, al, d0.get(),
                                                    decode.get());
        break;
      case 20:
        qeliDecodeHuffmanOne_JPEG_1u16s_C1(data, have, &position, block, &marker, d0.get(), decode.get());
        break;
      case 21: {
        int16_t* planes[] = {block, block + 16, block + 32, block + 48};
        const QelDecodeHuffmanSpec* tables[] = {d0.get(), d1.get(), d0.get(), d1.get()};
        qeliDecodeHuffmanRow_JPEG_1u16s_C1P4(data, have, &position, planes, 1 + shape % 16, 1 + shape / 16 % 4, &marker,
                                             tables, decode.get());
        break;
      }
      case 22:
        qeliGetHuffmanStatistics8x8_JPEG_16s_C1(block, counters[0], counters[1], &lastDC);
        break;
      case 23:
        qeliGetHuffmanStatistics8x8_DCFirst_JPEG_16s_C1(block, counters[0], &lastDC, al);
        break;
      case 24:
        qeliGetHuffmanStatistics8x8_ACFirst_JPEG_16s_C1(block, counters[1], ss, se, al, encode.get(), flush);
        break;
      case 25:
        qeliGetHuffmanStatistics8x8_ACRefine_JPEG_16s_C1(block, counters[1], ss, se, al, encode.get(), flush);
        break;
      case 26:
        qeliGetHuffmanStatisticsOne_JPEG_16s_C1(block, counters[0]);
        break;
      case 27: {
        // Counters of any kind make a table that Init takes, or a failure.
        for (int i = 0; i < 64; ++i) counters[0][(i + shape) & 255] = sumSaturated(counters[0][i], block[i]);
        uint8_t bits[16], vals[256];
        if (qeliEncodeHuffmanRawTableInit_JPEG_8u(counters[shape & 1], bits, vals) == qelStatusOk)
          FUZZ_EXPECT(qeliEncodeHuffmanSpecInit_JPEG_8u(bits, vals, t0.get()) == qelStatusOk &&
                      qeliDecodeHuffmanSpecInit_JPEG_8u(bits, vals, d0.get()) == qelStatusOk);
        break;
      }
      case 28:
        qeliEncodeHuffmanStateInit_JPEG_8u(encode.get());
        break;
      default:
        qeliDecodeHuffmanStateInit_JPEG_8u(decode.get());
    }
    // Counts mean nothing with any table, so that the position may be outside; it counts as the end then.
    FUZZ_EXPECT(anyTables || position == from || (position >= from && position <= have));
    if (from == 0 && position >= 0 && position <= have) codedPosition += position;
  }
}

std::vector<Seed> seeds() {
  std::vector<Seed> all;
  for (const std::vector<uint8_t>& codes : {std::vector<uint8_t>{0, 0, 0x80, 12, 12},
                                            {1, 1, 0x81, 14, 14, 2, 0x82, 15},
                                            {3, 4, 5, 0x83, 16, 16},
                                            {6, 7, 8, 0x86, 18, 18},
                                            {9, 10, 0x89, 20, 21},
                                            {22, 23, 24, 25, 26, 27, 0x98, 0x99, 28, 29},
                                            {11, 11}}) {
    for (const uint8_t shape : {0x00, 0x02, 0x41}) {
      Seed seed;
      seed.byte(shape & 3).byte(0).byte(0);
      if (shape & 2)
        for (int i = 0; i < 1024 + 1644; ++i) seed.byte(i * i * 7 % 61);
      if (shape & 1)
        for (int i = 0; i < 48; ++i) seed.byte(i == 16 ? 0xF0 : 0);
      seed.byte(200);
      for (int i = 0; i < 200; ++i) seed.byte(i * i * 13);
      for (const uint8_t code : codes) {
        seed.byte(code).byte(shape);
        if (shape & 0x40) seed.byte(13);
        for (int i = 0; i < 64; ++i) seed.byte((i * 37 + code * 11) % (1 + 0xF0 / (1 + i / 8)));
      }
      all.push_back(seed);
    }
  }
  return all;
}

}  // namespace qelj::fuzz
