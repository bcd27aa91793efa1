#include "jpeg/huffman/huffman_support.h"
#include "support/compare.h"

namespace qelj::test {
namespace {

// --- records: all that they hold is compared ---------------------------------------------------------------

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

// --- encoders: bytes, positions and states, with room and without ------------------------------------------

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

// --- decoders: coded blocks, sometimes damaged, cut short, or noise ----------------------------------------

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

// --- progressive -------------------------------------------------------------------------------------------

struct Band {
  int ss, se;
  uint32_t al;
  explicit Band(Random& r)
      : ss(int(r.in(1, 63))), se(int(r.in(ss, 63))), al(uint32_t(r.chance(80) ? r.in(0, 3) : r.in(0, 13))) {
    if (r.chance(40)) ss = 1, se = 63;
  }
};
Block progressiveBlock(Random& r) {
  Block b = randomBlock(r, r.chance(40) ? 0 : int(r.in(0, 100)), int(r.in(1, r.chance(5) ? 15 : 8)));
  if (r.chance(2)) b[size_t(r.in(0, 63))] = -32768;
  return b;
}

QELJ_COMPARE(qeliEncodeHuffman8x8_DCFirst_JPEG_16s1u_C1, [](auto* encode, Random& random, Trace& trace) {
  Tables t(tableFor(random));
  const Band band(random);
  int16_t last = 0;
  traceEncoder(random, trace, size_t(random.in(1, 50)),
               [&](uint8_t* dst, int32_t length, int32_t* pos, auto& state, bool flush) {
                 const Block b = progressiveBlock(random);
                 return encode(b.data(), dst, length, pos, &last, band.al, t.encoder(), state, flush);
               });
});
QELJ_COMPARE(qeliEncodeHuffman8x8_DCRefine_JPEG_16s1u_C1, [](auto* encode, Random& random, Trace& trace) {
  const Band band(random);
  traceEncoder(random, trace, size_t(random.in(1, 30)),
               [&](uint8_t* dst, int32_t length, int32_t* pos, auto& state, bool flush) {
                 const Block b = progressiveBlock(random);
                 return encode(b.data(), dst, length, pos, band.al, state, flush);
               });
});
// The pending correction bits stand in the state: only those that count are compared, as bytes and positions.
constexpr auto encodeBand = [](auto* encode, Random& random, Trace& trace) {
  Tables t(tableFor(random));
  const Band band(random);
  traceEncoder(random, trace, size_t(random.in(1, 4000)),
               [&](uint8_t* dst, int32_t length, int32_t* pos, auto& state, bool flush) {
                 const Block b = progressiveBlock(random);
                 return encode(b.data(), dst, length, pos, band.ss, band.se, band.al, t.encoder(), state,
                               flush);
               });
};
QELJ_COMPARE(qeliEncodeHuffman8x8_ACFirst_JPEG_16s1u_C1, encodeBand);
QELJ_COMPARE(qeliEncodeHuffman8x8_ACRefine_JPEG_16s1u_C1, encodeBand);

std::vector<uint8_t> codedBand(Random& random, Tables& t, const Band& band, bool refine) {
  std::vector<uint8_t> bytes(8000);
  EncodeState state;
  int32_t pos = 0;
  const auto encode =
      refine ? qeliEncodeHuffman8x8_ACRefine_JPEG_16s1u_C1 : qeliEncodeHuffman8x8_ACFirst_JPEG_16s1u_C1;
  for (int n = 0; n < 12; ++n) {
    const Block b = progressiveBlock(random);
    encode(b.data(), bytes.data(), 8000, &pos, band.ss, band.se, band.al, t.encoder(), state, n == 11);
  }
  bytes.resize(size_t(pos) + 1);
  damage(random, bytes);
  return bytes;
}
template <bool kRefine>
constexpr auto decodeBand = [](auto* decode, Random& random, Trace& trace) {
  Tables t(tableFor(random));
  const Band band(random);
  traceDecoder(trace, codedBand(random, t, band, kRefine),
               [&](const uint8_t* src, int32_t length, int32_t* pos, int32_t* marker, auto& state) {
                 Guarded block(random, 128, 1, 0, size_t(random.in(0, 3)));
                 for (int i = 0; i < 64; ++i)
                   if (random.chance(50)) std::memset(block.data() + 2 * i, 0, 2);
                 const QelStatus s = decode(src, length, pos, block.data<int16_t>(), marker, band.ss, band.se,
                                            band.al, t.decoder(), state);
                 trace.buffer(block);
                 return s;
               });
};
QELJ_COMPARE(qeliDecodeHuffman8x8_ACFirst_JPEG_1u16s_C1, decodeBand<false>);
QELJ_COMPARE(qeliDecodeHuffman8x8_ACRefine_JPEG_1u16s_C1, decodeBand<true>);
QELJ_COMPARE(qeliDecodeHuffman8x8_DCFirst_JPEG_1u16s_C1, [](auto* decode, Random& random, Trace& trace) {
  Tables t(tableFor(random));
  const Band band(random);
  Block block{};
  int16_t last = 0;
  traceDecoder(trace, codedBlocks(random, t, t),
               [&](const uint8_t* src, int32_t length, int32_t* pos, int32_t* marker, auto& state) {
                 const QelStatus s =
                     decode(src, length, pos, block.data(), &last, marker, band.al, t.decoder(), state);
                 trace.value(block), trace.value(last);
                 return s;
               });
});
QELJ_COMPARE(qeliDecodeHuffman8x8_DCRefine_JPEG_1u16s_C1, [](auto* decode, Random& random, Trace& trace) {
  std::vector<uint8_t> coded(size_t(random.in(1, 6)));
  random.fill(coded.data(), coded.size());
  const Band band(random);
  Block block{};
  traceDecoder(trace, coded,
               [&](const uint8_t* src, int32_t length, int32_t* pos, int32_t* marker, auto& state) {
                 const QelStatus s = decode(src, length, pos, block.data(), marker, band.al, state);
                 trace.value(block);
                 return s;
               });
});

// --- lossless ----------------------------------------------------------------------------------------------

template <class Call>
void tracePrediction(Random& random, Trace& trace, Call call) {
  const auto width = size_t(random.in(1, 200));
  Guarded src(random, 2 * width, 1, 0, size_t(random.in(0, 33))),
      above(random, 2 * width, 1, 0, size_t(random.in(0, 33)));
  Guarded dst(random, 2 * width, 1, 0, size_t(random.in(0, 33)));
  trace.status(call(src.data<int16_t>(), above.data<int16_t>(), dst.data<int16_t>(), int32_t(width)));
  trace.buffer(dst);
}
constexpr auto firstRow = [](auto* function, Random& random, Trace& trace) {
  tracePrediction(random, trace, [&](auto* src, auto*, auto* dst, int32_t width) {
    return function(src, dst, width, int32_t(random.in(2, 16)), int32_t(random.in(0, 8)));
  });
};
constexpr auto otherRow = [](auto* function, Random& random, Trace& trace) {
  tracePrediction(random, trace, [&](auto* src, auto* above, auto* dst, int32_t width) {
    return function(src, above, dst, width, int32_t(random.in(1, 7)));
  });
};
QELJ_COMPARE(qeliDiffPredFirstRow_JPEG_16s_C1, firstRow);
QELJ_COMPARE(qeliReconstructPredFirstRow_JPEG_16s_C1, firstRow);
QELJ_COMPARE(qeliDiffPredRow_JPEG_16s_C1, otherRow);
QELJ_COMPARE(qeliReconstructPredRow_JPEG_16s_C1, otherRow);

QELJ_COMPARE(qeliEncodeHuffmanOne_JPEG_16s1u_C1, [](auto* encode, Random& random, Trace& trace) {
  Tables t(tableFor(random));
  traceEncoder(random, trace, size_t(random.in(1, 60)),
               [&](uint8_t* dst, int32_t length, int32_t* pos, auto& state, bool flush) {
                 const auto d = int16_t(random.in(-32768, 32767));
                 return encode(&d, dst, length, pos, t.encoder(), state, flush);
               });
});
struct Row {
  int32_t width, channels;
  std::vector<Tables> tables;
  std::vector<Guarded> rows;
  int16_t* planes[4];
  const int16_t* sources[4];
  const QelEncodeHuffmanSpec* encoders[4];
  const QelDecodeHuffmanSpec* decoders[4];
  explicit Row(Random& r) : width(int32_t(r.in(1, 200))), channels(int32_t(r.in(1, 4))) {
    for (int c = 0; c < channels; ++c)
      tables.emplace_back(tableFor(r)), rows.emplace_back(r, size_t(width) * 2, 1, 0, size_t(r.in(0, 3)));
    for (int c = 0; c < channels; ++c) {
      sources[c] = planes[c] = rows[size_t(c)].data<int16_t>();
      encoders[c] = tables[size_t(c)].encoder(), decoders[c] = tables[size_t(c)].decoder();
    }
  }
};
QELJ_COMPARE(qeliEncodeHuffmanRow_JPEG_16s1u_P4C1, [](auto* encode, Random& random, Trace& trace) {
  Row row(random);
  traceEncoder(random, trace, size_t(random.in(1, 9000)),
               [&](uint8_t* dst, int32_t length, int32_t* pos, auto& state, bool flush) {
                 return encode(row.sources, row.width, row.channels, dst, length, pos, row.encoders, state,
                               flush);
               });
});
QELJ_COMPARE(qeliDecodeHuffmanOne_JPEG_1u16s_C1, [](auto* decode, Random& random, Trace& trace) {
  Tables t(tableFor(random));
  traceDecoder(trace, codedBlocks(random, t, t),
               [&](const uint8_t* src, int32_t length, int32_t* pos, int32_t* marker, auto& state) {
                 int16_t d = 0;
                 const QelStatus s = decode(src, length, pos, &d, marker, t.decoder(), state);
                 trace.value(d);
                 return s;
               });
});
QELJ_COMPARE(qeliDecodeHuffmanRow_JPEG_1u16s_C1P4, [](auto* decode, Random& random, Trace& trace) {
  Row row(random);
  traceDecoder(trace, codedBlocks(random, row.tables[0], row.tables[0]),
               [&](const uint8_t* src, int32_t length, int32_t* pos, int32_t* marker, auto& state) {
                 return decode(src, length, pos, row.planes, row.width, row.channels, marker, row.decoders,
                               state);
               });
  for (const auto& r : row.rows) trace.buffer(r);
});

// --- statistics --------------------------------------------------------------------------------------------

template <class Count>
void traceCounts(Random& random, Trace& trace, Count count) {
  Guarded counters(random, 2048, 1, 0, size_t(random.in(0, 3)));
  for (int n = 0; n < 20; ++n) {
    const Block b = progressiveBlock(random);
    trace.status(count(b.data(), counters.data<int32_t>(), counters.data<int32_t>() + 256, n == 19));
  }
  trace.buffer(counters);
}
QELJ_COMPARE(qeliGetHuffmanStatistics8x8_JPEG_16s_C1, [](auto* function, Random& random, Trace& trace) {
  int16_t last = 0;
  traceCounts(random, trace,
              [&](auto* src, auto* dc, auto* ac, bool) { return function(src, dc, ac, &last); });
});
QELJ_COMPARE(qeliGetHuffmanStatistics8x8_DCFirst_JPEG_16s_C1,
             [](auto* function, Random& random, Trace& trace) {
               int16_t last = 0;
               const Band band(random);
               traceCounts(random, trace, [&](auto* src, auto* dc, auto*, bool) {
                 return function(src, dc, &last, band.al);
               });
             });
constexpr auto countBand = [](auto* function, Random& random, Trace& trace) {
  const Band band(random);
  EncodeState state;
  traceCounts(random, trace, [&](auto* src, auto*, auto* ac, bool flush) {
    return function(src, ac, band.ss, band.se, band.al, state, flush);
  });
  trace.bytes(state.bytes.data(), state.bytes.size());
};
QELJ_COMPARE(qeliGetHuffmanStatistics8x8_ACFirst_JPEG_16s_C1, countBand);
QELJ_COMPARE(qeliGetHuffmanStatistics8x8_ACRefine_JPEG_16s_C1, countBand);
QELJ_COMPARE(qeliGetHuffmanStatisticsOne_JPEG_16s_C1, [](auto* function, Random& random, Trace& trace) {
  traceCounts(random, trace, [&](auto* src, auto* dc, auto*, bool) { return function(src, dc); });
});
QELJ_COMPARE(qeliEncodeHuffmanRawTableInit_JPEG_8u, [](auto* function, Random& random, Trace& trace) {
  std::vector<int32_t> counts(256);
  for (auto& c : counts) c = random.chance(50) ? int32_t(random.in(-5, int64_t(1) << random.in(0, 30))) : 0;
  Guarded bits(random, 16), vals(random, 256);
  trace.status(function(counts.data(), bits.data(), vals.data()));
  trace.buffer(bits), trace.buffer(vals);
});

}  // namespace
}  // namespace qelj::test
