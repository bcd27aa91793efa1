// The photo core transform beside libjxr's, and the coefficient coders.
//
// The peer transforms one block of sixteen 32-bit values a call, in an order of its own; ours takes
// macroblocks of 16x16 samples. Both sides repeat the transform in place on the same memory. The blocks that
// are coded are those of pictures' green, with all bits and with four bits split off.
#include <cstring>

#include "qelj.h"
#include "support/pair.h"
#include "support/pictures.h"

// Private entry points of the peer.
extern "C" {
void strDCT4x4Stage1(int32_t* block);
void strIDCT4x4Stage1(int32_t* block);
}

namespace qelj::bench {
namespace {

constexpr size_t kMacroblocks = 64;  // within the nearest cache

template <class T>
std::vector<T>& macroblocks() {
  static std::vector<T> samples(256 * kMacroblocks);
  for (size_t i = 0; i < samples.size(); ++i) samples[i] = T((i * 2654435761u >> 24) % 256 - 128);
  return samples;
}

template <class T>
void transform(const char* name, QelStatus (*transform)(T*, int32_t), void (*peer)(int32_t*)) {
  auto& ours = macroblocks<T>();
  static std::vector<int32_t> theirs(256 * kMacroblocks, 77);
  const Work peers = [&] {
    for (size_t i = 0; i < theirs.size(); i += 16) peer(&theirs[i]);
  };
  road(name, "Mblock/s", peer ? "libjxr" : "");
  row(
      "64 macroblocks", 16 * kMacroblocks / 1e6,
      [&] {
        for (size_t i = 0; i < kMacroblocks; ++i) transform(&ours[256 * i], 16 * sizeof(T));
      },
      peer ? peers : Work());
}

// A coder's record, stream and blocks.
struct Coding {
  std::vector<int16_t> blocks;  // 4x4 samples each
  std::vector<uint8_t> bytes;
  std::vector<uint8_t> record;
  uint32_t modelBits;
  uint8_t* out;
  const uint8_t* in;
  uint32_t bitBuffer;
  int32_t bitCount;
  std::vector<bool> coded;

  Coding(const Photo& photo, uint32_t split) : modelBits(split) {
    for (int y = 0; y + 4 <= photo.height; y += 4)
      for (int x = 0; x + 4 <= photo.width; x += 4) {
        int16_t block[16];
        for (int i = 0; i < 16; ++i) block[i] = int16_t(photo.row(y + i / 4)[3 * (x + i % 4) + 1] - 128);
        qeliPCTFwd_JPEGXR_16s_C1IR(block, 8, {4, 4});
        blocks.insert(blocks.end(), block, block + 16);
      }
    bytes.resize(blocks.size() * 4 + 64);
    int32_t size = 0;
    qeliVLCGetStateSize_JPEGXR(&size);
    record.resize(size_t(size));
  }
  VLCState* state() { return reinterpret_cast<VLCState*>(record.data()); }
  double count() const { return double(blocks.size() / 16); }
  void start() {
    qeliVLCInit_JPEGXR(state());
    for (int i = 0; i < 3; ++i) qeliVLCScanReset_JPEGXR(state(), i);
    qeliVLCScanSet_JPEGXR(state(), qelVLCScanHighPass);
    out = bytes.data(), in = bytes.data(), bitBuffer = 0, bitCount = 0;
  }
  void encode() {
    start();
    coded.clear();
    for (size_t i = 0; i < blocks.size(); i += 16) {
      if (i % 4096 == 0) qeliVLCAdapt_JPEGXR(state(), qelVLCGroupHighPass);
      int32_t pairs;
      if (modelBits) {
        uint32_t residual[16];
        qeliVLCEncode4x4Flex_JPEGXR_16s1u_C1R(&blocks[i], 8, 0, modelBits, 0, residual, &out, &bitBuffer, &bitCount,
                                              &pairs, state());
        qeliFLCEncode4x4_JPEGXR_16s1u_C1R(&blocks[i], 8, residual, &out, &bitBuffer, &bitCount, modelBits, 0, 1);
      } else {
        qeliVLCEncode4x4_JPEGXR_16s1u_C1R(&blocks[i], 8, 0, 0, &out, &bitBuffer, &bitCount, &pairs, state());
      }
      coded.push_back(pairs);
    }
    *out = uint8_t(bitBuffer >> 24), out[1] = uint8_t(bitBuffer >> 16);
  }
  void decode() {
    start();
    for (size_t i = 0; i < blocks.size(); i += 16) {
      if (i % 4096 == 0) qeliVLCAdapt_JPEGXR(state(), qelVLCGroupHighPass);
      int16_t block[16];
      int32_t pairs;
      if (coded[i / 16])
        qeliVLCDecode4x4_JPEGXR_1u16s_C1R(&in, &bitBuffer, &bitCount, int16_t(1 << modelBits), block, 8, 0, &pairs,
                                          state());
      else std::memset(block, 0, sizeof block);
      if (modelBits) qeliFLCDecode4x4_JPEGXR_1u16s_C1IR(&in, &bitBuffer, &bitCount, block, 8, modelBits, 1, 1);
    }
  }
};

void blocks(const std::string& how, uint32_t modelBits, double goal) {
  for (const bool decoding : {false, true}) {
    road((decoding ? "JPEG XR block decoding, " : "JPEG XR block encoding, ") + how, "cycles a block", "", goal);
    for (const CodedPicture& picture : codedPictures()) {
      if (!wanted(picture.name)) continue;
      Coding c(picture.make(), modelBits);
      c.encode();
      row(picture.name, c.count(), [&] { decoding ? c.decode() : c.encode(); });
    }
  }
}

}  // namespace
}  // namespace qelj::bench

int main(int argc, char** argv) {
  using namespace qelj::bench;
  begin(argc, argv);
  blocks("all bits", 0, 335);
  blocks("four bits fixed", 4, 0);
  transform<int32_t>("forward transform, 32-bit", qeliPCTFwd16x16_JPEGXR_32s_C1IR, strDCT4x4Stage1);
  transform<int32_t>("inverse transform, 32-bit", qeliPCTInv16x16_JPEGXR_32s_C1IR, strIDCT4x4Stage1);
  transform<int16_t>("forward transform, 16-bit (peer 32-bit)", qeliPCTFwd16x16_JPEGXR_16s_C1IR, strDCT4x4Stage1);
  transform<int16_t>("inverse transform, 16-bit (peer 32-bit)", qeliPCTInv16x16_JPEGXR_16s_C1IR, strIDCT4x4Stage1);
  transform<float>("forward transform, float", qeliPCTFwd16x16_JPEGXR_32f_C1IR, nullptr);
  transform<float>("inverse transform, float", qeliPCTInv16x16_JPEGXR_32f_C1IR, nullptr);
  return finish();
}
