// The constants of the BC7 format. The shapes of two subsets and the weights serve BC6 too.
#ifndef QELJ_TEXTURE_BC7_TABLES_H
#define QELJ_TEXTURE_BC7_TABLES_H

#include <cstdint>

namespace qelj::texture::bc7 {

// A block is 16 bytes, its bits numbered from the lowest of byte 0. Mode m starts with m zeros and a one.
// Then come, in this order: partition, rotation, index selection; the red values of all end-points (subset 0
// end 0, subset 0 end 1, subset 1 end 0, ...), the green, the blue and the alpha values; the p-bits, one an
// end-point or one a subset; the indices of the 16 pixels, and, in modes 4 and 5, a second set of indices.
struct Mode {
  int subsets, partitionBits, rotationBits, indexSelectionBits, colourBits, alphaBits;
  int endPointPBits, subsetPBits;  // p-bits an end-point, a subset
  int indexBits, secondIndexBits;

  constexpr int endPoints() const { return 2 * subsets; }
  constexpr int pBits() const { return endPointPBits + subsetPBits; }  // appended below an end-point's bits
};
// clang-format off
inline constexpr Mode kModes[8] = {
    {3, 4, 0, 0, 4, 0, 1, 0, 3, 0},
    {2, 6, 0, 0, 6, 0, 0, 1, 3, 0},
    {3, 6, 0, 0, 5, 0, 0, 0, 2, 0},
    {2, 6, 0, 0, 7, 0, 1, 0, 2, 0},
    {1, 0, 2, 1, 5, 6, 0, 0, 2, 3},
    {1, 0, 2, 0, 7, 8, 0, 0, 2, 2},
    {1, 0, 0, 0, 7, 7, 1, 0, 4, 0},
    {2, 6, 0, 0, 5, 5, 1, 0, 2, 0},
};
// clang-format on

// The position of each field of a mode's block.
struct Layout {
  Mode mode;
  int partition, rotation, indexSelection, pBits, indices, secondIndices;
  int colours, alphas;

  constexpr explicit Layout(int number)
      : mode(kModes[number]),
        partition(number + 1),
        rotation(partition + mode.partitionBits),
        indexSelection(rotation + mode.rotationBits),
        pBits(0),
        indices(0),
        secondIndices(0),
        colours(indexSelection + mode.indexSelectionBits),
        alphas(colours + 3 * mode.endPoints() * mode.colourBits) {
    pBits = alphas + mode.endPoints() * mode.alphaBits;
    indices = pBits + mode.endPointPBits * mode.endPoints() + mode.subsetPBits * mode.subsets;
    secondIndices = indices + 16 * mode.indexBits - mode.subsets;
  }
  // The bits of channel 0 to 3 of an end-point (2 * subset + end), and their position.
  constexpr int bits(int channel) const { return channel < 3 ? mode.colourBits : mode.alphaBits; }
  constexpr int position(int channel, int endPoint) const {
    return channel < 3 ? colours + (channel * mode.endPoints() + endPoint) * mode.colourBits
                       : alphas + endPoint * mode.alphaBits;
  }
  constexpr int pBitPosition(int endPoint) const { return pBits + (mode.subsetPBits ? endPoint / 2 : endPoint); }
};

// Interpolation weights of 2-, 3- and 4-bit indices: ((64 - w) e0 + w e1 + 32) >> 6.
inline constexpr uint8_t kWeights2[4] = {0, 21, 43, 64};
inline constexpr uint8_t kWeights3[8] = {0, 9, 18, 27, 37, 46, 55, 64};
inline constexpr uint8_t kWeights4[16] = {0, 4, 9, 13, 17, 21, 26, 30, 34, 38, 43, 47, 51, 55, 60, 64};
template <int kIndexBits>
constexpr auto& weights() {
  if constexpr (kIndexBits == 2) return kWeights2;
  else if constexpr (kIndexBits == 3) return kWeights3;
  else return kWeights4;
}

// The shapes: each pixel's subset, in raster order, and each subset's anchor: the pixel whose index has its
// top bit left out because it is 0.
struct Shape {
  char subsets[17];
  uint8_t anchors[3];
  constexpr int subset(int pixel) const { return subsets[pixel] - '0'; }
};
inline constexpr Shape kOneSubset = {"0000000000000000", {0, 0, 0}};
// clang-format off
inline constexpr Shape kTwoSubsets[64] = {
    {"0011001100110011", {0, 15, 0}}, {"0001000100010001", {0, 15, 0}}, {"0111011101110111", {0, 15, 0}},
    {"0001001100110111", {0, 15, 0}}, {"0000000100010011", {0, 15, 0}}, {"0011011101111111", {0, 15, 0}},
    {"0001001101111111", {0, 15, 0}}, {"0000000100110111", {0, 15, 0}}, {"0000000000010011", {0, 15, 0}},
    {"0011011111111111", {0, 15, 0}}, {"0000000101111111", {0, 15, 0}}, {"0000000000010111", {0, 15, 0}},
    {"0001011111111111", {0, 15, 0}}, {"0000000011111111", {0, 15, 0}}, {"0000111111111111", {0, 15, 0}},
    {"0000000000001111", {0, 15, 0}}, {"0000100011101111", {0, 15, 0}}, {"0111000100000000", {0, 2, 0}},
    {"0000000010001110", {0, 8, 0}}, {"0111001100010000", {0, 2, 0}}, {"0011000100000000", {0, 2, 0}},
    {"0000100011001110", {0, 8, 0}}, {"0000000010001100", {0, 8, 0}}, {"0111001100110001", {0, 15, 0}},
    {"0011000100010000", {0, 2, 0}}, {"0000100010001100", {0, 8, 0}}, {"0110011001100110", {0, 2, 0}},
    {"0011011001101100", {0, 2, 0}}, {"0001011111101000", {0, 8, 0}}, {"0000111111110000", {0, 8, 0}},
    {"0111000110001110", {0, 2, 0}}, {"0011100110011100", {0, 2, 0}}, {"0101010101010101", {0, 15, 0}},
    {"0000111100001111", {0, 15, 0}}, {"0101101001011010", {0, 6, 0}}, {"0011001111001100", {0, 8, 0}},
    {"0011110000111100", {0, 2, 0}}, {"0101010110101010", {0, 8, 0}}, {"0110100101101001", {0, 15, 0}},
    {"0101101010100101", {0, 15, 0}}, {"0111001111001110", {0, 2, 0}}, {"0001001111001000", {0, 8, 0}},
    {"0011001001001100", {0, 2, 0}}, {"0011101111011100", {0, 2, 0}}, {"0110100110010110", {0, 2, 0}},
    {"0011110011000011", {0, 15, 0}}, {"0110011010011001", {0, 15, 0}}, {"0000011001100000", {0, 6, 0}},
    {"0100111001000000", {0, 6, 0}}, {"0010011100100000", {0, 2, 0}}, {"0000001001110010", {0, 6, 0}},
    {"0000010011100100", {0, 8, 0}}, {"0110110010010011", {0, 15, 0}}, {"0011011011001001", {0, 15, 0}},
    {"0110001110011100", {0, 2, 0}}, {"0011100111000110", {0, 2, 0}}, {"0110110011001001", {0, 15, 0}},
    {"0110001100111001", {0, 15, 0}}, {"0111111010000001", {0, 15, 0}}, {"0001100011100111", {0, 15, 0}},
    {"0000111100110011", {0, 15, 0}}, {"0011001111110000", {0, 2, 0}}, {"0010001011101110", {0, 2, 0}},
    {"0100010001110111", {0, 15, 0}},
};
inline constexpr Shape kThreeSubsets[64] = {
    {"0011001102212222", {0, 3, 15}}, {"0001001122112221", {0, 3, 8}}, {"0000200122112211", {0, 15, 8}},
    {"0222002200110111", {0, 15, 3}}, {"0000000011221122", {0, 8, 15}}, {"0011001100220022", {0, 3, 15}},
    {"0022002211111111", {0, 15, 3}}, {"0011001122112211", {0, 15, 8}}, {"0000000011112222", {0, 8, 15}},
    {"0000111111112222", {0, 8, 15}}, {"0000111122222222", {0, 6, 15}}, {"0012001200120012", {0, 6, 15}},
    {"0112011201120112", {0, 6, 15}}, {"0122012201220122", {0, 5, 15}}, {"0011011211221222", {0, 3, 15}},
    {"0011200122002220", {0, 3, 8}}, {"0001001101121122", {0, 3, 15}}, {"0111001120012200", {0, 3, 8}},
    {"0000112211221122", {0, 8, 15}}, {"0022002200221111", {0, 15, 3}}, {"0111011102220222", {0, 3, 15}},
    {"0001000122212221", {0, 3, 8}}, {"0000001101220122", {0, 6, 15}}, {"0000110022102210", {0, 10, 8}},
    {"0122012200110000", {0, 5, 3}}, {"0012001211222222", {0, 8, 15}}, {"0110122112210110", {0, 8, 6}},
    {"0000011012211221", {0, 6, 10}}, {"0022110211020022", {0, 8, 15}}, {"0110011020022222", {0, 5, 15}},
    {"0011012201220011", {0, 15, 10}}, {"0000200022112221", {0, 15, 8}}, {"0000000211221222", {0, 8, 15}},
    {"0222002200120011", {0, 15, 3}}, {"0011001200220222", {0, 3, 15}}, {"0120012001200120", {0, 5, 10}},
    {"0000111122220000", {0, 6, 10}}, {"0120120120120120", {0, 10, 8}}, {"0120201212010120", {0, 8, 9}},
    {"0011220011220011", {0, 15, 10}}, {"0011112222000011", {0, 15, 6}}, {"0101010122222222", {0, 3, 15}},
    {"0000000021212121", {0, 15, 8}}, {"0022112200221122", {0, 5, 15}}, {"0022001100220011", {0, 15, 3}},
    {"0220122102201221", {0, 15, 6}}, {"0101222222220101", {0, 15, 6}}, {"0000212121212121", {0, 15, 8}},
    {"0101010101012222", {0, 3, 15}}, {"0222011102220111", {0, 15, 3}}, {"0002111200021112", {0, 5, 15}},
    {"0000211221122112", {0, 5, 15}}, {"0222011101110222", {0, 5, 15}}, {"0002111211120002", {0, 8, 15}},
    {"0110011001102222", {0, 5, 15}}, {"0000000021122112", {0, 10, 15}}, {"0110011022222222", {0, 5, 15}},
    {"0022001100110022", {0, 10, 15}}, {"0022112211220022", {0, 8, 15}}, {"0000000000002112", {0, 13, 15}},
    {"0002000100020001", {0, 15, 3}}, {"0222122202221222", {0, 12, 15}}, {"0101222222222222", {0, 3, 15}},
    {"0111201122012220", {0, 3, 8}},
};
// clang-format on
template <int kSubsets>
constexpr const Shape& shape(int number) {
  if constexpr (kSubsets == 1) return kOneSubset;
  else if constexpr (kSubsets == 2) return kTwoSubsets[number];
  else return kThreeSubsets[number];
}

}  // namespace qelj::texture::bc7

#endif
