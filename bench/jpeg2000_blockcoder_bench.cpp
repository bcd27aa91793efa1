// Block coding of a photograph's lossless coefficients (RCT, five levels of the 5/3 wavelet, blocks of 64 x
// 64) beside the tier-1 coder of OpenJPEG, on the same picture. The peer's coder is an internal function: the
// linker's --wrap option hands us its calls while the peer works on the picture, and we repeat them while
// their data is alive. Both sides convert between coefficients in two's complement and the coder's own form,
// and tell rates and distortions.
#include <openjpeg.h>

#include <algorithm>
#include <functional>
#include <utility>

#include "qelj.h"
#include "support/pair.h"

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

// --- the peer, memory to memory ----------------------------------------------------------------------------

struct Memory {
  std::vector<uint8_t> bytes;
  size_t at = 0;
};
opj_stream_t* openStream(Memory& memory, bool input) {
  opj_stream_t* s = opj_stream_create(1 << 20, input);
  opj_stream_set_user_data(s, &memory, nullptr);
  opj_stream_set_user_data_length(s, memory.bytes.size());
  opj_stream_set_read_function(s, [](void* to, OPJ_SIZE_T n, void* user) {
    auto& m = *static_cast<Memory*>(user);
    n = std::min(n, m.bytes.size() - m.at);
    std::memcpy(to, m.bytes.data() + m.at, n);
    m.at += n;
    return n ? n : OPJ_SIZE_T(-1);
  });
  opj_stream_set_write_function(s, [](void* from, OPJ_SIZE_T n, void* user) {
    auto& m = *static_cast<Memory*>(user);
    m.bytes.resize(std::max(m.bytes.size(), m.at + n));
    std::memcpy(m.bytes.data() + m.at, from, n);
    m.at += n;
    return n;
  });
  opj_stream_set_skip_function(s,
                               [](OPJ_OFF_T n, void* user) { return static_cast<Memory*>(user)->at += size_t(n), n; });
  opj_stream_set_seek_function(s, [](OPJ_OFF_T to, void* user) {
    static_cast<Memory*>(user)->at = size_t(to);
    return OPJ_BOOL(1);
  });
  return s;
}

Memory peerEncode(const Photo& photo) {
  opj_image_cmptparm_t component{};
  component.dx = component.dy = 1;
  component.w = OPJ_UINT32(photo.width), component.h = OPJ_UINT32(photo.height);
  component.prec = 8;
  opj_image_cmptparm_t components[3] = {component, component, component};
  opj_image_t* image = opj_image_create(3, components, OPJ_CLRSPC_SRGB);
  image->x1 = component.w, image->y1 = component.h;
  for (size_t c = 0; c < 3; ++c)
    for (size_t i = 0; i < photo.rgb.size() / 3; ++i) image->comps[c].data[i] = photo.rgb[3 * i + c];
  opj_cparameters_t parameters;
  opj_set_default_encoder_parameters(&parameters);
  parameters.tcp_mct = 1, parameters.tcp_numlayers = 1, parameters.cp_disto_alloc = 1;
  opj_codec_t* codec = opj_create_compress(OPJ_CODEC_J2K);
  opj_setup_encoder(codec, &parameters, image);
  Memory out;
  opj_stream_t* stream = openStream(out, false);
  if (!opj_start_compress(codec, image, stream) || !opj_encode(codec, stream) || !opj_end_compress(codec, stream))
    std::exit(1);
  opj_stream_destroy(stream), opj_destroy_codec(codec), opj_image_destroy(image);
  return out;
}

void peerDecode(Memory file) {
  file.at = 0;
  opj_dparameters_t parameters;
  opj_set_default_decoder_parameters(&parameters);
  opj_codec_t* codec = opj_create_decompress(OPJ_CODEC_J2K);
  opj_setup_decoder(codec, &parameters);
  opj_stream_t* stream = openStream(file, true);
  opj_image_t* image = nullptr;
  if (!opj_read_header(stream, codec, &image) || !opj_decode(codec, stream, image)) std::exit(1);
  opj_stream_destroy(stream), opj_destroy_codec(codec), opj_image_destroy(image);
}

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
  static std::vector<int32_t> target(picture.planes[0].size());
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
  benchmark::DoNotOptimize(target.data());
}

}  // namespace

int main(int argc, char** argv) {
  const Photo photo = loadPhoto("raccoon.png");
  const double samples = double(photo.width) * photo.height * 3 / 1e6;
  Picture picture(photo);
  QelEncodeStateJPEG2K* state = nullptr;
  qeliEncodeInitAlloc_JPEG2K(&state, {kBlock, kBlock});
  encode(picture, state);
  int32_t stateBytes = 0;
  qeliDecodeGetBufSize_JPEG2K({kBlock, kBlock}, &stateBytes);
  std::vector<uint8_t> memory(static_cast<size_t>(stateBytes));

  const Memory file = peerEncode(photo);
  size_t ours = 0;
  for (const Block& b : picture.blocks) ours += b.bytes.size();
  std::printf("coded bytes: qelj %zu in blocks, peer %zu with headers\n", ours, file.bytes.size());

  // Inside the peer's encoder, and inside its decoder at the last component, everything of the peer's is
  // alive.
  int result = 1;
  onEncode = [&](std::function<void()> peerEncodes) {
    std::vector<std::function<void()>> components;
    onDecode = [&](std::function<void()> peerDecodes) {
      components.push_back(std::move(peerDecodes));
      if (components.size() != 3) return;
      pair("encode code-blocks, lossless", samples, "MSample/s", [&] { encode(picture, state); }, peerEncodes);
      pair(
          "decode code-blocks, lossless", samples, "MSample/s", [&] { decode(picture, memory); },
          [&] {
            for (const auto& component : components) component();
          });
      result = runPairs(argc, argv);
    };
    peerDecode(file);
  };
  peerEncode(photo);
  qeliEncodeFree_JPEG2K(state);
  return result;
}
