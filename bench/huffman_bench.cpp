// Huffman coding of sequential scans, beside libjpeg-turbo's jpeg_write_coefficients and
// jpeg_read_coefficients.
//
// The coefficients are those of a photograph that the peer compressed, 4:2:0, one interleaved scan. All work
// is from memory to memory. The peer's time includes its object, and the headers of the file (some 600
// bytes); ours includes the table records, the state, and, decoding, the memory of the blocks, as the peer's
// does. "optimised" counts the symbols first and makes tables from the counts, on both sides. Encoders' bytes
// and decoders' coefficients are held against the peer's before anything is measured.
#include "support/jpeg_peer.h"

namespace qelj::bench {
namespace {

template <class Record>
struct Storage {
  alignas(64) uint8_t bytes[1664];
  Record* get() { return reinterpret_cast<Record*>(bytes); }
};
struct Encoders {
  Storage<QelEncodeHuffmanSpec> dc[2], ac[2];
};

void makeEncoders(const std::array<HuffmanLists, 8>& lists, Encoders& e) {
  for (size_t i = 0; i < 2; ++i) {
    qeliEncodeHuffmanSpecInit_JPEG_8u(lists[i].bits, lists[i].vals, e.dc[i].get());
    qeliEncodeHuffmanSpecInit_JPEG_8u(lists[4 + i].bits, lists[4 + i].vals, e.ac[i].get());
  }
}

size_t encode(const Peer& peer, const Scan& scan, Encoders& e, std::vector<uint8_t>& out) {
  Storage<QelEncodeHuffmanState> state;
  qeliEncodeHuffmanStateInit_JPEG_8u(state.get());
  int32_t pos = 0;
  int16_t last[4] = {};
  peer.forEachBlock(scan.components, peer.blocks.data(), [&](const int16_t* block, int id) {
    const int t = peer.components[size_t(id)].dcTable;
    qeliEncodeHuffman8x8_JPEG_16s1u_C1(block, out.data(), int32_t(out.size()), &pos, &last[id], e.dc[t].get(),
                                       e.ac[t].get(), state.get(), 0);
  });
  qeliEncodeHuffman8x8_JPEG_16s1u_C1(nullptr, out.data(), int32_t(out.size()), &pos, nullptr, nullptr, nullptr,
                                     state.get(), 1);
  return size_t(pos);
}

size_t encodeDirect(const Peer& peer, const Scan& scan, Encoders& e, std::vector<uint8_t>& out) {
  int32_t pos = 0;
  int16_t last[4] = {};
  peer.forEachBlock(scan.components, peer.blocks.data(), [&](const int16_t* block, int id) {
    const int t = peer.components[size_t(id)].dcTable;
    qeliEncodeHuffman8x8_Direct_JPEG_16s1u_C1(block, out.data(), &pos, &last[id], e.dc[t].get(), e.ac[t].get());
  });
  if (pos & 7) out[size_t(pos >> 3)] |= uint8_t(0xFF >> (pos & 7));
  return size_t(pos + 7) / 8;
}

size_t encodeOptimised(const Peer& peer, const Scan& scan, std::vector<uint8_t>& out) {
  int32_t counts[4][256] = {};
  int16_t last[4] = {};
  peer.forEachBlock(scan.components, peer.blocks.data(), [&](const int16_t* block, int id) {
    const int t = peer.components[size_t(id)].dcTable;
    qeliGetHuffmanStatistics8x8_JPEG_16s_C1(block, counts[t], counts[2 + t], &last[id]);
  });
  std::array<HuffmanLists, 8> lists{};
  for (size_t i = 0; i < 2; ++i) {
    qeliEncodeHuffmanRawTableInit_JPEG_8u(counts[i], lists[i].bits, lists[i].vals);
    qeliEncodeHuffmanRawTableInit_JPEG_8u(counts[2 + i], lists[4 + i].bits, lists[4 + i].vals);
  }
  Encoders e;
  makeEncoders(lists, e);
  return encode(peer, scan, e, out);
}

template <bool kDirect>
std::unique_ptr<int16_t[]> decode(const Peer& peer, const Coded& coded) {
  std::unique_ptr<int16_t[]> blocks(new int16_t[peer.blocks.size()]);
  Storage<QelDecodeHuffmanSpec> dc[2], ac[2];
  const auto& lists = coded.tables[0];
  for (size_t i = 0; i < 2; ++i) {
    qeliDecodeHuffmanSpecInit_JPEG_8u(lists[i].bits, lists[i].vals, dc[i].get());
    qeliDecodeHuffmanSpecInit_JPEG_8u(lists[4 + i].bits, lists[4 + i].vals, ac[i].get());
  }
  Storage<QelDecodeHuffmanState> state;
  qeliDecodeHuffmanStateInit_JPEG_8u(state.get());
  const Scan& scan = coded.scans[0];
  const uint8_t* src = coded.file.data() + scan.begin;
  const auto length = int32_t(coded.file.size() - scan.begin);
  int32_t pos = 0, marker = 0, bitCount = 0;
  uint32_t bitBuffer = 0;
  int16_t last[4] = {};
  peer.forEachBlock(scan.components, blocks.get(), [&](int16_t* block, int id) {
    const int t = peer.components[size_t(id)].dcTable;
    if constexpr (kDirect)
      qeliDecodeHuffman8x8_Direct_JPEG_1u16s_C1(src, &pos, block, &last[id], &marker, &bitBuffer, &bitCount,
                                                dc[t].get(), ac[t].get());
    else
      qeliDecodeHuffman8x8_JPEG_1u16s_C1(src, length, &pos, block, &last[id], &marker, dc[t].get(), ac[t].get(),
                                         state.get());
  });
  return blocks;
}

void measure(Peer& peer, int quality) {
  auto* coded = new Coded(peer.code(Coding::baseline));
  auto* optimised = new Coded(peer.code(Coding::optimised));
  auto* out = new std::vector<uint8_t>(4 << 20);
  auto* encoders = new Encoders;
  makeEncoders(coded->tables[0], *encoders);
  const auto same = [&](size_t size, const Coded& c) {
    const Scan& s = c.scans[0];
    return size == s.end - s.begin &&
           std::equal(out->begin(), out->begin() + std::ptrdiff_t(size), c.file.begin() + std::ptrdiff_t(s.begin));
  };
  require(same(encode(peer, coded->scans[0], *encoders, *out), *coded), "the scan");
  require(same(encodeDirect(peer, coded->scans[0], *encoders, *out), *coded), "the scan (Direct)");
  require(same(encodeOptimised(peer, optimised->scans[0], *out), *optimised), "the optimised scan");
  require(std::equal(peer.blocks.begin(), peer.blocks.end(), decode<false>(peer, *coded).get()), "the decoder");
  // The Direct form may drop what stands in the last byte in front of the marker.
  require(std::equal(peer.blocks.begin(), peer.blocks.begin() + std::ptrdiff_t(peer.offset(1)),
                     decode<true>(peer, *coded).get()),
          "the Direct decoder");

  const double units = double(peer.blocks.size()) / 1e6;
  const std::string q = ", quality " + std::to_string(quality);
  const auto write = [&peer](Coding coding) {
    return [&peer, coding] { benchmark::DoNotOptimize(peer.write(coding)); };
  };
  const auto read = [coded] { Peer::read(coded->file); };
  pair(
      "encode" + q, units, "Mcoef/s",
      [=, &peer] {
        Encoders e;
        makeEncoders(coded->tables[0], e);
        encode(peer, coded->scans[0], e, *out);
      },
      write(Coding::baseline));
  pair(
      "encode, Direct" + q, units, "Mcoef/s",
      [=, &peer] {
        Encoders e;
        makeEncoders(coded->tables[0], e);
        encodeDirect(peer, coded->scans[0], e, *out);
      },
      write(Coding::baseline));
  pair(
      "encode, optimised" + q, units, "Mcoef/s", [=, &peer] { encodeOptimised(peer, coded->scans[0], *out); },
      write(Coding::optimised));
  pair("decode" + q, units, "Mcoef/s", [=, &peer] { benchmark::DoNotOptimize(decode<false>(peer, *coded)); }, read);
  pair(
      "decode, Direct" + q, units, "Mcoef/s", [=, &peer] { benchmark::DoNotOptimize(decode<true>(peer, *coded)); },
      read);
}

}  // namespace
}  // namespace qelj::bench

int main(int argc, char** argv) {
  using namespace qelj::bench;
  const Photo photo = loadPhoto("raccoon.png");
  measureQualities(photo, measure);
  return runPairs(argc, argv);
}
