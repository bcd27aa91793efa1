// Progressive coding with the usual ten scans and optimised tables, beside libjpeg-turbo's
// jpeg_write_coefficients and jpeg_read_coefficients with the same scans; and the rows of lossless coding,
// which has no peer here.
//
// The coefficients are those of pictures that the peer compressed, 4:2:0. All work is from memory to
// memory. The peer's time includes its object and the headers of the file; ours includes counting, tables,
// records and states of every scan, and, decoding, the zeroing of the blocks, as the peer's does. The
// scans' bytes and the coefficients are held against the peer's before anything is measured.
#include "support/jpeg_peer.h"

namespace qelj::bench {
namespace {

using EncodeState = Storage<QelEncodeHuffmanState>;
using EncodeSpec = Storage<QelEncodeHuffmanSpec>;
using DecodeSpec = Storage<QelDecodeHuffmanSpec>;

EncodeSpec makeTable(const int32_t* counts) {
  uint8_t bits[16], vals[256];
  EncodeSpec spec;
  qeliEncodeHuffmanRawTableInit_JPEG_8u(counts, bits, vals);
  qeliEncodeHuffmanSpecInit_JPEG_8u(bits, vals, spec.get());
  return spec;
}

// Two passes over a scan's blocks: count, then code.
void encodeScan(const Peer& peer, const Scan& scan, uint8_t* dst, int32_t length, int32_t& pos) {
  EncodeState state;
  qeliEncodeHuffmanStateInit_JPEG_8u(state.get());
  int16_t last[4] = {};
  const auto al = uint32_t(scan.al);
  const auto each = [&](auto call) { peer.forEachBlock(scan.components, peer.blocks.data(), call); };
  if (scan.ss == 0 && scan.ah != 0) {
    each([&](const int16_t* b, int) {
      qeliEncodeHuffman8x8_DCRefine_JPEG_16s1u_C1(b, dst, length, &pos, al, state.get(), 0);
    });
    qeliEncodeHuffman8x8_DCRefine_JPEG_16s1u_C1(nullptr, dst, length, &pos, al, state.get(), 1);
  } else if (scan.ss == 0) {
    int32_t counts[2][256] = {};
    each([&](const int16_t* b, int id) {
      qeliGetHuffmanStatistics8x8_DCFirst_JPEG_16s_C1(b, counts[peer.components[size_t(id)].dcTable], &last[id], al);
    });
    EncodeSpec specs[2] = {makeTable(counts[0]), makeTable(counts[1])};
    std::fill(last, last + 4, int16_t(0));
    each([&](const int16_t* b, int id) {
      qeliEncodeHuffman8x8_DCFirst_JPEG_16s1u_C1(b, dst, length, &pos, &last[id], al,
                                                 specs[peer.components[size_t(id)].dcTable].get(), state.get(), 0);
    });
    qeliEncodeHuffman8x8_DCFirst_JPEG_16s1u_C1(nullptr, dst, length, &pos, nullptr, al, nullptr, state.get(), 1);
  } else {
    int32_t counts[256] = {};
    const auto count =
        scan.ah ? qeliGetHuffmanStatistics8x8_ACRefine_JPEG_16s_C1 : qeliGetHuffmanStatistics8x8_ACFirst_JPEG_16s_C1;
    const auto encode =
        scan.ah ? qeliEncodeHuffman8x8_ACRefine_JPEG_16s1u_C1 : qeliEncodeHuffman8x8_ACFirst_JPEG_16s1u_C1;
    each([&](const int16_t* b, int) { count(b, counts, scan.ss, scan.se, al, state.get(), 0); });
    count(nullptr, counts, scan.ss, scan.se, al, state.get(), 1);
    EncodeSpec spec = makeTable(counts);
    each(
        [&](const int16_t* b, int) { encode(b, dst, length, &pos, scan.ss, scan.se, al, spec.get(), state.get(), 0); });
    encode(nullptr, dst, length, &pos, scan.ss, scan.se, al, spec.get(), state.get(), 1);
  }
}

std::vector<int32_t> encode(const Peer& peer, const Coded& coded, std::vector<uint8_t>& out) {
  std::vector<int32_t> ends;
  int32_t pos = 0;
  for (const Scan& scan : coded.scans) {
    encodeScan(peer, scan, out.data(), int32_t(out.size()), pos);
    ends.push_back(pos);
  }
  return ends;
}

void decode(const Peer& peer, const Coded& coded, std::vector<int16_t>& blocks) {
  std::fill(blocks.begin(), blocks.end(), int16_t(0));
  for (size_t n = 0; n < coded.scans.size(); ++n) {
    const Scan& scan = coded.scans[n];
    const uint8_t* src = coded.file.data() + scan.begin;
    const auto length = int32_t(coded.file.size() - scan.begin);
    const auto al = uint32_t(scan.al);
    Storage<QelDecodeHuffmanState> state;
    qeliDecodeHuffmanStateInit_JPEG_8u(state.get());
    int32_t pos = 0, marker = 0;
    int16_t last[4] = {};
    const auto each = [&](auto call) { peer.forEachBlock(scan.components, blocks.data(), call); };
    DecodeSpec specs[4];
    const auto table = [&](int i) -> DecodeSpec {
      DecodeSpec spec;
      const HuffmanLists& lists = coded.tables[n][size_t(i)];
      qeliDecodeHuffmanSpecInit_JPEG_8u(lists.bits, lists.vals, spec.get());
      return spec;
    };
    if (scan.ss == 0 && scan.ah != 0) {
      each([&](int16_t* b, int) {
        qeliDecodeHuffman8x8_DCRefine_JPEG_1u16s_C1(src, length, &pos, b, &marker, al, state.get());
      });
    } else if (scan.ss == 0) {
      for (int id : scan.components) specs[id] = table(scan.dcTable[size_t(id)]);
      each([&](int16_t* b, int id) {
        qeliDecodeHuffman8x8_DCFirst_JPEG_1u16s_C1(src, length, &pos, b, &last[id], &marker, al, specs[id].get(),
                                                   state.get());
      });
    } else {
      specs[0] = table(scan.acTable[size_t(scan.components[0])]);
      const auto band =
          scan.ah ? qeliDecodeHuffman8x8_ACRefine_JPEG_1u16s_C1 : qeliDecodeHuffman8x8_ACFirst_JPEG_1u16s_C1;
      each([&](int16_t* b, int) {
        band(src, length, &pos, b, &marker, scan.ss, scan.se, al, specs[0].get(), state.get());
      });
    }
  }
}

void scans() {
  const auto all = subjects({false}, {50, 85, 95});
  static std::vector<uint8_t> out(32 << 20);
  for (const bool reading : {false, true}) {
    const std::string name = reading ? "progressive reading" : "progressive writing, optimised";
    road(name, "Mcoef/s", "libjpeg-turbo", reading ? 1.7 : 1.9);
    for (const Subject& s : all) {
      if (!wanted(s.name())) continue;
      Peer& peer = s.peer();
      const Coded coded = peer.code(Coding::progressive);
      std::vector<int16_t> blocks(peer.blocks.size());
      const auto ends = encode(peer, coded, out);
      for (size_t n = 0, start = 0; n < ends.size(); start = size_t(ends[n++])) {
        const Scan& scan = coded.scans[n];
        require(size_t(ends[n]) - start == scan.end - scan.begin &&
                    std::equal(&out[start], &out[size_t(ends[n])], &coded.file[scan.begin]),
                "a scan differs from the peer's");
      }
      decode(peer, coded, blocks);
      require(blocks == peer.blocks, "the coefficients differ from the peer's");
      const double units = double(peer.blocks.size()) / 1e6;
      const std::string note = text("%.1f non-zero a block", peer.nonZeros());
      if (reading)
        row(s.name(), units, [&] { decode(peer, coded, blocks); }, [&] { Peer::read(coded.file); }, {}, note);
      else row(s.name(), units, [&] { encode(peer, coded, out); }, [&] { peer.write(Coding::progressive); }, {}, note);
    }
  }
}

// A picture's colours as three planes of 8-bit samples in 16 bits.
struct Lossless {
  int width, height;
  std::vector<int16_t> planes[3], differences[3], back[3];
  std::vector<uint8_t> coded = std::vector<uint8_t>(32 << 20);
  EncodeSpec encoder;
  DecodeSpec decoder;
  int32_t codedBytes = 0;

  explicit Lossless(const Photo& photo) : width(photo.width), height(photo.height) {
    int32_t counts[256] = {};
    for (int c = 0; c < 3; ++c) {
      for (size_t i = size_t(c); i < photo.rgb.size(); i += 3) planes[c].push_back(photo.rgb[i]);
      differences[c] = back[c] = planes[c];
    }
    difference(1);
    for (const auto& plane : differences)
      for (const int16_t& d : plane) qeliGetHuffmanStatisticsOne_JPEG_16s_C1(&d, counts);
    encoder = makeTable(counts);
    uint8_t bits[16], vals[256];
    qeliEncodeHuffmanRawTableInit_JPEG_8u(counts, bits, vals);
    qeliDecodeHuffmanSpecInit_JPEG_8u(bits, vals, decoder.get());
    encodeRows();
    decodeRows();
    require(std::equal(differences, differences + 3, back), "lossless coding fails");
    reconstruct(1);
    require(std::equal(planes, planes + 3, back), "lossless prediction fails");
  }
  void difference(int predictor) {
    for (int c = 0; c < 3; ++c) {
      qeliDiffPredFirstRow_JPEG_16s_C1(planes[c].data(), differences[c].data(), width, 8, 0);
      for (int y = 1; y < height; ++y)
        qeliDiffPredRow_JPEG_16s_C1(&planes[c][size_t(y) * size_t(width)], &planes[c][size_t(y - 1) * size_t(width)],
                                    &differences[c][size_t(y) * size_t(width)], width, predictor);
    }
  }
  void reconstruct(int predictor) {
    for (int c = 0; c < 3; ++c) {
      qeliReconstructPredFirstRow_JPEG_16s_C1(differences[c].data(), back[c].data(), width, 8, 0);
      for (int y = 1; y < height; ++y)
        qeliReconstructPredRow_JPEG_16s_C1(&differences[c][size_t(y) * size_t(width)],
                                           &back[c][size_t(y - 1) * size_t(width)], &back[c][size_t(y) * size_t(width)],
                                           width, predictor);
    }
  }
  void encodeRows() {
    EncodeState state;
    qeliEncodeHuffmanStateInit_JPEG_8u(state.get());
    const QelEncodeHuffmanSpec* tables[] = {encoder.get(), encoder.get(), encoder.get()};
    codedBytes = 0;
    for (int y = 0; y <= height; ++y) {
      const size_t row = size_t(y) * size_t(width);
      const int16_t* src[] = {differences[0].data() + row, differences[1].data() + row, differences[2].data() + row};
      qeliEncodeHuffmanRow_JPEG_16s1u_P4C1(src, width, 3, coded.data(), int32_t(coded.size()), &codedBytes, tables,
                                           state.get(), y == height);
    }
  }
  void decodeRows() {
    Storage<QelDecodeHuffmanState> state;
    qeliDecodeHuffmanStateInit_JPEG_8u(state.get());
    const QelDecodeHuffmanSpec* tables[] = {decoder.get(), decoder.get(), decoder.get()};
    int32_t pos = 0, marker = 0;
    for (int y = 0; y < height; ++y) {
      const size_t row = size_t(y) * size_t(width);
      int16_t* dst[] = {back[0].data() + row, back[1].data() + row, back[2].data() + row};
      qeliDecodeHuffmanRow_JPEG_1u16s_C1P4(coded.data(), codedBytes, &pos, dst, width, 3, &marker, tables, state.get());
    }
  }
};

}  // namespace
}  // namespace qelj::bench

int main(int argc, char** argv) {
  using namespace qelj::bench;
  begin(argc, argv);
  scans();
  // Rows of 1,000 samples and more, the last of an odd length.
  Photo odd = octaves(1001, 1000);
  std::pair<const char*, Lossless> pictures[] = {{"raccoon, rows of 1024", Lossless(loadPhoto("raccoon.png"))},
                                                 {"1/f noise, rows of 1001", Lossless(odd)},
                                                 {"coffee, rows of 2048", Lossless(codedPictures()[1].make())}};
  const auto each = [&](const std::string& name, double goal, auto call) {
    road(name, "MPix/s", "", goal);
    for (auto& [input, p] : pictures) row(input, 1e-6 * p.width * p.height, [&, q = &p] { call(*q); });
  };
  each("lossless rows, decoding RGB", 110, [](Lossless& p) { p.decodeRows(); });
  each("lossless rows, encoding RGB", 0, [](Lossless& p) { p.encodeRows(); });
  for (const int predictor : {1, 4, 7}) {
    each(text("lossless differences, RGB, predictor %d", predictor), 0, [=](Lossless& p) { p.difference(predictor); });
    each(text("lossless reconstruction, RGB, predictor %d", predictor), 0,
         [=](Lossless& p) { p.reconstruct(predictor); });
  }
  return finish();
}
