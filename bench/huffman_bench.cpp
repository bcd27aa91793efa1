// Huffman coding of sequential scans, beside libjpeg-turbo's jpeg_write_coefficients and jpeg_read_coefficients.
//
// The coefficients are those of pictures that the peer compressed, one interleaved scan of some 100,000 blocks. All
// work is from memory to memory. The peer's time includes its object, the headers of the file (some 600 bytes) and,
// decoding, the zeroing of its coefficients; ours includes the table records and the state. "optimised" counts the
// symbols first and makes tables from the counts, on both sides. Encoders' bytes and decoders' coefficients are held
// against the peer's before anything is measured.
#include "support/jpeg_peer.h"

namespace qelj::bench {
namespace {

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
void decode(const Peer& peer, const Coded& coded, int16_t* blocks) {
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
  peer.forEachBlock(scan.components, blocks, [&](int16_t* block, int id) {
    const int t = peer.components[size_t(id)].dcTable;
    if constexpr (kDirect)
      qeliDecodeHuffman8x8_Direct_JPEG_1u16s_C1(src, &pos, block, &last[id], &marker, &bitBuffer, &bitCount,
                                                dc[t].get(), ac[t].get());
    else
      qeliDecodeHuffman8x8_JPEG_1u16s_C1(src, length, &pos, block, &last[id], &marker, dc[t].get(), ac[t].get(),
                                         state.get());
  });
}

using Run = void (*)(Peer&, const Coded&, std::vector<uint8_t>& out);
void runEncoder(Peer& peer, const Coded& coded, std::vector<uint8_t>& out) {
  Encoders e;
  makeEncoders(coded.tables[0], e);
  encode(peer, coded.scans[0], e, out);
}
void runDirectEncoder(Peer& peer, const Coded& coded, std::vector<uint8_t>& out) {
  Encoders e;
  makeEncoders(coded.tables[0], e);
  encodeDirect(peer, coded.scans[0], e, out);
}
void runOptimised(Peer& peer, const Coded& coded, std::vector<uint8_t>& out) {
  encodeOptimised(peer, coded.scans[0], out);
}

void encoders(const std::string& name, double goal, const std::vector<Subject>& all, Run ours, Coding coding) {
  road(name, "Mcoef/s", "libjpeg-turbo", goal);
  for (const Subject& s : all) {
    if (!wanted(s.name())) continue;
    Peer& peer = s.peer();
    const Coded coded = peer.code(coding);
    static std::vector<uint8_t> out(32 << 20);
    ours(peer, coded, out);
    const Scan& scan = coded.scans[0];
    require(std::equal(coded.file.begin() + std::ptrdiff_t(scan.begin), coded.file.begin() + std::ptrdiff_t(scan.end),
                       out.begin()),
            name + ": the scan differs from the peer's");
    row(
        s.name(), double(peer.blocks.size()) / 1e6, [&] { ours(peer, coded, out); }, [&] { peer.write(coding); }, {},
        text("%.1f non-zero a block", peer.nonZeros()));
  }
}

// With the memory of the coefficients made in each call, or kept where that can be done: the peer always makes its own.
template <bool kDirect>
void decoders(const std::string& name, double goal, const std::vector<Subject>& all, bool make) {
  road(name, "Mcoef/s", "libjpeg-turbo", goal);
  for (const Subject& s : all) {
    if (!wanted(s.name())) continue;
    Peer& peer = s.peer();
    const Coded coded = peer.code(Coding::baseline);
    std::vector<int16_t> kept(peer.blocks.size());
    decode<kDirect>(peer, coded, kept.data());
    // The Direct form may drop what stands in the last byte in front of the marker.
    const size_t sure = kDirect ? peer.offset(1) : kept.size();
    require(std::equal(kept.begin(), kept.begin() + std::ptrdiff_t(sure), peer.blocks.begin()),
            name + ": the coefficients differ from the peer's");
    row(
        s.name(), double(peer.blocks.size()) / 1e6,
        [&] {
          const std::unique_ptr<int16_t[]> made(make ? new int16_t[kept.size()] : nullptr);
          decode<kDirect>(peer, coded, make ? made.get() : kept.data());
        },
        [&] { Peer::read(coded.file); }, {}, text("%.1f non-zero a block", peer.nonZeros()));
  }
}

}  // namespace
}  // namespace qelj::bench

int main(int argc, char** argv) {
  using namespace qelj::bench;
  begin(argc, argv);
  const auto all = subjects({false, true}, {50, 75, 85, 95}), usual = subjects({false}, {85});
  allocate(Buffers::fresh);
  decoders<false>("Huffman decoding, fresh memory", 0, usual, true);
  allocate(Buffers::warm);
  encoders("Huffman encoding, 4:2:0 at 50 and 75", 1.0, subjects({false}, {50, 75}), runEncoder, Coding::baseline);
  encoders("Huffman encoding, 4:2:0 at 85 and 95", 1.15, subjects({false}, {85, 95}), runEncoder, Coding::baseline);
  encoders("Huffman encoding, 4:4:4", 1.15, subjects({true}, {50, 75, 85, 95}), runEncoder, Coding::baseline);
  encoders("Huffman encoding, Direct form", 0, usual, runDirectEncoder, Coding::baseline);
  encoders("Huffman encoding, optimised", 0, usual, runOptimised, Coding::optimised);
  decoders<false>("Huffman decoding", 1.2, all, false);
  decoders<true>("Huffman decoding, Direct form", 1.0, all, false);
  return finish();
}
