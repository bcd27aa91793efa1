#include "jpeg/huffman/huffman_support.h"
#include "support/compare.h"

namespace qelj::test {
namespace {

// --- records: all that they hold is compared
// ---------------------------------------------------------------------

constexpr auto bufSize = [](auto* getBufSize, Random&, Trace& trace) {
  int32_t bytes = 0;
  trace.status(getBufSize(&bytes));
  trace.value(bytes);
};
QELJ_COMPARE(qeliDecodeHuffmanSpecGetBufSize_JPEG_8u, bufSize);
QELJ_COMPARE(qeliEncodeHuffmanSpecGetBufSize_JPEG_8u, bufSize);
QELJ_COMPARE(qeliDecodeHuffmanStateGetBufSize_JPEG_8u, bufSize);
QELJ_COMPARE(qeliEncodeHuffmanStateGetBufSize_JPEG_8u, bufSize);

Lists anyLists(Random& random) {
  Lists lists = Lists::random(random, int(random.in(0, 256)), int(random.in(5, 95)));
  lists.vals.resize(256 + 256);
  if (random.chance(30)) lists.bits[size_t(random.in(0, 15))] = uint8_t(random.in(0, 4));
  return lists;
}
template <class Record, int kBytes>
constexpr auto initTable = [](auto* init, Random& random, Trace& trace) {
  const Lists lists = anyLists(random);
  Guarded record(random, kBytes, 1, 0, size_t(random.in(0, 3)));
  trace.status(init(lists.bits.data(), lists.vals.data(), record.data<Record>()));
  trace.buffer(record);
};
template <class Record, int kBytes>
constexpr auto initState = [](auto* init, Random& random, Trace& trace) {
  Guarded record(random, kBytes, 1, 0, size_t(random.in(0, 3)));
  trace.status(init(record.data<Record>()));
  trace.buffer(record);
};
QELJ_COMPARE(qeliDecodeHuffmanSpecInit_JPEG_8u, initTable<QelDecodeHuffmanSpec, 1644>);
QELJ_COMPARE(qeliEncodeHuffmanSpecInit_JPEG_8u, initTable<QelEncodeHuffmanSpec, 1024>);
QELJ_COMPARE(qeliDecodeHuffmanStateInit_JPEG_8u, initState<QelDecodeHuffmanState, 24>);
QELJ_COMPARE(qeliEncodeHuffmanStateInit_JPEG_8u, initState<QelEncodeHuffmanState, 1048>);

template <class Record, int kBytes, class Free>
void traceAllocated(QelStatus s, Record* record, Free* free, Trace& trace) {
  trace.status(s);
  trace.bytes(record, kBytes);
  trace.status(free(record));
  trace.status(free(nullptr));
}
#define COMPARE_TABLE(KIND, BYTES)                                                                      \
  const auto alloc##KIND = [](const Image& image, Random& random, Trace& trace) {                       \
    const Lists lists = anyLists(random);                                                               \
    Qel##KIND* record = nullptr;                                                                        \
    const QelStatus s =                                                                                 \
        QELJ_FIND(image, qeli##KIND##InitAlloc_JPEG_8u)(lists.bits.data(), lists.vals.data(), &record); \
    traceAllocated<Qel##KIND, BYTES>(s, record, QELJ_FIND(image, qeli##KIND##Free_JPEG_8u), trace);     \
  };                                                                                                    \
  QELJ_COMPARE(qeli##KIND##InitAlloc_JPEG_8u,                                                           \
               [](auto*, const Image& i, Random& r, Trace& t) { alloc##KIND(i, r, t); });               \
  QELJ_COMPARE(qeli##KIND##Free_JPEG_8u,                                                                \
               [](auto*, const Image& i, Random& r, Trace& t) { alloc##KIND(i, r, t); })
#define COMPARE_STATE(KIND, BYTES)                                                                  \
  const auto alloc##KIND = [](const Image& image, Random&, Trace& trace) {                          \
    Qel##KIND* record = nullptr;                                                                    \
    const QelStatus s = QELJ_FIND(image, qeli##KIND##InitAlloc_JPEG_8u)(&record);                   \
    traceAllocated<Qel##KIND, BYTES>(s, record, QELJ_FIND(image, qeli##KIND##Free_JPEG_8u), trace); \
  };                                                                                                \
  QELJ_COMPARE(qeli##KIND##InitAlloc_JPEG_8u,                                                       \
               [](auto*, const Image& i, Random& r, Trace& t) { alloc##KIND(i, r, t); });           \
  QELJ_COMPARE(qeli##KIND##Free_JPEG_8u,                                                            \
               [](auto*, const Image& i, Random& r, Trace& t) { alloc##KIND(i, r, t); })
COMPARE_TABLE(DecodeHuffmanSpec, 1644);
COMPARE_TABLE(EncodeHuffmanSpec, 1024);
COMPARE_STATE(DecodeHuffmanState, 20);
COMPARE_STATE(EncodeHuffmanState, 1048);

// --- encoders: bytes, positions and states, with room and without
// ------------------------------------------------

Lists tableFor(Random& r) {
  return r.chance(15) ? Lists::random(r, int(r.in(0, 256))) : Lists::random(r, 256, int(r.in(5, 95)));
}

// Runs code(destination, length, position, state, flush) over a few blocks and a flush.
template <class Code>
void traceEncoder(Random& random, Trace& trace, size_t room, Code code) {
  Guarded out(random, room, 1, 0, size_t(random.in(0, 9)));
  EncodeState state;
  int32_t pos = 0;
  for (int n = 0, blocks = int(random.in(1, 12)); n <= blocks; ++n) {
    trace.status(code(out.data(), int32_t(room), &pos, state, n == blocks));
    trace.value(pos);
    trace.bytes(state.bytes.data(), state.bytes.size());
  }
  trace.buffer(out);
}

QELJ_COMPARE(qeliEncodeHuffman8x8_JPEG_16s1u_C1, [](auto* encode, Random& random, Trace& trace) {
  Tables dc(tableFor(random)), ac(tableFor(random));
  int16_t last = 0;
  traceEncoder(random, trace, size_t(random.in(1, 3000)),
               [&](uint8_t* dst, int32_t length, int32_t* pos, auto& state, bool flush) {
                 const Block block = randomBlock(random, int(random.in(0, 100)), int(random.in(1, 15)));
                 const QelStatus s =
                     encode(block.data(), dst, length, pos, &last, dc.encoder(), ac.encoder(), state, flush);
                 trace.value(last);
                 return s;
               });
});
QELJ_COMPARE(qeliEncodeHuffman8x8_Direct_JPEG_16s1u_C1, [](auto* encode, Random& random, Trace& trace) {
  Tables dc(tableFor(random)), ac(tableFor(random));
  Guarded out(random, 6000);
  int32_t bitPos = int32_t(random.in(0, 99));
  int16_t last = 0;
  for (int n = 0; n < 8; ++n) {
    const Block block = randomBlock(random, int(random.in(0, 100)), int(random.in(1, 15)));
    trace.status(encode(block.data(), out.data(), &bitPos, &last, dc.encoder(), ac.encoder()));
    trace.value(bitPos);
  }
  trace.buffer(out);
});

// --- decoders: coded blocks, sometimes damaged, cut short, or noise
// ---------------------------------------------

void damage(Random& random, std::vector<uint8_t>& bytes) {
  if (random.chance(30)) random.fill(bytes.data(), bytes.size());
  for (int n = random.chance(50) ? int(random.in(1, 8)) : 0; n > 0; --n)
    bytes[size_t(random.in(0, int64_t(bytes.size()) - 1))] =
        uint8_t(random.chance(30) ? 0xFF : random.in(0, 255));
}
std::vector<uint8_t> codedBlocks(Random& random, Tables& dc, Tables& ac) {
  std::vector<uint8_t> bytes(8000);
  EncodeState state;
  int32_t pos = 0;
  int16_t last = 0;
  for (int n = 0; n < 12; ++n) {
    const Block block = randomBlock(random, int(random.in(0, 100)), int(random.in(1, 12)));
    qeliEncodeHuffman8x8_JPEG_16s1u_C1(block.data(), bytes.data(), 8000, &pos, &last, dc.encoder(),
                                       ac.encoder(), state, n == 11);
  }
  bytes.resize(size_t(pos) + 1);
  damage(random, bytes);
  return bytes;
}

// Runs decode(source, length, position, marker, state) over a few blocks.
template <class Decode>
void traceDecoder(Trace& trace, const std::vector<uint8_t>& coded, Decode decode) {
  PageBuffer src(coded.size());
  src.assign(coded.data(), coded.size());
  DecodeState state;
  int32_t pos = 0, marker = 0;
  for (int n = 0; n < 14; ++n) {
    trace.status(decode(src.data(), int32_t(coded.size()), &pos, &marker, state));
    trace.value(pos), trace.value(marker);
    trace.bytes(state.bytes.data(), state.bytes.size());
  }
}

QELJ_COMPARE(qeliDecodeHuffman8x8_JPEG_1u16s_C1, [](auto* decode, Random& random, Trace& trace) {
  Tables dc(tableFor(random)), ac(tableFor(random));
  Guarded block(random, 128, 1, 0, size_t(random.in(0, 3)));
  int16_t last = 0;
  traceDecoder(trace, codedBlocks(random, dc, ac),
               [&](const uint8_t* src, int32_t length, int32_t* pos, int32_t* marker, auto& state) {
                 const QelStatus s = decode(src, length, pos, block.data<int16_t>(), &last, marker,
                                            dc.decoder(), ac.decoder(), state);
                 trace.buffer(block), trace.value(last);
                 return s;
               });
});
QELJ_COMPARE(qeliDecodeHuffman8x8_Direct_JPEG_1u16s_C1, [](auto* decode, Random& random, Trace& trace) {
  Tables dc(tableFor(random)), ac(tableFor(random));
  Guarded block(random, 128, 1, 0, size_t(random.in(0, 3)));
  auto coded = codedBlocks(random, dc, ac);
  coded.insert(coded.end(), {0xFF, 0xD9});
  PageBuffer src(coded.size());
  src.assign(coded.data(), coded.size());
  int32_t bitPos = 0, marker = 0, bitCount = 0;
  uint32_t bitBuffer = 0;
  int16_t last = 0;
  for (int n = 0; n < 14; ++n) {
    trace.status(decode(src.data(), &bitPos, block.data<int16_t>(), &last, &marker, &bitBuffer, &bitCount,
                        dc.decoder(), ac.decoder()));
    trace.value(bitPos), trace.value(marker), trace.value(bitBuffer), trace.value(bitCount),
        trace.value(last);
    trace.buffer(block);
  }
});

}  // namespace
}  // namespace qelj::test
