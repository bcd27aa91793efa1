#include <algorithm>

#include "support/compare.h"

namespace qelj::test {
namespace {

// Rows with runs of all lengths around the limits of a token (2, 3, 128) and literals with pairs inside.
void drawRuns(Case& c, uint8_t* data, size_t bytes) {
  for (size_t i = 0; i < bytes;) {
    const auto value = uint8_t(c.in(0, 3));
    const int64_t some = c.in(1, 40);
    const int64_t many = c.in(120, 300);
    for (int64_t n = c.of<int64_t>({1, 1, 1, 2, 3, some, many}); n > 0 && i < bytes; --n) data[i++] = value;
  }
}

QELJ_COMPARE(
    qeliPackBitsRow_TIFF_8u_C1,
    [](auto* pack, Case& c) {
      const int32_t length = c.extent(900);
      auto& src = c.rows<uint8_t>(length);
      if (c.chance(80)) drawRuns(c, src.data(), src.bytes());
      // Room for the worst row (a token byte for each 128 literals), for any part of it, or none behind the position.
      const int64_t room = c.chance(50) ? length + length / 128 + 2 : c.in(1, length + 10);
      auto& dst = c.rows<uint8_t>(room);
      const int64_t start = c.in(0, std::min<int64_t>(room + 1, 50));
      auto position = uint32_t(c.chance(50) ? 0 : c.chance(5) ? UINT32_MAX : start);
      c.call(pack, src.data(), Length{length}, dst.data(), &position, Length{int32_t(room)});
      c.value(position);
    },
    2000);

QELJ_COMPARE(
    qeliUnpackBitsRow_TIFF_8u_C1,
    [](auto* unpack, Case& c) {
      const int32_t length = c.extent(900);
      auto& src = c.rows<uint8_t>(length + 1);  // a run header as the last byte takes its value from behind the length
      if (c.chance(70))                         // tokens that follow one another
        for (int32_t i = 0; i < length;) {
          const auto header = int8_t(c.in(-128, 20));
          const int64_t longest = c.in(-128, 127);
          src.raw()[i] = uint8_t(c.chance(20) ? int8_t(longest) : header);
          const auto token = int8_t(src.raw()[i]);
          i += token == -128 ? 1 : token < 0 ? 2 : token + 2;
        }
      auto& dst = c.rows<uint8_t>(c.extent(5000));
      const int64_t start = c.in(0, length + 1);
      auto position = uint32_t(c.chance(60) ? 0 : c.chance(5) ? UINT32_MAX : start);
      c.call(unpack, src.data(), &position, Length{length}, dst.data(), Length{int32_t(dst.bytes())});
      c.value(position);
      c.now(dst);
      // What comes behind continues from there.
      c.call(unpack, src.data(), &position, Length{length}, dst.data(), Length{int32_t(dst.bytes())});
      c.value(position);
    },
    2000);

QELJ_COMPARE(qeliSplitRow_TIFF_16u8u_C1, [](auto* split, Case& c) {
  const int32_t length = c.extent(300);
  auto& src = c.rows<uint16_t>(length);
  auto& high = c.rows<uint8_t>(length);
  auto& low = c.rows<uint8_t>(length);
  uint8_t* const planes[] = {high.data(), low.data()};
  c.call(split, src.data(), &planes[0], Length{length});
});

QELJ_COMPARE(qeliJoinRow_TIFF_8u16u_C1, [](auto* join, Case& c) {
  const int32_t length = c.extent(300);
  auto& high = c.rows<uint8_t>(length);
  auto& low = c.rows<uint8_t>(length);
  auto& dst = c.rows<uint16_t>(length);
  const uint8_t* const planes[] = {high.data(), low.data()};
  c.call(join, &planes[0], dst.data(), Length{length});
});

}  // namespace
}  // namespace qelj::test
