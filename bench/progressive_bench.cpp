// Progressive coding with the usual ten scans and optimised tables, beside libjpeg-turbo's
// jpeg_write_coefficients and jpeg_read_coefficients with the same scans; and the rows of lossless coding,
// which has no peer here.
//
// The coefficients are those of a photograph that the peer compressed, 4:2:0. All work is from memory to
// memory. The peer's time includes its object and the headers of the file; ours includes counting, tables,
// records and states of every scan, and, decoding, the memory of the blocks, zeroed, as the peer's does. The
// scans' bytes and the coefficients are held against the peer's before anything is measured.
#include "support/jpeg_peer.h"

namespace qelj::bench {
namespace {

template <class Record>
struct Storage {
  alignas(64) uint8_t bytes[1664];
  Record* get() { return reinterpret_cast<Record*>(bytes); }
};
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

std::unique_ptr<int16_t[]> decode(const Peer& peer, const Coded& coded) {
  std::unique_ptr<int16_t[]> blocks(new int16_t[peer.blocks.size()]());
  for (size_t n = 0; n < coded.scans.size(); ++n) {
    const Scan& scan = coded.scans[n];
    const uint8_t* src = coded.file.data() + scan.begin;
    const auto length = int32_t(coded.file.size() - scan.begin);
    const auto al = uint32_t(scan.al);
    Storage<QelDecodeHuffmanState> state;
    qeliDecodeHuffmanStateInit_JPEG_8u(state.get());
    int32_t pos = 0, marker = 0;
    int16_t last[4] = {};
    const auto each = [&](auto call) { peer.forEachBlock(scan.components, blocks.get(), call); };
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
  return blocks;
}

void measure(Peer& peer, int quality) {
  auto* coded = new Coded(peer.code(Coding::progressive));
  auto* out = new std::vector<uint8_t>(4 << 20);
  const auto ends = encode(peer, *coded, *out);
  for (size_t n = 0, begin = 0; n < ends.size(); begin = size_t(ends[n++])) {
    const Scan& s = coded->scans[n];
    require(size_t(ends[n]) - begin == s.end - s.begin &&
                std::equal(&(*out)[begin], &(*out)[size_t(ends[n])], &coded->file[s.begin]),
            "a scan");
  }
  require(std::equal(peer.blocks.begin(), peer.blocks.end(), decode(peer, *coded).get()), "the decoder");

  const double units = double(peer.blocks.size()) / 1e6;
  const std::string q = ", quality " + std::to_string(quality);
  pair(
      "progressive encode, optimised" + q, units, "Mcoef/s", [=, &peer] { encode(peer, *coded, *out); },
      [&peer] { benchmark::DoNotOptimize(peer.write(Coding::progressive)); });
  pair(
      "progressive decode" + q, units, "Mcoef/s", [=, &peer] { benchmark::DoNotOptimize(decode(peer, *coded)); },
      [=] { Peer::read(coded->file); });
}

// The photograph's colours as three planes of 8-bit samples in 16 bits.
struct Lossless {
  int width, height;
  std::vector<int16_t> planes[3], differences[3], back[3];
  std::vector<uint8_t> coded = std::vector<uint8_t>(16 << 20);
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
    require(std::equal(differences, differences + 3, back), "lossless coding");
    reconstruct(1);
    require(std::equal(planes, planes + 3, back), "lossless prediction");
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
  const Photo photo = loadPhoto("raccoon.png");
  measureQualities(photo, measure);
  Lossless rows(photo);
  const double pixels = double(photo.width) * photo.height / 1e6;
  for (int predictor : {1, 4, 7}) {
    const std::string p = ", predictor " + std::to_string(predictor);
    pair("lossless differences, RGB" + p, pixels, "MPix/s", [&rows, predictor] { rows.difference(predictor); });
    pair("lossless reconstruction, RGB" + p, pixels, "MPix/s", [&rows, predictor] { rows.reconstruct(predictor); });
  }
  pair("lossless rows, encode, RGB", pixels, "MPix/s", [&rows] { rows.encodeRows(); });
  pair("lossless rows, decode, RGB", pixels, "MPix/s", [&rows] { rows.decodeRows(); });
  return runPairs(argc, argv);
}
