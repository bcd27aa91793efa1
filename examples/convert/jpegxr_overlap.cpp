#include "jpegxr_overlap.h"

namespace qelconv::jxr {
namespace {

// --- the filters: on numbers, and on four windows at a time ------------------------------------------------

template <class T>
T triple(T v) {
  return v + v + v;
}

// A rotation by an eighth of pi and back.
template <class T>
[[gnu::always_inline]] inline void rotate(T& a, T& b, Filter filter) {
  if (filter == Filter::post) a -= sar(b + 1, 1), b += sar(a + 1, 1);
  else b -= sar(a + 1, 1), a += sar(b + 1, 1);
}

// The rotations of what is odd in both directions.
template <class T>
[[gnu::always_inline]] inline void rotateOddOdd(T& a, T& b, T& c, T& d, Filter filter) {
  d += a, c -= b;
  const T halfD = sar(d, 1), halfC = sar(c, 1);
  a -= halfD, b += halfC;
  if (filter == Filter::post) a -= sar(triple(b) + 6, 3), b += sar(triple(a) + 2, 2), a -= sar(triple(b) + 4, 3);
  else a += sar(triple(b) + 4, 3), b -= sar(triple(a) + 2, 2), a += sar(triple(b) + 6, 3);
  b -= halfC, a += halfD;
  c += b, d -= a;
}

template <class T>
[[gnu::always_inline]] inline void scale(T& a, T& d, Filter filter) {
  const auto part = [](T v) { return sar(triple(v), 4) + sar(v, 7) - sar(v, 10); };
  if (filter == Filter::post) {
    a += d;
    d = sar(a, 1) - d;
    a += sar(triple(d), 3);
    d += part(a);
  } else {
    d -= part(a);
    a -= sar(triple(d), 3);
    d = sar(a, 1) - d;
    a -= d;
  }
}

// The last butterflies of the inverse, with the other half of the scaling.
template <class T>
[[gnu::always_inline]] inline void unfold(T& a, T& b, T& c, T& d, Filter filter) {
  if (filter == Filter::post) {
    b -= c;
    a += sar(triple(d) + 4, 3);
    d -= sar(b, 1);
    const T other = sar(a - b, 1) - c;
    c = d, d = other;
    a -= d, b += c;
  } else {
    a += d, b -= c;
    const T other = c;
    c = sar(a - b, 1) - d;
    d = other + sar(b, 1);
    a -= sar(triple(d) + 4, 3);
    b += c;
  }
}

// A window of four by four, row by row. Its pieces are inlined, so that it lives in registers.
template <class T>
void filter16(T (&v)[16], Filter filter) {
  const auto quads = [&](auto&& work) __attribute__((always_inline)) {
    work(v[0], v[3], v[12], v[15]);
    work(v[1], v[2], v[13], v[14]);
    work(v[4], v[7], v[8], v[11]);
    work(v[5], v[6], v[9], v[10]);
  };
  const auto middle = [&]() __attribute__((always_inline)) {
    rotate(v[13], v[12], filter), rotate(v[9], v[8], filter), rotate(v[7], v[3], filter), rotate(v[6], v[2], filter);
    rotateOddOdd(v[10], v[11], v[14], v[15], filter);
  };
  const auto butterflies = [](T& a, T& b, T& c, T& d) __attribute__((always_inline)) { hadamard(a, b, c, d); };
  const auto scales = [&]() __attribute__((always_inline)) {
    scale(v[0], v[15], filter), scale(v[1], v[14], filter), scale(v[4], v[11], filter), scale(v[5], v[10], filter);
  };
  const auto unfolds = [&](T& a, T& b, T& c, T& d) __attribute__((always_inline)) { unfold(a, b, c, d, filter); };
  if (filter == Filter::post) {
    quads(butterflies);
    middle();
    scales();
    quads(unfolds);
  } else {
    quads(unfolds);
    scales();
    middle();
    quads(butterflies);
  }
}

// Four in a row at an edge of the picture.
void filter4(uint32_t& a, uint32_t& b, uint32_t& c, uint32_t& d, Filter filter) {
  const auto ends = [&](auto&& work) { work(a, d), work(b, c); };
  const auto halve = [](uint32_t& outer, uint32_t& inner) { inner -= sar(outer + 1, 1); };
  const auto unhalve = [](uint32_t& outer, uint32_t& inner) { inner += sar(outer + 1, 1); };
  const auto scales = [&](uint32_t& outer, uint32_t& inner) { scale(outer, inner, filter); };
  a += d, b += c;
  ends(halve);
  if (filter == Filter::post) {
    ends(scales);
    ends([](uint32_t& sum, uint32_t& difference) {
      sum += sar(triple(difference) + 4, 3);
      difference -= sar(sum, 1);
      sum += difference;
      difference = 0 - difference;
    });
    rotate(c, d, filter);
  } else {
    rotate(c, d, filter);
    ends([](uint32_t& sum, uint32_t& difference) {
      difference = 0 - difference;
      sum -= difference;
      difference += sar(sum, 1);
      sum -= sar(triple(difference) + 4, 3);
    });
    ends(scales);
  }
  ends(unhalve);
  a -= d, b -= c;
}

// Two in a row, and two by two, of the second transform of subsampled chroma.
void filter2(uint32_t& a, uint32_t& b, Filter filter) {
  const auto part = [](uint32_t v) { return sar(v + 1, 1) + sar(v, 5) + sar(v, 9) + sar(v, 13); };
  if (filter == Filter::post) b += sar(a + 2, 2), a += part(b), b += sar(a + 2, 2);
  else b -= sar(a + 2, 2), a -= part(b), b -= sar(a + 2, 2);
}
void filter2x2(uint32_t& a, uint32_t& b, uint32_t& c, uint32_t& d, Filter filter) {
  a += d, b += c;
  d -= sar(a + 1, 1), c -= sar(b + 1, 1);
  filter2(a, b, filter);
  d += sar(a + 1, 1), c += sar(b + 1, 1);
  a -= d, b -= c;
}

// --- their windows -----------------------------------------------------------------------------------------

// Rows as they are filtered: numbers that wrap.
uint32_t* wrapping(int32_t* row) { return reinterpret_cast<uint32_t*>(row); }

// From one window a vector to one column of them a vector, and back.
void transpose(Lanes* v) {
  const Lanes a = __builtin_shufflevector(v[0], v[1], 0, 4, 1, 5), b = __builtin_shufflevector(v[0], v[1], 2, 6, 3, 7);
  const Lanes c = __builtin_shufflevector(v[2], v[3], 0, 4, 1, 5), d = __builtin_shufflevector(v[2], v[3], 2, 6, 3, 7);
  v[0] = __builtin_shufflevector(a, c, 0, 1, 4, 5), v[1] = __builtin_shufflevector(a, c, 2, 3, 6, 7);
  v[2] = __builtin_shufflevector(b, d, 0, 1, 4, 5), v[3] = __builtin_shufflevector(b, d, 2, 3, 6, 7);
}

// Windows of four by four around the corners of blocks, from column `first` to `end`.
void filterWindows(uint32_t* const (&row)[4], int32_t first, int32_t end, Filter filter) {
  int32_t x = first;
  for (; x + 4 * kLanes <= end; x += 4 * kLanes) {
    Lanes v[16];
    for (int r = 0; r < 4; ++r) {
      std::memcpy(v + 4 * r, row[r] + x, sizeof v / 4);
      transpose(v + 4 * r);
    }
    filter16(v, filter);
    for (int r = 0; r < 4; ++r) {
      transpose(v + 4 * r);
      std::memcpy(row[r] + x, v + 4 * r, sizeof v / 4);
    }
  }
  for (; x < end; x += 4) {
    uint32_t v[16];
    for (int r = 0; r < 4; ++r) std::memcpy(v + 4 * r, row[r] + x, 16);
    filter16(v, filter);
    for (int r = 0; r < 4; ++r) std::memcpy(row[r] + x, v + 4 * r, 16);
  }
}

// From column `first` to `end`, which are edges: the windows of four by four whose centre is the top of row `y`.
void windows4(LastRows& rows, int32_t y, int32_t first, int32_t end, Filter filter) {
  uint32_t* const row[4] = {wrapping(rows[y - 2]), wrapping(rows[y - 1]), wrapping(rows[y]), wrapping(rows[y + 1])};
  for (const int32_t x : {first, first + 1, end - 2, end - 1})
    filter4(row[0][x], row[1][x], row[2][x], row[3][x], filter);
  filterWindows(row, first + 2, end - 2, filter);
}
// Two rows along an edge, the first of them `y`.
void edge4(LastRows& rows, int32_t y, int32_t first, int32_t end, Filter filter) {
  uint32_t* const row[2] = {wrapping(rows[y]), wrapping(rows[y + 1])};
  for (const int32_t x : {first, end - 2}) filter4(row[0][x], row[0][x + 1], row[1][x], row[1][x + 1], filter);
  for (uint32_t* const r : row)
    for (int32_t x = first + 2; x < end - 2; x += 4) filter4(r[x], r[x + 1], r[x + 2], r[x + 3], filter);
}

void windows2(LastRows& rows, int32_t y, int32_t first, int32_t end, Filter filter) {
  uint32_t *const up = wrapping(rows[y - 1]), *const down = wrapping(rows[y]);
  for (const int32_t x : {first, end - 1}) filter2(up[x], down[x], filter);
  for (int32_t x = first + 1; x < end - 1; x += 2) filter2x2(up[x], up[x + 1], down[x], down[x + 1], filter);
}
// Corners are kept as differences to their neighbours.
void edge2(LastRows& rows, int32_t y, int32_t first, int32_t end, Filter filter) {
  uint32_t* const row = wrapping(rows[y]);
  row[first] -= row[first + 1], row[end - 1] -= row[end - 2];
  for (int32_t x = first + 1; x < end - 1; x += 2) filter2(row[x], row[x + 1], filter);
  row[first] += row[first + 1], row[end - 1] += row[end - 2];
}

// The windows of a macroblock row; the first ones lie across its upper edge.
void overlap(LastRows& rows, const Header& header, int32_t row, int32_t perAcross, int32_t period, Filter filter) {
  const auto edges = header.edges();
  const int32_t top = row * rows.perMacroblock(), half = period / 2;
  const auto windows = period == 4 ? windows4 : windows2, edge = period == 4 ? edge4 : edge2;
  for (size_t i = 0; i + 1 < edges.size(); ++i) {
    const int32_t first = edges[i] * perAcross, end = edges[i + 1] * perAcross;
    if (!header.isEdge(row)) {
      windows(rows, top, first, end, filter);
    } else {
      if (row > 0) edge(rows, top - half, first, end, filter);
      if (row < header.down()) edge(rows, top, first, end, filter);
    }
    if (row < header.down())
      for (int32_t y = top + period; y < top + rows.perMacroblock(); y += period) windows(rows, y, first, end, filter);
  }
}

}  // namespace

void overlapSamples(Plane& plane, const Header& header, int32_t row, Filter filter) {
  overlap(plane.samples, header, row, 4 * plane.grid.across, 4, filter);
}

void overlapLow(Plane& plane, const Header& header, int32_t row, Filter filter) {
  overlap(plane.low, header, row, plane.grid.across, plane.grid.across == 4 ? 4 : 2, filter);
}

}  // namespace qelconv::jxr
