#include "rows.h"

namespace qelconv {
namespace {

// What a sink may leave of a strip for the next one: the most rows that an MCU has, and one.
constexpr int32_t kMostLeft = 33;

}  // namespace

void readInto(Image& image, RowSource& source, Stages& stages) {
  Rows rows(image);
  Pipeline pipeline(source.strips().strips);
  pipeline.run(stages, source.steps(rows, pipeline.slots()));
  image.missing = source.missing();
}

Image readWhole(RowSource& source, Stages& stages) {
  Image image(source.shape(), source.shape().colour, source.shape().bits);
  readInto(image, source, stages);
  return image;
}

void writeWhole(const Image& image, int32_t rowsOfStrip, RowSink& sink, Stages& stages) {
  // A sink only reads.
  const Rows rows(const_cast<Image&>(image));
  const auto strips = StripRows::of(image.height, rowsOfStrip);
  Pipeline pipeline(strips.strips);
  pipeline.run(stages, sink.steps(rows, strips, pipeline.slots()));
  sink.finish();
}

std::string passRows(RowSource& source, RowSink& sink, Stages& stages) {
  const StripRows strips = source.strips();
  Pipeline pipeline(strips.strips);
  // Whole MCUs lie in one piece where the capacity is a multiple of their rows.
  constexpr int32_t kMultiple = 32 * 3;
  const auto needed = int32_t(
      std::min<int64_t>(int64_t(pipeline.slots()) * strips.rows + strips.late + kMostLeft, source.shape().height));
  Rows rows(source.shape(), (needed + kMultiple - 1) / kMultiple * kMultiple);
  auto steps = source.steps(rows, pipeline.slots());
  for (auto& step : sink.steps(rows, strips, pipeline.slots())) steps.push_back(std::move(step));
  pipeline.run(stages, steps);
  sink.finish();
  return source.missing();
}

}  // namespace qelconv
