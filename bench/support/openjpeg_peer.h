// Whole codestreams of OpenJPEG, memory to memory.
#ifndef QELJ_BENCH_OPENJPEG_PEER_H
#define QELJ_BENCH_OPENJPEG_PEER_H

#include <openjpeg.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "support/pair.h"
#include "support/pictures.h"

namespace qelj::bench {

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
inline opj_stream_t* open(Memory& memory, bool input) {
  opj_stream_t* stream = opj_stream_create(1 << 20, input);
  opj_stream_set_user_data(stream, &memory, nullptr);
  opj_stream_set_user_data_length(stream, memory.bytes->size());
  opj_stream_set_read_function(stream, Memory::read);
  opj_stream_set_write_function(stream, Memory::write);
  opj_stream_set_skip_function(stream, Memory::skip);
  opj_stream_set_seek_function(stream, Memory::seek);
  return stream;
}

// One tile, five levels, blocks of 64 x 64, one layer; 0 bits a pixel: lossless.
inline void openjpegEncode(const Photo& photo, double bitsPerPixel, std::vector<uint8_t>& file) {
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
  require(opj_setup_encoder(codec, &p, image) && opj_start_compress(codec, image, stream) &&
              opj_encode(codec, stream) && opj_end_compress(codec, stream),
          "the peer's encoding fails");
  opj_destroy_codec(codec);
  opj_stream_destroy(stream);
  opj_image_destroy(image);
}

inline void openjpegDecode(std::vector<uint8_t>& file, std::vector<uint8_t>& rgb) {
  opj_dparameters_t p;
  opj_set_default_decoder_parameters(&p);
  Memory memory{&file};
  opj_stream_t* stream = open(memory, true);
  opj_codec_t* codec = opj_create_decompress(OPJ_CODEC_J2K);
  opj_image_t* image = nullptr;
  require(opj_setup_decoder(codec, &p) && opj_read_header(stream, codec, &image) && opj_decode(codec, stream, image) &&
              opj_end_decompress(codec, stream),
          "the peer's decoding fails");
  for (size_t i = 0; i < rgb.size() / 3; ++i)
    for (size_t c = 0; c < 3; ++c) rgb[3 * i + c] = uint8_t(std::clamp<OPJ_INT32>(image->comps[c].data[i], 0, 255));
  opj_destroy_codec(codec);
  opj_stream_destroy(stream);
  opj_image_destroy(image);
}

}  // namespace qelj::bench

#endif
