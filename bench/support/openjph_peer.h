// OpenJPH's AVX2 wavelet kernels, which its library exports: lines, and a level of the reversible wavelet made of them
// as its codec makes it, each line sent to its bands as soon as it is finished.
#ifndef QELJ_BENCH_OPENJPH_PEER_H
#define QELJ_BENCH_OPENJPH_PEER_H

#include <openjph/ojph_mem.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace ojph::local {
void avx2_rev_vert_wvlt_fwd_predict(const line_buf*, const line_buf*, line_buf* dst, ui32 count);
void avx2_rev_vert_wvlt_fwd_update(const line_buf*, const line_buf*, line_buf* dst, ui32 count);
void avx2_rev_vert_wvlt_bwd_predict(const line_buf*, const line_buf*, line_buf* dst, ui32 count);
void avx2_rev_vert_wvlt_bwd_update(const line_buf*, const line_buf*, line_buf* dst, ui32 count);
void avx2_rev_horz_wvlt_fwd_tx(line_buf* src, line_buf* low, line_buf* high, ui32 width, bool even);
void avx2_rev_horz_wvlt_bwd_tx(line_buf* dst, line_buf* low, line_buf* high, ui32 width, bool even);
void avx_irrev_horz_wvlt_fwd_tx(line_buf* src, line_buf* low, line_buf* high, ui32 width, bool even);
void avx_irrev_horz_wvlt_bwd_tx(line_buf* dst, line_buf* low, line_buf* high, ui32 width, bool even);
void avx2_rct_forward(const si32* r, const si32* g, const si32* b, si32* y, si32* cb, si32* cr, ui32 count);
void avx2_rct_backward(const si32* y, const si32* cb, const si32* cr, si32* r, si32* g, si32* b, ui32 count);
}  // namespace ojph::local

namespace qelj::bench {

// lines: rows aligned to 64 bytes, with 64 bytes at both ends that the kernels may read and write. dense: one row
// directly behind another.
enum class Layout { lines, dense };
template <class T>
struct Plane {
  int width, height;
  size_t pitch;  // in samples

  Plane(int w, int h, Layout layout = Layout::lines)
      : width(w),
        height(h),
        pitch(layout == Layout::dense ? size_t(w) : (size_t(w) * sizeof(T) + 191) / 64 * 64 / sizeof(T)),
        bytes_((pitch * size_t(h) * sizeof(T) + 127) / 64 * 64),
        memory_(std::aligned_alloc(64, bytes_)) {
    std::memset(memory_.get(), 0, bytes_);
  }
  T* row(int y) const { return static_cast<T*>(memory_.get()) + 64 / sizeof(T) + size_t(y) * pitch; }
  T* data() const { return row(0); }
  int32_t step() const { return int32_t(pitch * sizeof(T)); }
  template <class Make>
  void fill(Make make) {
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x) row(y)[x] = T(make());
  }
  bool operator==(const Plane& other) const {
    for (int y = 0; y < height; ++y)
      if (std::memcmp(row(y), other.row(y), size_t(width) * sizeof(T)) != 0) return false;
    return true;
  }
  // Between planes of the same size and layout.
  void operator=(const Plane& other) { std::memcpy(memory_.get(), other.memory_.get(), bytes_); }
  Plane(const Plane& other)
      : width(other.width),
        height(other.height),
        pitch(other.pitch),
        bytes_(other.bytes_),
        memory_(std::aligned_alloc(64, bytes_)) {
    *this = other;
  }

 private:
  struct Free {
    void operator()(void* p) const { std::free(p); }
  };
  size_t bytes_;
  std::unique_ptr<void, Free> memory_;
};

// The kernels take what they want of a line's pointers, which share their place.
template <class T>
ojph::line_buf line(T* row) {
  ojph::line_buf l{};
  l.i32 = reinterpret_cast<int32_t*>(row);
  return l;
}

// One level of the 5/3 wavelet of a tile at even coordinates, of two rows or more. Its lifting steps down the columns
// work in place on the image, as on the lines that the codec is handed; the bands are low, low across and high down,
// high across and low down, high.
inline void openjphForward(const Plane<int32_t>& image, Plane<int32_t>* const bands[4]) {
  using namespace ojph::local;
  const auto width = ojph::ui32(image.width);
  const int height = image.height;
  const auto out = [&](int y) {
    auto src = line(image.row(y)), low = line(bands[y % 2]->row(y / 2)), high = line(bands[2 + y % 2]->row(y / 2));
    avx2_rev_horz_wvlt_fwd_tx(&src, &low, &high, width, true);
  };
  for (int y = 0; y < height; y += 2) {
    const int above = y ? y - 1 : 1, below = y + 1 < height ? y + 1 : y - 1;
    auto even = line(image.row(y)), odd = line(image.row(below)), before = line(image.row(above));
    if (y + 1 < height) {
      const auto next = line(image.row(y + 2 < height ? y + 2 : y));
      avx2_rev_vert_wvlt_fwd_predict(&even, &next, &odd, width);
    }
    avx2_rev_vert_wvlt_fwd_update(y ? &before : &odd, &odd, &even, width);
    out(y);
    if (y + 1 < height) out(y + 1);
  }
}
inline void openjphInverse(Plane<int32_t>* const bands[4], const Plane<int32_t>& image) {
  using namespace ojph::local;
  const auto width = ojph::ui32(image.width);
  const int height = image.height;
  const auto in = [&](int y) {
    auto dst = line(image.row(y)), low = line(bands[y % 2]->row(y / 2)), high = line(bands[2 + y % 2]->row(y / 2));
    avx2_rev_horz_wvlt_bwd_tx(&dst, &low, &high, width, true);
  };
  for (int y = 0; y < height; y += 2) {
    in(y);
    if (y + 1 < height) in(y + 1);
    auto even = line(image.row(y));
    const auto before = line(image.row(y ? y - 1 : 1)), after = line(image.row(y + 1 < height ? y + 1 : y - 1));
    avx2_rev_vert_wvlt_bwd_update(&before, &after, &even, width);
    if (y) {
      auto odd = line(image.row(y - 1));
      const auto previous = line(image.row(y - 2));
      avx2_rev_vert_wvlt_bwd_predict(&previous, &even, &odd, width);
    }
  }
  if (height % 2 == 0) {
    auto odd = line(image.row(height - 1));
    const auto even = line(image.row(height - 2));
    avx2_rev_vert_wvlt_bwd_predict(&even, &even, &odd, width);
  }
}

}  // namespace qelj::bench

#endif
