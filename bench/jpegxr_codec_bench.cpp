// Whole JPEG XR files, memory to memory: the converter's format beside libjxr, called as its command-line
// programs call it with overlap off. Spatial mode, one tile, 4:4:4; lossless, and one quantiser for all
// bands. Each side decodes the peer's file.
#include "format.h"
#include "support/pair.h"
#include "support/pictures.h"

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

void expect(ERR error) { require(error >= 0, "the peer fails"); }

// Into memory that is large enough; returns the file's size.
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

void decodeTheirs(std::vector<uint8_t>& file, size_t bytes, Photo& photo) {
  WMPStream* stream = nullptr;
  expect(CreateWS_Memory(&stream, file.data(), bytes));
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

void rows(int quantizer, const std::string& how, double goal) {
  for (const bool decoding : {false, true}) {
    road("whole JPEG XR, " + how + (decoding ? ", decoding" : ", encoding"), "MPix/s", "libjxr", goal);
    for (const char* name : {"raccoon", "coffee"}) {
      if (!wanted(name)) continue;
      const Photo photo = loadPhoto(name + std::string(".png"));
      Photo decoded = photo;
      qelconv::Image image(photo.width, photo.height, qelconv::Colour::rgb);
      image.data = photo.rgb;
      qelconv::Options options;
      options.set("quantizer", std::to_string(quantizer));
      options.set("overlap", "0");
      std::vector<uint8_t> theirs(photo.rgb.size() * 2);
      const size_t bytes = encodeTheirs(photo, quantizer, theirs);
      const std::vector<uint8_t> file(theirs.begin(), theirs.begin() + std::ptrdiff_t(bytes));
      qelconv::Stages stages;
      const auto ours = qelconv::kJpegXr.write(image, options, stages);
      const auto read = qelconv::kJpegXr.read(file, {}, stages).data;
      decodeTheirs(theirs, bytes, decoded);
      require(read == decoded.rgb, "the decoders differ");
      const std::string psnrs =
          quantizer == 1 ? ""
                         : text(", PSNR %.2f, %.2f dB", psnr(qelconv::kJpegXr.read(ours, {}, stages).data, photo.rgb),
                                psnr(read, photo.rgb));
      if (decoding)
        row(
            name, photo.megapixels(),
            [&] {
              qelconv::Stages s;
              keep(qelconv::kJpegXr.read(file, {}, s));
            },
            [&] { decodeTheirs(theirs, bytes, decoded); });
      else
        row(
            name, photo.megapixels(),
            [&] {
              qelconv::Stages s;
              keep(qelconv::kJpegXr.write(image, options, s));
            },
            [&] { encodeTheirs(photo, quantizer, theirs); }, {}, text("bytes %zu, %zu", ours.size(), bytes) + psnrs);
    }
  }
}

}  // namespace
}  // namespace qelj::bench

int main(int argc, char** argv) {
  using namespace qelj::bench;
  begin(argc, argv);
  rows(1, "lossless", 2.2);
  rows(40, "quantiser 40", 2.2);
  return finish();
}
