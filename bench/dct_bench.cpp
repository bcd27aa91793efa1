// Forward and inverse DCT with quantisation, beside libjpeg-turbo's vector routines of the same transforms.
//
// Input is luma, block by block, of pictures and of random samples. Each call works on all blocks, which stay in the
// processor's cache. The peer's routines take a block by pointers to its rows, and divisors of its own form; what it
// needs besides (row pointers, sample conversion) is counted where our function does the same in one call.
#include <cstring>

#include "qelj.h"
#include "qelj_typical.h"
#include "support/pair.h"
#include "support/pictures.h"

// Private entry points of the peer's static library.
extern "C" {
void jsimd_convsamp_avx2(uint8_t** rows, unsigned startColumn, int16_t* workspace);
void jsimd_fdct_islow_avx2(int16_t* data);
void jsimd_quantize_avx2(int16_t* coefficients, int16_t* divisors, int16_t* workspace);
void jsimd_idct_islow_avx2(void* multipliers, int16_t* coefficients, uint8_t** rows, unsigned column);
void jsimd_idct_4x4_sse2(void* multipliers, int16_t* coefficients, uint8_t** rows, unsigned column);
void jsimd_idct_2x2_sse2(void* multipliers, int16_t* coefficients, uint8_t** rows, unsigned column);
}

namespace qelj::bench {
namespace {

constexpr int kQuality = 85;

struct Tables {
  uint16_t forward[64], inverse[64];
  alignas(32) int16_t divisors[4 * 64];  // the peer's: reciprocals, corrections, scales, shifts

  Tables() {
    uint8_t raw[64];
    std::memcpy(raw, qelTypicalQuantisers[0], 64);
    qeliQuantFwdRawTableInit_JPEG_8u(raw, kQuality);
    qeliQuantFwdTableInit_JPEG_8u16u(raw, forward);
    qeliQuantInvTableInit_JPEG_8u16u(raw, inverse);
    for (int i = 0; i < 64; ++i) {
      // Division by a 16-bit divisor through a 16-bit reciprocal: the shortest one that is exact.
      const uint32_t divisor = uint32_t(inverse[i]) << 3;  // its transform leaves a factor of 8
      int bits = 31 - __builtin_clz(divisor), shift = 16 + bits;
      uint32_t quotient = (uint32_t(1) << shift) / divisor;
      const uint32_t remainder = (uint32_t(1) << shift) % divisor;
      uint32_t correction = divisor / 2;
      if (remainder == 0) {
        quotient >>= 1;
        --shift;
      } else if (remainder <= divisor / 2) {
        ++correction;
      } else {
        ++quotient;
      }
      divisors[i] = int16_t(quotient);
      divisors[64 + i] = int16_t(correction);
      divisors[128 + i] = int16_t(1 << (32 - shift));
      divisors[192 + i] = int16_t(shift - 16);
    }
  }
};

// One plane of 8-bit samples and its blocks. 128 rows: blocks and samples stay in the processor's cache, as
// in a codec that works strip by strip.
constexpr int kHeight = 128;
struct Plane {
  int width;
  std::vector<uint8_t> samples;
  std::vector<uint8_t*> rows;  // the peer finds samples by pointers to rows, which a codec makes once

  Plane(int w, std::vector<uint8_t> s) : width(w), samples(std::move(s)) {
    for (int y = 0; y < kHeight; ++y) rows.push_back(samples.data() + ptrdiff_t(y) * width);
  }
  int blocks() const { return width / 8 * (kHeight / 8); }
  template <class Each>  // each(block number, y, x)
  void forEachBlock(Each each) {
    size_t number = 0;
    for (int y = 0; y < kHeight; y += 8)
      for (int x = 0; x < width; x += 8) each(number++, y, x);
  }
};

Plane luma(const Photo& photo) {
  std::vector<uint8_t> samples;
  for (int y = 0; y < kHeight; ++y)
    for (int x = 0; x < 1024; ++x) {
      const uint8_t* p = photo.row(y) + 3 * x;
      samples.push_back(uint8_t((p[0] * 77 + p[1] * 150 + p[2] * 29) >> 8));
    }
  return Plane(1024, std::move(samples));
}

struct alignas(32) Block {
  int16_t at[64];
};

// What the rows of one plane work on.
struct Subject {
  std::string name;
  Plane plane, decoded;
  std::vector<Block> coefficients, out;
  Tables tables;

  Subject(const std::string& n, Plane p) : name(n), plane(std::move(p)), decoded(plane.width, plane.samples) {
    coefficients.resize(size_t(plane.blocks()));
    out = coefficients;
    plane.forEachBlock([&](size_t i, int y, int x) {
      qeliDCTQuantFwd8x8LS_JPEG_8u16s_C1R(plane.rows[size_t(y)] + x, plane.width, coefficients[i].at, tables.forward);
    });
  }
};

void rows(std::vector<Subject>& all) {
  road("forward DCT, level shift, quantisation", "Mblock/s", "libjpeg-turbo", 1.7);
  for (Subject& s : all)
    row(
        s.name, s.plane.blocks() / 1e6,
        [&] {
          s.plane.forEachBlock([&](size_t i, int y, int x) {
            qeliDCTQuantFwd8x8LS_JPEG_8u16s_C1R(s.plane.rows[size_t(y)] + x, s.plane.width, s.out[i].at,
                                                s.tables.forward);
          });
        },
        [&] {
          Block workspace;
          s.plane.forEachBlock([&](size_t i, int y, int x) {
            jsimd_convsamp_avx2(&s.plane.rows[size_t(y)], unsigned(x), workspace.at);
            jsimd_fdct_islow_avx2(workspace.at);
            jsimd_quantize_avx2(s.out[i].at, s.tables.divisors, workspace.at);
          });
        });

  using Ours = QelStatus (*)(const int16_t*, uint8_t*, int32_t, const uint16_t*);
  using Theirs = void (*)(void*, int16_t*, uint8_t**, unsigned);
  struct Inverse {
    const char* name;
    Ours ours;
    Theirs theirs;
    double goal;
  };
  for (const Inverse& f : {
           Inverse{"inverse DCT", qeliDCTQuantInv8x8LS_JPEG_16s8u_C1R, jsimd_idct_islow_avx2, 1.9},
           {"inverse DCT to 4x4", qeliDCTQuantInv8x8To4x4LS_JPEG_16s8u_C1R, jsimd_idct_4x4_sse2, 1.3},
           {"inverse DCT to 2x2", qeliDCTQuantInv8x8To2x2LS_JPEG_16s8u_C1R, jsimd_idct_2x2_sse2, 1.0},
           {"inverse DCT of 4x4 coefficients", qeliDCTQuantInv8x8LS_4x4_JPEG_16s8u_C1R, nullptr, 0},
           {"inverse DCT of 2x2 coefficients", qeliDCTQuantInv8x8LS_2x2_JPEG_16s8u_C1R, nullptr, 0},
           {"inverse DCT of the DC", qeliDCTQuantInv8x8LS_1x1_JPEG_16s8u_C1R, nullptr, 0},
       }) {
    road(f.name, "Mblock/s", f.theirs ? "libjpeg-turbo" : "", f.goal);
    for (Subject& s : all) {
      const Work theirs = [&] {
        s.decoded.forEachBlock([&](size_t i, int y, int x) {
          f.theirs(s.tables.inverse, s.coefficients[i].at, &s.decoded.rows[size_t(y)], unsigned(x));
        });
      };
      row(
          s.name, s.plane.blocks() / 1e6,
          [&] {
            s.decoded.forEachBlock([&](size_t i, int y, int x) {
              f.ours(s.coefficients[i].at, s.decoded.rows[size_t(y)] + x, s.decoded.width, s.tables.inverse);
            });
          },
          f.theirs ? theirs : Work());
    }
  }
}

}  // namespace
}  // namespace qelj::bench

int main(int argc, char** argv) {
  using namespace qelj::bench;
  begin(argc, argv);
  std::vector<Subject> all;
  for (const CodedPicture& picture : codedPictures()) all.emplace_back(picture.name, luma(picture.make()));
  all.emplace_back("white noise", luma(noise(1024, kHeight)));
  rows(all);
  return finish();
}
