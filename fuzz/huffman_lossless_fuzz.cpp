// Lossless rows: a row at once against the same differences one by one, then the prediction undone.
#include "support/huffman.h"

namespace qelj::fuzz {

void run(Input input) {
  DecodeTable table[2];
  for (auto& t : table)
    if (!init(t, takeLists(input))) return;
  const int32_t width = input.in(1, 800), channels = input.in(1, 4), predictor = input.in(1, 7);
  // Long rows have a fast road of their own where all channels have one table.
  const QelDecodeHuffmanSpec* const other = table[width % 2].get();
  const QelDecodeHuffmanSpec* tables[] = {table[0].get(), other, other, table[0].get()};
  Stream rows(input.rest());
  Stream ones = rows;

  std::vector<int16_t> plane[4], single[4];
  auto above = std::vector<int16_t>(size_t(width)), restored = above;
  for (int32_t y = 0; y < 8; ++y) {
    int16_t* planes[4];
    for (int c = 0; c < 4; ++c) {
      plane[c].assign(size_t(width), 0), single[c].assign(size_t(width), 0);
      planes[c] = plane[c].data();
    }
    const int32_t from = rows.position;
    const QelStatus status = qeliDecodeHuffmanRow_JPEG_1u16s_C1P4(
        rows.data.data(), rows.length, &rows.position, planes, width, channels, &rows.marker, tables, rows.state.get());
    rows.expectInside(from);
    QelStatus one = qelStatusOk;
    for (int32_t x = 0; x < width && one == qelStatusOk; ++x)
      for (int32_t c = 0; c < channels && one == qelStatusOk; ++c)
        one = qeliDecodeHuffmanOne_JPEG_1u16s_C1(ones.data.data(), ones.length, &ones.position, &single[c][size_t(x)],
                                                 &ones.marker, tables[c], ones.state.get());
    FUZZ_EXPECT(status == one);
    if (status != qelStatusOk) return;
    for (int c = 0; c < 4; ++c) FUZZ_EXPECT(plane[c] == single[c]);
    FUZZ_EXPECT(rows.position == ones.position && rows.marker == ones.marker);

    if (y == 0) qeliReconstructPredFirstRow_JPEG_16s_C1(planes[0], restored.data(), width, 8, 0);
    else qeliReconstructPredRow_JPEG_16s_C1(planes[0], above.data(), restored.data(), width, predictor);
    above = restored;
  }
}

std::vector<Seed> seeds() {
  const auto coded = encode([](uint8_t* dst, int32_t length, int32_t* position, auto* table, auto* state) {
    for (int i = 0; i < 10 * 3 * 4; ++i) {
      const int16_t difference = int16_t(i * i * 31 % (1 << (i % 15)) - (1 << (i % 15)) / 2);
      qeliEncodeHuffmanOne_JPEG_16s1u_C1(&difference, dst, length, position, table, state, 0);
    }
    qeliEncodeHuffmanOne_JPEG_16s1u_C1(nullptr, dst, length, position, table, state, 1);
  });
  const std::vector<uint8_t> typical = {0, 1, 5, 1, 1, 1, 1, 1, 1, 0, 0,  0, 0, 0, 0, 0,  //
                                        0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
  return {Seed().byte(0).byte(0).in(1, 11).in(1, 3).in(1, 5).bytes(coded),
          Seed().byte(1).bytes(typical).byte(0).in(1, 400).in(1, 3).in(1, 5).bytes(coded)};
}

}  // namespace qelj::fuzz
