// Whole JPEG 2000 codestreams, memory to memory: the converter's format beside OpenJPEG. One tile, five levels,
// blocks of 64 x 64, one layer; lossless by the 5/3 wavelet, and the 9/7 wavelet at 2 bits a pixel. Each side
// decodes the peer's codestream.
#include <openjpeg.h>

#include <algorithm>
#include <cmath>

#include "format.h"
#include "support/pair.h"

namespace qelconv {
extern const Format kJpeg2000;
}

namespace qelj::bench {
namespace {

void expect(bool success, const char* what) {
  if (!success) std::printf("the peer failed: %s\n", what), std::exit(1);
}

// The peer's stream over a vector, which writing lets grow.
struct Memory {
  std::vector<uint8_t>* bytes;
  size_t position = 0;

  static Memory& of(void* data) { return *static_cast<Memory*>(data); }
  static OPJ_SIZE_T read(void* to, OPJ_SIZE_T count, void* data) {
    Memory& m = of(data);
    count = std::min(count, m.bytes->size() - m.position);
    if (count == 0) return OPJ_SIZE_T(-1);
    std::memcpy(to, m.bytes->data() + m.position, count);
    m.position += count;
    return count;
  }
  static OPJ_SIZE_T write(void* from, OPJ_SIZE_T count, void* data) {
    Memory& m = of(data);
    m.bytes->resize(std::max(m.bytes->size(), m.position + count));
    std::memcpy(m.bytes->data() + m.position, from, count);
    m.position += count;
    return count;
  }
  static OPJ_OFF_T skip(OPJ_OFF_T count, void* data) {
    of(data).position += size_t(count);
    return count;
  }
  static OPJ_BOOL seek(OPJ_OFF_T to, void* data) {
    of(data).position = size_t(to);
    return OPJ_TRUE;
  }
};
opj_stream_t* open(Memory& memory, bool input) {
  opj_stream_t* stream = opj_stream_create(1 << 20, input);
  opj_stream_set_user_data(stream, &memory, nullptr);
  opj_stream_set_user_data_length(stream, memory.bytes->size());
  opj_stream_set_read_function(stream, Memory::read);
  opj_stream_set_write_function(stream, Memory::write);
  opj_stream_set_skip_function(stream, Memory::skip);
  opj_stream_set_seek_function(stream, Memory::seek);
  return stream;
}

void encodeTheirs(const Photo& photo, double bitsPerPixel, std::vector<uint8_t>& file) {
  opj_cparameters_t p;
  opj_set_default_encoder_parameters(&p);
  p.tcp_numlayers = 1;
  p.cp_disto_alloc = 1;
  p.tcp_rates[0] = bitsPerPixel > 0 ? float(24 / bitsPerPixel) : 0;
  p.irreversible = bitsPerPixel > 0;
  p.tcp_mct = 1;

  opj_image_cmptparm_t parts[3] = {};
  for (auto& part : parts) {
    part.dx = part.dy = 1;
    part.w = OPJ_UINT32(photo.width), part.h = OPJ_UINT32(photo.height);
    part.prec = 8;
  }
  opj_image_t* image = opj_image_create(3, parts, OPJ_CLRSPC_SRGB);
  image->x1 = OPJ_UINT32(photo.width), image->y1 = OPJ_UINT32(photo.height);
  for (size_t i = 0; i < photo.rgb.size() / 3; ++i)
    for (size_t c = 0; c < 3; ++c) image->comps[c].data[i] = photo.rgb[3 * i + c];

  file.clear();
  Memory memory{&file};
  opj_stream_t* stream = open(memory, false);
  opj_codec_t* codec = opj_create_compress(OPJ_CODEC_J2K);
  expect(opj_setup_encoder(codec, &p, image) && opj_start_compress(codec, image, stream) && opj_encode(codec, stream) &&
             opj_end_compress(codec, stream),
         "encoding");
  opj_destroy_codec(codec);
  opj_stream_destroy(stream);
  opj_image_destroy(image);
}

void decodeTheirs(std::vector<uint8_t>& file, std::vector<uint8_t>& rgb) {
  opj_dparameters_t p;
  opj_set_default_decoder_parameters(&p);
  Memory memory{&file};
  opj_stream_t* stream = open(memory, true);
  opj_codec_t* codec = opj_create_decompress(OPJ_CODEC_J2K);
  opj_image_t* image = nullptr;
  expect(opj_setup_decoder(codec, &p) && opj_read_header(stream, codec, &image) && opj_decode(codec, stream, image) &&
             opj_end_decompress(codec, stream),
         "decoding");
  for (size_t i = 0; i < rgb.size() / 3; ++i)
    for (size_t c = 0; c < 3; ++c) rgb[3 * i + c] = uint8_t(std::clamp<OPJ_INT32>(image->comps[c].data[i], 0, 255));
  opj_destroy_codec(codec);
  opj_stream_destroy(stream);
  opj_image_destroy(image);
}

double psnr(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b) {
  double sum = 0;
  for (size_t i = 0; i < a.size(); ++i) sum += (a[i] - b[i]) * (a[i] - b[i]);
  return 10 * std::log10(255.0 * 255 * double(a.size()) / sum);
}

struct Case {
  Photo photo;
  qelconv::Image image;
  qelconv::Options options;
  std::vector<uint8_t> ours, theirs, decoded;
};

void bench(double bitsPerPixel, const std::string& how) {
  auto* c = new Case;
  c->photo = loadPhoto("raccoon.png");
  c->image = qelconv::Image(c->photo.width, c->photo.height, qelconv::Colour::rgb);
  c->image.data = c->photo.rgb;
  c->decoded.resize(c->photo.rgb.size());
  if (bitsPerPixel > 0) {
    c->options.set("irreversible", "");
    c->options.set("rate", std::to_string(bitsPerPixel));
  }
  qelconv::Stages stages;
  encodeTheirs(c->photo, bitsPerPixel, c->theirs);
  c->ours = qelconv::kJpeg2000.write(c->image, c->options, stages);
  decodeTheirs(c->ours, c->decoded);
  const auto decoded = qelconv::kJpeg2000.read(c->theirs, {}, stages).data;
  std::printf("%s: our codestream has %zu bytes (%.2f dB), the peer's %zu (%.2f dB)\n", how.c_str(), c->ours.size(),
              psnr(c->decoded, c->photo.rgb), c->theirs.size(), psnr(decoded, c->photo.rgb));
  if (bitsPerPixel == 0 && (c->decoded != c->photo.rgb || decoded != c->photo.rgb))
    std::printf("a lossless codestream lost something\n"), std::exit(1);

  const double megapixels = double(c->photo.width) * c->photo.height / 1e6;
  pair(
      "encode the photograph, " + how, megapixels, "MPix/s",
      [=] {
        qelconv::Stages s;
        c->ours = qelconv::kJpeg2000.write(c->image, c->options, s);
      },
      [=] { encodeTheirs(c->photo, bitsPerPixel, c->theirs); });
  pair(
      "decode the photograph, " + how, megapixels, "MPix/s",
      [=] {
        qelconv::Stages s;
        const auto image = qelconv::kJpeg2000.read(c->theirs, {}, s);
        benchmark::DoNotOptimize(image.data.data());
      },
      [=] { decodeTheirs(c->theirs, c->decoded); });
}

}  // namespace
}  // namespace qelj::bench

int main(int argc, char** argv) {
  qelj::bench::bench(0, "5/3, lossless");
  qelj::bench::bench(2, "9/7, 2 bits a pixel");
  return qelj::bench::runPairs(argc, argv);
}
