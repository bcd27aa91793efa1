// JPEG 2000 component transforms and wavelets beside OpenJPEG's, on the same samples. OpenJPEG's library
// doesn't export these functions; its static archive has them, and the declarations are restated here.
#include <cmath>
#include <random>
#include <utility>

#include "qelj.h"
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

template <class T>
T* plane(size_t count) {
  return static_cast<T*>(std::aligned_alloc(64, count * sizeof(T)));
}

// A copy of some samples that is transformed in place again and again. From time to time it starts anew, so
// that floats neither overflow nor fade.
template <class T>
struct Tile {
  size_t count;
  T *first = plane<T>(count), *now = plane<T>(count);
  int calls = 0;

  explicit Tile(size_t n) : count(n) {
    std::mt19937 random(1);
    for (size_t i = 0; i < n; ++i) first[i] = T(int(random() % 256) - 128) * T(16);
    restart();
  }
  void restart() { std::memcpy(now, first, count * sizeof(T)); }
  T* next() {
    if (std::is_floating_point_v<T> && ++calls % 64 == 0) restart();
    return now;
  }
};

// OpenJPEG's tile of one level.
struct PeerTile {
  opj_tcd coder{};
  opj_tcd_resolution resolutions[2]{};
  opj_tcd_tilecomp component{};

  explicit PeerTile(int size) {
    coder.whole_tile_decoding = 1;
    coder.thread_pool = opj_thread_pool_create(0);
    for (int r = 0; r < 2; ++r) resolutions[r].x1 = resolutions[r].y1 = r ? size : (size + 1) / 2;
    component.x1 = component.y1 = size;
    component.numresolutions = component.minimum_num_resolutions = 2;
    component.resolutions = resolutions;
  }
};

template <class T>
T* leak(T value) {
  return new T(value);  // benchmarks live as long as the program
}

void require(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "%s\n", what);
  std::exit(1);
}

using InPlace = decltype(&qeliWTFwd_B53_JPEG2K_32s_C1IR);

template <class T>
void tiles(const std::string& name, int size, InPlace ours, int32_t (*peer)(opj_tcd*, opj_tcd_tilecomp*),
           bool samePeer) {
  const size_t count = size_t(size) * size_t(size);
  auto* mine = leak(Tile<int32_t>(count));
  auto* theirs = leak(Tile<T>(count));
  auto* copy = plane<int32_t>(count);
  auto* peerTile = new PeerTile(size);
  auto* work = new std::vector<uint8_t>(size_t(size) * 4 + 32);
  const auto runOurs = [=] {
    const QelRect tile{0, 0, size, size};
    ours(mine->next(), size * 4, &tile, work->data());
  };
  const auto runPeer = [=] {
    peerTile->component.data = reinterpret_cast<int32_t*>(theirs->next());
    require(peer(&peerTile->coder, &peerTile->component), "the peer failed");
  };
  if (samePeer) {
    runOurs(), runPeer();
    require(!std::memcmp(mine->now, theirs->now, count * 4), "the peer's coefficients differ");
  }
  pair(name + ", " + std::to_string(size) + "x" + std::to_string(size), double(count) / 1e6, "MPix/s", runOurs, runPeer,
       [=] { std::memcpy(copy, mine->now, count * 4); });
}

template <class T, class Ours>
void components(const std::string& name, int size, Ours ours, void (*peer)(T*, T*, T*, size_t)) {
  const size_t count = size_t(size) * size_t(size);
  auto* mine = leak(Tile<T>(3 * count));
  auto* theirs = leak(Tile<T>(3 * count));
  auto* copy = plane<T>(3 * count);
  const auto runOurs = [=] {
    T* const x = mine->next();
    T* const planes[3] = {x, x + count, x + 2 * count};
    ours(planes, size * 4, {size, size});
  };
  const auto runPeer = [=] {
    T* const x = theirs->next();
    peer(x, x + count, x + 2 * count, count);
  };
  runOurs(), runPeer();
  for (size_t i = 0; i < 3 * count; ++i)
    require(std::fabs(double(mine->now[i]) - double(theirs->now[i])) < 0.1, "the peer's components differ");
  // From here on both work on the same memory: where pages happen to lie counts at this speed.
  std::free(std::exchange(theirs->first, mine->first));
  std::free(std::exchange(theirs->now, mine->now));
  pair(name + ", " + std::to_string(size) + "x" + std::to_string(size), double(count) / 1e6, "MPix/s", runOurs, runPeer,
       [=] { std::memcpy(copy, mine->now, 3 * count * sizeof(T)); });
}

// Functions without a peer: rows of 512 samples a band with their borders, and columns.
template <class T, class Function>
void region(const std::string& name, Function* forward, bool down) {
  constexpr int kLength = 1024, kLines = 256, kBorder = 8;
  constexpr size_t kPitch = kLength + 2 * kBorder;
  auto* x = leak(Tile<T>(kPitch * kPitch));
  T *low = plane<T>(kPitch * kPitch), *high = plane<T>(kPitch * kPitch), *copy = plane<T>(kPitch * kPitch);
  const QelSize size = down ? QelSize{kLines, kLength / 2} : QelSize{kLength / 2, kLines};
  constexpr auto kStep = int32_t(kPitch * sizeof(T));
  pair(
      name, double(kLength) * kLines / 1e6, "MPix/s",
      [=] { forward(x->now + kBorder * kPitch + kBorder, kStep, low, kStep, high, kStep, size, 0); }, {},
      [=] { std::memcpy(copy, x->now, sizeof(T) * kLength * kLines); });
}

template <class T, class Function>
void steps97(const std::string& name, Function* forward) {
  constexpr int kWidth = 1024;
  T* const r = leak(Tile<T>(8 * kWidth))->now;
  pair(name, 2.0 * kWidth / 1e6, "MPix/s", [=] {
    forward(r, r + kWidth, r + 2 * kWidth, r + 3 * kWidth, r + 4 * kWidth, r + 5 * kWidth, r + 6 * kWidth,
            r + 7 * kWidth, kWidth);
  });
}

template <class T, class Function, class Size>
void bands(const std::string& name, Function* forward, Size* sizeOf) {
  constexpr int kSize = 512;
  const QelRect tile{0, 0, kSize, kSize};
  int32_t bytes = 0;
  sizeOf(&tile, &bytes);
  auto* x = leak(Tile<T>(kSize * kSize));
  T *out = plane<T>(kSize * kSize), *copy = plane<T>(kSize * kSize);
  auto* work = plane<uint8_t>(size_t(bytes));
  pair(
      name, kSize * kSize / 1e6, "MPix/s",
      [=] {
        constexpr int32_t kStep = kSize / 2 * int32_t(sizeof(T));
        constexpr size_t kBand = kSize * kSize / 4;
        T* const planes[4] = {out, out + kBand, out + 2 * kBand, out + 3 * kBand};
        const int32_t planeSteps[4] = {kStep, kStep, kStep, kStep};
        forward(x->now, kSize * int32_t(sizeof(T)), &tile, planes, planeSteps, work);
      },
      {}, [=] { std::memcpy(copy, x->now, kSize * kSize * sizeof(T)); });
}

}  // namespace

int main(int argc, char** argv) {
  for (const int size : {128, 512, 4096}) {
    components<int32_t>("RCT forward", size, qeliRCTFwd_JPEG2K_32s_P3IR, opj_mct_encode);
    components<int32_t>("RCT inverse", size, qeliRCTInv_JPEG2K_32s_P3IR, opj_mct_decode);
    components<float>("ICT forward, float", size, qeliICTFwd_JPEG2K_32f_P3IR, opj_mct_encode_real);
    components<float>("ICT inverse, float", size, qeliICTInv_JPEG2K_32f_P3IR, opj_mct_decode_real);
  }
  const auto decode = [](opj_tcd* t, opj_tcd_tilecomp* c) { return opj_dwt_decode(t, c, 2); };
  const auto decodeReal = [](opj_tcd* t, opj_tcd_tilecomp* c) { return opj_dwt_decode_real(t, c, 2); };
  for (const int size : {512, 4096}) {
    tiles<int32_t>("5/3 forward level", size, qeliWTFwd_B53_JPEG2K_32s_C1IR, opj_dwt_encode, true);
    tiles<int32_t>("5/3 inverse level", size, qeliWTInv_B53_JPEG2K_32s_C1IR, decode, true);
    tiles<float>("9/7 forward level", size, qeliWTFwd_D97_JPEG2K_32s_C1IR, opj_dwt_encode_real, false);
    tiles<float>("9/7 inverse level", size, qeliWTInv_D97_JPEG2K_32s_C1IR, decodeReal, false);
  }
  bands<int32_t>("5/3 forward level to bands, 512x512", qeliWTFwd_B53_JPEG2K_32s_C1R,
                 qeliWTGetBufSize_B53_JPEG2K_32s_C1R);
  bands<int16_t>("5/3 the same, 16 bits", qeliWTFwd_B53_JPEG2K_16s_C1R, qeliWTGetBufSize_B53_JPEG2K_16s_C1R);
  bands<int16_t>("9/7 the same, 16 bits", qeliWTFwd_D97_JPEG2K_16s_C1R, qeliWTGetBufSize_D97_JPEG2K_16s_C1R);
  region<int32_t>("5/3 rows, 1024x256", qeliWTFwdRow_B53_JPEG2K_32s_C1R, false);
  region<int16_t>("5/3 rows, 16 bits", qeliWTFwdRow_B53_JPEG2K_16s_C1R, false);
  region<int32_t>("5/3 columns, 256x1024", qeliWTFwdCol_B53_JPEG2K_32s_C1R, true);
  region<float>("9/7 rows, float, 1024x256", qeliWTFwdRow_D97_JPEG2K_32f_C1R, false);
  region<int32_t>("9/7 rows, 32 bits", qeliWTFwdRow_D97_JPEG2K_32s_C1R, false);
  region<int16_t>("9/7 rows, 16 bits", qeliWTFwdRow_D97_JPEG2K_16s_C1R, false);
  region<float>("9/7 columns, float, 256x1024", qeliWTFwdCol_D97_JPEG2K_32f_C1R, true);
  steps97<float>("9/7 steps, float", qeliWTFwdColLift_D97_JPEG2K_32f_C1);
  steps97<int32_t>("9/7 steps, 32 bits", qeliWTFwdColLift_D97_JPEG2K_32s_C1);
  steps97<int16_t>("9/7 steps, 16 bits", qeliWTFwdColLift_D97_JPEG2K_16s_C1);
  return runPairs(argc, argv);
}
