#include "jpeg/huffman/huffman_support.h"
#include "support/compare.h"

namespace qelj::test {
namespace {

using Bytes = std::vector<uint8_t>;
using DecodeSpec = QelDecodeHuffmanSpec;
using EncodeSpec = QelEncodeHuffmanSpec;
using DecoderState = QelDecodeHuffmanState;
using EncoderState = QelEncodeHuffmanState;

// A copy in memory of its own, no byte longer.
template <class Values>
const auto* copied(Case& c, const Values& values) {
  auto& rows = c.rows<typename Values::value_type>(int64_t(values.size()));
  if (!values.empty()) std::memcpy(rows.data(), values.data(), rows.bytes());
  return rows.data();
}

// --- records -----------------------------------------------------------------------------------------------

void* record(Case& c, const DecodeSpec*) { return c.scratch(1644); }
void* record(Case& c, const EncodeSpec*) { return c.scratch(1024); }
void* record(Case& c, const DecoderState*) { return c.scratch(24); }
void* record(Case& c, const EncoderState*) { return c.scratch(1048); }
template <class Record>
Record* newRecord(Case& c) {
  return static_cast<Record*>(record(c, static_cast<Record*>(nullptr)));
}
DecoderState* newDecodeState(Case& c) {
  auto* state = newRecord<DecoderState>(c);
  QELJ_FIND(c, qeliDecodeHuffmanStateInit_JPEG_8u)(state);
  return state;
}
EncoderState* newEncodeState(Case& c) {
  auto* state = newRecord<EncoderState>(c);
  QELJ_FIND(c, qeliEncodeHuffmanStateInit_JPEG_8u)(state);
  return state;
}

// What coders can use: every symbol, or some.
Lists coderLists(Case& c) {
  const int64_t kind = c.in(0, 9);
  const auto skew = int(c.in(5, 95));
  const auto symbols = int(c.in(0, 256));
  if (kind == 0) return Lists::flat();
  if (kind == 1) return Lists::random(c.random, symbols, skew);
  if (kind < 5) return Lists::random(c.random, 256, skew);
  return Lists::decodable(c.random, skew);
}
// Those, and what tables may have to refuse: lengths that are full or overfull, symbols listed twice, too many codes.
Lists anyLists(Case& c) {
  Lists lists = coderLists(c);
  const int64_t kind = c.in(0, 9);
  const auto length = size_t(c.in(0, 15));
  const auto count = uint8_t(c.in(0, 255));
  if (kind == 0) lists.bits[length] = count;
  if (kind == 1) lists.bits[length] = uint8_t(lists.bits[length] + (count & 3) - 1);
  if (kind == 2 || kind == 3) {
    lists.bits = {};
    for (size_t l = 0; l < 9; ++l) {
      const int64_t codes = c.in(0, 3);
      lists.bits[(length & 3) + l] = uint8_t(c.chance(40) ? codes : 0);
    }
  }
  if (kind == 4) {  // 255 to 258 codes of the last lengths
    lists.bits = {};
    lists.bits[15] = 255, lists.bits[14] = count & 3;
  }
  if (kind == 5) lists.bits[15] = uint8_t(lists.bits[15] + 256 - lists.vals.size() % 256);
  const size_t before = lists.vals.size();
  lists.vals.resize(size_t(std::accumulate(lists.bits.begin(), lists.bits.end(), 0)));
  for (size_t i = before; i < lists.vals.size(); ++i) lists.vals[i] = uint8_t(c.in(0, 255));
  return lists;
}

// Both tables of one pair of lists.
class Codes {
 public:
  Codes(Case& c, const Lists& lists) {
    auto* forEncoder = newRecord<EncodeSpec>(c);
    auto* forDecoder = newRecord<DecodeSpec>(c);
    QELJ_FIND(c, qeliEncodeHuffmanSpecInit_JPEG_8u)(lists.bits.data(), symbols(lists), forEncoder);
    QELJ_FIND(c, qeliDecodeHuffmanSpecInit_JPEG_8u)(lists.bits.data(), symbols(lists), forDecoder);
    encoder = forEncoder, decoder = forDecoder;
  }
  explicit Codes(Case& c) : Codes(c, coderLists(c)) {}
  // For a decoder, one in five from lists that may be overfull.
  static Codes toDecode(Case& c) {
    Codes codes(c);
    if (!c.chance(20)) return codes;
    const Lists lists = anyLists(c);
    auto* spec = newRecord<DecodeSpec>(c);
    const auto init = QELJ_FIND(c, qeliDecodeHuffmanSpecInit_JPEG_8u);
    if (init(lists.bits.data(), symbols(lists), spec) == qelStatusOk) codes.decoder = spec;
    return codes;
  }

  const EncodeSpec* encoder;
  const DecodeSpec* decoder;

 private:
  // Not null, also of an empty list.
  static const uint8_t* symbols(const Lists& lists) { return lists.vals.empty() ? &lists.bits[0] : &lists.vals[0]; }
};

// What a decoder's state holds shows in what calls behind a marker can still take: its bits, then the blocks of its
// run.
void probe(Case& c, DecoderState* state, const Lists& = {}) {
  static const uint8_t src[1] = {};
  const auto bit = QELJ_FIND(c, qeliDecodeHuffman8x8_DCRefine_JPEG_1u16s_C1);
  const auto block = QELJ_FIND(c, qeliDecodeHuffman8x8_ACFirst_JPEG_1u16s_C1);
  DecodeSpec* const empty = newRecord<DecodeSpec>(c);
  QELJ_FIND(c, qeliDecodeHuffmanSpecInit_JPEG_8u)(Lists().bits.data(), src, empty);
  int32_t pos = 0, marker = 1, run = 0;
  uint64_t bits = 1;
  for (int16_t dst[64] = {}; bit(src, 1, &pos, dst, &marker, 0, state) == qelStatusOk; dst[0] = 0)
    bits = bits << 1 | uint64_t(dst[0]);
  for (int16_t dst[64] = {}; block(src, 1, &pos, dst, &marker, 1, 63, 0, empty, state) == qelStatusOk;) ++run;
  c.value(bits), c.value(run);
}
// What an encoder's state holds shows in what a flush stores behind one bit more.
void probe(Case& c, EncoderState* state, const Lists& = {}) {
  const Codes flat(c, Lists::flat());
  const int16_t zero[64] = {};
  uint8_t bytes[600];
  int32_t pos = 0;
  QELJ_FIND(c, qeliEncodeHuffman8x8_DCRefine_JPEG_16s1u_C1)(zero, bytes, 600, &pos, 0, state, 0);
  const QelStatus s = QELJ_FIND(c, qeliEncodeHuffman8x8_ACRefine_JPEG_16s1u_C1)(nullptr, bytes, 600, &pos, 0, 0, 0,
                                                                                flat.encoder, state, 1);
  c.value(s), c.value(pos), c.bytes(bytes, size_t(pos));
}
// Every byte and every code, with what comes behind it.
void probe(Case& c, const DecodeSpec* spec, const Lists& lists) {
  const auto codes = lists.codes();
  DecoderState* state = newDecodeState(c);
  for (size_t i = 0; i < 512; ++i) {
    if (i >= 256 && codes[i - 256].empty()) continue;
    const auto behind = int64_t(c.random.bits() >> 32);
    const Bytes bytes = stuffed((i < 256 ? bitText(int64_t(i), 8) : codes[i - 256]) + bitText(behind, 32));
    int16_t dst[64] = {};
    int32_t pos = 0, marker = 0;
    const QelStatus s = QELJ_FIND(c, qeliDecodeHuffman8x8_ACFirst_JPEG_1u16s_C1)(
        bytes.data(), int32_t(bytes.size()), &pos, dst, &marker, 1, 1, 0, spec, state);
    c.value(s), c.value(pos), c.bytes(dst, sizeof dst);
    probe(c, state);
    QELJ_FIND(c, qeliDecodeHuffmanStateInit_JPEG_8u)(state);
  }
}
// Every symbol: a run and a category of up to 16, and, by the flush, 0.
void probe(Case& c, const EncodeSpec* spec, const Lists&) {
  const auto encode = QELJ_FIND(c, qeliEncodeHuffman8x8_ACFirst_JPEG_16s1u_C1);
  EncoderState* state = newEncodeState(c);
  uint8_t bytes[1500];
  int32_t pos = 0;
  int16_t block[64] = {};
  for (int run = 0; run < 16; ++run)
    for (int category = 1; category <= 16; ++category) {
      int16_t& coefficient = block[kScan[1 + run]];
      coefficient = int16_t(-(1 << (category - 1)));
      c.value(encode(block, bytes, 1500, &pos, 1, 1 + run, 0, spec, state, 0));
      coefficient = 0;
    }
  encode(block, bytes, 1500, &pos, 1, 63, 0, spec, state, 0);
  c.value(encode(block, bytes, 1500, &pos, 1, 63, 0, spec, state, 1));
  c.value(pos), c.bytes(bytes, size_t(pos));
}

constexpr auto bufSize = [](auto* getBufSize, Case& c) {
  int32_t bytes = 0;
  c.call(getBufSize, &bytes);
  c.value(bytes);
};

// init(target), or init(bits, vals, target) for a table.
template <class Init, class Target>
QelStatus make(Case& c, Init* init, const Lists& lists, Target target) {
  if constexpr (std::is_invocable_v<Init*, Target>) {
    return c.call(init, target);
  } else {
    const uint8_t* bits = copied(c, lists.bits);
    const uint8_t* vals = copied(c, lists.vals);
    return c.call(init, bits, vals, target);
  }
}
template <class Record>
constexpr auto init = [](auto* function, Case& c) {
  const Lists lists = anyLists(c);
  auto* made = newRecord<Record>(c);
  if (make(c, function, lists, made) == qelStatusOk) probe(c, made, lists);
};
#define QELJ_COMPARE_RECORD(kind, rounds)                                                   \
  QELJ_COMPARE(qeli##kind##GetBufSize_JPEG_8u, bufSize, kQuickShare);                       \
  QELJ_COMPARE(qeli##kind##Init_JPEG_8u, init<Qel##kind>, rounds);                          \
  constexpr auto allocated##kind = [](auto*, Case& c) {                                     \
    const Lists lists = anyLists(c);                                                        \
    Qel##kind* made = nullptr;                                                              \
    const QelStatus s = make(c, QELJ_FIND(c, qeli##kind##InitAlloc_JPEG_8u), lists, &made); \
    if (s == qelStatusOk) probe(c, made, lists);                                            \
    c.call(QELJ_FIND(c, qeli##kind##Free_JPEG_8u), made);                                   \
  };                                                                                        \
  QELJ_COMPARE(qeli##kind##InitAlloc_JPEG_8u, allocated##kind, 60);                         \
  QELJ_COMPARE(qeli##kind##Free_JPEG_8u, allocated##kind, kQuickShare)
QELJ_COMPARE_RECORD(DecodeHuffmanSpec, 300);
QELJ_COMPARE_RECORD(EncodeHuffmanSpec, 1000);
QELJ_COMPARE_RECORD(DecodeHuffmanState, 40);
QELJ_COMPARE_RECORD(EncodeHuffmanState, 40);

// --- blocks ------------------------------------------------------------------------------------------------

enum class Kind { sequential, dcFirst, dcRefine, acFirst, acRefine };
template <Kind kKind>
constexpr bool kOfBand = kKind == Kind::acFirst || kKind == Kind::acRefine;

struct Band {
  explicit Band(Case& c) : ss(int32_t(c.in(1, 63))), se(int32_t(c.in(ss, 63))), al(uint32_t(c.in(0, 13))) {
    if (c.chance(40)) ss = 1, se = 63;
    if (c.chance(70)) al &= 3;
  }
  int32_t ss, se;
  uint32_t al;
};

// A kind of content, for which blocks differ only in what is drawn.
struct Content {
  // With `rich`, no coefficient is new to a scan that refines by bit al: all have a bit to correct.
  Content(Case& c, uint32_t al, bool rich)
      : percent(rich ? 100 : c.of({0, 1, 3, 10, 30, 60, 100})),
        bits(c.of({1, 2, 3, 5, 8, 11, 15})),
        al(al),
        rich(rich),
        ones(rich && c.chance(50)) {}
  Block block(Case& c) const {
    const bool empty = c.chance(rich ? 3 : 25);
    Block block = randomBlock(c.random, empty ? 0 : percent, std::max(bits, int(al)));
    const auto at = size_t(c.in(0, 63));
    const auto value = int16_t(c.in(-1, 1));
    const auto dc = int16_t(c.random.bits());
    if (c.chance(3)) block[at] = -32768;
    if (c.chance(10)) block[63] = value;
    if (c.chance(10)) block[0] = dc;
    if (rich)
      for (auto& x : block)
        if (const int magnitude = (std::abs(x) & 0x7FFF) | (ones ? 3 : 2) << al; x != 0)
          x = int16_t(x < 0 ? -magnitude : magnitude);
    return block;
  }

  int percent, bits;
  uint32_t al;
  bool rich, ones;  // ones: all correction bits are 1, and their bytes stuffed
};

// Calls as Case::call does, of which nothing is kept.
struct Silent {
  template <class Function, class... Argument>
  QelStatus call(Function* function, const Argument&... argument) const {
    return function(argument::Traits<Argument>::plain(argument)...);
  }
};

// An argument that a flush does not look at.
template <class T>
Domain<T> coded(int32_t flush, T good, std::vector<T> bad) {
  return flush ? Domain<T>{T(), {}} : Domain<T>{good, bad};
}
template <class T>
Domain<T*> coded(int32_t flush, T* good) {
  return coded<T*>(flush, good, {nullptr});
}
Domain<uint32_t> transform(int32_t flush, uint32_t al) { return coded<uint32_t>(flush, al, {14, 0xFFFFFFFF}); }
Domain<int32_t> bandStart(int32_t flush, const Band& b) { return coded<int32_t>(flush, b.ss, {0, 64, -1}); }
Domain<int32_t> bandEnd(int32_t flush, const Band& b) { return coded<int32_t>(flush, b.se, {b.ss - 1, 64}); }

// --- encoders ----------------------------------------------------------------------------------------------

struct Output {
  uint8_t* dst;
  int32_t length;
  EncoderState* state;
  int32_t pos = 0;
  int16_t last = 0;
};

template <Kind kKind, class Caller, class Function>
QelStatus encodeBlock(Caller& caller, Function* function, Output& out, const int16_t* block, int32_t flush,
                      const Band& b, const Codes& dc, const Codes& ac) {
  const Length length{out.length};
  const auto src = coded(flush, block);
  const auto last = coded(flush, &out.last);
  const auto al = transform(flush, b.al);
  if constexpr (kKind == Kind::sequential)
    return caller.call(function, src, out.dst, length, &out.pos, last, coded(flush, dc.encoder),
                       coded(flush, ac.encoder), out.state, flush);
  else if constexpr (kKind == Kind::dcFirst)
    return caller.call(function, src, out.dst, length, &out.pos, last, al, coded(flush, dc.encoder), out.state, flush);
  else if constexpr (kKind == Kind::dcRefine)
    return caller.call(function, src, out.dst, length, &out.pos, al, out.state, flush);
  else
    return caller.call(function, src, out.dst, length, &out.pos, bandStart(flush, b), bandEnd(flush, b), al, ac.encoder,
                       out.state, flush);
}

// Blocks that continue a run of a band's ends, up to about its limit: `code(block)` until it fails.
template <Kind kKind, class Code>
QelStatus longRun(Case& c, const Band& b, Code&& code) {
  const auto count = int(c.in(0x7FFC, 0x8003));
  Block zero{}, corrected{};
  if (kKind == Kind::acRefine) corrected[size_t(kScan[b.se])] = int16_t(3 << b.al);
  QelStatus s = qelStatusOk;
  for (int n = 0; n < count && s == qelStatusOk; ++n) s = code(n % 128 == 5 ? corrected.data() : zero.data());
  return s;
}

int32_t anyFlush(Case& c) { return c.of({1, 1, -1, 256}); }

// Where a coder may start: at the front, behind other bytes, or outside.
int32_t anyPosition(Case& c, int32_t length) {
  const int64_t kind = c.in(0, 19);
  const auto inside = int32_t(c.in(0, length));
  const auto outside = c.of({-1, INT32_MIN, INT32_MAX, length + 1});
  return kind == 0 ? outside : kind < 5 ? inside : 0;
}
Output room(Case& c, int32_t length) {
  Output out{c.rows<uint8_t>(length).data(), length, newEncodeState(c)};
  out.pos = anyPosition(c, length);
  return out;
}
// Room for `most` bytes, or for less.
Output anyRoom(Case& c, int32_t most) { return room(c, int32_t(c.in(1, c.of({10, 60, 600, most, most})))); }

// Runs code(output, flush) on some blocks. Behind a failure, few blocks are coded on.
template <class Code>
void encodeBlocks(Case& c, int64_t blocks, bool heeding, Output& out, Code&& code) {
  for (int64_t n = 0; n <= blocks; ++n) {
    const int32_t anyway = anyFlush(c);
    const int32_t flush = n == blocks || c.chance(4) ? anyway : 0;
    if (n == blocks && c.chance(40)) break;
    const QelStatus s = code(out, flush);
    c.value(out.pos), c.value(out.last);
    if (flush) out.last = 0;
    if (s && heeding) break;
  }
  probe(c, out.state);
}

template <Kind kKind>
constexpr auto encode = [](auto* function, Case& c) {
  const Codes dc(c);
  const Codes ac(c);
  const Band band(c);
  const bool run = kOfBand<kKind> && c.chance(4), rich = kKind == Kind::acRefine && c.chance(20);
  const Content content(c, band.al, rich);
  const int64_t blocks = content.ones ? c.in(12, 15) : rich ? c.in(13, 60) : c.in(1, 12);
  const bool heeding = rich || run || c.chance(30);
  // What a flush stores of such a run may just fit, or not.
  Output out = content.ones ? room(c, int32_t(c.in(130, 280))) : anyRoom(c, rich ? 9000 : 3000);
  if (run) {
    Silent silent;
    const QelStatus s = longRun<kKind>(c, band, [&](const int16_t* block) {
      return encodeBlock<kKind>(silent, function, out, block, 0, band, dc, ac);
    });
    c.value(s), c.value(out.pos);
    if (s) return probe(c, out.state);
  }
  encodeBlocks(c, blocks, heeding, out, [&](Output& to, int32_t flush) {
    const int16_t* block = flush ? nullptr : copied(c, content.block(c));
    return encodeBlock<kKind>(c, function, to, block, flush, band, dc, ac);
  });
};

// Without a length: once with room, to learn how far it goes, and once with no byte more than that.
constexpr auto encodeDirect = [](auto* function, Case& c) {
  const Codes dc(c);
  const Codes ac(c);
  const Content content(c, 0, false);
  const auto blocks = c.in(1, 8);
  const auto start = int32_t(c.in(0, 99));
  const auto pending = uint8_t(c.in(0, 255));
  const Random from = c.random;
  size_t used = 8 * 600 + 16;
  for (int pass = 0; pass < 2; ++pass) {
    auto& dst = c.rows<uint8_t>(int64_t(used));
    if (size_t(start / 8) < used) dst.set(size_t(start / 8), 0, pending);
    c.random = from;
    int32_t bitPos = start;
    int16_t last = 0;
    for (int64_t n = 0; n < blocks; ++n) {
      const int16_t* block = copied(c, content.block(c));
      c.call(function, block, dst.data(), &bitPos, &last, dc.encoder, ac.encoder);
      c.value(bitPos), c.value(last);
    }
    used = size_t(bitPos + 7) / 8;
  }
};
QELJ_COMPARE(qeliEncodeHuffman8x8_Direct_JPEG_16s1u_C1, encodeDirect, 1000);

// --- decoders ----------------------------------------------------------------------------------------------

struct Input {
  const uint8_t* src;
  int32_t length;
  DecoderState* state;
  int32_t pos = 0, marker = 0;
  int16_t last = 0;
};

template <Kind kKind, class Function>
QelStatus decodeBlock(Case& c, Function* function, Input& in, int16_t* dst, const Band& b, const Codes& dc,
                      const Codes& ac) {
  const Length length{in.length};
  const auto al = transform(0, b.al);
  if constexpr (kKind == Kind::sequential)
    return c.call(function, in.src, Domain<int32_t>{in.length, {-1, INT32_MIN}}, &in.pos, dst, &in.last, &in.marker,
                  dc.decoder, ac.decoder, in.state);
  else if constexpr (kKind == Kind::dcFirst)
    return c.call(function, in.src, length, &in.pos, dst, &in.last, &in.marker, al, dc.decoder, in.state);
  else if constexpr (kKind == Kind::dcRefine)
    return c.call(function, in.src, length, &in.pos, dst, &in.marker, al, in.state);
  else
    return c.call(function, in.src, length, &in.pos, dst, &in.marker, bandStart(0, b), bandEnd(0, b), al, ac.decoder,
                  in.state);
}

// Leaves a stream as it is, cuts it, damages it, or puts noise in its place; at times it ends in a marker.
void spoil(Case& c, Bytes& bytes, int64_t least) {
  const int64_t kind = c.in(0, 11);
  const auto noise = size_t(c.in(1, c.of({4, 40, 500})));
  const int ones = c.of({0, 2, 10, 40});
  if (kind == 0) bytes.resize(size_t(c.in(least, std::max(least, int64_t(bytes.size())))));
  if (kind == 1 || kind == 2) {
    if (kind == 2) bytes.resize(noise);
    c.random.fill(bytes.data(), bytes.size());
    for (size_t i = 0; i + 1 < bytes.size(); ++i) {
      if (bytes[i] == 0xFF && !c.chance(5)) bytes[i + 1] = 0;
      if (c.chance(ones)) bytes[i] = 0xFF, bytes[i + 1] = uint8_t(c.chance(90) ? 0 : 0xFF);
    }
  }
  if (kind == 3 || kind == 4)
    for (int64_t n = c.in(1, 6); n > 0 && !bytes.empty(); --n) {
      const auto at = size_t(c.in(0, int64_t(bytes.size()) - 1));
      const auto byte = uint8_t(c.in(0, 255));
      bytes[at] = c.chance(30) ? 0xFF : byte;
    }
  if (kind == 5 || kind == 6)  // fill bytes in front of stuffed zeros
    for (size_t i = bytes.size(); i-- > 1;) {
      const auto count = size_t(c.in(0, 3));
      if (bytes[i - 1] == 0xFF && bytes[i] == 0) bytes.insert(bytes.begin() + long(i), count, 0xFF);
    }
  if (kind == 7) {
    const auto at = c.in(0, int64_t(bytes.size()));
    const auto code = uint8_t(c.in(1, 0xFE));
    bytes.insert(bytes.begin() + long(at), {0xFF, code});
  }
  if (c.chance(50)) {
    const auto fill = size_t(c.in(1, 3));
    const auto code = uint8_t(c.in(1, 0xFE));
    bytes.insert(bytes.end(), fill, 0xFF);
    bytes.push_back(code);
  }
}

// Runs decode(input, n) for n = 0, 1, ... on a stream, and behind a marker as behind a restart.
template <class Decode>
void decodeStream(Case& c, Bytes bytes, int64_t calls, int64_t least, Decode&& decode) {
  spoil(c, bytes, least);
  const auto length = int32_t(bytes.size());
  Input in{copied(c, bytes), length, newDecodeState(c)};
  in.pos = anyPosition(c, length);
  for (int64_t n = 0; n < calls; ++n) {
    decode(in, size_t(n));
    c.value(in.pos), c.value(in.marker), c.value(in.last);
    if (in.marker == 0 || c.chance(50)) continue;
    in.marker = in.last = 0;
    QELJ_FIND(c, qeliDecodeHuffmanStateInit_JPEG_8u)(in.state);
  }
  probe(c, in.state);
}

// A flushed scan of blocks, and those.
struct CodedScan {
  Bytes bytes;
  std::vector<Block> blocks;
};
template <Kind kKind, class Encode>
CodedScan codedScan(Case& c, Encode* function, const Band& band, const Codes& dc, const Codes& ac) {
  const bool rich = kKind == Kind::acRefine && c.chance(20);
  const Content content(c, band.al, rich);
  const int64_t blocks = c.in(1, rich ? 40 : 12);
  CodedScan scan{Bytes(40 * 600), {}};
  Output out{scan.bytes.data(), int32_t(scan.bytes.size()), newEncodeState(c)};
  Silent silent;
  for (int64_t n = 0; n < blocks; ++n) {
    const Block block = content.block(c);
    if (encodeBlock<kKind>(silent, function, out, block.data(), 0, band, dc, ac)) break;
    scan.blocks.push_back(block);
  }
  if (kOfBand<kKind> && c.chance(4))
    longRun<kKind>(c, band, [&](const int16_t* block) {
      return encodeBlock<kKind>(silent, function, out, block, 0, band, dc, ac);
    });
  encodeBlock<kKind>(silent, function, out, nullptr, 1, band, dc, ac);
  scan.bytes.resize(size_t(out.pos));
  return scan;
}
// What the scans before a refinement have left of a block.
Block known(Block block, uint32_t al) {
  block[0] = int16_t(block[0] >> (al + 1) << (al + 1));
  for (size_t i = 1; i < 64; ++i) {
    const int magnitude = std::abs(block[i]) >> (al + 1) << (al + 1);
    block[i] = int16_t(block[i] < 0 ? -magnitude : magnitude);
  }
  return block;
}

template <Kind kKind, class Function, class Encode>
void decode(Case& c, Function* function, Encode* encode) {
  const Band band(c);
  const Codes dc = Codes::toDecode(c);
  const Codes ac = Codes::toDecode(c);
  const CodedScan scan = codedScan<kKind>(c, encode, band, dc, ac);
  constexpr bool kRefine = kKind == Kind::dcRefine || kKind == Kind::acRefine;
  const auto calls = int64_t(scan.blocks.size()) + 3;
  decodeStream(c, scan.bytes, calls, kKind == Kind::sequential ? 0 : 1, [&](Input& in, size_t n) {
    auto& dst = c.rows<int16_t>(64);
    if (kRefine && !scan.blocks.empty() && c.chance(95)) {
      const Block before = known(scan.blocks[n % scan.blocks.size()], band.al);
      std::memcpy(dst.data(), before.data(), 128);
    }
    decodeBlock<kKind>(c, function, in, dst.data(), band, dc, ac);
  });
}
#define QELJ_COMPARE_SCAN(scan, kind, rounds)                                                \
  QELJ_COMPARE(qeliEncodeHuffman8x8_##scan##JPEG_16s1u_C1, encode<kind>, rounds);            \
  QELJ_COMPARE(                                                                              \
      qeliDecodeHuffman8x8_##scan##JPEG_1u16s_C1,                                            \
      [](auto* function, Case& c) {                                                          \
        decode<kind>(c, function, QELJ_FIND(c, qeliEncodeHuffman8x8_##scan##JPEG_16s1u_C1)); \
      },                                                                                     \
      rounds)
QELJ_COMPARE_SCAN(, Kind::sequential, 2000);
QELJ_COMPARE_SCAN(DCFirst_, Kind::dcFirst, 800);
QELJ_COMPARE_SCAN(DCRefine_, Kind::dcRefine, 400);
QELJ_COMPARE_SCAN(ACFirst_, Kind::acFirst, 1000);
QELJ_COMPARE_SCAN(ACRefine_, Kind::acRefine, 1000);

// Without a length: the segment ends in a marker.
constexpr auto decodeDirect = [](auto* function, Case& c) {
  const Band band(c);
  const Codes dc = Codes::toDecode(c);
  const Codes ac = Codes::toDecode(c);
  const auto encode = QELJ_FIND(c, qeliEncodeHuffman8x8_JPEG_16s1u_C1);
  auto [bytes, blocks] = codedScan<Kind::sequential>(c, encode, band, dc, ac);
  spoil(c, bytes, 0);
  bytes.insert(bytes.end(), {0xFF, 0xD9});
  const auto length = int32_t(bytes.size());
  const uint8_t* src = copied(c, bytes);
  const auto from = int32_t(c.in(0, length - 2)), held = int32_t(c.in(0, 32));
  int32_t bitPos = int32_t(c.in(0, 7));
  if (c.chance(20)) bitPos += 8 * from;
  int32_t bitCount = c.chance(10) ? held : 0, marker = 0, none = -1;
  auto bitBuffer = uint32_t(c.random.bits());
  int16_t last = 0;
  for (size_t n = 0; n < blocks.size() + 3; ++n) {
    auto& dst = c.rows<int16_t>(64);
    const Domain<int32_t*> position{&bitPos, {nullptr, &none}}, count{&bitCount, {nullptr, &none}};
    c.call(function, src, position, dst.data(), &last, &marker, &bitBuffer, count, dc.decoder, ac.decoder);
    c.value(bitPos), c.value(marker), c.value(bitBuffer), c.value(bitCount), c.value(last);
    if (marker == 0 || bitPos / 8 >= length || c.chance(50)) continue;
    marker = bitCount = last = 0;
  }
};
QELJ_COMPARE(qeliDecodeHuffman8x8_Direct_JPEG_1u16s_C1, decodeDirect, 2000);

// --- lossless ----------------------------------------------------------------------------------------------

// A row of one kind: noise, small steps, or extremes.
Rows<int16_t>& samples(Case& c, int32_t width) {
  auto& row = c.rows<int16_t>(width);
  const int64_t kind = c.in(0, 3);
  auto value = int16_t(c.random.bits());
  const auto bits = int(c.in(0, 15));
  if (kind == 1) row.fill([&] { return value = int16_t(value + c.in(-3, 3)); });
  if (kind == 2) row.fill([&] { return c.of({-32768, 32767, -1, 0, 1}); });
  if (kind == 3) row.fill([&] { return c.in(-(1 << bits), (1 << bits) - 1); });
  return row;
}
// Where the result goes: over an input, or elsewhere.
int16_t* result(Case& c, std::initializer_list<Rows<int16_t>*> inputs, int32_t width) {
  Rows<int16_t>* input = c.of(inputs);
  return c.chance(30) ? input->data() : c.rows<int16_t>(width).data();
}
constexpr auto firstRow = [](auto* function, Case& c) {
  const int32_t width = c.extent(300);
  auto& src = samples(c, width);
  int16_t* dst = result(c, {&src}, width);
  const auto precision = int32_t(c.in(2, 16));
  const auto shift = int32_t(c.in(0, precision - 1));
  c.call(function, src.data(), dst, Length{width}, Domain<int32_t>{precision, {1, 17}},
         Domain<int32_t>{shift, {-1, precision}});
};
constexpr auto otherRow = [](auto* function, Case& c) {
  const int32_t width = c.extent(300);
  auto& src = samples(c, width);
  auto& above = samples(c, width);
  int16_t* dst = result(c, {&src, &above}, width);
  const auto predictor = int32_t(c.in(1, 7));
  c.call(function, src.data(), above.data(), dst, Length{width}, Domain<int32_t>{predictor, {0, 8}});
};
QELJ_COMPARE(qeliDiffPredFirstRow_JPEG_16s_C1, firstRow, 1000);
QELJ_COMPARE(qeliReconstructPredFirstRow_JPEG_16s_C1, firstRow, 1000);
QELJ_COMPARE(qeliDiffPredRow_JPEG_16s_C1, otherRow, 2000);
QELJ_COMPARE(qeliReconstructPredRow_JPEG_16s_C1, otherRow, 2000);

// Rows of interleaved channels, each with its tables; what stands behind the fourth is not looked at.
struct Channels {
  template <class MakeCodes>
  Channels(Case& c, int32_t mostWidth, MakeCodes makeCodes) : width(c.extent(mostWidth)), count(int32_t(c.in(1, 6))) {
    for (size_t i = 0; i < size_t(looked()); ++i) {
      planes[i] = samples(c, width).data();
      const Codes codes = makeCodes(c);
      encoders[i] = codes.encoder, decoders[i] = codes.decoder;
    }
  }
  int32_t looked() const { return std::min(count, 4); }
  // Small differences, with the table for all channels that many of them have (Annex K.3.1).
  void code(Case& c) {
    Lists lists{{0, 1, 5, 1, 1, 1, 1, 1, 1}, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}};
    const Codes codes(c, lists);
    const int64_t most = (1 << c.in(0, 8)) - 1;
    for (size_t i = 0; i < size_t(looked()); ++i) {
      for (int32_t x = 0; x < width; ++x) {
        const auto difference = int16_t(c.chance(1) ? c.in(-2047, 2047) : c.in(-most, most));
        std::memcpy(planes[i] + x, &difference, sizeof difference);  // the plane need not be aligned
      }
      encoders[i] = codes.encoder, decoders[i] = codes.decoder;
    }
  }

  int32_t width, count;
  int16_t* planes[6] = {};
  const EncodeSpec* encoders[6] = {};
  const DecodeSpec* decoders[6] = {};
};
template <class Caller, class Function>
QelStatus encodeRow(Caller& caller, Function* function, Output& out, const Channels& rows, int32_t flush) {
  const Length length{out.length};
  const int16_t* src[4] = {rows.planes[0], rows.planes[1], rows.planes[2], rows.planes[3]};
  if (flush)
    return caller.call(function, Unchecked<const int16_t* const>{nullptr}, 0, 0, out.dst, length, &out.pos,
                       Unchecked<const EncodeSpec* const>{nullptr}, out.state, flush);
  return caller.call(function, Planes{src, rows.looked()}, Length{rows.width}, Length{rows.count}, out.dst, length,
                     &out.pos, Planes{rows.encoders, rows.looked()}, out.state, flush);
}
Codes drawnCodes(Case& c) { return Codes(c); }

QELJ_COMPARE(qeliEncodeHuffmanOne_JPEG_16s1u_C1, [](auto* function, Case& c) {
  const Codes codes(c);
  Output out = anyRoom(c, 300);
  const int64_t count = c.in(1, 60);
  const bool heeding = c.chance(30);
  encodeBlocks(c, count, heeding, out, [&](Output& to, int32_t flush) {
    const int16_t* value = flush ? nullptr : samples(c, 1).data();
    return c.call(function, coded(flush, value), to.dst, Length{to.length}, &to.pos, coded(flush, codes.encoder),
                  to.state, flush);
  });
});
QELJ_COMPARE(qeliEncodeHuffmanRow_JPEG_16s1u_P4C1, [](auto* function, Case& c) {
  const Channels rows(c, 300, drawnCodes);
  Output out = anyRoom(c, 14 * rows.width * rows.looked() + 20);
  const bool heeding = c.chance(30);
  const int64_t count = c.in(1, 3);
  encodeBlocks(c, count, heeding, out,
               [&](Output& to, int32_t flush) { return encodeRow(c, function, to, rows, flush); });
});

// Rows as encoded by the same image.
Bytes codedRow(Case& c, const Channels& rows) {
  Bytes bytes(size_t(14 * rows.width * rows.looked() + 20));
  Output out{bytes.data(), int32_t(bytes.size()), newEncodeState(c)};
  Silent silent;
  const auto encode = QELJ_FIND(c, qeliEncodeHuffmanRow_JPEG_16s1u_P4C1);
  for (int n = 0; n < 2; ++n) encodeRow(silent, encode, out, rows, 0);
  encodeRow(silent, encode, out, rows, 1);
  bytes.resize(size_t(out.pos));
  return bytes;
}
QELJ_COMPARE(qeliDecodeHuffmanOne_JPEG_1u16s_C1, [](auto* function, Case& c) {
  Channels rows(c, 30, Codes::toDecode);
  rows.count = 1;
  const Bytes bytes = codedRow(c, rows);
  decodeStream(c, bytes, 2 * rows.width + 10, 1, [&](Input& in, size_t) {
    auto& dst = c.rows<int16_t>(1);
    c.call(function, in.src, Length{in.length}, &in.pos, dst.data(), &in.marker, rows.decoders[0], in.state);
  });
});
QELJ_COMPARE(qeliDecodeHuffmanRow_JPEG_1u16s_C1P4, [](auto* function, Case& c) {
  const bool isLong = c.chance(10);
  Channels rows(c, isLong ? 1200 : 300, Codes::toDecode);
  if (isLong) rows.code(c);
  const Bytes bytes = codedRow(c, rows);
  decodeStream(c, bytes, 3, 1, [&](Input& in, size_t) {
    int16_t* dst[6] = {};
    for (size_t i = 0; i < size_t(rows.looked()); ++i) dst[i] = c.rows<int16_t>(rows.width).data();
    c.call(function, in.src, Length{in.length}, &in.pos, Planes{dst, rows.looked()}, Length{rows.width},
           Length{rows.count}, &in.marker, Planes{rows.decoders, rows.looked()}, in.state);
  });
});

// --- statistics --------------------------------------------------------------------------------------------

Rows<int32_t>& counters(Case& c) {
  auto& counts = c.rows<int32_t>(256);
  if (c.chance(50)) counts.fill([] { return 0; });
  return counts;
}
template <Kind kKind>
constexpr auto countBlocks = [](auto* function, Case& c) {
  const Band band(c);
  const Content content(c, 0, false);
  auto& dc = counters(c);
  auto& ac = c.chance(10) ? dc : counters(c);
  int16_t last = 0;
  for (int64_t n = c.in(1, 12); n > 0; --n) {
    const int16_t* block = copied(c, content.block(c));
    if constexpr (kKind == Kind::sequential) c.call(function, block, dc.data(), ac.data(), &last);
    else c.call(function, block, dc.data(), &last, transform(0, band.al));
    c.value(last);
  }
};
QELJ_COMPARE(qeliGetHuffmanStatistics8x8_JPEG_16s_C1, countBlocks<Kind::sequential>, 1000);
QELJ_COMPARE(qeliGetHuffmanStatistics8x8_DCFirst_JPEG_16s_C1, countBlocks<Kind::dcFirst>, 1000);
template <Kind kKind>
constexpr auto countBand = [](auto* function, Case& c) {
  const Band band(c);
  const bool rich = kKind == Kind::acRefine && c.chance(20);
  const Content content(c, band.al, rich);
  auto& counts = counters(c);
  EncoderState* state = newEncodeState(c);
  const auto count = [&](auto& caller, const int16_t* block, int32_t last) {
    return caller.call(function, coded(last, block), counts.data(), bandStart(last, band), bandEnd(last, band),
                       transform(last, band.al), state, last);
  };
  Silent silent;
  if (c.chance(4)) longRun<kKind>(c, band, [&](const int16_t* block) { return count(silent, block, 0); });
  for (int64_t n = c.in(1, rich ? 60 : 12); n > 0; --n) {
    const int32_t anyway = anyFlush(c);
    const int32_t last = c.chance(5) ? anyway : 0;
    count(c, last ? nullptr : copied(c, content.block(c)), last);
  }
  if (c.chance(50)) count(c, nullptr, 1);
  probe(c, state);
};
QELJ_COMPARE(qeliGetHuffmanStatistics8x8_ACFirst_JPEG_16s_C1, countBand<Kind::acFirst>);
QELJ_COMPARE(qeliGetHuffmanStatistics8x8_ACRefine_JPEG_16s_C1, countBand<Kind::acRefine>);
QELJ_COMPARE(qeliGetHuffmanStatisticsOne_JPEG_16s_C1, [](auto* function, Case& c) {
  auto& counts = counters(c);
  auto& row = samples(c, 60);
  for (size_t x = 0; x < 60; ++x) c.call(function, row.data() + x, counts.data());
});

// Counts of one kind: few or many symbols, equal ones, huge ones, and such as make codes as deep as they can be.
constexpr auto rawTable = [](auto* function, Case& c) {
  auto& counts = c.rows<int32_t>(256);
  const int64_t kind = c.in(0, 7), deepest = c.in(1, 40), growth = c.in(0, 1);
  const int percent = c.of({0, 1, 10, 50, 90, 100});
  const auto bits = int(c.in(0, 30));
  int64_t a = 1, b = 1, deep = 0;
  counts.fill([&]() -> int64_t {
    const int64_t any = c.in(0, int64_t(1) << bits);
    const int64_t scale = c.in(0, bits);
    if (!c.chance(percent)) return c.chance(10) ? -any : 0;
    if (kind == 0) return 1;
    if (kind == 1) return any;
    if (kind == 2) return INT32_MAX - (any & 1);
    if (kind == 3) return 1 + (any & 3);
    if (kind < 6) return any >> scale;
    if (++deep > deepest || a > INT32_MAX) return 0;
    const int64_t now = a;
    a = b, b = growth ? 2 * b : now + b;
    return now;
  });
  auto& lengths = c.rows<uint8_t>(16);
  auto& vals = c.rows<uint8_t>(256);
  c.call(function, counts.data(), lengths.data(), vals.data());
};
QELJ_COMPARE(qeliEncodeHuffmanRawTableInit_JPEG_8u, rawTable, 1000);

}  // namespace
}  // namespace qelj::test
