// Whole JPEG XR files, memory to memory: the converter's format beside libjxr, called as its command-line
// programs call it with overlap off. Spatial mode, one tile, 4:4:4; lossless, and one quantiser for all
// bands. Each side decodes the peer's file.
#include "format.h"
#include "support/pair.h"

// Last, for the words that it defines as macros.
#define __ANSI__ 1  // how the peer's headers ask for plain C types
#define INITGUID 1
extern "C" {
#include <JXRGlue.h>
}

namespace qelconv {
extern const Format kJpegXr;
}

namespace qelj::bench {
namespace {

void expect(ERR error) {
  if (error < 0) std::printf("the peer failed: %ld\n", long(error)), std::exit(1);
}

size_t encodeTheirs(const Photo& photo, int quantizer, std::vector<uint8_t>& file) {
  WMPStream* stream = nullptr;
  expect(CreateWS_Memory(&stream, file.data(), file.size()));
  PKImageEncode* encoder = nullptr;
  expect(PKImageEncode_Create_WMP(&encoder));
  CWMIStrCodecParam p{};
  const auto q = U8(quantizer);
  p.uiDefaultQPIndex = p.uiDefaultQPIndexYLP = p.uiDefaultQPIndexYHP = p.uiDefaultQPIndexU = p.uiDefaultQPIndexULP = q;
  p.uiDefaultQPIndexUHP = p.uiDefaultQPIndexV = p.uiDefaultQPIndexVLP = p.uiDefaultQPIndexVHP = q;
  p.uiDefaultQPIndexAlpha = 1;
  p.cfColorFormat = YUV_444;
  p.bdBitDepth = BD_LONG;
  p.bfBitstreamFormat = SPATIAL;
  p.olOverlap = OL_NONE;
  p.sbSubband = SB_ALL;
  expect(encoder->Initialize(encoder, stream, &p, sizeof p));
  expect(encoder->SetPixelFormat(encoder, GUID_PKPixelFormat24bppRGB));
  expect(encoder->SetSize(encoder, photo.width, photo.height));
  expect(encoder->SetResolution(encoder, 96, 96));
  expect(
      encoder->WritePixels(encoder, U32(photo.height), const_cast<uint8_t*>(photo.rgb.data()), U32(photo.width) * 3));
  size_t bytes = encoder->WMP.nOffImage + encoder->WMP.nCbImage;
  expect(encoder->Release(&encoder));
  return bytes;
}

void decodeTheirs(std::vector<uint8_t>& file, Photo& photo) {
  WMPStream* stream = nullptr;
  expect(CreateWS_Memory(&stream, file.data(), file.size()));
  PKImageDecode* decoder = nullptr;
  expect(PKImageDecode_Create_WMP(&decoder));
  expect(decoder->Initialize(decoder, stream));
  decoder->WMP.wmiSCP.bfBitstreamFormat = SPATIAL;
  decoder->WMP.wmiI.cROIWidth = decoder->WMP.wmiI.cWidth;
  decoder->WMP.wmiI.cROIHeight = decoder->WMP.wmiI.cHeight;
  const PKRect all = {0, 0, photo.width, photo.height};
  expect(decoder->Copy(decoder, &all, photo.rgb.data(), U32(photo.width) * 3));
  expect(decoder->Release(&decoder));
}

struct Case {
  qelconv::Image image;
  qelconv::Options options;
  std::vector<uint8_t> ours, theirs;
  Photo photo, decoded;
};

void bench(int quantizer, const std::string& how) {
  auto* c = new Case;
  c->photo = c->decoded = loadPhoto("raccoon.png");
  c->image = qelconv::Image(c->photo.width, c->photo.height, qelconv::Colour::rgb);
  c->image.data = c->photo.rgb;
  c->options.set("quantizer", std::to_string(quantizer));
  c->theirs.resize(c->photo.rgb.size() * 2);
  c->theirs.resize(encodeTheirs(c->photo, quantizer, c->theirs));
  qelconv::Stages stages;
  c->ours = qelconv::kJpegXr.write(c->image, c->options, stages);
  std::printf("%s: our file has %zu bytes, the peer's %zu\n", how.c_str(), c->ours.size(), c->theirs.size());
  if (qelconv::kJpegXr.read(c->theirs, {}, stages).data != (decodeTheirs(c->theirs, c->decoded), c->decoded.rgb))
    std::printf("the decoders differ\n"), std::exit(1);

  const double megapixels = double(c->photo.width) * c->photo.height / 1e6;
  pair(
      "encode the photograph, " + how, megapixels, "MPix/s",
      [=] {
        qelconv::Stages s;
        c->ours = qelconv::kJpegXr.write(c->image, c->options, s);
      },
      [=] {
        c->theirs.resize(c->photo.rgb.size() * 2);
        c->theirs.resize(encodeTheirs(c->photo, quantizer, c->theirs));
      });
  pair(
      "decode the photograph, " + how, megapixels, "MPix/s",
      [=] {
        qelconv::Stages s;
        const auto image = qelconv::kJpegXr.read(c->theirs, {}, s);
        benchmark::DoNotOptimize(image.data.data());
      },
      [=] { decodeTheirs(c->theirs, c->decoded); });
}

}  // namespace
}  // namespace qelj::bench

int main(int argc, char** argv) {
  qelj::bench::bench(1, "lossless");
  qelj::bench::bench(40, "quantiser 40");
  return qelj::bench::runPairs(argc, argv);
}
