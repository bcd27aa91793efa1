#include <algorithm>
#include <vector>

#include "support/compare.h"

namespace qelj::test {
namespace {

// Memory that holds no state, as short as the test of that must do with.
template <class State>
State* foreign() {
  static const Pages memory(sizeof(uint64_t), Pages::before);
  std::memset(memory.data(), 0x50, memory.size());
  return reinterpret_cast<State*>(memory.data());
}
template <class State>
Domain<State*> stateOr(State* good) {
  return {good, {nullptr, foreign<State>()}};
}

// --- blocks ------------------------------------------------------------------------------------------------

struct Shape {
  QelSize size;
  int32_t subband, bits, style;  // the encoder's style bits
};
Shape drawnShape(Case& c) {
  Shape s;
  const auto kind = c.in(0, 49);
  s.size = kind == 0   ? QelSize{64, 64}
           : kind == 1 ? QelSize{1024, 4}
           : kind == 2 ? QelSize{4, 1024}
           : kind < 15 ? c.size(64, 64)
           : kind < 35 ? c.size(12, 12)
                       : c.size(3, 4);
  s.subband = int32_t(c.in(-1, 4));
  s.bits = int32_t(c.in(0, 31));
  s.style = int32_t(c.in(0, 63));
  return s;
}

// Magnitudes of `bits` bits, left-aligned, with or without bits below: from few ones to many in each plane, most of
// them small, or most of them 0.
Rows<int32_t>& drawnSamples(Case& c, const Shape& s) {
  auto& rows = c.rows<int32_t>(s.size.width, s.size.height);
  const auto kind = c.in(0, 4);
  const auto present = c.of<int64_t>({0, 1, 10, 60, 100, 100, 100});
  const auto negative = c.of<int64_t>({0, 50, 50, 100});
  const uint32_t planes = c.chance(30) ? 0x7FFFFFFF : 0x7FFFFFFFu & ~(0x7FFFFFFFu >> s.bits);
  rows.fill([&] {
    const uint64_t word = c.random.bits();
    auto magnitude = uint32_t(word) & 0x7FFFFFFF;
    const auto other = uint32_t(word >> 20);
    if (kind == 0) magnitude >>= word >> 59;
    if (kind == 1) magnitude &= other & other << 7;
    if (kind == 2) magnitude |= other | other << 7;
    if (kind == 3) magnitude = 0x7FFFFFFF;
    magnitude &= planes;
    if (!c.chance(int(present))) magnitude = 0;
    return magnitude | (c.chance(int(negative)) ? 0x80000000u : 0);
  });
  return rows;
}

// --- encoder -----------------------------------------------------------------------------------------------

// An encoder of the image with a block.
struct Encoder {
  Case& c;
  QelEncodeStateJPEG2K* state = nullptr;
  int32_t planes = 0, passes = 0, segments = 0;

  explicit Encoder(Case& of, QelSize size) : c(of) { QELJ_FIND(c, qeliEncodeInitAlloc_JPEG2K)(&state, size); }
  explicit Encoder(Case& of, QelEncodeStateJPEG2K* made) : c(of), state(made) {}
  Encoder(const Encoder&) = delete;
  ~Encoder() {
    if (state) QELJ_FIND(c, qeliEncodeFree_JPEG2K)(state);
  }

  QelStatus load(const Shape& s) {
    const auto& src = drawnSamples(c, s);
    const auto before = int32_t(c.of<int64_t>({0, 0, 100, 255}));
    return QELJ_FIND(c, qeliEncodeLoadCodeBlock_JPEG2K_32s_C1R)(
        src.data(), src.step(), s.size, state, s.subband, s.bits, before, 0, s.style, &planes, &passes, &segments);
  }
  std::vector<uint8_t> store() {
    std::vector<uint8_t> bytes;
    for (int32_t more = 1; more;) {
      uint8_t part[1000];
      int32_t n = sizeof part;
      if (QELJ_FIND(c, qeliEncodeStoreBits_JPEG2K_1u)(part, &n, state, &more)) break;
      bytes.insert(bytes.end(), part, part + n);
    }
    return bytes;
  }
  std::vector<uint32_t> lengths() {
    std::vector<uint32_t> all;
    for (int32_t i = 0; i < segments; ++i) {
      int32_t length = 0;
      QELJ_FIND(c, qeliEncodeGetTermPassLen_JPEG2K)(state, i, &length);
      all.push_back(uint32_t(length));
    }
    return all;
  }
  void trace() {
    for (const int32_t n : {planes, passes, segments}) c.value(n);
    const auto bytes = store();
    c.bytes(bytes.data(), bytes.size());
  }
};

QELJ_COMPARE(qeliEncodeInitAlloc_JPEG2K, [](auto* initAlloc, Case& c) {
  const Shape s = drawnShape(c);
  auto* state = foreign<QelEncodeStateJPEG2K>();
  initAlloc(&state, {1 << 20, 1 << 20});
  c.value(!state);
  c.call(initAlloc, &state, Domain<QelSize>{s.size, {{0, 4}, {4, -5}, {1 << 20, 1 << 20}}});
  Encoder encoder(c, state);
  encoder.trace();  // nothing yet
  encoder.load(s);
  encoder.trace();
});
QELJ_COMPARE(
    qeliEncodeFree_JPEG2K,
    [](auto* free, Case& c) {
      Encoder encoder(c, QelSize{12, 12});
      c.call(free, std::exchange(encoder.state, nullptr));
    },
    kQuickShare);

// Several blocks with one state.
QELJ_COMPARE(
    qeliEncodeLoadCodeBlock_JPEG2K_32s_C1R,
    [](auto* load, Case& c) {
      const QelSize most = drawnShape(c).size;
      Encoder encoder(c, most);
      const QelSize tooLarge{most.width + 64, most.height};
      for (int i = 0; i < 2; ++i) {
        Shape s = drawnShape(c);
        s.size = {std::min(s.size.width, most.width), std::min(s.size.height, most.height)};
        const auto& src = drawnSamples(c, s);
        const auto before = int32_t(c.in(0, 255));
        const auto reserved = int32_t(c.in(-9, 9));
        c.call(load, src.data(), Step{src.step()}, Domain<QelSize>{s.size, {{0, 4}, {4, -5}, tooLarge}},
               stateOr(encoder.state), s.subband, s.bits, before, reserved, s.style, &encoder.planes, &encoder.passes,
               &encoder.segments);
        encoder.trace();
      }
    },
    2000);

QELJ_COMPARE(qeliEncodeStoreBits_JPEG2K_1u, [](auto* store, Case& c) {
  const Shape s = drawnShape(c);
  Encoder encoder(c, s.size);
  encoder.load(s);
  const auto room = int32_t(s.size.width * s.size.height < 200 && c.chance(30) ? c.in(1, 3) : c.in(1, 3000));
  const auto& dst = c.rows<uint8_t>(room);
  int32_t zero = 0, negative = -5, more = 1;
  for (bool again = true; again;) {
    again = more && encoder.state;  // once more when nothing is left
    auto n = int32_t(c.in(1, room));
    c.call(store, dst.data(), Domain<int32_t*>{&n, {nullptr, &zero, &negative}}, stateOr(encoder.state), &more);
    c.value(n);
    c.value(more);
    c.now(dst);
  }
});

// A question about each pass or segment, before or after the bytes were asked for.
template <class Result, int32_t Encoder::* count>
constexpr auto question = [](auto* function, Case& c) {
  const Shape s = drawnShape(c);
  Encoder encoder(c, s.size);
  encoder.load(s);
  if (c.chance(50)) encoder.store();
  const int32_t n = encoder.*count;
  for (int32_t i = -1; i <= n; ++i) {
    Result result = -7;
    c.call(function, stateOr(encoder.state), Domain<int32_t>{i, {-1, n, INT32_MIN}}, &result);
    c.value(result);
  }
};
QELJ_COMPARE(qeliEncodeGetRate_JPEG2K, (question<int32_t, &Encoder::passes>), 1000);
QELJ_COMPARE(qeliEncodeGetDist_JPEG2K, (question<double, &Encoder::passes>), 2000);
QELJ_COMPARE(qeliEncodeGetTermPassLen_JPEG2K, (question<int32_t, &Encoder::segments>), 1000);

// --- decoder -----------------------------------------------------------------------------------------------

// The encoder's segments, as they are, damaged or cut; or any bytes.
struct Segments {
  int32_t planes = 0, passes = 0;
  std::vector<uint8_t> bytes;
  std::vector<uint32_t> lengths;
};
Segments drawnSegments(Case& c, const Shape& s) {
  Segments all;
  const auto kind = c.in(0, 7);
  if (kind < 4) {
    Encoder encoder(c, s.size);
    encoder.load(s);
    all.bytes = encoder.store();
    all.lengths = encoder.lengths();
    all.planes = std::max(encoder.planes - (31 - s.bits), 0);
    all.passes = encoder.passes;
    if (c.chance(20)) all.passes = std::max(0, all.passes + int32_t(c.in(-9, 9)));
    for (int64_t i = kind == 2 && !all.bytes.empty() ? c.in(1, 5) : 0; i > 0; --i) {
      const auto at = size_t(c.in(0, int64_t(all.bytes.size()) - 1));
      all.bytes[at] = uint8_t(c.random.bits());
    }
    if (kind == 3)
      for (auto& length : all.lengths) length = uint32_t(c.in(0, length));
  } else {
    all.planes = int32_t(c.in(0, 31));
    all.passes = int32_t(c.in(0, 3 * all.planes));
    const auto common = uint8_t(c.of({0, 255}));
    const int share = c.of({0, 20, 90});
    const int64_t longest = c.of({1, 2, 6, 50, 1000});
    for (int64_t i = c.in(0, all.passes + 1); i > 0; --i) all.lengths.push_back(uint32_t(c.in(0, longest)));
    size_t total = 0;
    for (const uint32_t length : all.lengths) total += length;
    for (; total; --total) {
      const auto byte = uint8_t(c.random.bits());
      all.bytes.push_back(c.chance(share) ? common : byte);
    }
  }
  return all;
}
template <class T>
Rows<T>& exactly(Case& c, const T* from, size_t count) {
  auto& rows = c.rows<T>(int64_t(count));
  if (count) std::memcpy(rows.data(), from, count * sizeof(T));
  return rows;
}

// Flags can only be kept where there are some.
int32_t decoderStyle(Case& c, const Shape& s, bool hasFlags) {
  const auto kept = int32_t(c.in(0, hasFlags ? 15 : 7));
  const bool predictable = c.chance(25);
  return (s.style & 31) | kept << 16 | predictable << 20;
}

uint8_t* stateMemory(Case& c, QelSize size) {
  int32_t bytes = 0;
  QELJ_FIND(c, qeliDecodeGetBufSize_JPEG2K)(size, &bytes);
  return c.scratch(size_t(bytes));
}

// The second block finds the flags of the first.
QELJ_COMPARE(
    qeliDecodeCodeBlock_JPEG2K_1u32s_C1R,
    [](auto* decode, Case& c) {
      const Shape s = drawnShape(c);
      auto& dst = c.rows<int32_t>(s.size.width, s.size.height);
      uint8_t* const state = stateMemory(c, s.size);
      for (int i = 0; i < 2; ++i) {
        const auto segments = drawnSegments(c, s);
        const auto& src = exactly(c, segments.bytes.data(), segments.bytes.size());
        const auto& lengths = exactly(c, segments.lengths.data(), segments.lengths.size());
        const auto count = c.chance(3) ? -1 : int32_t(segments.lengths.size());
        const int32_t style = decoderStyle(c, s, i > 0);
        uint32_t reached = 77;
        const Unchecked<uint32_t> result{c.chance(80) ? &reached : nullptr};
        c.call(decode, src.data(), dst.data(), Step{dst.step()}, s.size, s.subband, uint32_t(segments.planes),
               uint32_t(segments.passes), lengths.data(), count, style, result, state);
        c.value(reached);
        c.now(dst);
      }
    },
    2000);

constexpr auto stateSize = [](auto* function, Case& c) {
  for (int i = 0; i < 20; ++i) {
    const QelSize size = c.chance(50) ? c.size(70, 70) : c.size(1 << 17, 1 << 17);
    int32_t bytes = 77;
    c.call(function, Domain<QelSize>{size, {{0, 1}, {1, -5}, {1 << 20, 1 << 20}}}, &bytes);
    c.value(bytes);
  }
};
QELJ_COMPARE(qeliDecodeGetBufSize_JPEG2K, stateSize);
QELJ_COMPARE(qeliDecodeCBProgrGetStateSize_JPEG2K, stateSize);

// --- progressive decoder -----------------------------------------------------------------------------------

// The calls of the protocol in any order, on memory of the caller's or an allocated state. The checks of the compared
// function are tried.
constexpr auto progressive = [](auto* compared, Case& c) {
  const auto call = [&](auto* function, const auto&... argument) {
    if (reinterpret_cast<void*>(function) == reinterpret_cast<void*>(compared)) return c.call(function, argument...);
    const QelStatus s = function(argument::Traits<std::decay_t<decltype(argument)>>::plain(argument)...);
    c.value(s);
    return s;
  };
  const auto init = QELJ_FIND(c, qeliDecodeCBProgrInit_JPEG2K);
  const auto initAlloc = QELJ_FIND(c, qeliDecodeCBProgrInitAlloc_JPEG2K);
  const auto setCounter = QELJ_FIND(c, qeliDecodeCBProgrSetPassCounter_JPEG2K);

  Shape s = drawnShape(c);
  auto& dst = c.rows<int32_t>(s.size.width, s.size.height);
  void* const memory = stateMemory(c, s.size);
  auto* made = foreign<QelDecodeStateJPEG2K>();
  initAlloc(&made, {1 << 20, 1 << 20});
  c.value(!made);
  const bool allocated = c.chance(50);
  if (allocated) call(initAlloc, &made, Domain<QelSize>{s.size, {{0, 4}, {4, -5}, {1 << 20, 1 << 20}}});
  const Domain<void*> state = stateOr<void>(allocated ? made : memory);
  if (!allocated && c.chance(80)) call(init, state.good);
  const Domain<const void*> constState{state.good, {nullptr, foreign<void>()}};

  bool attached = false, hasFlags = false;
  Segments segments;
  size_t next = 0, at = 0;
  for (int64_t i = c.in(5, 60); i > 0; --i) {
    const auto action = c.in(0, 19);
    if (action == 0) {
      call(init, state.good);
      attached = false;
    } else if (action == 1 || (action < 10 && !attached)) {
      s.subband = int32_t(c.in(-1, 4));
      s.style = int32_t(c.in(0, 31));
      segments = drawnSegments(c, s);
      next = at = 0;
      const int32_t style = decoderStyle(c, s, hasFlags);
      const auto any = int32_t(c.in(-3, 45));
      const int32_t planes = c.chance(10) ? any : segments.planes;
      if (call(QELJ_FIND(c, qeliDecodeCBProgrAttach_JPEG2K_32s_C1R), dst.data(), Step{dst.step()}, s.size, state,
               s.subband, planes, style))
        continue;
      attached = hasFlags = true;
      call(setCounter, segments.passes, state);
    } else if (action == 2) {
      const auto passes = int32_t(c.in(-1, 9));
      call(setCounter, passes, state);
    } else if (action == 3) {
      int32_t passes = 77;
      call(QELJ_FIND(c, qeliDecodeCBProgrGetPassCounter_JPEG2K), constState, &passes);
      if (attached) c.value(passes);
    } else if (action == 4) {
      int32_t plane = 77;
      call(QELJ_FIND(c, qeliDecodeCBProgrGetCurBitPlaneNum_JPEG2K), constState, &plane);
      if (attached) c.value(plane);
    } else {
      const size_t length = next < segments.lengths.size() ? segments.lengths[next++] : 0;
      const auto& src = exactly(c, segments.bytes.data() + at, length);
      const bool negative = !length && c.chance(30);  // is empty too
      call(QELJ_FIND(c, qeliDecodeCBProgrStep_JPEG2K), src.data(), negative ? INT32_MIN : int32_t(length), state);
      at += length;
      c.now(dst);
    }
  }
  if (made) call(QELJ_FIND(c, qeliDecodeCBProgrFree_JPEG2K), state);
};
QELJ_COMPARE(qeliDecodeCBProgrInit_JPEG2K, progressive);
QELJ_COMPARE(qeliDecodeCBProgrInitAlloc_JPEG2K, progressive);
QELJ_COMPARE(qeliDecodeCBProgrFree_JPEG2K, progressive);
QELJ_COMPARE(qeliDecodeCBProgrAttach_JPEG2K_32s_C1R, progressive);
QELJ_COMPARE(qeliDecodeCBProgrSetPassCounter_JPEG2K, progressive);
QELJ_COMPARE(qeliDecodeCBProgrGetPassCounter_JPEG2K, progressive);
QELJ_COMPARE(qeliDecodeCBProgrGetCurBitPlaneNum_JPEG2K, progressive);
QELJ_COMPARE(qeliDecodeCBProgrStep_JPEG2K, progressive, 2000);

}  // namespace
}  // namespace qelj::test
