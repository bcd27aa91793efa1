// Tier-1 coding of photographs' lossless coefficients (RCT, five levels of the 5/3 wavelet, blocks of 64 x
// 64) beside the tier-1 coder of OpenJPEG, on the same picture. The peer's coder is an internal function: the
// linker's --wrap option hands us its calls while the peer works on the picture, and we repeat them while
// their data is alive. Both sides convert between coefficients in two's complement and the coder's own form,
// and tell rates and distortions.
#include <cstdlib>
#include <functional>
#include <utility>

#include "qelj.h"
#include "support/openjpeg_peer.h"

namespace {

using namespace qelj::bench;

constexpr int kLevels = 5, kBlock = 64, kStyle = 0x20;

std::function<void(std::function<void()>)> onEncode, onDecode;  // given: one more run of the peer's call

}  // namespace

// As the peer's release 2.5 declares them; all pointers are passed on as they are.
extern "C" {
int __real_opj_t1_encode_cblks(void* tcd, void* tile, void* tcp, const double* norms, uint32_t normCount);
int __wrap_opj_t1_encode_cblks(void* tcd, void* tile, void* tcp, const double* norms, uint32_t normCount);
void __real_opj_t1_decode_cblks(void* tcd, volatile int* ok, void* component, void* coding, void* events, void* mutex,
                                int checkTermination);
void __wrap_opj_t1_decode_cblks(void* tcd, volatile int* ok, void* component, void* coding, void* events, void* mutex,
                                int checkTermination);

int __wrap_opj_t1_encode_cblks(void* tcd, void* tile, void* tcp, const double* norms, uint32_t normCount) {
  const auto again = [=] { __real_opj_t1_encode_cblks(tcd, tile, tcp, norms, normCount); };
  const int result = __real_opj_t1_encode_cblks(tcd, tile, tcp, norms, normCount);
  if (const auto once = std::exchange(onEncode, nullptr)) once(again);
  return result;
}
void __wrap_opj_t1_decode_cblks(void* tcd, volatile int* ok, void* component, void* coding, void* events, void* mutex,
                                int checkTermination) {
  const auto again = [=] { __real_opj_t1_decode_cblks(tcd, ok, component, coding, events, mutex, checkTermination); };
  again();
  if (onDecode) onDecode(again);
}
}

namespace {

// --- ours --------------------------------------------------------------------------------------------------

struct Block {
  int32_t *data, width, height, subband, magnitudeBits;
  int32_t planes = 0, passes = 0;
  std::vector<uint8_t> bytes;
};

struct Picture {
  int32_t step = 0;
  std::vector<int32_t> planes[3];
  std::vector<Block> blocks;

  explicit Picture(const Photo& photo) : step(photo.width * 4) {
    std::vector<int32_t> pixels(photo.rgb.begin(), photo.rgb.end());
    for (auto& v : pixels) v -= 128;
    int32_t* to[3];
    for (int c = 0; c < 3; ++c) planes[c].resize(pixels.size() / 3), to[c] = planes[c].data();
    qeliRCTFwd_JPEG2K_32s_C3P3R(pixels.data(), photo.width * 12, to, step, {photo.width, photo.height});
    for (auto& plane : planes) {
      int32_t w = photo.width, h = photo.height;
      for (int level = 0; level < kLevels; ++level) {
        const QelRect rect{0, 0, w, h};
        int32_t bytes = 0;
        qeliWTGetBufSize_B53_JPEG2K_32s_C1IR(&rect, &bytes);
        std::vector<uint8_t> buffer(size_t(bytes) + 1);
        qeliWTFwd_B53_JPEG2K_32s_C1IR(plane.data(), step, &rect, buffer.data());
        const int32_t lw = (w + 1) / 2, lh = (h + 1) / 2;
        cut(plane.data() + lw, w - lw, lh, qelSubbandHL, 11);
        cut(plane.data() + ptrdiff_t(lh) * photo.width, lw, h - lh, qelSubbandLH, 11);
        cut(plane.data() + ptrdiff_t(lh) * photo.width + lw, w - lw, h - lh, qelSubbandHH, 12);
        w = lw, h = lh;
      }
      cut(plane.data(), w, h, qelSubbandLL, 10);
    }
  }

  void cut(int32_t* data, int32_t width, int32_t height, int32_t subband, int32_t bits) {
    for (int32_t y = 0; y < height; y += kBlock)
      for (int32_t x = 0; x < width; x += kBlock)
        blocks.push_back({data + ptrdiff_t(y) * (step / 4) + x,
                          std::min(kBlock, width - x),
                          std::min(kBlock, height - y),
                          subband,
                          bits,
                          0,
                          0,
                          {}});
  }
};

void encode(Picture& picture, QelEncodeStateJPEG2K* state) {
  static int32_t samples[kBlock * kBlock];
  static uint8_t bytes[4 * kBlock * kBlock];
  for (Block& b : picture.blocks) {
    for (int32_t y = 0; y < b.height; ++y)
      for (int32_t x = 0; x < b.width; ++x) {
        const int32_t v = b.data[ptrdiff_t(y) * (picture.step / 4) + x];
        samples[y * b.width + x] = std::abs(v) << (31 - b.magnitudeBits) | (v & INT32_MIN);
      }
    int32_t segments = 0, length = sizeof bytes, more = 0, rate = 0;
    double dist = 0;
    qeliEncodeLoadCodeBlock_JPEG2K_32s_C1R(samples, b.width * 4, {b.width, b.height}, state, b.subband, b.magnitudeBits,
                                           0, 0, kStyle, &b.planes, &b.passes, &segments);
    qeliEncodeStoreBits_JPEG2K_1u(bytes, &length, state, &more);
    for (int32_t p = 0; p < b.passes; ++p) {
      qeliEncodeGetRate_JPEG2K(state, p, &rate);
      qeliEncodeGetDist_JPEG2K(state, p, &dist);
    }
    b.bytes.assign(bytes, bytes + length);
  }
}

void decode(const Picture& picture, std::vector<uint8_t>& state) {
  static int32_t samples[kBlock * kBlock];
  static std::vector<int32_t> target;
  target.resize(picture.planes[0].size());
  for (const Block& b : picture.blocks) {
    if (!b.passes) continue;
    const auto length = uint32_t(b.bytes.size());
    qeliDecodeCodeBlock_JPEG2K_1u32s_C1R(b.bytes.data(), samples, b.width * 4, {b.width, b.height}, b.subband,
                                         uint32_t(b.planes + b.magnitudeBits - 31), uint32_t(b.passes), &length, 1, 0,
                                         nullptr, state.data());
    for (int32_t y = 0; y < b.height; ++y)
      for (int32_t x = 0; x < b.width; ++x) {
        const int32_t v = samples[y * b.width + x], m = v & INT32_MAX;
        target[size_t(y) * size_t(picture.step / 4) + size_t(x)] = v < 0 ? -m : m;
      }
  }
  keep(target.data());
}

}  // namespace

int main(int argc, char** argv) {
  begin(argc, argv);
  QelEncodeStateJPEG2K* state = nullptr;
  qeliEncodeInitAlloc_JPEG2K(&state, {kBlock, kBlock});
  int32_t stateBytes = 0;
  qeliDecodeGetBufSize_JPEG2K({kBlock, kBlock}, &stateBytes);
  std::vector<uint8_t> memory(static_cast<size_t>(stateBytes));
  const std::pair<const char*, Photo> photos[] = {{"raccoon", loadPhoto("raccoon.png")},
                                                  {"raccoon halved", halved(loadPhoto("raccoon.png"))},
                                                  {"coffee", loadPhoto("coffee.png")}};
  for (const bool decoding : {false, true}) {
    road(decoding ? "tier-1 decoding, lossless" : "tier-1 encoding, lossless", "MSample/s", "OpenJPEG",
         decoding ? 1.6 : 1.7);
    for (const auto& [name, photo] : photos) {
      if (!wanted(name)) continue;
      const double samples = photo.megapixels() * 3;
      Picture picture(photo);
      encode(picture, state);
      std::vector<uint8_t> file, decoded(photo.rgb.size());
      openjpegEncode(photo, 0, file);
      size_t ours = 0;
      for (const Block& b : picture.blocks) ours += b.bytes.size();
      const std::string note = text("bytes %zu, %zu with headers", ours, file.size());
      // Inside the peer's encoder, and inside its decoder at the last component, everything of the peer's is alive.
      if (decoding) {
        std::vector<std::function<void()>> components;
        onDecode = [&](std::function<void()> again) {
          components.push_back(std::move(again));
          if (components.size() != 3) return;
          row(
              name, samples, [&] { decode(picture, memory); },
              [&] {
                for (const auto& component : components) component();
              });
        };
        openjpegDecode(file, decoded);
        onDecode = nullptr;
      } else {
        onEncode = [&](std::function<void()> again) {
          row(name, samples, [&] { encode(picture, state); }, again, {}, note);
        };
        openjpegEncode(photo, 0, file);
      }
    }
  }
  qeliEncodeFree_JPEG2K(state);
  return finish();
}
