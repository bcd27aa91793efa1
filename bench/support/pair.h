// Rows of a benchmark. Each runs the library and a peer on the same input in the same process, by turns, on the
// thread's CPU time, and is printed as soon as it is measured.
//
//   int main(int argc, char** argv) {
//     begin(argc, argv);
//     road("RGB to YCbCr", "MPix/s", "libjpeg-turbo", 1.6);
//     row("512 pixels", pixels / 1e6, [&] { ours(); }, [&] { theirs(); });
//     return finish();
//   }
//
// A road is one promise of speed over several inputs: what counts is its lowest ratio, which is printed at its end.
// Work may refer to what lives around the call of row(), which has run when it returns.
#ifndef QELJ_BENCH_PAIR_H
#define QELJ_BENCH_PAIR_H

#include <cstdint>
#include <functional>
#include <string>

namespace qelj::bench {

using Work = std::function<void()>;

// Options: a regular expression that "program: road, input" is searched for; --quick for short turns; --rows FILE
// appends a line of tab-separated fields a row; --beside IMAGE takes another image of the library as the peer of
// every row, in the place of other peers; --counts, on AArch64, counts the instructions of both sides instead, under the
// emulator with count_plugin.c.
void begin(int argc, char** argv);
// What follows belongs to a road. `unit` is what its figures are: so many of it a second ("MPix/s", units given in
// millions), or time ("ns a call", "us a call", "cycles a block", units given as they are). `goal` is a ratio over the
// peer; without a peer, a figure in `unit`; 0: none.
void road(const std::string& name, const std::string& unit, const std::string& peer = "", double goal = 0);
// `units` is the amount of work in one call. `limit` is a memcpy of the bytes touched, where memory is the limit: one
// of n bytes reads n and writes n. `note` is printed with the row, such as what quality both sides reach.
void row(const std::string& input, double units, const Work& ours, const Work& peer = {}, const Work& limit = {},
         const std::string& note = {});
// Whether a row of the road would be measured, for inputs that are dear to make.
bool wanted(const std::string& input);
int finish();

// Median of the seconds of one call of each work, taken by turns.
struct Seconds {
  double ours, peer, limit, ratio;  // ratio: median of the turns' ratios
};
Seconds measure(const Work& ours, const Work& peer = {}, const Work& limit = {});

// Rows are measured with the thread count set to one, and in this object's scope with none set: calls that are too
// small to fork must cost the same.
struct ThreadsUnset {
  ThreadsUnset();
  ~ThreadsUnset();
  ThreadsUnset(const ThreadsUnset&) = delete;
};

// The thread's CPU time, or the time that passes.
enum class Clock { thread, wall };
void clock(Clock clock);

// What malloc gives. warm: freed memory stays with the process, so that large buffers are warm again the next time, on
// all sides (how programs start here). fresh: it goes back to the system, and every page of a large buffer costs a
// fault.
enum class Buffers { warm, fresh };
void allocate(Buffers buffers);

// Keeps the compiler from leaving out what made the value.
template <class T>
void keep(const T& value) {
  asm volatile("" : : "g"(&value) : "memory");
}

// Ends the program when a peer's result is not what it should be.
void require(bool good, const std::string& what);

std::string text(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace qelj::bench

#endif
