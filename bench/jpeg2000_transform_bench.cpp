// JPEG 2000 component transforms and wavelets, beside OpenJPEG's and OpenJPH's on the same samples.
//
// OpenJPEG's library does not export its functions; its static archive has them, and the declarations are restated
// here. Its wavelets work in place, ours in place or from a tile to its bands. OpenJPH's kernels take a line a call and
// want it aligned, with room at both ends. The 5/3 wavelets' results are held against the peers'.
#include <cmath>
#include <cstring>
#include <random>
#include <type_traits>
#include <vector>

#include "qelj.h"
#include "support/openjph_peer.h"
#include "support/pair.h"

extern "C" {
// Three planes of n samples, transformed in place.
void opj_mct_encode(int32_t* c0, int32_t* c1, int32_t* c2, size_t n);
void opj_mct_decode(int32_t* c0, int32_t* c1, int32_t* c2, size_t n);
void opj_mct_encode_real(float* c0, float* c1, float* c2, size_t n);
void opj_mct_decode_real(float* c0, float* c1, float* c2, size_t n);

struct opj_thread_pool;
opj_thread_pool* opj_thread_pool_create(int threads);

// The members that the transforms of whole tiles read, and those in front of them.
struct opj_tcd_resolution {
  int32_t x0, y0, x1, y1;
  uint32_t pw, ph, numbands;
  struct Band {
    int32_t x0, y0, x1, y1;
    uint32_t bandno;
    void* precincts;
    uint32_t precincts_data_size;
    int32_t numbps;
    float stepsize;
  } bands[3];
  uint32_t win_x0, win_y0, win_x1, win_y1;
};
struct opj_tcd_tilecomp {
  int32_t x0, y0, x1, y1;
  uint32_t compno, numresolutions, minimum_num_resolutions;
  opj_tcd_resolution* resolutions;
  uint32_t resolutions_size;
  int32_t* data;
  int32_t ownsData;
  size_t data_size_needed, data_size;
  int32_t* data_win;
  uint32_t win_x0, win_y0, win_x1, win_y1;
  uint32_t numpix;
};
struct opj_tcd {
  int32_t tp_pos, tp_num;
  uint32_t cur_tp_num, cur_totnum_tp, cur_pino;
  void *tcd_image, *image, *cp, *tcp;
  uint32_t tcd_tileno;
  int32_t m_is_decoder;
  opj_thread_pool* thread_pool;
  uint32_t win_x0, win_y0, win_x1, win_y1;
  int32_t whole_tile_decoding;
  int32_t* used_component;
};
int32_t opj_dwt_encode(opj_tcd*, opj_tcd_tilecomp*);
int32_t opj_dwt_decode(opj_tcd*, opj_tcd_tilecomp*, uint32_t resolutions);
int32_t opj_dwt_encode_real(opj_tcd*, opj_tcd_tilecomp*);
int32_t opj_dwt_decode_real(opj_tcd*, opj_tcd_tilecomp*, uint32_t resolutions);
}

namespace {

using namespace qelj::bench;

struct Size {
  int width, height;
  std::string name() const { return std::to_string(width) + "x" + std::to_string(height); }
  double megapixels() const { return 1e-6 * width * height; }
};
// Powers of two, whose rows fall on the same lines of a cache, and others.
constexpr Size kSizes[] = {{64, 64}, {500, 500}, {512, 512}, {1000, 1000}, {4096, 4096}, {4099, 4093}};

template <class T>
Plane<T> samples(Size size, Layout layout = Layout::lines) {
  Plane<T> plane(size.width, size.height, layout);
  std::mt19937 random(1);
  plane.fill([&] { return T(int(random() % 256) - 128) * T(16); });
  return plane;
}

// Samples that are transformed in place again and again. From time to time they start anew, so that floats neither
// overflow nor fade.
template <class T>
struct Renewed {
  const Plane<T> first;
  Plane<T> now = first;
  int calls = 0;

  T* next() {
    if (std::is_floating_point_v<T> && ++calls % 32 == 0) now = first;
    return now.data();
  }
};

// OpenJPEG's tile of one level; it is dense in memory.
struct PeerTile {
  opj_tcd coder{};
  opj_tcd_resolution resolutions[2]{};
  opj_tcd_tilecomp component{};
  std::vector<int32_t> first, now;
  bool real;
  int calls = 0;

  PeerTile(Size size, bool isReal) : first(size_t(size.width) * size_t(size.height)), real(isReal) {
    coder.whole_tile_decoding = 1;
    coder.thread_pool = opj_thread_pool_create(0);
    for (int r = 0; r < 2; ++r) {
      resolutions[r].x1 = r ? size.width : (size.width + 1) / 2;
      resolutions[r].y1 = r ? size.height : (size.height + 1) / 2;
    }
    component.x1 = size.width, component.y1 = size.height;
    component.numresolutions = component.minimum_num_resolutions = 2;
    component.resolutions = resolutions;
    std::mt19937 random(1);
    for (int32_t& v : first) {
      v = (int(random() % 256) - 128) * 16;
      const auto f = float(v);
      if (real) std::memcpy(&v, &f, 4);
    }
    now = first;
    component.data = now.data();
  }
  template <class Function>
  void run(Function* function) {
    if (real && ++calls % 32 == 0) now = first;
    function(&coder, &component);
  }
};
int32_t decode(opj_tcd* t, opj_tcd_tilecomp* c) { return opj_dwt_decode(t, c, 2); }
int32_t decodeReal(opj_tcd* t, opj_tcd_tilecomp* c) { return opj_dwt_decode_real(t, c, 2); }

// The functions of one level of a tile, of one filter and type.
template <class T>
struct Filter {
  const char* name;
  bool real;  // the peer's arithmetic
  QelStatus (*bufferInPlace)(const QelRect*, int32_t*);
  QelStatus (*forwardInPlace)(T*, int32_t, const QelRect*, uint8_t*);
  QelStatus (*inverseInPlace)(T*, int32_t, const QelRect*, uint8_t*);
  QelStatus (*buffer)(const QelRect*, int32_t*);
  QelStatus (*forward)(const T*, int32_t, const QelRect*, T* const*, const int32_t*, uint8_t*);
  QelStatus (*inverse)(const T* const*, const int32_t*, T*, int32_t, const QelRect*, uint8_t*);
};
#define FILTER(filter, type)                                                                      \
  qeliWTGetBufSize_##filter##_JPEG2K_##type##_C1IR, qeliWTFwd_##filter##_JPEG2K_##type##_C1IR,    \
      qeliWTInv_##filter##_JPEG2K_##type##_C1IR, qeliWTGetBufSize_##filter##_JPEG2K_##type##_C1R, \
      qeliWTFwd_##filter##_JPEG2K_##type##_C1R, qeliWTInv_##filter##_JPEG2K_##type##_C1R

// A tile, its bands, and our way between them.
template <class T>
struct Tile {
  const Filter<T>& filter;
  QelRect rect;
  Plane<T> image;
  Plane<T> bands[4];
  Plane<T>* const pointers[4] = {&bands[0], &bands[1], &bands[2], &bands[3]};
  std::vector<uint8_t> work;

  Tile(const Filter<T>& f, Size size, Layout layout)
      : filter(f),
        rect{0, 0, size.width, size.height},
        image(samples<T>(size, layout)),
        bands{band(size, 0, 0), band(size, 0, 1), band(size, 1, 0), band(size, 1, 1)} {
    int32_t bytes = 0;
    f.buffer(&rect, &bytes);
    work.resize(size_t(bytes));
  }
  static Plane<T> band(Size size, int right, int down) {
    return {(size.width + 1 - right) / 2, (size.height + 1 - down) / 2};
  }
  void run(bool inverse) {
    T* const planes[] = {bands[0].data(), bands[1].data(), bands[2].data(), bands[3].data()};
    const int32_t steps[] = {bands[0].step(), bands[1].step(), bands[2].step(), bands[3].step()};
    if (inverse) filter.inverse(planes, steps, image.data(), image.step(), &rect, work.data());
    else filter.forward(image.data(), image.step(), &rect, planes, steps, work.data());
  }
  bool operator==(const Tile& t) const {
    return bands[0] == t.bands[0] && bands[1] == t.bands[1] && bands[2] == t.bands[2] && bands[3] == t.bands[3];
  }
};

// measure(size) for the sizes of a road, in which 64x64 may have a goal of its own.
template <class Measure>
void sizes(const std::string& name, const char* peer, double goal, double smallGoal, Measure measure) {
  for (const bool small : {true, false}) {
    road(name + (goal == smallGoal ? "" : small ? ", 64x64" : ", larger"), "MPix/s", peer, small ? smallGoal : goal);
    for (const Size size : kSizes) {
      const bool isSmall = size.width == 64;
      if ((goal == smallGoal ? small : small == isSmall) && wanted(size.name())) measure(size);
    }
  }
}

// Beside OpenJPEG, whose wavelets of a tile work in place and have no 16-bit samples.
template <class T>
void levels(const Filter<T>& f, double goal, double smallGoal, double inverseGoal) {
  for (const bool inverse : {false, true}) {
    const std::string name = f.name + std::string(inverse ? ", level, inverse" : ", level, forward");
    const double beyond = inverse ? inverseGoal : goal;
    const auto theirs = inverse ? (f.real ? decodeReal : decode) : (f.real ? opj_dwt_encode_real : opj_dwt_encode);
    sizes(name + ", in place", "OpenJPEG", beyond, smallGoal, [&](Size size) {
      const QelRect tile{0, 0, size.width, size.height};
      int32_t bytes = 0;
      f.bufferInPlace(&tile, &bytes);
      std::vector<uint8_t> work(size_t(bytes) + 1);
      Plane<T> x = samples<T>(size, Layout::dense);
      PeerTile peer(size, f.real);
      const auto ours = inverse ? f.inverseInPlace : f.forwardInPlace;
      row(
          size.name(), size.megapixels(), [&] { ours(x.data(), x.step(), &tile, work.data()); },
          [&] { peer.run(theirs); });
    });
    sizes(name + (inverse ? ", from bands" : ", to bands"), "OpenJPEG", beyond, smallGoal, [&](Size size) {
      Tile<T> tile(f, size, Layout::dense);
      tile.run(false);
      PeerTile peer(size, f.real);
      row(size.name(), size.megapixels(), [&] { tile.run(inverse); }, [&] { peer.run(theirs); });
    });
  }
}

// Beside OpenJPH's kernels, line by line to the bands and back.
void levelsBesideLines(const Filter<int32_t>& f) {
  for (const bool inverse : {false, true})
    sizes(f.name + std::string(inverse ? ", level, inverse, from bands, a line a call"
                                       : ", level, forward, to bands, a line a call"),
          "OpenJPH", 1.1, 1.1, [&](Size size) {
            Tile<int32_t> ours(f, size, Layout::lines), theirs(f, size, Layout::lines);
            ours.run(false), openjphForward(theirs.image, theirs.pointers);
            require(ours == theirs, f.name + (" level of " + size.name()) + " differs from the peer's");
            const Plane<int32_t> before = theirs.image;
            theirs.run(false), openjphInverse(theirs.pointers, theirs.image);
            require(theirs.image == before, f.name + (" level of " + size.name()) + " does not come back");
            row(
                size.name(), size.megapixels(), [&] { ours.run(inverse); },
                [&] {
                  if (inverse) openjphInverse(theirs.pointers, theirs.image);
                  else openjphForward(theirs.image, theirs.pointers);
                });
          });
}

// 256 rows between their bands, beside OpenJPH's kernel, a line a call. Both extend nothing but what they must: ours
// finds the extended samples in the rows, the peer makes its own.
using Lines = decltype(&ojph::local::avx2_rev_horz_wvlt_fwd_tx);
template <class T, class Forward, class Inverse>
void lines(const std::string& name, Forward* forward, Inverse* inverse, Lines theirForward, Lines theirInverse,
           double forwardGoal, double inverseGoal) {
  for (const bool back : {false, true}) {
    road(name + (back ? ", rows, inverse" : ", rows, forward"), "MPix/s", theirForward ? "OpenJPH" : "",
         theirForward ? back ? inverseGoal : forwardGoal : 0);
    for (const Size size : {Size{64, 256}, Size{500, 256}, Size{1024, 256}, Size{4096, 256}}) {
      struct Side {
        Renewed<T> image, low, high;
      };
      const Size half{size.width / 2, size.height};
      Side ours{{samples<T>(size)}, {samples<T>(half)}, {samples<T>(half)}}, theirs = ours;
      row(
          size.name(), size.megapixels(),
          [&] {
            const QelSize band{half.width, half.height};
            T *x = ours.image.next(), *low = ours.low.next(), *high = ours.high.next();
            const int32_t step = ours.image.now.step(), bandStep = ours.low.now.step();
            if (back) inverse(low, bandStep, high, bandStep, band, x, step, 0);
            else forward(x, step, low, bandStep, high, bandStep, band, 0);
          },
          !theirForward ? Work() : [&] {
            theirs.image.next(), theirs.low.next(), theirs.high.next();
            for (int y = 0; y < size.height; ++y) {
              auto x = line(theirs.image.now.row(y)), low = line(theirs.low.now.row(y));
              auto high = line(theirs.high.now.row(y));
              (back ? theirInverse : theirForward)(&x, &low, &high, unsigned(size.width), true);
            }
          });
    }
  }
}

// Columns: 128 rows a band.
template <class T, class Forward>
void columns(const std::string& name, Forward* forward) {
  road(name + ", columns, forward", "MPix/s");
  for (const int width : {64, 500, 1024}) {
    constexpr int kRows = 128, kBorder = 8;
    const Plane<T> x = samples<T>({width, 2 * kRows + 2 * kBorder}), low = samples<T>({width, kRows}), high = low;
    row(text("%dx%d", width, 2 * kRows), 2e-6 * kRows * width, [&] {
      forward(x.row(kBorder), x.step(), low.data(), low.step(), high.data(), high.step(), {width, kRows}, 0);
    });
  }
}

// A lifting step of rows in the nearest cache.
constexpr int kWidths[] = {64, 500, 1024};
template <class T, class Function>
void lift97(const std::string& name, Function* step) {
  road(name, "MPix/s");
  for (const int width : kWidths) {
    const Plane<T> r = samples<T>({width, 8});
    row(text("%d samples", width), 2e-6 * width,
        [&] { step(r.row(0), r.row(1), r.row(2), r.row(3), r.row(4), r.row(5), r.row(6), r.row(7), width); });
  }
}
void lift53() {
  using namespace ojph::local;
  road("5/3 32s, lifting step, forward", "MPix/s", "OpenJPH");
  for (const int width : kWidths) {
    const Plane<int32_t> r = samples<int32_t>({width, 6});
    row(
        text("%d samples", width), 2e-6 * width,
        [&] { qeliWTFwdColLift_B53_JPEG2K_32s_C1(r.row(0), r.row(1), r.row(2), r.row(3), r.row(4), r.row(5), width); },
        [&] {
          auto even = line(r.row(0)), odd = line(r.row(1)), next = line(r.row(2)), before = line(r.row(3));
          avx2_rev_vert_wvlt_fwd_predict(&even, &next, &odd, unsigned(width));
          avx2_rev_vert_wvlt_fwd_update(&before, &odd, &even, unsigned(width));
        });
  }
}

// Three dense planes in place.
template <class T>
void components(const std::string& name, QelStatus (*ours)(T* const[3], int32_t, QelSize),
                void (*peer)(T*, T*, T*, size_t)) {
  for (const bool cached : {true, false}) {
    road(name + (cached ? ", in cache" : ", from memory"), "MPix/s", "OpenJPEG", cached ? 1.5 : 1.0);
    for (const int size : {64, 128, 4096}) {
      if ((size < 4096) != cached) continue;
      // Both work on the same memory: where pages happen to lie counts at this speed.
      Renewed<T> x{samples<T>({size, 3 * size}, Layout::dense)};
      const size_t count = size_t(size) * size_t(size);
      Plane<T> copy(size, 3 * size, Layout::dense);
      const auto run = [&](bool mine) {
        T* const p = x.next();
        T* const planes[3] = {p, p + count, p + 2 * count};
        if (mine) ours(planes, size * int32_t(sizeof(T)), {size, size});
        else peer(planes[0], planes[1], planes[2], count);
      };
      run(true);
      Renewed<T> mine = x;
      x.now = x.first;
      run(false);
      for (size_t i = 0; i < 3 * count; ++i)
        require(std::fabs(double(mine.now.data()[i]) - double(x.now.data()[i])) < 0.1, name + " differs from the peer");
      row(
          text("%dx%d", size, size), double(count) / 1e6, [&] { run(true); }, [&] { run(false); },
          [&] { std::memcpy(copy.data(), x.now.data(), 3 * count * sizeof(T)); });
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  begin(argc, argv);
  const Filter<int32_t> b53{"5/3 32s", false, FILTER(B53, 32s)}, d97{"9/7 32s", true, FILTER(D97, 32s)};
  const Filter<int16_t> short53{"5/3 16s", false, FILTER(B53, 16s)}, short97{"9/7 16s", true, FILTER(D97, 16s)};
  using namespace ojph::local;
  lines<int32_t>("5/3 32s", qeliWTFwdRow_B53_JPEG2K_32s_C1R, qeliWTInvRow_B53_JPEG2K_32s_C1R, avx2_rev_horz_wvlt_fwd_tx,
                 avx2_rev_horz_wvlt_bwd_tx, 1.2, 1.05);
  levelsBesideLines(b53);
  lines<float>("9/7 float", qeliWTFwdRow_D97_JPEG2K_32f_C1R, qeliWTInvRow_D97_JPEG2K_32f_C1R,
               avx_irrev_horz_wvlt_fwd_tx, avx_irrev_horz_wvlt_bwd_tx, 1.3, 1.3);
  levels(d97, 1.8, 1.5, 1.5);
  levels(short97, 1.8, 1.5, 1.8);
  levels(b53, 0, 0, 0);
  levels(short53, 0, 0, 0);
  lines<int16_t>("5/3 16s", qeliWTFwdRow_B53_JPEG2K_16s_C1R, qeliWTInvRow_B53_JPEG2K_16s_C1R, nullptr, nullptr, 0, 0);
  columns<int32_t>("5/3 32s", qeliWTFwdCol_B53_JPEG2K_32s_C1R);
  columns<int16_t>("5/3 16s", qeliWTFwdCol_B53_JPEG2K_16s_C1R);
  columns<float>("9/7 float", qeliWTFwdCol_D97_JPEG2K_32f_C1R);
  lift53();
  lift97<float>("9/7 float, lifting step, forward", qeliWTFwdColLift_D97_JPEG2K_32f_C1);
  lift97<int32_t>("9/7 32s, lifting step, forward", qeliWTFwdColLift_D97_JPEG2K_32s_C1);
  lift97<int16_t>("9/7 16s, lifting step, forward", qeliWTFwdColLift_D97_JPEG2K_16s_C1);
  components<int32_t>("RCT forward", qeliRCTFwd_JPEG2K_32s_P3IR, opj_mct_encode);
  components<int32_t>("RCT inverse", qeliRCTInv_JPEG2K_32s_P3IR, opj_mct_decode);
  components<float>("ICT forward, float", qeliICTFwd_JPEG2K_32f_P3IR, opj_mct_encode_real);
  components<float>("ICT inverse, float", qeliICTInv_JPEG2K_32f_P3IR, opj_mct_decode_real);
  return finish();
}
