#include <gtest/gtest.h>

#include "jpeg/huffman/huffman_support.h"
#include "jpeg/huffman/records.h"

namespace qelj::test {
namespace {

struct Scan {
  int ss, se;
  uint32_t al;
  bool refine;
};

// One scan over blocks of one component through the library's functions.
QelStatus encodeBlock(const Scan& scan, const int16_t* src, uint8_t* dst, int32_t length, int32_t* pos, int16_t* last,
                      Tables& t, QelEncodeHuffmanState* state, bool flush) {
  if (scan.ss == 0 && !scan.refine)
    return qeliEncodeHuffman8x8_DCFirst_JPEG_16s1u_C1(src, dst, length, pos, last, scan.al, t.encoder(), state, flush);
  if (scan.ss == 0) return qeliEncodeHuffman8x8_DCRefine_JPEG_16s1u_C1(src, dst, length, pos, scan.al, state, flush);
  const auto ac =
      scan.refine ? qeliEncodeHuffman8x8_ACRefine_JPEG_16s1u_C1 : qeliEncodeHuffman8x8_ACFirst_JPEG_16s1u_C1;
  return ac(src, dst, length, pos, scan.ss, scan.se, scan.al, t.encoder(), state, flush);
}
QelStatus decodeBlock(const Scan& scan, const uint8_t* src, int32_t length, int32_t* pos, int16_t* dst, int16_t* last,
                      int32_t* marker, Tables& t, QelDecodeHuffmanState* state) {
  if (scan.ss == 0 && !scan.refine)
    return qeliDecodeHuffman8x8_DCFirst_JPEG_1u16s_C1(src, length, pos, dst, last, marker, scan.al, t.decoder(), state);
  if (scan.ss == 0) return qeliDecodeHuffman8x8_DCRefine_JPEG_1u16s_C1(src, length, pos, dst, marker, scan.al, state);
  const auto ac =
      scan.refine ? qeliDecodeHuffman8x8_ACRefine_JPEG_1u16s_C1 : qeliDecodeHuffman8x8_ACFirst_JPEG_1u16s_C1;
  return ac(src, length, pos, dst, marker, scan.ss, scan.se, scan.al, t.decoder(), state);
}

// Codes a scan, ended by a flush, into at most `room` bytes.
QelStatus encodeScan(const Scan& scan, const std::vector<Block>& blocks, Tables& t, std::vector<uint8_t>& out,
                     size_t room) {
  out.assign(room, 0xAA);
  EncodeState state;
  int32_t pos = 0;
  int16_t last = 0;
  QelStatus s = qelStatusOk;
  for (size_t n = 0; n <= blocks.size() && !s; ++n) {
    const bool flush = n == blocks.size();
    s = encodeBlock(scan, flush ? nullptr : blocks[n].data(), out.data(), int32_t(room), &pos, &last, t, state, flush);
  }
  out.resize(size_t(pos));
  return s;
}
// Codes a scan with too little room, again and again: behind each failure, the copies from before the call and some
// bytes more.
std::vector<uint8_t> encodeScanInPieces(Random& r, const Scan& scan, const std::vector<Block>& blocks, Tables& t) {
  std::vector<uint8_t> out(1);
  EncodeState state;
  int32_t pos = 0;
  int16_t last = 0;
  for (size_t n = 0; n <= blocks.size(); ++n) {
    const bool flush = n == blocks.size();
    const auto block = flush ? nullptr : blocks[n].data();
    for (;;) {
      const EncodeState state0 = state;
      const int32_t pos0 = pos;
      const int16_t last0 = last;
      const QelStatus s = encodeBlock(scan, block, out.data(), int32_t(out.size()), &pos, &last, t, state, flush);
      if (s == qelStatusOk) break;
      EXPECT_EQ(qelStatusJpegOutOfBuffer, s);
      state = state0, pos = pos0, last = last0;
      out.resize(out.size() + size_t(r.in(1, 40)));
    }
  }
  out.resize(size_t(pos));
  return out;
}
QelStatus decodeScan(const Scan& scan, std::vector<Block>& blocks, Tables& t, const std::vector<uint8_t>& coded) {
  const Pages src = Pages::copyOf(coded);
  DecodeState state;
  int32_t pos = 0, marker = 0;
  int16_t last = 0;
  for (Block& b : blocks)
    if (auto s = decodeBlock(scan, src.data(), int32_t(coded.size()), &pos, b.data(), &last, &marker, t, state))
      return s;
  EXPECT_EQ(int32_t(coded.size()), pos);
  return qelStatusOk;
}

std::vector<Block> randomBlocks(Random& r, size_t count, int percent) {
  std::vector<Block> blocks(count);
  int dc = 0;
  for (Block& b : blocks) {
    b = randomBlock(r, r.chance(40) ? 0 : int(r.in(0, percent)), int(r.in(1, 10)));
    b[0] = int16_t(dc = int(std::clamp<int64_t>(dc + r.in(-300, 300), -1023, 1023)));
  }
  return blocks;
}

const std::vector<Scan> kScript = {{0, 0, 2, false},  {1, 5, 2, false}, {6, 6, 3, false},
                                   {7, 63, 2, false}, {6, 6, 2, true},  {1, 63, 1, true},
                                   {0, 0, 1, true},   {1, 63, 0, true}, {0, 0, 0, true}};

TEST(Progressive, ScriptRestoresTheCoefficients) {
  Random r;
  for (int round = 0; round < 60; ++round) {
    const auto blocks = randomBlocks(r, size_t(r.in(1, 120)), int(r.in(1, 100)));
    std::vector<Block> decoded(blocks.size());
    for (const Scan& scan : kScript) {
      Tables t(Lists::decodable(r, 10 + round));
      std::vector<uint8_t> coded, small;
      ASSERT_EQ(qelStatusOk, encodeScan(scan, blocks, t, coded, 1 << 16));
      for (size_t room = 1; room < coded.size();
           room += 1 + coded.size() / 20) {  // any room: the same bytes, up to the end
        ASSERT_EQ(qelStatusJpegOutOfBuffer, encodeScan(scan, blocks, t, small, room));
        ASSERT_TRUE(small.size() == room && std::equal(small.begin(), small.end(), coded.begin()));
      }
      ASSERT_EQ(coded, encodeScanInPieces(r, scan, blocks, t));
      ASSERT_EQ(qelStatusOk, decodeScan(scan, decoded, t, coded)) << scan.ss << ' ' << scan.al;
    }
    ASSERT_EQ(blocks, decoded);
  }
}

// Runs of 32767 blocks end by themselves, and refinement runs before the correction bits overflow.
TEST(Progressive, LongRuns) {
  Random r;
  Tables t(Lists::flat());
  std::vector<Block> full(100), known(100);
  for (size_t n = 0; n < full.size(); ++n)
    for (size_t i = 1; i < 64; ++i)
      full[n][i] = int16_t((i + n) % 2 ? 3 : -2), known[n][i] = int16_t((i + n) % 2 ? 2 : -2);
  const std::vector<Block> zeros(70000);
  for (auto [refine, blocks, decoded] : {std::tuple(false, zeros, zeros), {true, zeros, zeros}, {true, full, known}}) {
    const Scan scan{1, 63, 0, refine};
    std::vector<uint8_t> coded;
    ASSERT_EQ(qelStatusOk, encodeScan(scan, blocks, t, coded, 4096));
    ASSERT_EQ(coded, encodeScanInPieces(r, scan, blocks, t));
    ASSERT_EQ(qelStatusOk, decodeScan(scan, decoded, t, coded));
    ASSERT_EQ(blocks, decoded);
  }
}

// A record that ends, or begins, at an inaccessible page.
template <class Record>
struct Paged : Pages {
  explicit Paged(bool atStart = false) : Pages(sizeof(Record), atStart ? behind : before) {}
  operator Record*() { return reinterpret_cast<Record*>(data()); }
  Record* operator->() { return *this; }
  std::vector<uint8_t> bytes() { return {data(), data() + size()}; }
  void assign(const std::vector<uint8_t>& from) { std::memcpy(data(), from.data(), size()); }
};

// A caller that heeds no failure: what is full stays as it is, without another block, until it can be stored.
TEST(Progressive, FullRunsBehindFailures) {
  Tables flat(Lists::flat());
  Lists few;
  few.bits[0] = 1, few.vals = {1};  // no code for a run
  Tables none(few);
  Block corrections{};
  for (size_t i = 1; i < 64; ++i) corrections[i] = 2;
  std::vector<Block> bits(16, corrections);  // 937 bits, then 1000
  std::fill_n(bits[14].begin() + 1, 8, int16_t(0));
  const std::vector<Block> run(32767);
  for (const auto& [refine, blocks] : {std::pair(false, run), {true, run}, {true, bits}})
    for (Tables* table : {&flat, &none}) {
      const QelStatus failure = table == &flat ? qelStatusJpegOutOfBuffer : qelStatusJpegHuffTable;
      const Scan scan{1, 63, 0, refine};
      Paged<QelEncodeHuffmanState> state;
      qeliEncodeHuffmanStateInit_JPEG_8u(state);
      uint8_t byte = 0x5A;
      int32_t pos = 1;
      const auto code = [&](const Block& block) {
        return encodeBlock(scan, block.data(), &byte, 1, &pos, nullptr, *table, state, false);
      };
      for (size_t n = 0; n + 1 < blocks.size(); ++n) ASSERT_EQ(qelStatusOk, code(blocks[n]));
      ASSERT_EQ(failure, code(blocks.back()));
      const auto full = state.bytes();
      for (int n = 0; n < 7233; ++n) {
        ASSERT_EQ(failure, code(blocks.back()));
        ASSERT_EQ(0, std::memcmp(full.data(), state.data(), full.size()));
      }
      ASSERT_TRUE(pos == 1 && byte == 0x5A);
      // With room and a table, what was counted is a stream; and so it is with another block behind it.
      for (size_t more : {0, 1}) {
        auto all = blocks;
        all.insert(all.end(), more, blocks.back());
        std::vector<uint8_t> expected, out(1000);
        ASSERT_EQ(qelStatusOk, encodeScan(scan, all, flat, expected, 1000));
        state.assign(full);
        pos = 0;
        for (size_t n = 0; n <= more; ++n)
          ASSERT_EQ(qelStatusOk,
                    encodeBlock(scan, blocks.back().data(), out.data(), 1000, &pos, nullptr, flat, state, n == more));
        out.resize(size_t(pos));
        ASSERT_EQ(expected, out);
      }
    }
}

// States that no call has left: counts at the edges of what a call leaves and of the types, or anything.
int32_t anyOf(Random& r, std::initializer_list<int32_t> edges) {
  if (r.chance(20)) return int32_t(r.in(INT32_MIN, INT32_MAX));
  return *(edges.begin() + r.in(0, int64_t(edges.size()) - 1));
}
int32_t anyBitCount(Random& r) {
  return anyOf(r, {0, 0, 1, 7, 8, 9, 24, 25, 31, 32, 33, 63, 64, 65535, INT32_MAX, INT32_MIN, -1, -8, -64});
}
int32_t anyRun(Random& r) {
  return anyOf(r, {0, 0, 1, 2, 0x7FFE, 0x7FFF, 0x8000, 0xFFFF, 0x10000, INT32_MAX, INT32_MIN, -1});
}
int32_t anyCorrectionCount(Random& r) {
  return anyOf(r, {0, 0, 1, 937, 938, 961, 962, 1000, 1024, 1025, INT32_MAX, INT32_MIN, -1, -63});
}

// Every encoder and counter ends, with a status, inside its buffers, and gives the same with room to spare and
// without. What is no run is not flushed.
TEST(HuffmanEncoders, GarbageStatesStayInside) {
  Random r;
  for (int round = 0; round < 6000; ++round) {
    Tables t(r.chance(50) ? Lists::flat() : Lists::random(r, int(r.in(0, 256))));
    const Scan scan = kScript[size_t(r.in(0, int64_t(kScript.size()) - 1))];
    const Block block = randomBlock(r, int(r.in(0, 100)), int(r.in(1, 15)));
    const int64_t kind = r.in(0, 3);
    const auto code = [&](uint8_t* dst, int32_t length, int32_t* pos, QelEncodeHuffmanState* state, bool flush) {
      int16_t last = 0;
      if (kind == 0)
        return qeliEncodeHuffman8x8_JPEG_16s1u_C1(block.data(), dst, length, pos, &last, t.encoder(), t.encoder(),
                                                  state, flush);
      if (kind == 1) return qeliEncodeHuffmanOne_JPEG_16s1u_C1(&block[1], dst, length, pos, t.encoder(), state, flush);
      return encodeBlock(scan, block.data(), dst, length, pos, &last, t, state, flush);
    };
    Paged<QelEncodeHuffmanState> state(r.chance(50)), again, counting(r.chance(50));
    r.fill(state.data(), state.size());
    state->bitCount = anyBitCount(r), state->eobRun = anyRun(r), state->correctionCount = anyCorrectionCount(r);
    counting.assign(state.bytes());
    const auto length = int32_t(r.in(1, r.chance(50) ? 30 : 3000));
    Pages out = Pages::drawn(r, size_t(length)), counters = Pages::drawn(r, 1024);
    int32_t pos = int32_t(r.in(0, length));
    for (int n = 0; n < 6; ++n) {
      const bool flush = r.chance(30), noRun = kind > 1 && scan.ss && uint32_t(state->eobRun) > 0x7FFF;
      const int32_t from = pos;
      again.assign(state.bytes());
      const QelStatus s = code(out.data(), length, &pos, state, flush);
      ASSERT_TRUE(out.intact() && from <= pos && pos <= length);
      if (noRun && flush) {
        ASSERT_TRUE(s == qelStatusJpegCoeffRange && pos == from);
      }
      if (s != qelStatusJpegOutOfBuffer && pos > 0) {
        std::vector<uint8_t> exact(out.data(), out.data() + from);
        exact.resize(size_t(pos));
        int32_t exactPos = from;
        ASSERT_EQ(s, code(exact.data(), pos, &exactPos, again, flush));
        ASSERT_EQ(pos, exactPos);
        ASSERT_TRUE(std::equal(exact.begin(), exact.end(), out.data()));
        ASSERT_EQ(state.bytes(), again.bytes());
      }
      if (scan.ss == 0) continue;
      (scan.refine ? qeliGetHuffmanStatistics8x8_ACRefine_JPEG_16s_C1
                   : qeliGetHuffmanStatistics8x8_ACFirst_JPEG_16s_C1)(
          block.data(), reinterpret_cast<int32_t*>(counters.data()), scan.ss, scan.se, scan.al, counting, flush);
      ASSERT_TRUE(counters.intact());
    }
  }
}

TEST(HuffmanDecoders, GarbageStatesStayInside) {
  Random r;
  for (int round = 0; round < 6000; ++round) {
    Tables t(r.chance(50) ? Lists::flat() : Lists::random(r, int(r.in(0, 256))));
    const Scan scan = kScript[size_t(r.in(0, int64_t(kScript.size()) - 1))];
    const int64_t kind = r.in(0, 3);
    Paged<QelDecodeHuffmanState> state(r.chance(50));
    r.fill(state.data(), state.size());
    state->bitCount = anyBitCount(r), state->eobRun = anyRun(r);
    Pages src(size_t(r.in(2, 300)), Pages::before);
    r.fill(src.data(), src.size());
    const auto size = int32_t(src.size());
    Pages out = Pages::drawn(r, 128);
    auto* const dst = reinterpret_cast<int16_t*>(out.data());
    int32_t marker = 0, pos = int32_t(r.in(0, size));
    int16_t last = 0;
    for (int n = 0; n < 6; ++n) {
      if (kind == 0)
        qeliDecodeHuffman8x8_JPEG_1u16s_C1(src.data(), size, &pos, dst, &last, &marker, t.decoder(), t.decoder(),
                                           state);
      else if (kind == 1) qeliDecodeHuffmanOne_JPEG_1u16s_C1(src.data(), size, &pos, dst, &marker, t.decoder(), state);
      else decodeBlock(scan, src.data(), size, &pos, dst, &last, &marker, t, state);
      ASSERT_TRUE(out.intact() && pos >= 0 && pos <= size);
    }
  }
}

// --- statistics --------------------------------------------------------------------------------------------

using Counters = std::array<int32_t, 256>;

struct Made {
  QelStatus status;
  Lists lists;
};
Made makeTable(const Counters& counts) {
  Made made;
  made.lists.vals.resize(256);
  made.status = qeliEncodeHuffmanRawTableInit_JPEG_8u(counts.data(), made.lists.bits.data(), made.lists.vals.data());
  if (!made.status) made.lists.vals.resize(size_t(std::accumulate(made.lists.bits.begin(), made.lists.bits.end(), 0)));
  return made;
}

// A table made from a scan's counts has just the symbols that coding the scan takes.
TEST(HuffmanStatistics, CountWhatEncodersStore) {
  Random r;
  for (int round = 0; round < 40; ++round)
    for (const Scan& scan : kScript) {
      if (scan.ss == 0 && scan.refine) continue;
      const auto blocks = randomBlocks(r, 150, int(r.in(1, 100)));
      Counters counts{};
      EncodeState state;
      int16_t last = 0;
      const auto band = scan.refine ? qeliGetHuffmanStatistics8x8_ACRefine_JPEG_16s_C1
                                    : qeliGetHuffmanStatistics8x8_ACFirst_JPEG_16s_C1;
      for (const Block& b : blocks)
        ASSERT_EQ(qelStatusOk,
                  scan.ss ? band(b.data(), counts.data(), scan.ss, scan.se, scan.al, state, 0)
                          : qeliGetHuffmanStatistics8x8_DCFirst_JPEG_16s_C1(b.data(), counts.data(), &last, scan.al));
      if (scan.ss) {
        ASSERT_EQ(qelStatusOk, band(nullptr, counts.data(), 0, 0, 99, state, 1));
      }
      const Lists lists = makeTable(counts).lists;
      Tables t(lists);
      std::vector<uint8_t> coded;
      ASSERT_EQ(qelStatusOk, encodeScan(scan, blocks, t, coded, 1 << 16));
      // Without one of the symbols, the scan cannot be coded.
      Lists less = lists;
      const auto leftOut = size_t(r.in(0, int64_t(less.vals.size()) - 1));
      const auto unused = size_t(std::find(counts.begin(), counts.end(), 0) - counts.begin());
      less.vals[leftOut] = uint8_t(unused);
      Tables other(less);
      ASSERT_EQ(qelStatusJpegHuffTable, encodeScan(scan, blocks, other, coded, 1 << 16));
    }
}

TEST(OptimalTable, CostsTheLeast) {
  Random r;
  for (int round = 0; round < 300; ++round) {
    Counters counts{};
    const int64_t scale = r.in(0, 31), used = r.in(0, 100);
    for (auto& c : counts)  // spread over many sizes as long as no code can have more than 32 bits
      if (r.chance(int(used))) c = int32_t(r.in(0, (int64_t(1) << (scale <= 12 ? r.in(0, scale) : scale)) - 1));
    const Made made = makeTable(counts);
    ASSERT_EQ(qelStatusOk, made.status);
    ASSERT_EQ(qelStatusOk, Tables(made.lists).encoderStatus);  // no code of all ones
    const auto codes = made.lists.codes();
    int64_t cost = 0;
    size_t longest = 0;
    for (size_t s = 0; s < 256; ++s) {
      ASSERT_EQ(counts[s] > 0, !codes[s].empty());
      cost += counts[s] * int64_t(codes[s].size());
      longest = std::max(longest, codes[s].size());
    }
    // The least cost with one more symbol of count 1: the sum of all merges.
    std::vector<int64_t> heap{1};
    int64_t least = 0;
    for (int32_t c : counts)
      if (c > 0) heap.push_back(c);
    while (heap.size() > 1) {
      std::sort(heap.begin(), heap.end(), std::greater());
      const int64_t sum = heap.back() + heap[heap.size() - 2];
      heap.resize(heap.size() - 2), heap.push_back(sum), least += sum;
    }
    ASSERT_GE(cost + int64_t(longest), least);
    if (longest < 16) {
      ASSERT_EQ(least, cost + int64_t(longest));  // the reserved symbol has one of the longest codes
    }
  }
}

}  // namespace
}  // namespace qelj::test
