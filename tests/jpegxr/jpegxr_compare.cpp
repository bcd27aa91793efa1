#include <algorithm>

#include "support/compare.h"

namespace qelj::test {
namespace {

// --- transform ---------------------------------------------------------------------------------------------

template <class T, int kWidth = 0, int kHeight = 0>
constexpr auto transform = [](auto* function, Case& c) {
  QelSize size{kWidth, kHeight};
  if constexpr (kWidth == 0) {
    size = c.size(75, 12);
    size.width *= 4, size.height *= 4;
  }
  auto& image = c.rows<T>(size.width, size.height);
  if constexpr (std::is_floating_point_v<T>) {
    const int64_t range = c.of<int64_t>({3, 1000000, int64_t(1) << 40});
    if (c.chance(95))
      image.fill([&] {
        const auto over = T(c.in(-range, range));
        return over / T(c.in(1, 1000));
      });
  } else if (c.chance(50)) {
    const int64_t range = c.of<int64_t>({1, 255, 40000});
    image.fill([&] { return c.in(-range, range); });
  }
  const bool upwards = c.chance(20);
  T* first = image.data(upwards ? size_t(size.height) - 1 : 0);
  // A step is compared with the bytes of a row as unsigned numbers.
  const auto rowBytes = int32_t(image.rowBytes());
  const Domain<int32_t> step{upwards ? -image.step() : image.step(), {0, rowBytes - 1}};
  if constexpr (kWidth != 0) {
    c.call(function, first, step);
  } else {
    const Domain<QelSize> sizes{
        size, {{0, size.height}, {size.width, -4}, {size.width - 1, size.height}, {size.width, size.height - 2}}};
    c.call(function, first, step, sizes);
  }
};

#define QELJ_COMPARE_PCT(direction, tag, T)                                          \
  QELJ_COMPARE(qeliPCT##direction##_JPEGXR_##tag##_C1IR, transform<T>);              \
  QELJ_COMPARE(qeliPCT##direction##16x16_JPEGXR_##tag##_C1IR, transform<T, 16, 16>); \
  QELJ_COMPARE(qeliPCT##direction##8x16_JPEGXR_##tag##_C1IR, transform<T, 8, 16>);   \
  QELJ_COMPARE(qeliPCT##direction##8x8_JPEGXR_##tag##_C1IR, transform<T, 8, 8>)
QELJ_COMPARE_PCT(Fwd, 16s, int16_t);
QELJ_COMPARE_PCT(Fwd, 32s, int32_t);
QELJ_COMPARE_PCT(Fwd, 32f, float);
QELJ_COMPARE_PCT(Inv, 16s, int16_t);
QELJ_COMPARE_PCT(Inv, 32s, int32_t);
QELJ_COMPARE_PCT(Inv, 32f, float);

// --- the bit position, and what coders share ---------------------------------------------------------------

// The three values, and the arguments that a call checks of them.
template <class Byte>
struct Position {
  Byte* stream;
  uint32_t bitBuffer;
  int32_t bitCount;
  Byte* none = nullptr;
  int32_t tooFew = -1, tooMany = 33;

  Domain<Byte**> streams() { return {&stream, {nullptr, &none}}; }
  Domain<int32_t*> counts() { return {&bitCount, {nullptr, &tooFew, &tooMany}}; }
};
Domain<uint32_t> lowBits(int64_t bits) { return {uint32_t(bits), {16, 0xFFFFFFFF}}; }

// A kind of content: how many coefficients are not 0, how many of these are above 1, how large those are, and behind
// which one all are 0. Sequences of one kind drive the code tables to both of their ends.
struct Content {
  explicit Content(Case& c)
      : percent(c.of({2, 7, 40, 80, 98})),
        large(c.of({0, 20, 95})),
        bits(c.of({1, 4, 12, 30})),
        last(c.of({1, 2, 5, 15, 15})) {}
  template <class T>
  T coefficient(Case& c, int place = 0) const {
    if (place > last || !c.chance(percent)) return 0;
    const auto more = T(c.random.bits() & ((uint64_t(1) << std::min<int>(bits, 8 * sizeof(T) - 2)) - 1));
    const T magnitude = c.chance(large) ? T(2 + more) : T(1);
    return c.chance(50) ? magnitude : T(-magnitude);
  }
  template <class T>
  Rows<T>& block(Case& c) const {
    auto& b = c.rows<T>(4, 4);
    int place = 0;
    b.fill([&] { return coefficient<T>(c, place++); });
    if (c.chance(2)) b.set(3, 3, std::numeric_limits<T>::min());
    return b;
  }

  int percent, large, bits, last;
};

// The record, ready to use.
class State {
 public:
  explicit State(Case& c)
      : scanSet_(QELJ_FIND(c, qeliVLCScanSet_JPEGXR)),
        scanReset_(QELJ_FIND(c, qeliVLCScanReset_JPEGXR)),
        adapt_(QELJ_FIND(c, qeliVLCAdapt_JPEGXR)),
        init_(QELJ_FIND(c, qeliVLCInit_JPEGXR)) {
    int32_t bytes = 0;
    QELJ_FIND(c, qeliVLCGetStateSize_JPEGXR)(&bytes);
    memory_ = reinterpret_cast<VLCState*>(c.scratch(size_t(bytes)));
  }
  operator VLCState*() const { return memory_; }
  void start(uint32_t scan) const {
    init_(memory_);
    for (int i = 0; i < 3; ++i) scanReset_(memory_, i);
    scanSet_(memory_, scan);
  }
  // What a caller does between blocks.
  void between(Case& c) const {
    const int64_t what = c.in(0, 9);
    const auto index = int32_t(c.in(0, 2));
    if (what < 4) adapt_(memory_, index & 1);
    if (what == 4) scanReset_(memory_, index);
    if (what == 5) scanSet_(memory_, uint32_t(index));
  }

 private:
  VLCState* memory_;
  decltype(&qeliVLCScanSet_JPEGXR) scanSet_;
  decltype(&qeliVLCScanReset_JPEGXR) scanReset_;
  decltype(&qeliVLCAdapt_JPEGXR) adapt_;
  decltype(&qeliVLCInit_JPEGXR) init_;
};

constexpr size_t kRoom = 1 << 14;
using Bytes = std::vector<uint8_t>;

// Runs code(state, position) from a fresh state on a stream of `content`: once with room, to learn how far it goes, and
// once with no byte more than that, for a reader but for the margin that it may look into, which says nothing now. The
// calls and their random numbers are the same.
template <class Byte, class Code>
void onStream(Case& c, const Bytes& content, Code&& code) {
  const State state(c);
  const auto scan = uint32_t(c.in(0, 2));
  const auto held = int32_t(c.in(0, 32));
  const auto bits = uint32_t((c.random.bits() & 0xFFFFFFFF) >> (32 - held) << (32 - held));
  size_t used = content.size();
  const Random start = c.random;
  for (int pass = 0; pass < 2; ++pass) {
    constexpr size_t kMargin = std::is_const_v<Byte> ? 16 : 0;
    uint8_t* memory = c.scratch(used + kMargin);
    std::memcpy(memory, content.data(), used);
    std::fill_n(memory + used, kMargin, uint8_t(0xC3 >> pass));
    c.random = start;
    state.start(scan);
    Position<Byte> position{memory, bits, held};
    code(state, position);
    used = size_t(position.stream - memory);
    c.value(uint64_t(used)), c.value(position.bitBuffer), c.value(position.bitCount);
    c.bytes(memory, used);
  }
}
Bytes anyBytes(Case& c) {
  Bytes bytes(kRoom);
  c.random.fill(bytes.data(), bytes.size());
  return bytes;
}

// Blocks that an encoder wrote, with noise behind them.
template <class T>
Bytes codedBytes(Case& c) {
  Bytes bytes = anyBytes(c);
  const State state(c);
  state.start(uint32_t(c.in(0, 2)));
  const Content content(c);
  Position<uint8_t> at{bytes.data(), 0, 0};
  constexpr bool k16 = sizeof(T) == 2;
  for (int i = 0; i < 40; ++i) {
    T samples[16];
    for (auto& s : samples) s = content.coefficient<T>(c);
    int32_t count;
    const auto chroma = int32_t(c.in(0, 1));
    if constexpr (k16) QELJ_FIND(c, qeliVLCEncode4x4_JPEGXR_16s1u_C1R)
    (samples, 8, chroma, 0, &at.stream, &at.bitBuffer, &at.bitCount, &count, state);
    else QELJ_FIND(c, qeliVLCEncode4x4_JPEGXR_32s1u_C1R)(samples, 16, chroma, 0, &at.stream, &at.bitBuffer,
                                                         &at.bitCount, &count, state);
    state.between(c);
  }
  return bytes;
}

// --- state -------------------------------------------------------------------------------------------------

QELJ_COMPARE(
    qeliVLCGetStateSize_JPEGXR,
    [](auto* size, Case& c) {
      int32_t bytes = 0;
      c.call(size, &bytes);
    },
    kQuickShare);

// What the record holds shows in what fixed blocks become: every class of symbols of both groups, and each scan.
void probe(Case& c, const State& state) {
  Random fixed(7);
  for (uint32_t scan = 0; scan < 3; ++scan) {
    QELJ_FIND(c, qeliVLCScanSet_JPEGXR)(state, scan);
    uint8_t bytes[2048] = {};
    Position<uint8_t> at{bytes, 0, 0};
    for (int i = 0; i < 16; ++i) {
      int32_t samples[16], pairs[30], count;
      uint32_t residual[16] = {};
      const int bits = i % 5;
      for (auto& s : samples) {
        const int64_t magnitude = fixed.in(0, 3) ? 0 : fixed.in(0, 1 << bits * 2);
        s = int32_t(fixed.chance(50) ? magnitude : -magnitude);
      }
      const int32_t chroma = i & 1;
      QELJ_FIND(c, qeliVLCEncode4x4_JPEGXR_32s1u_C1R)
      (samples, 16, chroma, 0, &at.stream, &at.bitBuffer, &at.bitCount, &count, state);
      c.value(count);
      QELJ_FIND(c, qeliVLCScan4x4DC_JPEGXR_32s)(samples, 0, residual, pairs, &count, state);
      c.value(count);
      if (count > 0) QELJ_FIND(c, qeliVLCEncodeDC444_JPEGXR_32s1u)
      (pairs, count, chroma, &at.stream, &at.bitBuffer, &at.bitCount, state);
      QELJ_FIND(c, qeliVLCScanSet_JPEGXR)(state, scan);
    }
    c.bytes(bytes, size_t(at.stream - bytes)), c.value(at.bitBuffer);
  }
}

constexpr auto wholeState = [](auto*, Case& c) {
  const auto init = QELJ_FIND(c, qeliVLCInit_JPEGXR);
  const auto adapt = QELJ_FIND(c, qeliVLCAdapt_JPEGXR);
  const auto scanReset = QELJ_FIND(c, qeliVLCScanReset_JPEGXR);
  const auto scanSet = QELJ_FIND(c, qeliVLCScanSet_JPEGXR);
  const Domain<int32_t> groups{int32_t(c.in(0, 1)), {-1, 2}};
  const Domain<int32_t> resets{int32_t(c.in(0, 2)), {-1, 3}};
  const Domain<uint32_t> scans{uint32_t(c.in(0, 2)), {3, 0xFFFFFFFF}};
  const State state(c);
  VLCState* record = state;
  c.call(init, record);
  for (int i = 0; i < 3; ++i) scanReset(state, i);
  probe(c, state);
  onStream<uint8_t>(c, Bytes(kRoom), [&](const State& used, Position<uint8_t>& at) {
    const Content content(c);
    VLCState* worn = used;
    for (int i = 0; i < 24; ++i) {
      auto& block = content.block<int32_t>(c);
      int32_t count;
      QELJ_FIND(c, qeliVLCEncode4x4_JPEGXR_32s1u_C1R)
      (block.data(), block.step(), i & 1, 0, &at.stream, &at.bitBuffer, &at.bitCount, &count, worn);
      if (i % 8 == 7) c.call(adapt, worn, groups);
      if (i % 8 == 3) c.call(scanReset, worn, resets);
      if (i % 8 == 5) c.call(scanSet, worn, scans);
    }
    probe(c, used);
  });
};
QELJ_COMPARE(qeliVLCInit_JPEGXR, wholeState, 60);
QELJ_COMPARE(qeliVLCAdapt_JPEGXR, wholeState, 200);
QELJ_COMPARE(qeliVLCScanReset_JPEGXR, wholeState, 60);
QELJ_COMPARE(qeliVLCScanSet_JPEGXR, wholeState, 60);

QELJ_COMPARE(qeliVLCScan4x4DC_JPEGXR_32s, [](auto* scan, Case& c) {
  const State state(c);
  VLCState* record = state;
  state.start(uint32_t(c.in(0, 2)));
  const Content content(c);
  for (int i = 0; i < 30; ++i) {
    auto& src = c.rows<int32_t>(16);
    src.fill([&] { return content.coefficient<int32_t>(c); });
    auto& residual = c.rows<uint32_t>(16);
    auto& pairs = c.rows<int32_t>(30);
    const int64_t modelBits = c.in(0, 15);
    int32_t count = 0;
    c.call(scan, src.data(), lowBits(c.chance(50) ? 0 : modelBits), residual.data(), pairs.data(), &count, record);
    c.value(count);
    state.between(c);
  }
  probe(c, state);
});

// --- block coders ------------------------------------------------------------------------------------------

template <class T, bool kFlex>
constexpr auto encode = [](auto* function, Case& c) {
  onStream<uint8_t>(c, Bytes(kRoom), [&](const State& state, Position<uint8_t>& at) {
    const Content content(c);
    VLCState* record = state;
    for (int i = 0; i < 40; ++i) {
      auto& src = content.block<T>(c);
      const auto chroma = int32_t(c.in(0, 1));
      const int64_t low = c.in(0, 15);
      const auto modelBits = lowBits(c.chance(40) ? 0 : c.chance(50) ? low >> 2 : low);
      int32_t count = 0;
      if constexpr (kFlex) {
        auto& residual = c.rows<uint32_t>(16);
        const int64_t trim = c.in(0, 15);
        c.call(function, src.data(), src.step(), chroma, modelBits, lowBits(c.chance(50) ? 0 : trim), residual.data(),
               at.streams(), &at.bitBuffer, at.counts(), &count, record);
      } else {
        c.call(function, src.data(), src.step(), chroma, modelBits, at.streams(), &at.bitBuffer, at.counts(), &count,
               record);
      }
      c.value(count);
      state.between(c);
    }
    probe(c, state);
  });
};
QELJ_COMPARE(qeliVLCEncode4x4_JPEGXR_16s1u_C1R, encode<int16_t, false>, 800);
QELJ_COMPARE(qeliVLCEncode4x4_JPEGXR_32s1u_C1R, encode<int32_t, false>, 800);
QELJ_COMPARE(qeliVLCEncode4x4Flex_JPEGXR_16s1u_C1R, encode<int16_t, true>, 800);
QELJ_COMPARE(qeliVLCEncode4x4Flex_JPEGXR_32s1u_C1R, encode<int32_t, true>, 800);

// Coded blocks, or random bits, which are a corrupt stream sooner or later.
template <class T>
constexpr auto decode = [](auto* function, Case& c) {
  const Bytes bytes = c.chance(50) ? codedBytes<T>(c) : anyBytes(c);
  onStream<const uint8_t>(c, bytes, [&](const State& state, Position<const uint8_t>& at) {
    VLCState* record = state;
    for (int i = 0; i < 40; ++i) {
      auto& dst = c.rows<T>(4, 4);
      int32_t count = -1;
      const auto wide = T(c.random.bits() >> 40);
      const auto narrow = T(c.in(-3, 300));
      const T scale = c.chance(40) ? T(1) : c.chance(80) ? narrow : wide;
      const auto chroma = int32_t(c.in(0, 1));
      c.call(function, at.streams(), &at.bitBuffer, at.counts(), scale, dst.data(), dst.step(), chroma, &count, record);
      c.value(count);
      state.between(c);
    }
    probe(c, state);
  });
};
QELJ_COMPARE(qeliVLCDecode4x4_JPEGXR_1u16s_C1R, decode<int16_t>, 800);
QELJ_COMPARE(qeliVLCDecode4x4_JPEGXR_1u32s_C1R, decode<int32_t>, 800);

// Pairs that fit the block, or that may not fit it at all.
template <bool kChroma, int kMost>
constexpr auto encodeDC = [](auto* function, Case& c) {
  onStream<uint8_t>(c, Bytes(kRoom), [&](const State& state, Position<uint8_t>& at) {
    const Content content(c);
    VLCState* record = state;
    Domain<uint8_t**> streams{&at.stream, {nullptr}};  // the byte pointer is not tested here
    for (int i = 0; i < 40; ++i) {
      auto& pairs = c.rows<int32_t>(2 * kMost + 1);
      const bool wild = c.chance(10);
      int left = kMost;
      int count = 0;
      for (int k = 0; k < kMost; ++k) {
        const auto run = int32_t(c.in(0, c.chance(30) ? std::max(left - 1, 0) : std::clamp(left, 0, 3)));
        const auto level = content.coefficient<int32_t>(c);
        const auto any = int32_t(c.random.bits());
        pairs.set(2 * size_t(k), 0, wild ? any : run);
        pairs.set(2 * size_t(k) + 1, 0, level ? level : 1);
        left -= run + 1;
        if (left >= 0) ++count;
      }
      const auto drawn = int32_t(c.in(-1, kMost));
      const Domain<int32_t> counts{wild || c.chance(30) ? std::min(drawn, wild ? kMost : count) : count,
                                   {kMost + 1, INT32_MAX}};
      const auto chroma = int32_t(c.in(0, 1));
      if constexpr (kChroma)
        c.call(function, pairs.data(), counts, chroma, streams, &at.bitBuffer, at.counts(), record);
      else c.call(function, pairs.data(), counts, streams, &at.bitBuffer, at.counts(), record);
      state.between(c);
    }
    probe(c, state);
  });
};
QELJ_COMPARE(qeliVLCEncodeDC444_JPEGXR_32s1u, encodeDC<true, 16>, 800);
QELJ_COMPARE(qeliVLCEncodeDC422_JPEGXR_32s1u, encodeDC<false, 14>, 800);
QELJ_COMPARE(qeliVLCEncodeDC420_JPEGXR_32s1u, encodeDC<false, 6>, 800);

template <bool kChroma, int kValues>
constexpr auto decodeDC = [](auto* function, Case& c) {
  const Bytes bytes = c.chance(50) ? codedBytes<int32_t>(c) : anyBytes(c);
  onStream<const uint8_t>(c, bytes, [&](const State& state, Position<const uint8_t>& at) {
    VLCState* record = state;
    for (int i = 0; i < 40; ++i) {
      auto& dst = c.rows<int32_t>(kValues);
      int32_t count = -1;
      const auto chroma = int32_t(c.in(0, 1));
      if constexpr (kChroma)
        c.call(function, at.streams(), &at.bitBuffer, at.counts(), dst.data(), chroma, &count, record);
      else c.call(function, at.streams(), &at.bitBuffer, at.counts(), dst.data(), &count, record);
      c.value(count);
      state.between(c);
    }
    probe(c, state);
  });
};
QELJ_COMPARE(qeliVLCDecodeDC444_JPEGXR_1u32s, decodeDC<true, 16>, 800);
QELJ_COMPARE(qeliVLCDecodeDC422_JPEGXR_1u32s, decodeDC<false, 14>, 800);
QELJ_COMPARE(qeliVLCDecodeDC420_JPEGXR_1u32s, decodeDC<false, 6>, 800);

template <class T, bool kDecoding>
constexpr auto fixedLength = [](auto* function, Case& c) {
  using Byte = std::conditional_t<kDecoding, const uint8_t, uint8_t>;
  onStream<Byte>(c, kDecoding ? anyBytes(c) : Bytes(kRoom), [&](const State&, Position<Byte>& at) {
    const Content content(c);
    for (int i = 0; i < 40; ++i) {
      auto& samples = content.block<T>(c);
      const auto flexBits = lowBits(c.in(0, 15));
      const auto form = int32_t(c.in(-1, 1));
      if constexpr (kDecoding) {
        const auto wide = T(c.random.bits());
        const T scale = c.chance(40) ? T(1) : c.chance(80) ? T(wide & 255) : wide;
        c.call(function, at.streams(), &at.bitBuffer, at.counts(), samples.data(), samples.step(), flexBits, scale,
               form);
      } else {
        auto& residual = c.rows<uint32_t>(16);
        if (c.chance(70)) residual.fill([&] { return c.random.bits() >> 48; });
        const auto trimBits = lowBits(c.in(0, 15));
        c.call(function, samples.data(), samples.step(), residual.data(), at.streams(), &at.bitBuffer, at.counts(),
               flexBits, trimBits, form);
      }
    }
  });
};
QELJ_COMPARE(qeliFLCEncode4x4_JPEGXR_16s1u_C1R, fixedLength<int16_t, false>);
QELJ_COMPARE(qeliFLCEncode4x4_JPEGXR_32s1u_C1R, fixedLength<int32_t, false>);
QELJ_COMPARE(qeliFLCDecode4x4_JPEGXR_1u16s_C1IR, fixedLength<int16_t, true>);
QELJ_COMPARE(qeliFLCDecode4x4_JPEGXR_1u32s_C1IR, fixedLength<int32_t, true>);

}  // namespace
}  // namespace qelj::test
