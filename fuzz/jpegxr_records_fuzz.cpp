// JPEG XR encoders, decoders, table adaptation and scans in any order on two states: states never filled, copied to
// another address, with numbers of any value behind their addresses, statuses that nobody heeds, lists of pairs that fit
// no block. Destinations and sources are exactly as long as the header says.
#include "jpegxr/state.h"
#include "support/fuzz.h"

namespace qelj::fuzz {
namespace {

struct State {
  Record<VLCState, qeliVLCGetStateSize_JPEGXR> record;
  bool filled = false;            // its addresses are the library's
  const State* scanOf = nullptr;  // whose scan is in use
  bool hasScan() const { return scanOf == this; }
  VLCState* get() { return record.get(); }
};

// The bit position of an encoder and of a decoder that follows it.
struct Bits {
  uint32_t buffer = 0;
  int32_t count = 0;
};

class Machine {
 public:
  explicit Machine(Input& input) : input_(input) {}
  void step();

 private:
  // code(stream, buffer, count) codes into `most` bytes; what it stores is appended to the stream.
  template <class Code>
  QelStatus encode(size_t most, Code code) {
    std::vector<uint8_t> dst(most);
    uint8_t* stream = dst.data();
    const Bits before = encoder_;
    const QelStatus s = code(&stream, &encoder_.buffer, &encoder_.count);
    const auto stored = size_t(stream - dst.data());
    FUZZ_EXPECT(stored <= most && encoder_.count >= 0 && encoder_.count <= 32);
    FUZZ_EXPECT(s == qelStatusOk ||
                (stored == 0 && encoder_.count == before.count && encoder_.buffer == before.buffer));
    coded_.insert(coded_.end(), dst.begin(), dst.begin() + int64_t(stored));
    return s;
  }
  // code(stream, buffer, count) decodes out of the next `margin` bytes; zeros follow the stream.
  template <class Code>
  QelStatus decode(size_t margin, Code code) {
    const size_t have = std::min(margin, coded_.size() - from_);
    std::vector<uint8_t> src(coded_.begin() + int64_t(from_), coded_.begin() + int64_t(from_ + have));
    src.resize(margin);
    const uint8_t* stream = src.data();
    const QelStatus s = code(&stream, &decoder_.buffer, &decoder_.count);
    FUZZ_EXPECT(stream >= src.data() && stream <= src.data() + margin - 16);
    FUZZ_EXPECT(decoder_.count >= 0 && decoder_.count <= 32);
    from_ = std::min(from_ + size_t(stream - src.data()), coded_.size());
    return s;
  }
  int32_t number() {
    const auto kind = int8_t(input_.take());
    return kind == 127 ? input_.take<int32_t>() : kind < 0 ? kind * (1 << (-kind % 24)) : kind / 8;
  }
  template <class T>
  std::vector<T> numbers(size_t n) {
    std::vector<T> all(n);
    for (T& x : all) x = T(number());
    return all;
  }
  // Four rows of four, with a gap behind each but the last.
  template <class T>
  void block(int op, int argument, State& state);

  Input& input_;
  State states_[2];
  std::vector<uint8_t> coded_;
  size_t from_ = 0;
  Bits encoder_, decoder_;
};

template <class T>
void Machine::block(int op, int argument, State& state) {
  constexpr bool kNarrow = sizeof(T) == 2;
  constexpr size_t kMost = kNarrow ? 58 : 98;
  constexpr int32_t kStep = 5 * sizeof(T);
  auto samples = numbers<T>(4 * 5 - 1);
  const uint32_t modelBits = input_.take() % 17, trimBits = input_.take() % 17;
  const int32_t chroma = argument & 1;
  int32_t found = 0;
  QelStatus s = qelStatusOk;
  const bool good = modelBits <= 15 && (trimBits <= 15 || op == 0);
  switch (op) {
    case 0:
      s = encode(kMost, [&](auto... at) {
        if constexpr (kNarrow)
          return qeliVLCEncode4x4_JPEGXR_16s1u_C1R(samples.data(), kStep, chroma, modelBits, at..., &found,
                                                   state.get());
        else
          return qeliVLCEncode4x4_JPEGXR_32s1u_C1R(samples.data(), kStep, chroma, modelBits, at..., &found,
                                                   state.get());
      });
      break;
    case 1: {
      std::vector<uint32_t> residual(16);
      s = encode(kMost, [&](auto... at) {
        if constexpr (kNarrow)
          return qeliVLCEncode4x4Flex_JPEGXR_16s1u_C1R(samples.data(), kStep, chroma, modelBits, trimBits,
                                                       residual.data(), at..., &found, state.get());
        else
          return qeliVLCEncode4x4Flex_JPEGXR_32s1u_C1R(samples.data(), kStep, chroma, modelBits, trimBits,
                                                       residual.data(), at..., &found, state.get());
      });
      encode(32, [&](auto... at) {
        if constexpr (kNarrow)
          return qeliFLCEncode4x4_JPEGXR_16s1u_C1R(samples.data(), kStep, residual.data(), at..., modelBits, trimBits,
                                                   argument & 2);
        else
          return qeliFLCEncode4x4_JPEGXR_32s1u_C1R(samples.data(), kStep, residual.data(), at..., modelBits, trimBits,
                                                   argument & 2);
      });
      break;
    }
    case 2:
      s = decode(112, [&](auto... at) {
        if constexpr (kNarrow)
          return qeliVLCDecode4x4_JPEGXR_1u16s_C1R(at..., T(trimBits), samples.data(), kStep, chroma, &found,
                                                   state.get());
        else
          return qeliVLCDecode4x4_JPEGXR_1u32s_C1R(at..., T(trimBits), samples.data(), kStep, chroma, &found,
                                                   state.get());
      });
      FUZZ_EXPECT(s == (state.hasScan() ? qelStatusOk : qelStatusContextMismatch));
      return;
    default:
      s = decode(48, [&](auto... at) {
        if constexpr (kNarrow)
          return qeliFLCDecode4x4_JPEGXR_1u16s_C1IR(at..., samples.data(), kStep, modelBits, T(trimBits), argument & 2);
        else
          return qeliFLCDecode4x4_JPEGXR_1u32s_C1IR(at..., samples.data(), kStep, modelBits, T(trimBits), argument & 2);
      });
      FUZZ_EXPECT(s == (modelBits <= 15 ? qelStatusOk : qelStatusOutOfRange));
      return;
  }
  FUZZ_EXPECT(found >= 0 && found <= 15);
  FUZZ_EXPECT(s == (!good ? qelStatusOutOfRange : state.hasScan() ? qelStatusOk : qelStatusContextMismatch));
}

void Machine::step() {
  const int code = input_.take() % 16, argument = input_.take();
  State &state = states_[argument >> 7], &other = states_[1 - (argument >> 7)];
  switch (code) {
    case 0:
      FUZZ_EXPECT(qeliVLCInit_JPEGXR(state.get()) == qelStatusOk);
      state.filled = true, state.scanOf = &state;
      break;
    case 1: {
      const int32_t scan = argument % 5 - 1;
      FUZZ_EXPECT((qeliVLCScanReset_JPEGXR(state.get(), scan) == qelStatusOk) == (scan >= 0 && scan <= 2));
      break;
    }
    case 2: {
      // Without tables the coders' way would be free.
      if (!state.filled) break;
      const auto scan = uint32_t(argument % 4);
      FUZZ_EXPECT((qeliVLCScanSet_JPEGXR(state.get(), scan) == qelStatusOk) == (scan <= 2));
      if (scan <= 2) state.scanOf = &state;
      break;
    }
    case 3: {
      const int32_t group = argument % 4 - 1;
      FUZZ_EXPECT((qeliVLCAdapt_JPEGXR(state.get(), group) == qelStatusOk) == (group == 0 || group == 1));
      break;
    }
    case 4:
      std::memcpy(static_cast<void*>(state.get()), other.get(), sizeof(VLCState));
      state.filled = other.filled, state.scanOf = other.scanOf;
      break;
    case 5: {
      // Anything in the place of all numbers, but those that name an entry's tables.
      VLCState& to = *state.get();
      for (auto& e : to.entry) {
        const int32_t alphabet = e.alphabet;
        e = {alphabet, number(), uint32_t(number()), number(), number()};
      }
      constexpr size_t kFrom = offsetof(VLCState, discriminant);
      const auto rest = input_.bytes(sizeof to - kFrom);
      std::memcpy(reinterpret_cast<uint8_t*>(&to) + kFrom, rest.data(), rest.size());
      break;
    }
    case 6: {
      if (!state.filled) break;
      const auto src = numbers<int32_t>(16);
      std::vector<uint32_t> residual(16);
      std::vector<int32_t> pairs(2 * 15);
      int32_t found = 0;
      const auto modelBits = uint32_t(argument % 17);
      const QelStatus s =
          qeliVLCScan4x4DC_JPEGXR_32s(src.data(), modelBits, residual.data(), pairs.data(), &found, state.get());
      FUZZ_EXPECT(s == (modelBits <= 15 ? qelStatusOk : qelStatusOutOfRange) && found >= 0 && found <= 15);
      if (s == qelStatusOk) state.scanOf = &state;
      encode(98, [&](auto... at) {
        return qeliVLCEncodeDC444_JPEGXR_32s1u(pairs.data(), found, argument >> 5 & 1, at..., state.get());
      });
      break;
    }
    case 7: {
      if (!state.filled) break;
      const auto count = argument % 19 - 1;
      const auto pairs = numbers<int32_t>(2 * 16);
      const QelStatus s = encode(124, [&](auto... at) {
        switch (argument >> 5 & 3) {
          case 0:
            return qeliVLCEncodeDC420_JPEGXR_32s1u(pairs.data(), count, at..., state.get());
          case 1:
            return qeliVLCEncodeDC422_JPEGXR_32s1u(pairs.data(), count, at..., state.get());
          default:
            return qeliVLCEncodeDC444_JPEGXR_32s1u(pairs.data(), count, argument & 1, at..., state.get());
        }
      });
      FUZZ_EXPECT(s == qelStatusOk || s == qelStatusOutOfRange);
      break;
    }
    case 8: {
      if (!state.filled) break;
      int32_t found = 0;
      std::vector<int32_t> dst(argument & 1 ? 14 : 6), wide(16);
      const QelStatus s =
          decode(argument & 2   ? 112
                 : argument & 1 ? 106
                                : 56,
                 [&](auto... at) {
                   if (argument & 2)
                     return qeliVLCDecodeDC444_JPEGXR_1u32s(at..., wide.data(), argument & 4, &found, state.get());
                   return argument & 1 ? qeliVLCDecodeDC422_JPEGXR_1u32s(at..., dst.data(), &found, state.get())
                                       : qeliVLCDecodeDC420_JPEGXR_1u32s(at..., dst.data(), &found, state.get());
                 });
      FUZZ_EXPECT(s == qelStatusOk && found >= 0 && found <= 16);
      break;
    }
    case 9: {
      // Any bytes follow in the stream, and the decoder begins anywhere.
      const auto more = input_.bytes(size_t(argument & 63));
      coded_.insert(coded_.end(), more.begin(), more.end());
      from_ = coded_.size() - std::min<size_t>(input_.take(), coded_.size());
      decoder_ = {};
      break;
    }
    default:
      if (code & 1) block<int16_t>((code - 10) / 2 + (argument & 16 ? 1 : 0), argument, state);
      else block<int32_t>((code - 10) / 2 + (argument & 16 ? 1 : 0), argument, state);
  }
}

}  // namespace

void run(Input input) {
  Machine machine(input);
  while (input.left() > 1) machine.step();
}

std::vector<Seed> seeds() {
  std::vector<Seed> all;
  const auto begin = [](Seed& seed) {
    seed.byte(0).byte(0);
    for (int scan = 0; scan < 3; ++scan) seed.byte(1).byte(1 + scan);
    seed.byte(2).byte(0);
  };
  const auto block = [](Seed& seed, int code, int argument) {
    seed.byte(code).byte(argument);
    for (int i = 0; i < 19; ++i) seed.byte((i * 37 + code) % 251);
    seed.byte(3).byte(1);
  };
  for (const int code : {10, 11, 12, 13}) {
    Seed seed;
    begin(seed);
    for (int times = 0; times < 3; ++times) block(seed, code, times & 1);
    seed.byte(9).byte(0).byte(255);
    for (int times = 0; times < 3; ++times) block(seed, 14 + code % 2, times & 1), seed.byte(3).byte(2);
    seed.byte(4).byte(0x80);
    block(seed, code, 0x80);
    seed.byte(2).byte(0x81);
    block(seed, code, 0x80);
    all.push_back(seed);
  }
  for (const int form : {0x00, 0x20, 0x40}) {
    Seed seed;
    begin(seed);
    for (int times = 0; times < 3; ++times) {
      seed.byte(6).byte(form + times);
      for (int i = 0; i < 16; ++i) seed.byte(i * 53 % 127);
      seed.byte(7).byte(form + 7);
      for (int i = 0; i < 32; ++i) seed.byte(i * 29 % 200);
    }
    seed.byte(9).byte(20);
    for (int i = 0; i < 20; ++i) seed.byte(i * i * 41);
    seed.byte(200);
    for (int times = 0; times < 6; ++times) seed.byte(8).byte(times).byte(3).byte(1);
    seed.byte(5).byte(0);
    for (int i = 0; i < 1100; ++i) seed.byte(i * i * 7);
    for (int times = 0; times < 6; ++times) seed.byte(8).byte(times), block(seed, 10 + times, 0), seed.byte(3).byte(2);
    all.push_back(seed);
  }
  // The last table index that there is, asked to rise.
  Seed seed;
  begin(seed);
  seed.byte(5).byte(0);
  for (int entry = 0; entry < 21; ++entry) seed.byte(127).put(INT32_MAX).byte(8).byte(0).byte(0);
  for (size_t i = offsetof(VLCState, discriminant); i < sizeof(VLCState); ++i) seed.byte(1);
  seed.byte(3).byte(1).byte(3).byte(2);
  all.push_back(seed);
  return all;
}

}  // namespace qelj::fuzz
