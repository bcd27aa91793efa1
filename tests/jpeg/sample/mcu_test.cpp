// MCU conversion, there and back.
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>

#include "qelj.h"

namespace qelj::test {
namespace {

// A picture of flat 2 x 2 squares survives every sampling, at its place.
TEST(Mcu, ThereAndBack) {
  std::array<uint8_t, 16 * 48> picture, back{};
  for (size_t i = 0; i < picture.size(); ++i) picture[i] = uint8_t(i / 96 * 29 + i % 48 / 6 * 23 + i % 3 * 40);
  const auto trip = [&](auto there, auto andBack, int32_t width, int32_t height) {
    alignas(16) int16_t blocks[3][256];
    int16_t* const planes[] = {blocks[0], blocks[1], blocks[2]};
    ASSERT_EQ(qelStatusOk, there(picture.data(), 48, planes));
    ASSERT_EQ(qelStatusOk, andBack(planes, back.data(), 48));
    for (int32_t y = 0; y < height; ++y)
      for (int32_t x = 0; x < 3 * width; ++x)
        ASSERT_LE(std::abs(picture[size_t(48 * y + x)] - back[size_t(48 * y + x)]), 2) << width << "x" << height;
  };
  trip(qeliRGBToYCbCr444LS_MCU_8u16s_C3P3R, qeliYCbCr444ToRGBLS_MCU_16s8u_P3C3R, 8, 8);
  trip(qeliRGBToYCbCr422LS_MCU_8u16s_C3P3R, qeliYCbCr422ToRGBLS_MCU_16s8u_P3C3R, 16, 8);
  trip(qeliRGBToYCbCr411LS_MCU_8u16s_C3P3R, qeliYCbCr411ToRGBLS_MCU_16s8u_P3C3R, 16, 16);
  trip(qeliBGRToYCbCr444LS_MCU_8u16s_C3P3R, qeliYCbCr444ToBGRLS_MCU_16s8u_P3C3R, 8, 8);
  trip(qeliBGRToYCbCr422LS_MCU_8u16s_C3P3R, qeliYCbCr422ToBGRLS_MCU_16s8u_P3C3R, 16, 8);
  trip(qeliBGRToYCbCr411LS_MCU_8u16s_C3P3R, qeliYCbCr411ToBGRLS_MCU_16s8u_P3C3R, 16, 16);
  trip(qeliSampleDown444LS_MCU_8u16s_C3P3R, qeliSampleUp444LS_MCU_16s8u_P3C3R, 8, 8);
  trip(qeliSampleDown422LS_MCU_8u16s_C3P3R, qeliSampleUp422LS_MCU_16s8u_P3C3R, 16, 8);
  trip(qeliSampleDown411LS_MCU_8u16s_C3P3R, qeliSampleUp411LS_MCU_16s8u_P3C3R, 16, 16);
}

}  // namespace
}  // namespace qelj::test
