/**
 * @file qelj.h
 * qelj: image-compression primitives.
 *
 * The building blocks of JPEG, JPEG 2000, JPEG XR, block-texture and TIFF codecs: sample and colour
 * conversion, transforms, quantisation and entropy coding. A caller owns files, image memory and loops, and
 * hands the library one row, one block, one code-block or one tile at a time.
 *
 * @code{.unparsed}
 * CONTENTS
 *   1  How to read this header      2  What to call, by task      3  All functions, by family
 *   Then the families, each a group with one text for all its functions (search for "@defgroup NAME"); what
 *   stands at a function says what this one does. What surprises, on one page: docs/surprises.md.
 *
 * 1  HOW TO READ THIS HEADER
 *
 * Names.  qeli<Operation>[<Sampling>][LS][_<Variant>][_<Standard>]_<Types>_<Layout>
 *   Sampling  444, 422 (chroma halved across), 411 (chroma halved across and down: what the world calls
 *             4:2:0), H2V1 and H2V2 (the factors of a resampling)
 *   LS        the level shift of 128 is part of the function; MCU: works on one minimum coded unit
 *   Types     source type, then destination type when they differ: 1u packed bits in bytes, 8u 16u unsigned,
 *             16s 32s signed, 32f single-precision float
 *   Layout    C1..C4 interleaved channels in one buffer, P3 P4 planes; R a region (step and size), I in place
 *
 * Arguments.  Source, source step, destination, destination step, size, then the operation's own.
 *   Steps are byte distances between rows, also for 16-bit, 32-bit and float samples, and are at least 1
 *   unless a function says otherwise. Planes come as an array of plane pointers, which is only read. Planes
 *   of equal size share one step. A block is 64 consecutive 16-bit values in natural row order unless a
 *   function says zig-zag. An MCU buffer holds consecutive blocks: 444 one luma block, 422 two (left, right),
 *   411 four (top left, top right, bottom left, bottom right), and one block a chroma plane; K is laid out
 *   like luma. Arguments with named values have enumerators; the parameters are plain integers.
 *
 * Alignment.  No pointer to sample or stream data needs any alignment: 16- and 32-bit samples may stand at
 *   odd addresses. Plane arrays, results and size records are ordinary C objects with their natural
 *   alignment. Where a function's values depend on an address (some MCU conversions do), it says so.
 *
 * Overlap.  Source and destination must not overlap unless a function says that they may. Nor may the rows
 *   that a call writes, in one plane or several: a step is checked to be positive, if at all, but one that is
 *   smaller than a row makes rows overlap, and what then stands in the bytes that they share is not defined;
 *   it may differ from build to build and, in functions that fork, from call to call. Nothing is written
 *   outside the rows all the same. Two families say otherwise: packed 4:2:2 to RGB, and MCU conversion to
 *   pixels, write rows that overlap in order, top to bottom. Rows that are only read may overlap one another.
 *   With one row, its step has no role.
 *
 * Status.  Every function but qeljGetLibVersion returns a QelStatus. Arguments are checked in the order that
 *   a family states, the first failure is the result, and nothing has been written by then. Each family lists
 *   the statuses that it can return besides qelStatusOk.
 *
 * Behind a failure.  A failed check has changed nothing. A coder that fails on its way (its stream or its
 *   room ends, no code matches) hands back positions and records with which it may be called again: nothing
 *   is read or written outside the buffers then either (where they have lengths), and every call ends. What
 *   such calls give is not defined, nor is what stands in the block or row that failed, except where a family
 *   says more. Sure ways on: take back copies from before the call; or initialise the record and begin at
 *   another segment.
 *
 * Threads.  Calls that work on different buffers and different records may run at the same time. Calls on one
 *   record must be serial. Functions marked "forks" use an OpenMP team inside the call for images of more
 *   than 8192 pixels; each row has one writer, so the bytes do not depend on the number of threads as long as
 *   rows do not overlap. Nothing else starts a thread.
 *   qelSetNumThreads of qelcore.h keeps the calls of one thread on it, or gives them a team of another size.
 *
 * Memory.  All sample and stream memory belongs to the caller. Nothing is allocated unless a function says so
 *   (...InitAlloc and a few coders); allocation goes through qelcore (see qelcore.h).
 *
 * Exactness.  Results are defined to the bit, on every processor and build. Where the pixels at the end of a
 *   row use another fixed-point form than the main part, that is part of the definition. Not defined are the
 *   sign and the payload of a NaN: what a 32f function makes of a NaN, or of infinities that cancel, is a
 *   NaN.
 *
 * Floating point.  A function without 32f in its name gives the same bytes in every rounding mode that the
 *   calling thread may have set, and whether or not denormal numbers are flushed to zero. It raises the flag
 *   for inexact results and no other, unless it says so; none is meant to be trapped. A 32f function computes
 *   in the environment that it is called in; its results are defined for the one that a program starts with
 *   (to nearest, denormal numbers kept), and it raises what its arithmetic raises. The environment is left as
 *   it was.
 *
 * 2  WHAT TO CALL, BY TASK       {a,b} stands for either; * for whatever the pixels are called
 *
 *   I have                       and want                     so I call, one after the other
 *   RGB rows                     blocks of baseline JPEG      qeliRGBToYCbCr{444,422,411}LS_MCU_8u16s_C3P3R,
 *                                                             qeliDCTQuantFwd8x8_JPEG_16s_C1I
 *   grey rows                    blocks of baseline JPEG      qeliDCTQuantFwd8x8LS_JPEG_8u16s_C1R
 *   blocks                       baseline JPEG data           qeliEncodeHuffman8x8_JPEG_16s1u_C1
 *   blocks                       smaller JPEG data            huffman_statistics first, for the tables
 *   blocks                       progressive JPEG data        huffman_progressive
 *   the lists of a DHT segment   a table to code with         qeli{Decode,Encode}HuffmanSpecInitAlloc_JPEG_8u
 *   a DQT segment                a table to transform with    qeliQuant{Fwd,Inv}TableInit_JPEG_8u16u
 *   a quality                    a table for a DQT segment    qeliQuantFwdRawTableInit_JPEG_8u
 *   baseline JPEG data           RGB rows                     qeliDecodeHuffman8x8_JPEG_1u16s_C1,
 *                                                             qeliDCTQuantInv8x8_JPEG_16s_C1I,
 *                                                             qeliYCbCr{444,422,411}ToRGBLS_MCU_16s8u_P3C3R
 *   baseline JPEG data           an image of 1/2, 1/4 or 1/8  qeliDCTQuantInv8x8To{4x4,2x2}LS_JPEG_16s8u_C1R;
 *                                                             for 1/8, dst[0] of LS_1x1 for each block
 *   RGB rows                     Y, Cb, Cr planes             colour_forward; colour_planes for 4:2:2, 4:2:0
 *   Y, Cb, Cr planes             RGB rows                     colour_inverse; colour_planes for 4:2:2, 4:2:0
 *   4:2:0 planes                 smooth chroma                qeliSampleUpRowH2V2_Triangle_JPEG_8u_C1
 *   CMYK pixels                  YCCK planes or blocks        qeliCMYKToYCCK*
 *   samples of 2 to 16 bits      lossless JPEG data           lossless
 *   samples of 12 bits           blocks of JPEG               qeliDCTQuantFwd8x8LS_JPEG_16u16s_C1R
 *   RGB planes                   lossless JPEG 2000           qeliRCTFwd_JPEG2K_32s_P3IR,
 *                                                             qeliWTFwd_B53_JPEG2K_32s_C1IR once a level,
 *                                                             codeblock_encoder
 *   RGB planes                   lossy JPEG 2000              qeliICTFwd_JPEG2K_32f_P3IR, wavelet_97 or
 *                                                             wavelet_tiles, codeblock_encoder
 *   a tile too high for memory   its wavelet, row by row      qeliWT{Fwd,Inv}ColLift*: the loop is in
 *                                                             examples/tiny/column_lifting.h
 *   a code-block's segments      its samples                  qeliDecodeCodeBlock_JPEG2K_1u32s_C1R; piece by
 *                                                             piece: codeblock_progressive
 *   16 x 16 samples              JPEG XR coefficients         qeliPCTFwd16x16_JPEGXR_{16s,32s,32f}_C1IR
 *   JPEG XR coefficients         their codes                  vlc_state, then vlc_blocks, vlc_dc, flc
 *   a texture                    RGBA pixels                  qeliTextureDecodeBlockToRGBA*
 *   RGBA pixels                  a texture                    qeliTextureEncodeBlock*
 *   rows of a TIFF               PackBits                     qeliPackBitsRow_TIFF_8u_C1
 *
 * 3  ALL FUNCTIONS, BY FAMILY
 *
 *   library                 qeljGetLibVersion
 *   JPEG
 *   level_shift             qeliSub128_JPEG_8u16s_C1R qeliAdd128_JPEG_16s8u_C1R
 *   colour_forward          qeli{RGB,BGR}ToYCbCr_JPEG_8u_{C3P3R,C4P3R} qeliRGBToYCbCr_JPEG_8u_P3R
 *                           qeli{RGB,BGR}ToY_JPEG_8u_C3C1R qeliRGBToY_JPEG_8u_P3C1R
 *                           qeliCMYKToYCCK_JPEG_8u_{C4P4R,P4R}
 *                           qeli{RGB,BGR}{555,565}ToYCbCr_JPEG_16u8u_C3P3R
 *   colour_inverse          qeliYCbCrTo{RGB,BGR}_JPEG_8u_{P3C3R,P3C4R} qeliYCbCrToRGB_JPEG_8u_P3R
 *                           qeliYCCKToCMYK_JPEG_8u_{P4C4R,P4R}
 *                           qeliYCbCrTo{RGB,BGR}{555,565}_JPEG_8u16u_P3C3R
 *   colour_planes           qeli{RGB,BGR}ToYCbCr{422,411}_JPEG_8u_{C3P3R,C4P3R}
 *                           qeliYCbCr{422,411}To{RGB,BGR}_JPEG_8u_{P3C3R,P3C4R}
 *                           qeliYCbCr422ToRGB_JPEG_8u_C2C3R
 *   resampling              qeliSample{Down,Up}{H2V1,H2V2}_JPEG_8u_C1R
 *                           qeliSampleDownRow{H2V1,H2V2}_Box_JPEG_8u_C1
 *                           qeliSampleUpRow{H2V1,H2V2}_Triangle_JPEG_8u_C1
 *   mcu_forward             qeli{RGB,BGR}ToYCbCr{444,422,411}LS_MCU_8u16s_C3P3R
 *                           qeliBGR{555,565}ToYCbCr{444,422,411}LS_MCU_16u16s_C3P3R
 *                           qeliCMYKToYCCK{444,422,411}LS_MCU_8u16s_C4P4R
 *                           qeliSampleDown{444,422,411}LS_MCU_8u16s_C3P3R qeliSplit422LS_MCU_8u16s_C2P3R
 *   mcu_inverse             qeliYCbCr{444,422,411}To{RGB,BGR}LS_MCU_16s8u_P3C3R
 *                           qeliYCbCr{444,422,411}ToBGR{555,565}LS_MCU_16s16u_P3C3R
 *                           qeliYCCK{444,422,411}ToCMYKLS_MCU_16s8u_P4C4R
 *                           qeliSampleUp{444,422,411}LS_MCU_16s8u_P3C3R qeliJoin422LS_MCU_16s8u_P3C2R
 *   quantisation            qeliQuantFwdRawTableInit_JPEG_8u qeliQuant{Fwd,Inv}TableInit_JPEG_8u16u
 *                           qeliQuant{Fwd,Inv}8x8_JPEG_16s_C1I
 *   dct_forward             qeliDCTQuantFwd8x8LS_JPEG_{8u16s,16u16s}_C1R
 *                           qeliDCTQuantFwd8x8_JPEG_16s_{C1,C1I}
 *   dct_inverse             qeliDCTQuantInv8x8LS_JPEG_{16s8u,16s16u}_C1R
 *                           qeliDCTQuantInv8x8_JPEG_16s_{C1,C1I}
 *   dct_reduced             qeliDCTQuantInv8x8LS_{1x1,2x2,4x4}_JPEG_16s8u_C1R
 *                           qeliDCTQuantInv8x8To{2x2,4x4}LS_JPEG_16s8u_C1R
 *   huffman_records         qeli{Decode,Encode}Huffman{Spec,State}{GetBufSize,Init,InitAlloc,Free}_JPEG_8u
 *   huffman_baseline        qeliDecodeHuffman8x8{,_Direct}_JPEG_1u16s_C1
 *                           qeliEncodeHuffman8x8{,_Direct}_JPEG_16s1u_C1
 *   huffman_progressive     qeliDecodeHuffman8x8_{DCFirst,DCRefine,ACFirst,ACRefine}_JPEG_1u16s_C1
 *                           qeliEncodeHuffman8x8_{DCFirst,DCRefine,ACFirst,ACRefine}_JPEG_16s1u_C1
 *   lossless                qeli{DiffPred,ReconstructPred}{FirstRow,Row}_JPEG_16s_C1
 *                           qeliDecodeHuffmanOne_JPEG_1u16s_C1 qeliDecodeHuffmanRow_JPEG_1u16s_C1P4
 *                           qeliEncodeHuffmanOne_JPEG_16s1u_C1 qeliEncodeHuffmanRow_JPEG_16s1u_P4C1
 *   huffman_statistics      qeliGetHuffmanStatistics8x8{,_DCFirst,_ACFirst,_ACRefine}_JPEG_16s_C1
 *                           qeliGetHuffmanStatisticsOne_JPEG_16s_C1 qeliEncodeHuffmanRawTableInit_JPEG_8u
 *   JPEG 2000
 *   component_transforms    qeliRCTFwd_JPEG2K_{16s,32s}_{C3P3R,P3IR} qeliRCTInv_JPEG2K_{16s,32s}_{P3C3R,P3IR}
 *                           qeliICT{Fwd,Inv}_JPEG2K_{16s,32f,32s}_P3IR
 *                           qeliICTFwd_JPEG2K_32f_C3P3R qeliICTInv_JPEG2K_32f_P3C3R
 *   wavelet_53              qeliWT{Fwd,Inv}{Row,Col}_B53_JPEG2K_{16s,32s}_C1R
 *                           qeliWT{Fwd,Inv}ColLift_B53_JPEG2K_{16s,32s}_C1
 *   wavelet_97              qeliWT{Fwd,Inv}Row_D97_JPEG2K_{16s,32f,32s}_C1R
 *                           qeliWT{Fwd,Inv}Col_D97_JPEG2K_32f_C1R
 *                           qeliWT{Fwd,Inv}ColLift_D97_JPEG2K_{16s,32f,32s}_C1
 *   wavelet_tiles           qeliWT{GetBufSize,Fwd,Inv}_{B53,D97}_JPEG2K_{16s,32s}_{C1IR,C1R}
 *   codeblock_encoder       qeliEncode{InitAlloc,Free,GetRate,GetDist,GetTermPassLen}_JPEG2K
 *                           qeliEncodeLoadCodeBlock_JPEG2K_32s_C1R qeliEncodeStoreBits_JPEG2K_1u
 *   codeblock_decoder       qeliDecodeGetBufSize_JPEG2K qeliDecodeCodeBlock_JPEG2K_1u32s_C1R
 *   codeblock_progressive   qeliDecodeCBProgr{GetStateSize,Init,InitAlloc,Free,Step}_JPEG2K
 *                           qeliDecodeCBProgr{SetPassCounter,GetPassCounter,GetCurBitPlaneNum}_JPEG2K
 *                           qeliDecodeCBProgrAttach_JPEG2K_32s_C1R
 *   JPEG XR
 *   photo_core              qeliPCT{Fwd,Inv}{,16x16,8x16,8x8}_JPEGXR_{16s,32s,32f}_C1IR
 *   vlc_state               qeliVLC{GetStateSize,Init,Adapt,ScanReset,ScanSet}_JPEGXR
 *                           qeliVLCScan4x4DC_JPEGXR_32s
 *   vlc_blocks              qeliVLCEncode4x4{,Flex}_JPEGXR_{16s1u,32s1u}_C1R
 *                           qeliVLCDecode4x4_JPEGXR_{1u16s,1u32s}_C1R
 *   vlc_dc                  qeliVLCEncodeDC{420,422,444}_JPEGXR_32s1u
 *                           qeliVLCDecodeDC{420,422,444}_JPEGXR_1u32s
 *   flc                     qeliFLCEncode4x4_JPEGXR_{16s1u,32s1u}_C1R
 *                           qeliFLCDecode4x4_JPEGXR_{1u16s,1u32s}_C1IR
 *   Textures
 *   texture_decoding        qeliTextureDecodeBlockToRGBA_{DXT1,DXT3,DXT5}_8u_C1C4R
 *                           qeliTextureDecodeBlock_BC4_8u_C1R qeliTextureDecodeBlockToRG_BC5_8u_C1C2R
 *   texture_encoding        qeliTextureEncodeBlockFromRGBA_{DXT1,DXT3,DXT5}_8u_C4C1R
 *                           qeliTextureEncodeBlock_BC4_8u_C1R qeliTextureEncodeBlockFromRG_BC5_8u_C2C1R
 *                           qeliTextureEncodeBlockFromYCoCg_DXT5_8u_C3C1R
 *   bc6                     qeliTextureDecodeBlockToRGB_BC6_{16u,16s}_C1C3R
 *   bc7                     qeliTextureDecodeBlockToRGBA_BC7_8u_C1C4R
 *                           qeliTextureEncodeBlock4x4FromRGBA_BC7_8u_C4C1R
 *   TIFF
 *   tiff_rows               qeli{PackBits,UnpackBits}Row_TIFF_8u_C1
 *                           qeliSplitRow_TIFF_16u8u_C1 qeliJoinRow_TIFF_8u16u_C1
 * @endcode
 */
#ifndef QELJ_H
#define QELJ_H

#include <stdint.h>

/** Marks the exported functions. On Windows, define QELJ_STATIC where the library is linked in statically. */
#if defined(_WIN32) && defined(QELJ_STATIC)
#  define QELJ_API
#elif defined(_WIN32) && defined(QELJ_BUILDING)
#  define QELJ_API __declspec(dllexport)
#elif defined(_WIN32)
#  define QELJ_API __declspec(dllimport)
#elif defined(__GNUC__)
#  define QELJ_API __attribute__((visibility("default")))
#else
#  define QELJ_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @defgroup status Status
 * @{
 */

/** Result of every function: 0 success, negative failure, positive warning (the output is
 *  complete and usable). */
typedef int32_t QelStatus;

/** The values of a QelStatus. */
enum {
  /** The width or height is odd for the sampling; the last odd column or row was left out of the pairs. */
  qelStatusOddSizeWarning = 35,
  /** A divisor in a table was zero; its entry holds 0xFFFF and the other entries are right. */
  qelStatusZeroDivisorWarning = 6,
  /** Success. */
  qelStatusOk = 0,
  /** A run of zeros in a baseline block went past the guard entries of the scan-order table. */
  qelStatusJpegBlockOverrun = -2,
  /** An argument other than a pointer, step or size is out of its domain. */
  qelStatusBadArg = -5,
  /** A width, height or length is below the operation's minimum. */
  qelStatusBadSize = -6,
  /** A value is outside the range that the format can hold. */
  qelStatusOutOfRange = -7,
  /** A pointer, or a plane pointer in a plane array, is null; also a failed allocation of a Huffman
   *  record. */
  qelStatusNullPointer = -8,
  /** Allocation failed in a code-block coder's ...InitAlloc. */
  qelStatusNoMemory = -9,
  /** A step is below 1. */
  qelStatusBadStep = -14,
  /** A state record is not one of this family. */
  qelStatusContextMismatch = -17,
  /** The coded stream ended while a decoder needed more bytes, or the destination while an encoder had
   *  bytes. */
  qelStatusJpegOutOfBuffer = -62,
  /** No valid code here, a marker where bits were needed, or a value that no Huffman category can express. */
  qelStatusJpegCoeffRange = -63,
  /** A Huffman table is not usable: its code counts overflow, or a symbol to be coded has no code. */
  qelStatusJpegHuffTable = -64,
  /** The decoder detected an error in a code-block's passes. */
  qelStatusJpeg2kBadCodeBlock = -112,
  /** A coding-pass index is negative or not below the number of passes. */
  qelStatusJpeg2kBadPassNumber = -113,
  /** A TIFF row packer or unpacker reached the end of its source or destination. */
  qelStatusOutOfBuffer = -124,
  /** A progressive code-block decoder was stepped before a buffer was attached. */
  qelStatusJpeg2kNotAttached = -180
};

/** @} */

/**
 * @defgroup types Shared types
 * @{
 */

/** Size of an image or region, in pixels or samples of one channel. */
typedef struct QelSize {
  int32_t width;  /**< columns */
  int32_t height; /**< rows */
} QelSize;

/** A tile's rectangle on the reference grid. */
typedef struct QelRect {
  int32_t x;      /**< of the first column; only its lowest bit counts */
  int32_t y;      /**< of the first row; only its lowest bit counts */
  int32_t width;  /**< columns */
  int32_t height; /**< rows */
} QelRect;

/** @} */

/**
 * @defgroup library The library itself
 * @{
 */

/** What qeljGetLibVersion tells. */
typedef struct QelLibVersion {
  int32_t versionMajor;      /**< 7 */
  int32_t versionMinor;      /**< 1 */
  int32_t versionPatch;      /**< 0 */
  int32_t versionBuild;      /**< 36264 */
  char cpuTag[4];            /**< "g9", filled with zeros: the same for every image of this library */
  const char* libraryName;   /**< "qelJP AVX (g9)" */
  const char* versionText;   /**< "7.1.0 (r36264)" */
  const char* buildDateText; /**< "Jul 23 2012" */
} QelLibVersion;
/** The version record: constant, in static storage, the same pointer on every call. Cannot fail.
 *  See @ref library. */
QELJ_API const QelLibVersion* qeljGetLibVersion(void);

/** @} */

/* ========================================================================================================
 * JPEG (ISO/IEC 10918-1, JFIF)
 * ======================================================================================================== */

/**
 * @defgroup level_shift Level shift (A.3.1)
 * @code{.unparsed}
 * Centre 8-bit samples on zero before a forward DCT, and bring them back behind an inverse one.
 *   Sub128: dst = src - 128, from -128 to 127.      Add128: dst = src + 128, clamped to 0..255.
 *
 * size.width samples a row, size.height rows; both at least 1. Steps from 1 up pass the check; see "Overlap"
 * above. Checked in this order: src (qelStatusNullPointer), srcStep (qelStatusBadStep), dst
 * (qelStatusNullPointer), dstStep (qelStatusBadStep), size (qelStatusBadSize). Both functions fork.
 * @endcode
 * @{
 */

/** 8-bit samples less 128: -128 to 127. Forks. See @ref level_shift. */
QELJ_API QelStatus qeliSub128_JPEG_8u16s_C1R(
    const uint8_t* src, int32_t srcStep, int16_t* dst, int32_t dstStep, QelSize size);

/** 16-bit samples and 128, clamped to bytes. Forks. See @ref level_shift. */
QELJ_API QelStatus qeliAdd128_JPEG_16s8u_C1R(
    const int16_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QelSize size);

/** @} */

/**
 * @defgroup colour_forward Forward colour conversion: RGB, BGR, CMYK to Y, YCbCr, YCCK planes
 * @code{.unparsed}
 * The conversion of JFIF (ITU-T T.871): Y = 0.299 R + 0.587 G + 0.114 B, Cb = 128 + 0.564 (B - Y),
 * Cr = 128 + 0.713 (R - Y), all planes of full resolution, 8 bits a sample.
 *
 * Sources.  C3: R, G, B or B, G, R bytes, by name. C4: the same and a fourth byte, which is ignored. P3:
 *   planes R, G, B. CMYK: C, M, Y, K bytes or planes; 255 - C, 255 - M, 255 - Y are converted as R, G, B and
 *   K is copied unchanged to dst[3] (YCCK). 16u: packed pixels in host byte order, a 5-bit field in the low
 *   bits, G, and a 5-bit field above it; the low field is R for RGB names and B for BGR names; G has 5 bits
 *   (555, the top bit is ignored) or 6 (565). A field widens to a byte by a left shift: its low bits
 *   become 0.
 * Destinations.  dst[0] Y, dst[1] Cb, dst[2] Cr, dst[3] K; one dstStep serves all planes.
 *
 * Values. Shifts round down, results are clamped to 0..255.
 *   A  Y  = (9798 R + 19235 G + 3736 B + 16266) >> 15
 *      Cb = ((-5529 R - 10855 G + 16384 B + 16384) >> 15) + 128
 *      Cr = ((16384 R - 13720 G - 2664 B + 16400) >> 15) + 128
 *   B  Y  = (4899 R + 9617 G + 1868 B + 8192) >> 14
 *      Cb = ((-2764 R - 5428 G + 8192 B + 8192) >> 14) + 128
 *      Cr = ((8192 R - 6860 G - 1332 B + 8192) >> 14) + 128
 *   C  Y  = ((4899 R >> 8) + (9617 G >> 8) + (1868 B >> 8) + 32) >> 6
 *      Cb = ((8192 B >> 9) - ((2765 R >> 9) + (5427 G >> 9)) + 4112) >> 5
 *      Cr = ((8192 R >> 9) - ((6860 G >> 9) + (1332 B >> 9)) + 4112) >> 5
 *   D  Y of B;  Cb = ((-2765 R - 5427 G + 8192 B + 4096) >> 14) + 128
 *      Cr = ((8192 R - 6860 G - 1332 B + 4096) >> 14) + 128
 *   E  Y of F;  Cb = ((18491 (B - Y) + 16384) >> 15) + 128,  Cr = ((23373 (R - Y) + 16384) >> 15) + 128
 *   F  Y  = (19595 R + 38470 G + 7471 B + 32768) >> 16
 *      Cb = ((-11059 R - 21709 G + 32768 B + 32767) >> 16) + 128
 *      Cr = ((32768 R - 27439 G - 5329 B + 32767) >> 16) + 128
 *   G  Y = (0.299f R + 0.587f G) + 0.114f B in single precision, to the nearest integer, ties to even
 * Which form a pixel gets depends on its place x in a row of width W, and only on that:
 *   RGB, BGR C3P3       A for x < W - W % 8, then B      RGB, BGR C4P3        C for x < W - W % 8, then D
 *   RGB P3P3, CMYK P4   E for x < W - W % 4, then F      RGB P3C1 (luma)      G for x < W - W % 4, then F
 *   RGB, BGR C3C1       A                                CMYK C4P4, 555, 565  B
 * For some colours two of them differ by one unit. Rows cut at multiples of 8 pixels give what the whole row
 * gives.
 *
 * Any width and height from 1 up. Checked in this order: src and dst, then the plane pointers of the arrays
 * (qelStatusNullPointer), srcStep, dstStep (qelStatusBadStep), size (qelStatusBadSize). The C4P3 functions
 * test no step: zero and negative steps are used as given. All functions fork except C4P3, 555 and 565.
 * Nothing is read or written outside the rows of the region.
 * @endcode
 * @{
 */

/** Pixels R, G, B to planes Y, Cb, Cr: form A, then B behind the last whole 8 pixels. Forks.
 *  See @ref colour_forward. */
QELJ_API QelStatus qeliRGBToYCbCr_JPEG_8u_C3P3R(
    const uint8_t* src, int32_t srcStep, uint8_t* const* dst, int32_t dstStep, QelSize size);

/** Pixels B, G, R to planes Y, Cb, Cr: form A, then B behind the last whole 8 pixels. Forks.
 *  See @ref colour_forward. */
QELJ_API QelStatus qeliBGRToYCbCr_JPEG_8u_C3P3R(
    const uint8_t* src, int32_t srcStep, uint8_t* const* dst, int32_t dstStep, QelSize size);

/** Pixels R, G, B and a byte to skip: form C, then D behind the last whole 8 pixels. Steps are not tested.
 *  See @ref colour_forward. */
QELJ_API QelStatus qeliRGBToYCbCr_JPEG_8u_C4P3R(
    const uint8_t* src, int32_t srcStep, uint8_t* const* dst, int32_t dstStep, QelSize size);

/** Pixels B, G, R and a byte to skip: form C, then D behind the last whole 8 pixels. Steps are not tested.
 *  See @ref colour_forward. */
QELJ_API QelStatus qeliBGRToYCbCr_JPEG_8u_C4P3R(
    const uint8_t* src, int32_t srcStep, uint8_t* const* dst, int32_t dstStep, QelSize size);

/** Planes R, G, B to planes Y, Cb, Cr: form E, then F behind the last whole 4 pixels. Forks.
 *  See @ref colour_forward. */
QELJ_API QelStatus qeliRGBToYCbCr_JPEG_8u_P3R(
    const uint8_t* const* src, int32_t srcStep, uint8_t* const* dst, int32_t dstStep, QelSize size);
/** Pixels R, G, B to luma alone, all by form A; dst is the one plane. Forks. See @ref colour_forward. */
QELJ_API QelStatus qeliRGBToY_JPEG_8u_C3C1R(
    const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QelSize size);

/** Pixels B, G, R to luma alone, all by form A; dst is the one plane. Forks. See @ref colour_forward. */
QELJ_API QelStatus qeliBGRToY_JPEG_8u_C3C1R(
    const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QelSize size);

/** Planes R, G, B to luma alone: form G, then F behind the last whole 4 pixels. Forks.
 *  See @ref colour_forward. */
QELJ_API QelStatus qeliRGBToY_JPEG_8u_P3C1R(
    const uint8_t* const* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QelSize size);
/** Pixels C, M, Y, K to planes Y, Cb, Cr, K, by form B. Forks. See @ref colour_forward. */
QELJ_API QelStatus qeliCMYKToYCCK_JPEG_8u_C4P4R(
    const uint8_t* src, int32_t srcStep, uint8_t* const* dst, int32_t dstStep, QelSize size);

/** Planes C, M, Y, K to planes Y, Cb, Cr, K: form E, then F behind the last whole 4 pixels. Forks.
 *  See @ref colour_forward. */
QELJ_API QelStatus qeliCMYKToYCCK_JPEG_8u_P4R(
    const uint8_t* const* src, int32_t srcStep, uint8_t* const* dst, int32_t dstStep, QelSize size);
/** Words of 5, 5, 5 bits, R lowest, by form B. src may stand at an odd address. See @ref colour_forward. */
QELJ_API QelStatus qeliRGB555ToYCbCr_JPEG_16u8u_C3P3R(
    const uint16_t* src, int32_t srcStep, uint8_t* const* dst, int32_t dstStep, QelSize size);

/** Words of 5, 5, 5 bits, B lowest, by form B. src may stand at an odd address. See @ref colour_forward. */
QELJ_API QelStatus qeliBGR555ToYCbCr_JPEG_16u8u_C3P3R(
    const uint16_t* src, int32_t srcStep, uint8_t* const* dst, int32_t dstStep, QelSize size);

/** Words of 5, 6, 5 bits, R lowest, by form B. src may stand at an odd address. See @ref colour_forward. */
QELJ_API QelStatus qeliRGB565ToYCbCr_JPEG_16u8u_C3P3R(
    const uint16_t* src, int32_t srcStep, uint8_t* const* dst, int32_t dstStep, QelSize size);

/** Words of 5, 6, 5 bits, B lowest, by form B. src may stand at an odd address. See @ref colour_forward. */
QELJ_API QelStatus qeliBGR565ToYCbCr_JPEG_16u8u_C3P3R(
    const uint16_t* src, int32_t srcStep, uint8_t* const* dst, int32_t dstStep, QelSize size);

/** @} */

/**
 * @defgroup colour_inverse Inverse colour conversion: YCbCr, YCCK planes to RGB, BGR, CMYK
 * @code{.unparsed}
 * The inverse of JFIF's conversion: R = Y + 1.402 (Cr - 128), G = Y - 0.344 (Cb - 128) - 0.714 (Cr - 128),
 * B = Y + 1.772 (Cb - 128), rounded and clamped to 0..255. Rounding errors of the two directions add up: a
 * round trip is not the identity.
 *
 * Sources.  src[0] Y, src[1] Cb, src[2] Cr, src[3] K, planes of full resolution; one srcStep serves all.
 * Destinations.  C3: R, G, B or B, G, R bytes, by name. C4: the same and a fourth byte, which becomes `alpha`
 *   in every pixel. P3R: planes R, G, B. CMYK, as pixels or planes: C = 255 - R, M = 255 - G, Y = 255 - B; K
 *   is copied unchanged. 16u: packed pixels in host byte order, laid out as in the forward conversion; a
 *   field takes the top bits of the byte, without rounding or dither; bit 15 of a 555 pixel is 0.
 *
 * Values. u = Cb - 128, v = Cr - 128; shifts round down, results are clamped to 0..255.
 *   H  R = Y + ((22970 v + 8145) >> 14),  B = Y + ((29032 u + 8135) >> 14)
 *      G = Y + ((-5638 u - 11700 v + 8302) >> 14)
 *   I  R of H;  B = Y + ((29032 u + 7535) >> 14),  G = Y - ((5638 u + 11700 v + 8082) >> 14)
 *   J  R = Y + ((91881 v + 32768) >> 16),  B = Y + ((116130 u + 32768) >> 16)
 *      G = Y + ((-22554 u - 46802 v + 32768) >> 16)
 *   K  R = (16 Y + (11485 Cr >> 9) - 2863) >> 4,  B = (16 Y + (14516 Cb >> 9) - 3621) >> 4
 *      G = (16 Y + 2175 - ((2819 Cb >> 9) + (5850 Cr >> 9))) >> 4
 * Which form a pixel gets depends on its place x in a row of width W, and only on that:
 *   RGB, BGR P3C3             H for x < W - W % 4, then J
 *   RGB P3R, CMYK, 555, 565   I for x < W - W % 4, then J
 *   RGB, BGR P3C4             K
 * For some colours two of them differ by one unit. Rows cut at multiples of 4 pixels give what the whole row
 * gives.
 *
 * Any width and height from 1 up. Checked in this order: src and dst, then the plane pointers of the arrays
 * (qelStatusNullPointer), srcStep, dstStep (qelStatusBadStep), size (qelStatusBadSize). The P3C4 functions
 * test no step: zero and negative steps are used as given. All functions fork except P3C4, 555 and 565.
 * Nothing is read or written outside the rows of the region.
 * @endcode
 * @{
 */

/** Planes Y, Cb, Cr to pixels R, G, B: form H, then J behind the last whole 4 pixels. Forks.
 *  See @ref colour_inverse. */
QELJ_API QelStatus qeliYCbCrToRGB_JPEG_8u_P3C3R(
    const uint8_t* const* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QelSize size);

/** Planes Y, Cb, Cr to pixels B, G, R: form H, then J behind the last whole 4 pixels. Forks.
 *  See @ref colour_inverse. */
QELJ_API QelStatus qeliYCbCrToBGR_JPEG_8u_P3C3R(
    const uint8_t* const* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QelSize size);

/** Planes Y, Cb, Cr to planes R, G, B: form I, then J behind the last whole 4 pixels. Forks.
 *  See @ref colour_inverse. */
QELJ_API QelStatus qeliYCbCrToRGB_JPEG_8u_P3R(
    const uint8_t* const* src, int32_t srcStep, uint8_t* const* dst, int32_t dstStep, QelSize size);

/** Planes Y, Cb, Cr to pixels R, G, B, alpha, all by form K. Steps are not tested.
 *  See @ref colour_inverse. */
QELJ_API QelStatus qeliYCbCrToRGB_JPEG_8u_P3C4R(
    const uint8_t* const* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QelSize size, uint8_t alpha);

/** Planes Y, Cb, Cr to pixels B, G, R, alpha, all by form K. Steps are not tested.
 *  See @ref colour_inverse. */
QELJ_API QelStatus qeliYCbCrToBGR_JPEG_8u_P3C4R(
    const uint8_t* const* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QelSize size, uint8_t alpha);
/** Planes Y, Cb, Cr, K to pixels C, M, Y, K: forms I, then J. Forks. See @ref colour_inverse. */
QELJ_API QelStatus qeliYCCKToCMYK_JPEG_8u_P4C4R(
    const uint8_t* const* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QelSize size);

/** Planes Y, Cb, Cr, K to planes C, M, Y, K: forms I, then J. Forks. See @ref colour_inverse. */
QELJ_API QelStatus qeliYCCKToCMYK_JPEG_8u_P4R(
    const uint8_t* const* src, int32_t srcStep, uint8_t* const* dst, int32_t dstStep, QelSize size);
/** Planes to words of 5, 5, 5 bits, R lowest, bit 15 zero: forms I, then J. dst may stand at an odd address.
 *  See @ref colour_inverse. */
QELJ_API QelStatus qeliYCbCrToRGB555_JPEG_8u16u_P3C3R(
    const uint8_t* const* src, int32_t srcStep, uint16_t* dst, int32_t dstStep, QelSize size);

/** Planes to words of 5, 5, 5 bits, B lowest, bit 15 zero: forms I, then J. dst may stand at an odd address.
 *  See @ref colour_inverse. */
QELJ_API QelStatus qeliYCbCrToBGR555_JPEG_8u16u_P3C3R(
    const uint8_t* const* src, int32_t srcStep, uint16_t* dst, int32_t dstStep, QelSize size);

/** Planes to words of 5, 6, 5 bits, R lowest: forms I, then J. dst may stand at an odd address.
 *  See @ref colour_inverse. */
QELJ_API QelStatus qeliYCbCrToRGB565_JPEG_8u16u_P3C3R(
    const uint8_t* const* src, int32_t srcStep, uint16_t* dst, int32_t dstStep, QelSize size);

/** Planes to words of 5, 6, 5 bits, B lowest: forms I, then J. dst may stand at an odd address.
 *  See @ref colour_inverse. */
QELJ_API QelStatus qeliYCbCrToBGR565_JPEG_8u16u_P3C3R(
    const uint8_t* const* src, int32_t srcStep, uint16_t* dst, int32_t dstStep, QelSize size);

/** @} */

/**
 * @defgroup colour_planes Subsampled plane conversion: RGB, BGR to and from YCbCr planes of 4:2:2 and 4:2:0
 * @code{.unparsed}
 * 422 halves chroma across; 411 halves it across and down (one chroma sample for 2 by 2 pixels, the world's
 * 4:2:0). The Y plane has the image's size, Cb and Cr have width / 2 columns and, for 411, height / 2 rows.
 * The planes have steps of their own: dstStep and srcStep are arrays of three, for Y, Cb, Cr.
 *
 * Forward.  The colours of the n = 2 or 4 pixels of a chroma sample are added up to rs, gs, bs, then
 *   converted; Y is converted from each pixel. With m = log2 n, pixels x < W - W % 8 of a row of width W take
 *   Y of form C and
 *     Cb = clamp(((8192 bs >> (9 + m)) - ((2765 rs >> (9 + m)) + (5427 gs >> (9 + m))) + 4112) >> 5)
 *     Cr = clamp(((8192 rs >> (9 + m)) - ((6860 gs >> (9 + m)) + (1332 bs >> (9 + m))) + 4112) >> 5)
 *   and the pairs behind them take Y of form B and
 *     Cb = ((-2765 rs - 5427 gs + 8192 bs + 8192 n) >> (14 + m)) + 128
 *     Cr = ((8192 rs - 6860 gs - 1332 bs + 8192 n) >> (14 + m)) + 128
 *   For some colours the two differ by one unit. C4: the fourth byte is ignored.
 * Inverse.  Each chroma sample serves its pixels as it is, without a filter, by form K of the full-size
 *   conversions. C4: the fourth byte of every pixel written becomes `alpha`.
 * Packed 4:2:2 (C2C3R).  Two pixels are four bytes: Y0, Cb, Y1, Cr. Any width and height from 1 up, without a
 *   warning. Pixels x < W - W % 8 take
 *     R = clamp(Y + (22970 Cr >> 14) - 179),  B = clamp(Y + (29032 Cb >> 14) - 226)
 *     G = clamp(Y + (((-11700 Cr >> 9) + (-5638 Cb >> 9)) >> 5) + 135)
 *   by which a neutral grey v gives G = v - 1 (R = B = v); the pairs behind them take form J.
 *   An odd width converts its last pair whole: in every row 2 bytes behind the row's 2 * width are read and 3
 *   bytes behind its 3 * width are written (a width of 1 writes two pixels). Leave room for them behind the
 *   last row. Where dstStep is too small for them the next row overwrites them: rows that overlap are written
 *   in order. Checked in this order: src, dst (qelStatusNullPointer), size (qelStatusBadSize); no step is
 *   tested. It forks. The rest of this text is about the others.
 *
 * An odd last column, and for 411 an odd last row, is left out: it is not written in any plane or pixel, its
 * old contents stay, and the result is qelStatusOddSizeWarning (422: odd width; 411: odd width or height).
 *
 * Checked in this order: src and dst, then the plane pointers (qelStatusNullPointer), size (qelStatusBadSize:
 * width at least 2, height at least 1 for 422 and 2 for 411). No step is tested: zero and negative steps are
 * used as given. The arrays of steps are not tested for null, and are read only behind the checks. None of
 * them forks. Nothing is read or written outside the rows of the region.
 * @endcode
 * @{
 */

/** Pixels R, G, B to planes Y, Cb, Cr, chroma halved across. See @ref colour_planes. */
QELJ_API QelStatus qeliRGBToYCbCr422_JPEG_8u_C3P3R(
    const uint8_t* src, int32_t srcStep, uint8_t* const* dst, const int32_t* dstStep, QelSize size);

/** Pixels B, G, R to planes Y, Cb, Cr, chroma halved across. See @ref colour_planes. */
QELJ_API QelStatus qeliBGRToYCbCr422_JPEG_8u_C3P3R(
    const uint8_t* src, int32_t srcStep, uint8_t* const* dst, const int32_t* dstStep, QelSize size);

/** Pixels R, G, B and a byte to skip; chroma halved across. See @ref colour_planes. */
QELJ_API QelStatus qeliRGBToYCbCr422_JPEG_8u_C4P3R(
    const uint8_t* src, int32_t srcStep, uint8_t* const* dst, const int32_t* dstStep, QelSize size);

/** Pixels B, G, R and a byte to skip; chroma halved across. See @ref colour_planes. */
QELJ_API QelStatus qeliBGRToYCbCr422_JPEG_8u_C4P3R(
    const uint8_t* src, int32_t srcStep, uint8_t* const* dst, const int32_t* dstStep, QelSize size);

/** Pixels R, G, B to planes of 4:2:0: chroma halved across and down. See @ref colour_planes. */
QELJ_API QelStatus qeliRGBToYCbCr411_JPEG_8u_C3P3R(
    const uint8_t* src, int32_t srcStep, uint8_t* const* dst, const int32_t* dstStep, QelSize size);

/** Pixels B, G, R to planes of 4:2:0: chroma halved across and down. See @ref colour_planes. */
QELJ_API QelStatus qeliBGRToYCbCr411_JPEG_8u_C3P3R(
    const uint8_t* src, int32_t srcStep, uint8_t* const* dst, const int32_t* dstStep, QelSize size);

/** Pixels R, G, B and a byte to skip, to planes of 4:2:0. See @ref colour_planes. */
QELJ_API QelStatus qeliRGBToYCbCr411_JPEG_8u_C4P3R(
    const uint8_t* src, int32_t srcStep, uint8_t* const* dst, const int32_t* dstStep, QelSize size);

/** Pixels B, G, R and a byte to skip, to planes of 4:2:0. See @ref colour_planes. */
QELJ_API QelStatus qeliBGRToYCbCr411_JPEG_8u_C4P3R(
    const uint8_t* src, int32_t srcStep, uint8_t* const* dst, const int32_t* dstStep, QelSize size);

/** Planes with chroma halved across to pixels R, G, B. See @ref colour_planes. */
QELJ_API QelStatus qeliYCbCr422ToRGB_JPEG_8u_P3C3R(
    const uint8_t* const* src, const int32_t* srcStep, uint8_t* dst, int32_t dstStep, QelSize size);

/** Planes with chroma halved across to pixels B, G, R. See @ref colour_planes. */
QELJ_API QelStatus qeliYCbCr422ToBGR_JPEG_8u_P3C3R(
    const uint8_t* const* src, const int32_t* srcStep, uint8_t* dst, int32_t dstStep, QelSize size);

/** Planes of 4:2:0 to pixels R, G, B. See @ref colour_planes. */
QELJ_API QelStatus qeliYCbCr411ToRGB_JPEG_8u_P3C3R(
    const uint8_t* const* src, const int32_t* srcStep, uint8_t* dst, int32_t dstStep, QelSize size);

/** Planes of 4:2:0 to pixels B, G, R. See @ref colour_planes. */
QELJ_API QelStatus qeliYCbCr411ToBGR_JPEG_8u_P3C3R(
    const uint8_t* const* src, const int32_t* srcStep, uint8_t* dst, int32_t dstStep, QelSize size);

/** Planes with chroma halved across to pixels R, G, B, alpha. See @ref colour_planes. */
QELJ_API QelStatus qeliYCbCr422ToRGB_JPEG_8u_P3C4R(const uint8_t* const* src, const int32_t* srcStep,
    uint8_t* dst, int32_t dstStep, QelSize size, uint8_t alpha);

/** Planes with chroma halved across to pixels B, G, R, alpha. See @ref colour_planes. */
QELJ_API QelStatus qeliYCbCr422ToBGR_JPEG_8u_P3C4R(const uint8_t* const* src, const int32_t* srcStep,
    uint8_t* dst, int32_t dstStep, QelSize size, uint8_t alpha);

/** Planes of 4:2:0 to pixels R, G, B, alpha. See @ref colour_planes. */
QELJ_API QelStatus qeliYCbCr411ToRGB_JPEG_8u_P3C4R(const uint8_t* const* src, const int32_t* srcStep,
    uint8_t* dst, int32_t dstStep, QelSize size, uint8_t alpha);

/** Planes of 4:2:0 to pixels B, G, R, alpha. See @ref colour_planes. */
QELJ_API QelStatus qeliYCbCr411ToBGR_JPEG_8u_P3C4R(const uint8_t* const* src, const int32_t* srcStep,
    uint8_t* dst, int32_t dstStep, QelSize size, uint8_t alpha);
/** Packed 4:2:2 (Y0, Cb, Y1, Cr) to pixels R, G, B. An odd width writes one pixel more a row. Forks.
 *  See @ref colour_planes. */
QELJ_API QelStatus qeliYCbCr422ToRGB_JPEG_8u_C2C3R(
    const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QelSize size);

/** @} */

/**
 * @defgroup resampling Resampling of a chroma plane or row
 * @code{.unparsed}
 * Two-to-one across (H2V1) or across and down (H2V2): box averages down, a triangle filter (weights 3 and 1)
 * up. The functions of planes and of rows round differently, and only those of rows have an edge rule.
 *
 * Planes.  With s a source row, a and b source rows 2y and 2y + 1, k = x / 2, and m[k] = 3 near[k] + far[k],
 *   where near is source row y / 2 and far the row below it for an odd destination row y, the row above it
 *   for an even one:
 *   DownH2V1  dst[x] = (s[2x] + s[2x+1] + 1) >> 1
 *   DownH2V2  dst[x] = (a[2x] + a[2x+1] + b[2x] + b[2x+1] + 3) >> 2
 *   UpH2V1    dst[x] = (s[k-1] + 3 s[k] + 1) >> 2 for even x,  (3 s[k] + s[k+1] + 2) >> 2 for odd x
 *   UpH2V2    dst[x] = (m[k-1] + 3 m[k] + 8) >> 4 for even x,  (3 m[k] + m[k+1] + 7) >> 4 for odd x
 *   dstSize alone says what is written, all of it, and so what is read: srcSize is checked to be positive and
 *   has no other role, and a dstSize that the source cannot serve is not detected. The up-samplers read one
 *   sample in front of each source row and one behind the last one used; UpH2V2 reads the row above the first
 *   and (for an even height) the one below the last one used as well. The caller supplies them: the source is
 *   meant to lie in a larger buffer with filled borders.
 *   Checked in this order: src (qelStatusNullPointer), srcStep (qelStatusBadStep), srcSize (qelStatusBadSize,
 *   both at least 1), dst, dstStep, dstSize likewise. All fork but UpH2V1.
 *
 * Rows.  With n = srcWidth:
 *   DownRowH2V1  n / 2 samples, (src[2k] + src[2k+1] + r) >> 1, r = 0, 1, 0, 1, ...; for n = 4, 8, 12
 *                r = 1, 0, ... Keep dst aligned to 16 bytes: otherwise, with p bytes from dst to the next
 *                16-byte boundary, a row of n <= 2p (other than n = 2, 4, ..., 14) gets only max(n - p, 0) /
 *                2 samples; the rest stays as it was, and the result is qelStatusOk all the same.
 *   DownRowH2V2  (src1[2k] + src1[2k+1] + src2[2k] + src2[2k+1] + r) >> 2, r = 1, 2, 1, 2, ...; n / 2 samples
 *                for n of 32 or more, (n + 1) / 2 below that, so that an odd n below 32 reads one sample
 *                behind each row.
 *   UpRowH2V1, UpRowH2V2  2n samples, as the planes' functions, with src1 the near row and src2 the far one;
 *                the end samples take themselves for the neighbour that they lack: for H2V1 dst[0] = src[0]
 *                and dst[2n-1] = src[n-1]; for H2V2, with m[k] = 3 src1[k] + src2[k], (4 m[0] + 8) >> 4 and
 *                (4 m[n-1] + 7) >> 4. Nothing outside the rows is read; n may be 1.
 *   Checked in this order: pointers (qelStatusNullPointer), srcWidth (qelStatusBadSize, at least 1). None
 *   forks.
 * @endcode
 * @{
 */

/** Halves a plane across by means of two samples, halves rounded up. Forks. See @ref resampling. */
QELJ_API QelStatus qeliSampleDownH2V1_JPEG_8u_C1R(
    const uint8_t* src, int32_t srcStep, QelSize srcSize, uint8_t* dst, int32_t dstStep, QelSize dstSize);

/** Halves a plane across and down by means of four samples, rounded up. Forks. See @ref resampling. */
QELJ_API QelStatus qeliSampleDownH2V2_JPEG_8u_C1R(
    const uint8_t* src, int32_t srcStep, QelSize srcSize, uint8_t* dst, int32_t dstStep, QelSize dstSize);

/** Doubles a plane across by the triangle filter; reads one sample beyond each end of a row.
 *  See @ref resampling. */
QELJ_API QelStatus qeliSampleUpH2V1_JPEG_8u_C1R(
    const uint8_t* src, int32_t srcStep, QelSize srcSize, uint8_t* dst, int32_t dstStep, QelSize dstSize);

/** Doubles a plane across and down by the triangle filter; reads a border around the source. Forks.
 *  See @ref resampling. */
QELJ_API QelStatus qeliSampleUpH2V2_JPEG_8u_C1R(
    const uint8_t* src, int32_t srcStep, QelSize srcSize, uint8_t* dst, int32_t dstStep, QelSize dstSize);

/** Halves one row by means of two samples, halves rounded down and up by turns. Keep dst aligned to 16 bytes.
 *  See @ref resampling. */
QELJ_API QelStatus qeliSampleDownRowH2V1_Box_JPEG_8u_C1(const uint8_t* src, int32_t srcWidth, uint8_t* dst);

/** Doubles one row by the triangle filter; the first and the last sample are copied. See @ref resampling. */
QELJ_API QelStatus qeliSampleUpRowH2V1_Triangle_JPEG_8u_C1(
    const uint8_t* src, int32_t srcWidth, uint8_t* dst);

/** Two rows to one of half the width, by means of four samples. See @ref resampling. */
QELJ_API QelStatus qeliSampleDownRowH2V2_Box_JPEG_8u_C1(
    const uint8_t* src1, const uint8_t* src2, int32_t srcWidth, uint8_t* dst);

/** One row of twice the width, from the near row src1 and the far row src2. Two calls double a plane's rows.
 *  See @ref resampling. */
QELJ_API QelStatus qeliSampleUpRowH2V2_Triangle_JPEG_8u_C1(
    const uint8_t* src1, const uint8_t* src2, int32_t srcWidth, uint8_t* dst);

/** @} */

/**
 * @defgroup mcu_forward MCU conversion, forward: pixels to level-shifted blocks (A.2.3, A.3.1)
 * @code{.unparsed}
 * One call takes the pixels of one minimum coded unit, converts colour, takes the mean of the chroma of the
 * pixels that share a sample, subtracts 128 and writes blocks that are ready for a forward DCT. The caller
 * walks the image.
 *
 *   444   8 x 8 pixels      luma (and K): one block             each chroma sample from one pixel
 *   422   16 x 8 pixels     two blocks: left, right             from two neighbouring pixels of a row
 *   411   16 x 16 pixels    four blocks, in raster order        from 2 x 2 pixels
 *
 * dst is an array of three block pointers, Y, Cb, Cr (YCCK: four, K last, laid out like Y); a chroma plane is
 * one block. src is the MCU's top left pixel, srcStep the bytes from one row of pixels to the next. Exactly
 * the MCU's pixels are read and exactly its blocks are written.
 *
 * Pixels: RGB and BGR three bytes in that order; BGR555 and BGR565 16-bit words with blue in bits 0 to 4,
 * green above it in five or six bits, red in the next five, fields widened by zero low bits; CMYK four bytes.
 *
 * Values, without any clamp, all shifts rounding down; rs, gs, bs are the sums of R, G, B over the n = 1, 2
 * or 4 pixels of a chroma sample, and s = 14 + log2 n:
 *   Y'  = ((4899 R + 9617 G + 1868 B + 8192) >> 14) - 128
 *   Cb' = (-2764 rs - 5428 gs + 8192 bs + 8192 n) >> s
 *   Cr' = (8192 rs - 6860 gs - 1332 bs + 8192 n) >> s
 * They lie in -128..128. CMYK pixels are R = 255 - C, G = 255 - M, B = 255 - Y, and K' = K - 128. CMYK 444
 * rounds chroma with 8133 instead of 8192.
 *
 * The values of some members depend on the addresses of destination blocks. If one of the named pointers is
 * not a multiple of 16, the whole MCU uses a truncating form, up to one unit from the other:
 *   RGB and BGR 411: dst[0].      CMYK 444: any of the four.      CMYK 422 and 411: dst[0] and dst[3].
 *   Others: none.
 *   Y'  = ((19595 R + 38470 G + 7471 B) >> 16) - 128
 *   Cb' = (-11059 rs - 21709 gs + 32768 bs) >> (16 + log2 n)
 *   Cr' = (32768 rs - 27439 gs - 5329 bs) >> (16 + log2 n)
 * Keep blocks on 16-byte boundaries unless you want exactly that.
 *
 * SampleDown takes pixels of three bytes Y, Cb, Cr: luma is Y - 128, chroma the mean, rounded down, less 128.
 * Split422 takes rows of packed 4:2:2, bytes Y0 Cb Y1 Cr, and only subtracts 128 from each.
 *
 * Checked in this order: src, dst (qelStatusNullPointer), srcStep (qelStatusBadStep), the pointers in dst
 * (qelStatusNullPointer).
 * @endcode
 * @{
 */

/** 8 x 8 pixels R, G, B to one block each of Y, Cb, Cr. See @ref mcu_forward. */
QELJ_API QelStatus qeliRGBToYCbCr444LS_MCU_8u16s_C3P3R(
    const uint8_t* src, int32_t srcStep, int16_t* const dst[3]);

/** 16 x 8 pixels R, G, B to two blocks of Y and one each of Cb and Cr. See @ref mcu_forward. */
QELJ_API QelStatus qeliRGBToYCbCr422LS_MCU_8u16s_C3P3R(
    const uint8_t* src, int32_t srcStep, int16_t* const dst[3]);

/** 16 x 16 pixels R, G, B to four blocks of Y and one each of Cb and Cr. Keep dst[0] aligned to 16 bytes.
 *  See @ref mcu_forward. */
QELJ_API QelStatus qeliRGBToYCbCr411LS_MCU_8u16s_C3P3R(
    const uint8_t* src, int32_t srcStep, int16_t* const dst[3]);

/** 8 x 8 pixels B, G, R to one block each of Y, Cb, Cr. See @ref mcu_forward. */
QELJ_API QelStatus qeliBGRToYCbCr444LS_MCU_8u16s_C3P3R(
    const uint8_t* src, int32_t srcStep, int16_t* const dst[3]);

/** 16 x 8 pixels B, G, R to two blocks of Y and one each of Cb and Cr. See @ref mcu_forward. */
QELJ_API QelStatus qeliBGRToYCbCr422LS_MCU_8u16s_C3P3R(
    const uint8_t* src, int32_t srcStep, int16_t* const dst[3]);

/** 16 x 16 pixels B, G, R to four blocks of Y and one each of Cb and Cr. Keep dst[0] aligned to 16 bytes.
 *  See @ref mcu_forward. */
QELJ_API QelStatus qeliBGRToYCbCr411LS_MCU_8u16s_C3P3R(
    const uint8_t* src, int32_t srcStep, int16_t* const dst[3]);

/** 8 x 8 words of 5, 5, 5 bits, B lowest, to one block each of Y, Cb, Cr. See @ref mcu_forward. */
QELJ_API QelStatus qeliBGR555ToYCbCr444LS_MCU_16u16s_C3P3R(
    const uint16_t* src, int32_t srcStep, int16_t* const dst[3]);

/** 16 x 8 words of 5, 5, 5 bits, B lowest, to blocks Y, Y, Cb, Cr. See @ref mcu_forward. */
QELJ_API QelStatus qeliBGR555ToYCbCr422LS_MCU_16u16s_C3P3R(
    const uint16_t* src, int32_t srcStep, int16_t* const dst[3]);

/** 16 x 16 words of 5, 5, 5 bits, B lowest, to four blocks of Y and one each of Cb and Cr.
 *  See @ref mcu_forward. */
QELJ_API QelStatus qeliBGR555ToYCbCr411LS_MCU_16u16s_C3P3R(
    const uint16_t* src, int32_t srcStep, int16_t* const dst[3]);

/** 8 x 8 words of 5, 6, 5 bits, B lowest, to one block each of Y, Cb, Cr. See @ref mcu_forward. */
QELJ_API QelStatus qeliBGR565ToYCbCr444LS_MCU_16u16s_C3P3R(
    const uint16_t* src, int32_t srcStep, int16_t* const dst[3]);

/** 16 x 8 words of 5, 6, 5 bits, B lowest, to blocks Y, Y, Cb, Cr. See @ref mcu_forward. */
QELJ_API QelStatus qeliBGR565ToYCbCr422LS_MCU_16u16s_C3P3R(
    const uint16_t* src, int32_t srcStep, int16_t* const dst[3]);

/** 16 x 16 words of 5, 6, 5 bits, B lowest, to four blocks of Y and one each of Cb and Cr.
 *  See @ref mcu_forward. */
QELJ_API QelStatus qeliBGR565ToYCbCr411LS_MCU_16u16s_C3P3R(
    const uint16_t* src, int32_t srcStep, int16_t* const dst[3]);

/** 8 x 8 pixels C, M, Y, K to one block each of Y, Cb, Cr, K. Keep all four planes aligned to 16 bytes.
 *  See @ref mcu_forward. */
QELJ_API QelStatus qeliCMYKToYCCK444LS_MCU_8u16s_C4P4R(
    const uint8_t* src, int32_t srcStep, int16_t* const dst[4]);

/** 16 x 8 pixels C, M, Y, K to two blocks each of Y and K, one each of Cb and Cr. Keep Y and K aligned.
 *  See @ref mcu_forward. */
QELJ_API QelStatus qeliCMYKToYCCK422LS_MCU_8u16s_C4P4R(
    const uint8_t* src, int32_t srcStep, int16_t* const dst[4]);

/** 16 x 16 pixels C, M, Y, K to four blocks each of Y and K, one each of Cb and Cr. Keep Y and K aligned.
 *  See @ref mcu_forward. */
QELJ_API QelStatus qeliCMYKToYCCK411LS_MCU_8u16s_C4P4R(
    const uint8_t* src, int32_t srcStep, int16_t* const dst[4]);

/** 8 x 8 pixels Y, Cb, Cr to one block each, less 128. See @ref mcu_forward. */
QELJ_API QelStatus qeliSampleDown444LS_MCU_8u16s_C3P3R(
    const uint8_t* src, int32_t srcStep, int16_t* const dst[3]);

/** 16 x 8 pixels Y, Cb, Cr to blocks, chroma the mean of two pixels, less 128. See @ref mcu_forward. */
QELJ_API QelStatus qeliSampleDown422LS_MCU_8u16s_C3P3R(
    const uint8_t* src, int32_t srcStep, int16_t* const dst[3]);

/** 16 x 16 pixels Y, Cb, Cr to blocks, chroma the mean of four pixels, less 128. See @ref mcu_forward. */
QELJ_API QelStatus qeliSampleDown411LS_MCU_8u16s_C3P3R(
    const uint8_t* src, int32_t srcStep, int16_t* const dst[3]);

/** 16 x 8 pixels of packed 4:2:2 (Y0, Cb, Y1, Cr) to blocks, less 128. See @ref mcu_forward. */
QELJ_API QelStatus qeliSplit422LS_MCU_8u16s_C2P3R(const uint8_t* src, int32_t srcStep, int16_t* const dst[3]);

/** @} */

/**
 * @defgroup mcu_inverse MCU conversion, inverse: blocks to pixels (A.2.3, A.3.1)
 * @code{.unparsed}
 * One call takes the blocks of one minimum coded unit as an inverse DCT leaves them, repeats chroma to the
 * pixels that share a sample, converts colour, restores the level shift and writes pixels. The caller walks
 * the image. Geometry, planes and pixel formats are those of the forward functions; 555 and 565 drop the low
 * bits of each byte, and bit 15 of 555 is 0. Samples may have any 16-bit value.
 *
 * Exactly the MCU's blocks are read and exactly its pixels are written. With a dstStep below the width of the
 * MCU's rows they overlap, and are written top to bottom, each from left to right.
 *
 * Values, all shifts rounding down; clamp is to 0..255, and sat to 16 bits:
 *   R = clamp(Y + sat((22970 Cr + 2105344) >> 14))
 *   B = clamp(Y + sat((29032 Cb + 2105344) >> 14))
 *   G = clamp(Y + sat((-5638 Cb - 11700 Cr + 2105344) >> 14))      444
 *   G = clamp(Y - sat((5638 Cb + 11700 Cr - 2088960) >> 14))       422, 411: ties go the other way
 * CMYK is C = 255 - R, M = 255 - G, Y = 255 - B, and K = clamp(K + 128).
 *
 * The RGB, BGR and CMYK members depend on the addresses of the source blocks. If any plane pointer is not a
 * multiple of 16, the whole MCU uses a truncating form, products and sums modulo 2^32, up to one unit from
 * the other:
 *   R = clamp(Y + ((91881 Cr) >> 16) + 128)
 *   G = clamp(Y + ((-22554 Cb - 46802 Cr) >> 16) + 128)
 *   B = clamp(Y + ((116130 Cb) >> 16) + 128)
 * and K is the low eight bits of K + 128, not clamped: 128 gives 0. Keep blocks on 16-byte boundaries unless
 * you want exactly that. The address of dst never matters.
 *
 * SampleUp writes pixels of three bytes, each clamp(sample + 128). Join422 writes rows of packed 4:2:2, bytes
 * Y0 Cb Y1 Cr, likewise.
 *
 * Checked in this order: src, dst, the pointers in src (qelStatusNullPointer), dstStep (qelStatusBadStep).
 * @endcode
 * @{
 */

/** One block each of Y, Cb, Cr to 8 x 8 pixels R, G, B. Keep the blocks aligned to 16 bytes.
 *  See @ref mcu_inverse. */
QELJ_API QelStatus qeliYCbCr444ToRGBLS_MCU_16s8u_P3C3R(
    const int16_t* const src[3], uint8_t* dst, int32_t dstStep);

/** Blocks Y, Y, Cb, Cr to 16 x 8 pixels R, G, B. Keep the blocks aligned to 16 bytes.
 *  See @ref mcu_inverse. */
QELJ_API QelStatus qeliYCbCr422ToRGBLS_MCU_16s8u_P3C3R(
    const int16_t* const src[3], uint8_t* dst, int32_t dstStep);

/** Four blocks of Y, one each of Cb and Cr to 16 x 16 pixels R, G, B. Keep the blocks aligned to 16 bytes.
 *  See @ref mcu_inverse. */
QELJ_API QelStatus qeliYCbCr411ToRGBLS_MCU_16s8u_P3C3R(
    const int16_t* const src[3], uint8_t* dst, int32_t dstStep);

/** One block each of Y, Cb, Cr to 8 x 8 pixels B, G, R. Keep the blocks aligned to 16 bytes.
 *  See @ref mcu_inverse. */
QELJ_API QelStatus qeliYCbCr444ToBGRLS_MCU_16s8u_P3C3R(
    const int16_t* const src[3], uint8_t* dst, int32_t dstStep);

/** Blocks Y, Y, Cb, Cr to 16 x 8 pixels B, G, R. Keep the blocks aligned to 16 bytes.
 *  See @ref mcu_inverse. */
QELJ_API QelStatus qeliYCbCr422ToBGRLS_MCU_16s8u_P3C3R(
    const int16_t* const src[3], uint8_t* dst, int32_t dstStep);

/** Four blocks of Y, one each of Cb and Cr to 16 x 16 pixels B, G, R. Keep the blocks aligned to 16 bytes.
 *  See @ref mcu_inverse. */
QELJ_API QelStatus qeliYCbCr411ToBGRLS_MCU_16s8u_P3C3R(
    const int16_t* const src[3], uint8_t* dst, int32_t dstStep);

/** One block each of Y, Cb, Cr to 8 x 8 words of 5, 5, 5 bits, B lowest. See @ref mcu_inverse. */
QELJ_API QelStatus qeliYCbCr444ToBGR555LS_MCU_16s16u_P3C3R(
    const int16_t* const src[3], uint16_t* dst, int32_t dstStep);

/** Blocks Y, Y, Cb, Cr to 16 x 8 words of 5, 5, 5 bits, B lowest. See @ref mcu_inverse. */
QELJ_API QelStatus qeliYCbCr422ToBGR555LS_MCU_16s16u_P3C3R(
    const int16_t* const src[3], uint16_t* dst, int32_t dstStep);

/** Four blocks of Y, one each of Cb and Cr to 16 x 16 words of 5, 5, 5 bits, B lowest.
 *  See @ref mcu_inverse. */
QELJ_API QelStatus qeliYCbCr411ToBGR555LS_MCU_16s16u_P3C3R(
    const int16_t* const src[3], uint16_t* dst, int32_t dstStep);

/** One block each of Y, Cb, Cr to 8 x 8 words of 5, 6, 5 bits, B lowest. See @ref mcu_inverse. */
QELJ_API QelStatus qeliYCbCr444ToBGR565LS_MCU_16s16u_P3C3R(
    const int16_t* const src[3], uint16_t* dst, int32_t dstStep);

/** Blocks Y, Y, Cb, Cr to 16 x 8 words of 5, 6, 5 bits, B lowest. See @ref mcu_inverse. */
QELJ_API QelStatus qeliYCbCr422ToBGR565LS_MCU_16s16u_P3C3R(
    const int16_t* const src[3], uint16_t* dst, int32_t dstStep);

/** Four blocks of Y, one each of Cb and Cr to 16 x 16 words of 5, 6, 5 bits, B lowest.
 *  See @ref mcu_inverse. */
QELJ_API QelStatus qeliYCbCr411ToBGR565LS_MCU_16s16u_P3C3R(
    const int16_t* const src[3], uint16_t* dst, int32_t dstStep);

/** One block each of Y, Cb, Cr, K to 8 x 8 pixels C, M, Y, K. Keep the blocks aligned to 16 bytes.
 *  See @ref mcu_inverse. */
QELJ_API QelStatus qeliYCCK444ToCMYKLS_MCU_16s8u_P4C4R(
    const int16_t* const src[4], uint8_t* dst, int32_t dstStep);

/** Two blocks each of Y and K, one each of Cb and Cr to 16 x 8 pixels C, M, Y, K. Keep the blocks aligned.
 *  See @ref mcu_inverse. */
QELJ_API QelStatus qeliYCCK422ToCMYKLS_MCU_16s8u_P4C4R(
    const int16_t* const src[4], uint8_t* dst, int32_t dstStep);

/** Four blocks each of Y and K, one each of Cb and Cr to 16 x 16 pixels C, M, Y, K. Keep the blocks aligned.
 *  See @ref mcu_inverse. */
QELJ_API QelStatus qeliYCCK411ToCMYKLS_MCU_16s8u_P4C4R(
    const int16_t* const src[4], uint8_t* dst, int32_t dstStep);

/** One block each of Y, Cb, Cr to 8 x 8 pixels Y, Cb, Cr. See @ref mcu_inverse. */
QELJ_API QelStatus qeliSampleUp444LS_MCU_16s8u_P3C3R(
    const int16_t* const src[3], uint8_t* dst, int32_t dstStep);

/** Blocks Y, Y, Cb, Cr to 16 x 8 pixels Y, Cb, Cr, chroma repeated across. See @ref mcu_inverse. */
QELJ_API QelStatus qeliSampleUp422LS_MCU_16s8u_P3C3R(
    const int16_t* const src[3], uint8_t* dst, int32_t dstStep);

/** Four blocks of Y, one each of Cb and Cr to 16 x 16 pixels Y, Cb, Cr, chroma repeated both ways.
 *  See @ref mcu_inverse. */
QELJ_API QelStatus qeliSampleUp411LS_MCU_16s8u_P3C3R(
    const int16_t* const src[3], uint8_t* dst, int32_t dstStep);

/** Blocks Y, Y, Cb, Cr to 16 x 8 pixels of packed 4:2:2 (Y0, Cb, Y1, Cr). See @ref mcu_inverse. */
QELJ_API QelStatus qeliJoin422LS_MCU_16s8u_P3C2R(const int16_t* const src[3], uint8_t* dst, int32_t dstStep);

/** @} */

/**
 * @defgroup quantisation Quantisation tables and plain quantisation
 * @code{.unparsed}
 * A quantisation table stands in one of three forms, each of 64 entries:
 *   raw      bytes q in zig-zag order, as a DQT segment carries them (B.2.4.1; 8-bit precision)
 *   forward  16-bit reciprocals in natural order: the integer nearest to 32768 / q (32768 for 1, 129 for 255)
 *   inverse  16-bit multipliers in natural order: q itself
 * Tables are only read by the functions that use them, and may be shared by any number of threads.
 *
 * FwdRawTableInit rewrites a raw table in place for a quality: scale = 5000 / quality below 50, 200 - 2
 *   quality from 50 up; q = (q scale + 50) / 100, integer divisions, then clamped to 1..255. Quality 50
 *   leaves a table as it is (a 0 becomes 1), 100 and above give 1 everywhere unless quality is far above: the
 *   products wrap at 32 bits. qelStatusNullPointer, then qelStatusBadArg for a quality below 1 (the table is
 *   left alone).
 * FwdTableInit, InvTableInit make the other forms of a raw table, which is read as a whole before `table` is
 *   written: both may share memory. qelStatusNullPointer. FwdTableInit gives 0xFFFF for a q of 0, and the
 *   warning qelStatusZeroDivisorWarning; the table is complete, and quantises such coefficients by almost 2.
 * QuantFwd8x8, QuantInv8x8 work in place on a block of 64 coefficients in natural order.
 * qelStatusNullPointer.
 *   Fwd   y = (((8x)(t / 2) >> 16) + 1) >> 1, that is x / q, rounded; for |x| < 4096. Beyond, 8x wraps at 16
 *         bits. Not the quantisation of the forward DCT below: for some values the two differ by one.
 *   Inv   y = x t, wrapping at 16 bits.
 * @endcode
 * @{
 */

/** Scales a raw table in place to a quality from 1 up; 50 leaves it, 100 makes it all ones.
 *  See @ref quantisation. */
QELJ_API QelStatus qeliQuantFwdRawTableInit_JPEG_8u(uint8_t* table, int32_t quality);

/** A raw table to the reciprocals of the forward functions. A 0 gives 0xFFFF and a warning.
 *  See @ref quantisation. */
QELJ_API QelStatus qeliQuantFwdTableInit_JPEG_8u16u(const uint8_t* rawTable, uint16_t* table);

/** A raw table to the multipliers of the inverse functions. See @ref quantisation. */
QELJ_API QelStatus qeliQuantInvTableInit_JPEG_8u16u(const uint8_t* rawTable, uint16_t* table);

/** Quantises 64 coefficients in place, |x| below 4096. Not quite what the forward DCT's own quantisation
 *  gives. See @ref quantisation. */
QELJ_API QelStatus qeliQuantFwd8x8_JPEG_16s_C1I(int16_t* srcDst, const uint16_t* table);

/** Multiplies 64 coefficients by an inverse table, in place, wrapping at 16 bits. See @ref quantisation. */
QELJ_API QelStatus qeliQuantInv8x8_JPEG_16s_C1I(int16_t* srcDst, const uint16_t* table);

/** @} */

/**
 * @defgroup dct_forward Forward DCT with quantisation
 * @code{.unparsed}
 * One block of 8x8 samples to 64 quantised coefficients in natural order, at the scale of A.3.3: a flat block
 * of value v has a DC of 8 v before quantisation.
 *
 * 8-bit samples (fixed point; `table` is a forward table, see above). A coefficient x is quantised to x t /
 * 32768, to nearest with ties to even.
 *   LS 8u16s   8x8 samples of an image, rows srcStep bytes apart; 128 is subtracted from each
 *   16s_C1     64 samples centred on zero, as qeliSub128 and the MCU conversions leave them, without a gap.
 *              Meant for -128..127; values of more than 10 bits or so saturate on the way, without a report.
 *   16s_C1I    the same in place. 16s_C1 with src == dst does the same.
 * 12-bit samples (single precision; `table` holds 64 multipliers in natural order, normally 1.0f / q, made by
 * the caller).
 *   LS 16u16s  8x8 16-bit samples, rows srcStep bytes apart; 2048 is subtracted from each. A sample of 32768
 *              or more counts as that less 65536. A coefficient is rounded to nearest with ties to even, and
 *              saturated to 16 bits; one beyond 32 bits, or a NaN in the table, gives -32768. Such tables
 *              raise other flags too.
 *
 * LS forms check src and dst (qelStatusNullPointer), srcStep below 1 (qelStatusBadStep), table
 * (qelStatusNullPointer); the others check their pointers. Only the 64 samples are read, and only the 64
 * coefficients are written.
 * @endcode
 * @{
 */

/** 8 x 8 bytes of an image, less 128, to 64 quantised coefficients. See @ref dct_forward. */
QELJ_API QelStatus qeliDCTQuantFwd8x8LS_JPEG_8u16s_C1R(
    const uint8_t* src, int32_t srcStep, int16_t* dst, const uint16_t* table);

/** 8 x 8 samples of 12 bits, less 2048, to 64 quantised coefficients; the table is of floats.
 *  See @ref dct_forward. */
QELJ_API QelStatus qeliDCTQuantFwd8x8LS_JPEG_16u16s_C1R(
    const uint16_t* src, int32_t srcStep, int16_t* dst, const float* table);

/** 64 samples centred on zero to 64 quantised coefficients. src and dst may be the same block.
 *  See @ref dct_forward. */
QELJ_API QelStatus qeliDCTQuantFwd8x8_JPEG_16s_C1(const int16_t* src, int16_t* dst, const uint16_t* table);

/** 64 samples centred on zero to 64 quantised coefficients, in place. See @ref dct_forward. */
QELJ_API QelStatus qeliDCTQuantFwd8x8_JPEG_16s_C1I(int16_t* srcDst, const uint16_t* table);

/** @} */

/**
 * @defgroup dct_inverse Inverse DCT with dequantisation
 * @code{.unparsed}
 * 64 quantised coefficients in natural order to one block of 8x8 samples.
 *
 * 8-bit samples (fixed point; `table` is an inverse table, see above). A dequantised coefficient wraps at 16
 * bits.
 *   LS 16s8u   8x8 samples of an image, rows dstStep bytes apart; 128 is added, then clamped to 0..255
 *   16s_C1     64 samples centred on zero, without a gap, not clamped: as qeliAdd128 and the MCU conversions
 *              take them
 *   16s_C1I    the same in place. 16s_C1 with src == dst does the same.
 * 12-bit samples (single precision; `table` holds 64 multipliers in natural order, normally q, made by the
 * caller).
 *   LS 16s16u  8x8 16-bit samples, rows dstStep bytes apart; 2048 is added, then cut towards zero and clamped
 *              to 0..4095. A sum beyond 32 bits or a NaN, from a strange table, gives 0 and raises other
 *              flags too.
 *
 * LS forms check src and dst (qelStatusNullPointer), dstStep below 1 (qelStatusBadStep), table
 * (qelStatusNullPointer); the others check their pointers. Only the 64 coefficients are read, and only the 64
 * samples are written, row after row from the top: with a dstStep shorter than a row, a later row overwrites
 * an earlier one.
 * @endcode
 * @{
 */

/** 64 quantised coefficients to 8 x 8 bytes of an image: and 128, clamped to 0..255. See @ref dct_inverse. */
QELJ_API QelStatus qeliDCTQuantInv8x8LS_JPEG_16s8u_C1R(
    const int16_t* src, uint8_t* dst, int32_t dstStep, const uint16_t* table);

/** 64 quantised coefficients to 8 x 8 samples of 12 bits: and 2048, clamped to 0..4095; the table is of
 *  floats. See @ref dct_inverse. */
QELJ_API QelStatus qeliDCTQuantInv8x8LS_JPEG_16s16u_C1R(
    const int16_t* src, uint16_t* dst, int32_t dstStep, const float* table);

/** 64 quantised coefficients to 64 samples centred on zero, not clamped. src and dst may be the same block.
 *  See @ref dct_inverse. */
QELJ_API QelStatus qeliDCTQuantInv8x8_JPEG_16s_C1(const int16_t* src, int16_t* dst, const uint16_t* table);

/** 64 quantised coefficients to 64 samples centred on zero, in place, not clamped. See @ref dct_inverse. */
QELJ_API QelStatus qeliDCTQuantInv8x8_JPEG_16s_C1I(int16_t* srcDst, const uint16_t* table);

/** @} */

/**
 * @defgroup dct_reduced Reduced-size inverse DCT (8-bit samples)
 * @code{.unparsed}
 * Inverse DCTs with dequantisation that cost less, for decoders that know a block to have few coefficients,
 * and for small versions of an image. Arguments as those of qeliDCTQuantInv8x8LS_JPEG_16s8u_C1R; `src` and
 * `table` have 64 entries. Coefficients that a function leaves out may hold anything.
 *
 * The whole block of 8 rows of 8 samples:
 *   LS_1x1   from the DC: all samples are (DC q >> 3) + 128, cut to 16 bits, then clamped to 0..255. May
 *            differ by one from what the whole transform gives. Products above 261119 or below -263168 wrap.
 *   LS_2x2   from rows and columns 0 and 1;  LS_4x4: from rows and columns 0 to 3. Exactly what the whole
 *            transform gives for a block whose other coefficients are 0.
 * A smaller block, for images at 1/4 and 1/2 of their size. Nothing but its own samples is written:
 *   To2x2LS  2 rows of 2 samples, from rows and columns 0, 1, 3, 5, 7
 *   To4x4LS  4 rows of 4 samples, from all rows and columns but number 4
 *            A sample is the mean of the 4x4 or 2x2 samples of the whole block, but for rounding.
 *
 * Checked in this order: src and dst (qelStatusNullPointer), dstStep below 1 (qelStatusBadStep), table
 * (qelStatusNullPointer).
 * @endcode
 * @{
 */

/** 8 x 8 bytes from the DC alone, all the same. May differ by one from the whole transform.
 *  See @ref dct_reduced. */
QELJ_API QelStatus qeliDCTQuantInv8x8LS_1x1_JPEG_16s8u_C1R(
    const int16_t* src, uint8_t* dst, int32_t dstStep, const uint16_t* table);

/** 8 x 8 bytes from rows and columns 0 and 1: the whole transform, where the rest is 0.
 *  See @ref dct_reduced. */
QELJ_API QelStatus qeliDCTQuantInv8x8LS_2x2_JPEG_16s8u_C1R(
    const int16_t* src, uint8_t* dst, int32_t dstStep, const uint16_t* table);

/** 8 x 8 bytes from rows and columns 0 to 3: the whole transform, where the rest is 0.
 *  See @ref dct_reduced. */
QELJ_API QelStatus qeliDCTQuantInv8x8LS_4x4_JPEG_16s8u_C1R(
    const int16_t* src, uint8_t* dst, int32_t dstStep, const uint16_t* table);

/** 2 x 2 bytes, for images at a quarter of their size, from rows and columns 0, 1, 3, 5, 7.
 *  See @ref dct_reduced. */
QELJ_API QelStatus qeliDCTQuantInv8x8To2x2LS_JPEG_16s8u_C1R(
    const int16_t* src, uint8_t* dst, int32_t dstStep, const uint16_t* table);

/** 4 x 4 bytes, for images at half of their size, from all rows and columns but number 4.
 *  See @ref dct_reduced. */
QELJ_API QelStatus qeliDCTQuantInv8x8To4x4LS_JPEG_16s8u_C1R(
    const int16_t* src, uint8_t* dst, int32_t dstStep, const uint16_t* table);

/** @} */

/**
 * @defgroup huffman_records Huffman records: tables and coder states
 * @code{.unparsed}
 * Tables are built once from the lists of a DHT segment (B.2.4.2): `bits`, 16 bytes, the number of codes of
 * each length from 1 to 16; `vals`, the symbols in order of increasing code, as many as `bits` adds up to.
 * States carry the bits between a byte and the next from call to call, so that a scan is coded one block at a
 * time.
 *
 *   QelDecodeHuffmanSpec   1644 bytes   a decoder's table        read-only after Init: threads may share it
 *   QelEncodeHuffmanSpec   1024 bytes   an encoder's table       read-only after Init: threads may share it
 *   QelDecodeHuffmanState    24 bytes   a decoder's position     one a scan; Init again at a restart
 *   QelEncodeHuffmanState  1048 bytes   an encoder's position    one a scan; every flush re-initialises it
 *
 * ...GetBufSize gives the bytes of a record. ...Init fills a record in the caller's memory, which may stand
 * at any address and needs no release. ...InitAlloc takes memory from qelcore and fills it; release it with
 * ...Free, which is the same function for all four kinds, and never pass it a record of your own memory.
 * Copying a record with memcpy is fine: an encoder that may run out of room copies its state first (see
 * below).
 * Tables and states hold no addresses, and a coder does not trust them: whatever they hold, nothing is
 * written outside the state and the buffers, nothing is read outside them, and every call ends. What such
 * calls give is not defined; an encoder that a table tells codes of more than 16 bits may give
 * qelStatusJpegHuffTable. The Direct encoder has no length: it keeps to its 513 bytes.
 *
 *   qelStatusNullPointer     a pointer is null; in ...InitAlloc also a failed allocation (*spec or *state is
 *                            then null)
 *   qelStatusJpegHuffTable   more than 256 codes. Decoder: a code of up to 8 bits lies behind the end of its
 *                            length's codes (codes that fill their length exactly are accepted). Encoder: the
 *                            codes of some length reach all ones, which the standard keeps free, or pass it.
 *                            The record is partly filled and not usable; ...InitAlloc has stored it all the
 *                            same, and the caller frees it.
 * An empty table (all `bits` zero) is valid. A symbol listed twice keeps its later code.
 * A decoder compares codes of 16 bits as signed numbers: where the last one of a table is 0x8000 or above,
 * those below 0x8000 are not found, and where it is 0xFFFF, none is: they decode to qelStatusJpegCoeffRange.
 * The typical tables of the standard and those of qeliEncodeHuffmanRawTableInit_JPEG_8u have no such codes.
 * @endcode
 * @{
 */

/** A decoder's table, 1644 bytes. See @ref huffman_records. */
typedef struct QelDecodeHuffmanSpec QelDecodeHuffmanSpec;

/** An encoder's table, 1024 bytes. See @ref huffman_records. */
typedef struct QelEncodeHuffmanSpec QelEncodeHuffmanSpec;

/** A decoder's position, 24 bytes. See @ref huffman_records. */
typedef struct QelDecodeHuffmanState QelDecodeHuffmanState;

/** An encoder's position, 1048 bytes. See @ref huffman_records. */
typedef struct QelEncodeHuffmanState QelEncodeHuffmanState;

/** The bytes of a decoder's table: 1644. See @ref huffman_records. */
QELJ_API QelStatus qeliDecodeHuffmanSpecGetBufSize_JPEG_8u(int32_t* size);

/** Makes a decoder's table, in your memory, from the lists of a DHT segment. See @ref huffman_records. */
QELJ_API QelStatus qeliDecodeHuffmanSpecInit_JPEG_8u(
    const uint8_t* bits, const uint8_t* vals, QelDecodeHuffmanSpec* spec);

/** Makes a decoder's table in memory of its own; release it by qeliDecodeHuffmanSpecFree_JPEG_8u.
 *  See @ref huffman_records. */
QELJ_API QelStatus qeliDecodeHuffmanSpecInitAlloc_JPEG_8u(
    const uint8_t* bits, const uint8_t* vals, QelDecodeHuffmanSpec** spec);

/** Releases what an ...InitAlloc of this family has made; null gives qelStatusNullPointer.
 *  See @ref huffman_records. */
QELJ_API QelStatus qeliDecodeHuffmanSpecFree_JPEG_8u(QelDecodeHuffmanSpec* spec);

/** The bytes of an encoder's table: 1024. See @ref huffman_records. */
QELJ_API QelStatus qeliEncodeHuffmanSpecGetBufSize_JPEG_8u(int32_t* size);

/** Makes an encoder's table, in your memory, from the lists of a DHT segment. See @ref huffman_records. */
QELJ_API QelStatus qeliEncodeHuffmanSpecInit_JPEG_8u(
    const uint8_t* bits, const uint8_t* vals, QelEncodeHuffmanSpec* spec);

/** Makes an encoder's table in memory of its own; release it by qeliEncodeHuffmanSpecFree_JPEG_8u.
 *  See @ref huffman_records. */
QELJ_API QelStatus qeliEncodeHuffmanSpecInitAlloc_JPEG_8u(
    const uint8_t* bits, const uint8_t* vals, QelEncodeHuffmanSpec** spec);

/** Releases an encoder's table; the same function as qeliDecodeHuffmanSpecFree_JPEG_8u.
 *  See @ref huffman_records. */
QELJ_API QelStatus qeliEncodeHuffmanSpecFree_JPEG_8u(QelEncodeHuffmanSpec* spec);

/** The bytes of a decoder's state: 24. See @ref huffman_records. */
QELJ_API QelStatus qeliDecodeHuffmanStateGetBufSize_JPEG_8u(int32_t* size);

/** Prepares a decoder's state in your memory: for a new scan, and again behind every restart marker.
 *  See @ref huffman_records. */
QELJ_API QelStatus qeliDecodeHuffmanStateInit_JPEG_8u(QelDecodeHuffmanState* state);

/** A decoder's state in memory of its own, prepared; release it by qeliDecodeHuffmanStateFree_JPEG_8u.
 *  See @ref huffman_records. */
QELJ_API QelStatus qeliDecodeHuffmanStateInitAlloc_JPEG_8u(QelDecodeHuffmanState** state);

/** Releases a decoder's state; the same function as qeliDecodeHuffmanSpecFree_JPEG_8u.
 *  See @ref huffman_records. */
QELJ_API QelStatus qeliDecodeHuffmanStateFree_JPEG_8u(QelDecodeHuffmanState* state);

/** The bytes of an encoder's state: 1048. See @ref huffman_records. */
QELJ_API QelStatus qeliEncodeHuffmanStateGetBufSize_JPEG_8u(int32_t* size);

/** Prepares an encoder's state in your memory for a new scan; every flush does so as well.
 *  See @ref huffman_records. */
QELJ_API QelStatus qeliEncodeHuffmanStateInit_JPEG_8u(QelEncodeHuffmanState* state);

/** An encoder's state in memory of its own, prepared; release it by qeliEncodeHuffmanStateFree_JPEG_8u.
 *  See @ref huffman_records. */
QELJ_API QelStatus qeliEncodeHuffmanStateInitAlloc_JPEG_8u(QelEncodeHuffmanState** state);

/** Releases an encoder's state; the same function as qeliDecodeHuffmanSpecFree_JPEG_8u.
 *  See @ref huffman_records. */
QELJ_API QelStatus qeliEncodeHuffmanStateFree_JPEG_8u(QelEncodeHuffmanState* state);

/** @} */

/**
 * @defgroup huffman_baseline Baseline block coding
 * @code{.unparsed}
 * One 8x8 block of a sequential scan (F.1.2, F.2.2): 64 coefficients in natural order to and from Huffman
 * codes and value bits, with 0xFF bytes stuffed. *lastDC is the predictor of the component's DC coefficients:
 * the caller sets it to 0 at the start of a scan and behind every restart marker, where it also initialises
 * the state again. Scan and frame headers, markers and the order of blocks in an MCU are the caller's.
 *
 * THE NORMAL FORMS know the buffer: its length in bytes (srcLen, dstLen) and the byte position in it
 * (*srcPos, *dstPos, read and updated); bits between two bytes are in the state. They read and write nothing
 * outside the buffer; a position outside it counts as the end. Bytes of dst between the new position and
 * dstLen keep their values, but up to 32 of them may be loaded and stored again: no other thread may write
 * there meanwhile.
 *
 * Decoding. *marker is 0 to begin with. Fill bytes (further 0xFF) in front of a marker or stuffed byte are
 * skipped. The decoder reads up to four bytes ahead into the state; when it meets a marker it stores the code
 * (0xD9 for EOI) in *marker, leaves *srcPos behind it, and reads no more until the caller clears *marker and
 * initialises the state. The block is zeroed first; *lastDC and the block are as far as the decoder got if it
 * fails. A run that leads past coefficient 63 by up to eight positions stores at index 63.
 * Count the blocks: a segment ends behind as many as the restart interval, or the scan, has. *marker may be
 * set in front of the segment's last block, by it, or not at all. Behind the last block,
 *   *marker not 0   is the marker's code, and *srcPos stands behind its two bytes;
 *   *marker 0       the marker is still ahead: look from *srcPos on for a 0xFF with a byte behind it that is
 *                   neither 0 nor 0xFF, and go on behind that.
 * Either way set *marker and *lastDC to 0 and initialise the state, whose bits were padding.
 *   qelStatusNullPointer        a pointer is null           (checked: src, then srcLen, then the others)
 *   qelStatusBadArg             srcLen is below 0           (0 is legal)
 *   qelStatusJpegOutOfBuffer    the source ended where more bits were needed, or right behind a 0xFF
 *   qelStatusJpegCoeffRange     no code of up to 16 bits matches, or bits were needed behind a marker
 *   qelStatusJpegBlockOverrun   a run leads to position 72 or beyond
 * To go on with a longer buffer after qelStatusJpegOutOfBuffer, take back your own copies of state, *srcPos,
 * *lastDC and *marker from before the call, and decode the block again.
 *
 * Encoding. With flush 0 the block is coded. With flush not 0 the segment ends: the last byte is filled with
 * ones (nothing is stored where no bits are pending), and the state is initialised, whatever the status; src,
 * lastDC and the tables are ignored and may be null. Any 16-bit coefficient is coded as long as the table has
 * its symbol. A block takes at most 512 bytes, a flush 2. Calls that have 570 bytes of room behind the
 * position run two to three times as fast; 512 are not enough for that.
 *   qelStatusNullPointer        dst, then dstPos or state, then, with flush 0, src, lastDC, dcTable or
 *                               acTable is null
 *   qelStatusBadSize            dstLen is below 1           (checked behind dst)
 *   qelStatusJpegOutOfBuffer    no room; this includes the zero stuffed behind a 0xFF. The bytes that fit are
 *                               stored and *lastDC is updated.
 *   qelStatusJpegHuffTable      a symbol has no code; also for a coefficient of -32768 behind a run of 15
 *                               zeros
 * To go on with a longer buffer after qelStatusJpegOutOfBuffer, take back your own copies of state, *dstPos
 * and *lastDC from before the call, and code the block again.
 *
 * THE DIRECT FORMS have neither length nor state. Nothing bounds them: an encoder's buffer must have room for
 * what is coded (513 bytes a block), and a decoder's segment must end in a marker, or have three more
 * readable bytes behind it, none of them 0xFF, for the read-ahead.
 *
 * Direct decoding. *srcBitPos is an offset in bits, of which only the whole bytes count; *bitBuffer and
 * *bitCount, 0 at the start of a segment, hold what has been read ahead. At a marker *marker becomes its
 * code, *srcBitPos 8 times the position of the byte behind its two bytes, and what stood in front of it is
 * still in *bitBuffer. For the next segment set *marker, *bitCount and *lastDC to 0. Streams end at 2^28 - 1
 * bytes, where *srcBitPos does. No byte behind a marker is read: the Direct form cannot look as far ahead as
 * the normal one, and is the slower decoder.
 * In front of a marker the Direct form drops what it cannot be sure of: when fewer than 8 bits are left, the
 * block ends with qelStatusOk, its later coefficients zero and the bits gone. The last block of a segment can
 * lose coefficients that way, which the normal form decodes: use the normal form for blocks near a marker. A
 * segment without bits gives qelStatusOk and a block of zeros. Positions from 72 up end the block; nothing is
 * stored outside it.
 *   qelStatusNullPointer        a pointer is null           (src, srcBitPos; dst to bitCount; the
 *                               tables)
 *   qelStatusBadArg             *srcBitPos below 0 (checked behind srcBitPos) or *bitCount below 0 (behind
 *                               bitCount)
 *   qelStatusJpegCoeffRange     no code of up to 16 bits matches
 *   qelStatusJpegOutOfBuffer    a value's bits were needed behind a marker
 *
 * Direct encoding. *dstBitPos is an offset in bits: the top *dstBitPos & 7 bits of its byte are pending, and
 * so are the bits of the last byte that the call stores. The caller ends a segment by filling the last byte
 * with ones. Stored bits are those of the normal form; a symbol without a code adds no bits, and nothing
 * reports it. Nothing behind the last byte is touched. *dstBitPos is not checked: give 0 or more,
 * with the 513 bytes in front of bit 2^31.
 *   qelStatusNullPointer        a pointer is null
 *   qelStatusJpegHuffTable      codes of more than 16 bits, in a record that no Init made; dst is not written
 * @endcode
 * @{
 */

/** Values of *marker: 0, or the second byte of a marker. */
enum QelMarker {
  qelMarkerNone = 0,    /**< no marker has been met yet */
  qelMarkerRst0 = 0xD0, /**< the first of eight restart markers */
  qelMarkerRst7 = 0xD7, /**< the last of them */
  qelMarkerEoi = 0xD9   /**< the end of the image */
};

/** Values of `flush` of an encoder, and of `last` of the statistics. */
enum QelFlush {
  qelFlushNo = 0, /**< code a block */
  qelFlushYes = 1 /**< end the segment: store what is pending, and initialise the state */
};

/** Decodes one block from a buffer of known length. The form to use. See @ref huffman_baseline. */
QELJ_API QelStatus qeliDecodeHuffman8x8_JPEG_1u16s_C1(const uint8_t* src, int32_t srcLen, int32_t* srcPos,
    int16_t* dst, int16_t* lastDC, int32_t* marker, const QelDecodeHuffmanSpec* dcTable,
    const QelDecodeHuffmanSpec* acTable, QelDecodeHuffmanState* state);

/** Codes one block into a buffer of known length, or ends the segment (flush): at most 512 bytes.
 *  See @ref huffman_baseline. */
QELJ_API QelStatus qeliEncodeHuffman8x8_JPEG_16s1u_C1(const int16_t* src, uint8_t* dst, int32_t dstLen,
    int32_t* dstPos, int16_t* lastDC, const QelEncodeHuffmanSpec* dcTable,
    const QelEncodeHuffmanSpec* acTable, QelEncodeHuffmanState* state, int32_t flush);

/** Decodes one block up to a marker, without a length: loses bits right in front of the marker. Slower.
 *  See @ref huffman_baseline. */
QELJ_API QelStatus qeliDecodeHuffman8x8_Direct_JPEG_1u16s_C1(const uint8_t* src, int32_t* srcBitPos,
    int16_t* dst, int16_t* lastDC, int32_t* marker, uint32_t* bitBuffer, int32_t* bitCount,
    const QelDecodeHuffmanSpec* dcTable, const QelDecodeHuffmanSpec* acTable);

/** Codes one block at a bit offset, without a length: keep 513 bytes of room. See @ref huffman_baseline. */
QELJ_API QelStatus qeliEncodeHuffman8x8_Direct_JPEG_16s1u_C1(const int16_t* src, uint8_t* dst,
    int32_t* dstBitPos, int16_t* lastDC, const QelEncodeHuffmanSpec* dcTable,
    const QelEncodeHuffmanSpec* acTable);

/** @} */

/**
 * @defgroup huffman_progressive Progressive block coding
 * @code{.unparsed}
 * One block of one scan of a progressive image (Annex G): the first scan of the DC coefficients, their
 * refinements by one bit each, the first scan of a band of AC coefficients, and its refinements. Buffers,
 * positions, *marker, *lastDC, restarts and what a failed call leaves are as in the normal forms of baseline
 * block coding above.
 *
 *   al       the point transform (successive approximation, Al), 0 to 13
 *   ss, se   the band, first and last zig-zag position: 1 <= ss <= se <= 63
 *   dst      of a decoder: the block in natural order, kept by the caller from scan to scan and zero before
 *            the first. A call changes only coefficients of its band; nothing is zeroed.
 *   src      of an encoder: the whole block, unshifted: the same block for every scan
 *
 * The state carries the run of blocks whose band has ended (EOB run) from call to call, and an AC
 * refinement's pending correction bits: one state a scan, every block of the scan in order, and the flush at
 * the scan's end and in front of every restart marker. An AC scan holds one component's blocks. A run is
 * stored when it reaches 32767 blocks, or when more than 937 correction bits are pending.
 * A failed call whose copies the caller did not take back may leave such a run unstored: then the next calls
 * store it first, and until that succeeds they return its failure and don't count their own blocks.
 *
 * Decoders.
 *   qelStatusNullPointer        a pointer is null
 *   qelStatusBadSize            srcLen is below 1           (checked behind src)
 *   qelStatusBadArg             al, ss or se is out of range (checked behind marker, in front of table and
 *                               state)
 *   qelStatusJpegOutOfBuffer    the source ended where more bits were needed, or right behind a 0xFF
 *   qelStatusJpegCoeffRange     no code matches; bits were needed behind a marker; a first scan's run leads
 *                               past position 63; a refinement's symbol has a size above 1, or its new
 *                               coefficient has no place left in the band
 * Inside an EOB run, ACFirst reads nothing at all, even at the end of the source. A position behind se, up to
 * 63, is stored to by ACFirst as the stream says.
 *
 * Encoders, with flush 0, code the block; with flush not 0 they end the segment: first the pending run with
 * its correction bits (AC; needs the table, which is always tested), then ones in the last byte, then the
 * state is initialised. If the pending run cannot be stored the flush returns at once, with the state as it
 * is. Most bytes that a call stores: DCFirst 8, DCRefine 2, ACFirst 512, ACRefine 532 (510 as long as all
 * calls succeed); a flush: DC 2, ACFirst 10, ACRefine 266 (244). Calls that have 580 bytes of room behind the
 * position are the fast ones.
 *   qelStatusNullPointer        dst, then dstPos, table (AC) or state; with flush 0 then src or lastDC; table
 *                               (DCFirst)
 *   qelStatusBadSize            dstLen is below 1           (checked behind dst)
 *   qelStatusBadArg             al, ss or se is out of range (behind src and lastDC; in DCFirst in front of
 *                               table)
 *   qelStatusJpegOutOfBuffer    no room
 *   qelStatusJpegHuffTable      a symbol has no code
 *   qelStatusJpegCoeffRange     DCFirst: the difference has more than 11 bits (*lastDC is updated all the
 *                               same). AC: the state holds a run, or correction bits, that no call leaves;
 *                               nothing is stored
 * @endcode
 * @{
 */

/** First scan of DC: one difference, shifted left by al, to dst[0]. See @ref huffman_progressive. */
QELJ_API QelStatus qeliDecodeHuffman8x8_DCFirst_JPEG_1u16s_C1(const uint8_t* src, int32_t srcLen,
    int32_t* srcPos, int16_t* dst, int16_t* lastDC, int32_t* marker, uint32_t al,
    const QelDecodeHuffmanSpec* table, QelDecodeHuffmanState* state);

/** Refinement of DC: one plain bit, set in dst[0] at position al. See @ref huffman_progressive. */
QELJ_API QelStatus qeliDecodeHuffman8x8_DCRefine_JPEG_1u16s_C1(const uint8_t* src, int32_t srcLen,
    int32_t* srcPos, int16_t* dst, int32_t* marker, uint32_t al, QelDecodeHuffmanState* state);

/** First scan of a band: new coefficients, shifted left by al. See @ref huffman_progressive. */
QELJ_API QelStatus qeliDecodeHuffman8x8_ACFirst_JPEG_1u16s_C1(const uint8_t* src, int32_t srcLen,
    int32_t* srcPos, int16_t* dst, int32_t* marker, int32_t ss, int32_t se, uint32_t al,
    const QelDecodeHuffmanSpec* table, QelDecodeHuffmanState* state);

/** Refinement of a band: new coefficients of one bit, and one bit for those that dst has already.
 *  See @ref huffman_progressive. */
QELJ_API QelStatus qeliDecodeHuffman8x8_ACRefine_JPEG_1u16s_C1(const uint8_t* src, int32_t srcLen,
    int32_t* srcPos, int16_t* dst, int32_t* marker, int32_t ss, int32_t se, uint32_t al,
    const QelDecodeHuffmanSpec* table, QelDecodeHuffmanState* state);

/** First scan of DC: the difference of src[0] >> al. At most 8 bytes. See @ref huffman_progressive. */
QELJ_API QelStatus qeliEncodeHuffman8x8_DCFirst_JPEG_16s1u_C1(const int16_t* src, uint8_t* dst,
    int32_t dstLen, int32_t* dstPos, int16_t* lastDC, uint32_t al, const QelEncodeHuffmanSpec* table,
    QelEncodeHuffmanState* state, int32_t flush);

/** Refinement of DC: bit al of src[0]. At most 2 bytes. See @ref huffman_progressive. */
QELJ_API QelStatus qeliEncodeHuffman8x8_DCRefine_JPEG_16s1u_C1(const int16_t* src, uint8_t* dst,
    int32_t dstLen, int32_t* dstPos, uint32_t al, QelEncodeHuffmanState* state, int32_t flush);

/** First scan of a band, or its flush. At most 512 bytes, a flush 10. See @ref huffman_progressive. */
QELJ_API QelStatus qeliEncodeHuffman8x8_ACFirst_JPEG_16s1u_C1(const int16_t* src, uint8_t* dst,
    int32_t dstLen, int32_t* dstPos, int32_t ss, int32_t se, uint32_t al, const QelEncodeHuffmanSpec* table,
    QelEncodeHuffmanState* state, int32_t flush);

/** Refinement of a band, or its flush. At most 532 bytes, a flush 266. See @ref huffman_progressive. */
QELJ_API QelStatus qeliEncodeHuffman8x8_ACRefine_JPEG_16s1u_C1(const int16_t* src, uint8_t* dst,
    int32_t dstLen, int32_t* dstPos, int32_t ss, int32_t se, uint32_t al, const QelEncodeHuffmanSpec* table,
    QelEncodeHuffmanState* state, int32_t flush);

/** @} */

/**
 * @defgroup lossless Lossless coding and prediction
 * @code{.unparsed}
 * The lossless process (Annex H) on 16-bit rows: samples to and from differences, differences to and from
 * codes. All arithmetic is modulo 2^16.
 *
 * PREDICTION. The first row of a scan, and the first behind a restart, is predicted from the left, and its
 * first sample by 2^(precision - pointTransform - 1). Every other row has a predictor from 1 to 7 (Table
 * H.1), with a on the left, b above, c above on the left; its first sample is always predicted by b:
 *   1 a   2 b   3 c   4 a + b - c   5 a + ((b - c) >> 1)   6 b + ((a - c) >> 1)   7 (a + b) >> 1
 * Sums are exact and shifts arithmetic. The Diff functions give src minus the prediction; the Reconstruct
 * functions take the differences in src and give the samples, with a from dst. dst may be src or prevRow
 * itself; other overlap is not allowed. width is the number of samples.
 *
 * SAMPLES OF 16 BITS (precision - pointTransform is 16) are signed here, where the standard has them from 0
 * to 65535: passed as the int16_t of the same bits, predictors 5, 6 and 7 give other differences than the
 * standard's. Pass them with the top bit flipped, less 32768, and flip the top bit of the first difference of
 * the scan and of each restart: behind DiffPredFirstRow, in front of ReconstructPredFirstRow. All predictors
 * then give the standard's differences. Samples of fewer bits need none of this, and come to no harm by it.
 *
 *   qelStatusNullPointer        a pointer is null
 *   qelStatusBadSize            width is below 1
 *   qelStatusBadArg             precision outside 2 to 16, pointTransform below 0 or not below precision;
 *                               predictor outside 1 to 7
 *
 * CODING. One difference (One), or a row of up to four interleaved components (Row: for each column, each
 * channel in turn, with its own table; src and dst are arrays of `channels` plane pointers, tables of as many
 * table pointers). Buffers, positions, *marker, states, flush and restarts are as in the normal forms of
 * baseline block coding above. A difference of -32768 has category 16 and no value bits. One difference takes
 * at most 8 bytes, n of them in a row 2 * ((31 * n + 7) / 8), a flush 2. With channels above 4, the first
 * four are coded, and entries behind them are not looked at. After a failure, the differences decoded so far
 * are stored.
 *   qelStatusNullPointer        a pointer, or one of the first four entries of an array, is null
 *   qelStatusBadSize            srcLen or dstLen (checked behind src or dst), width or channels is below 1
 *   qelStatusJpegOutOfBuffer    the source ended where more bits were needed or right behind a 0xFF; no room
 *   qelStatusJpegCoeffRange     no code matches, or bits were needed behind a marker
 *   qelStatusJpegHuffTable      a symbol has no code
 * Order of checks: decoders src, srcLen, srcPos, dst, width, channels, marker, tables, state, array entries;
 * encoders dst, dstLen, dstPos, state, then with flush 0 src, width, channels, tables, array entries.
 * @endcode
 * @{
 */

/** Values of `predictor`: a on the left, b above, c above on the left. */
enum QelPredictor {
  qelPredictorLeft = 1,          /**< a */
  qelPredictorAbove = 2,         /**< b */
  qelPredictorAboveLeft = 3,     /**< c */
  qelPredictorPlane = 4,         /**< a + b - c */
  qelPredictorLeftGradient = 5,  /**< a + ((b - c) >> 1) */
  qelPredictorAboveGradient = 6, /**< b + ((a - c) >> 1) */
  qelPredictorMean = 7           /**< (a + b) >> 1 */
};

/** A first row's differences, each from the sample on its left. See @ref lossless. */
QELJ_API QelStatus qeliDiffPredFirstRow_JPEG_16s_C1(
    const int16_t* src, int16_t* dst, int32_t width, int32_t precision, int32_t pointTransform);

/** A further row's differences, by one of the seven predictors. See @ref lossless. */
QELJ_API QelStatus qeliDiffPredRow_JPEG_16s_C1(
    const int16_t* src, const int16_t* prevRow, int16_t* dst, int32_t width, int32_t predictor);

/** A first row's samples from its differences. See @ref lossless. */
QELJ_API QelStatus qeliReconstructPredFirstRow_JPEG_16s_C1(
    const int16_t* src, int16_t* dst, int32_t width, int32_t precision, int32_t pointTransform);

/** A further row's samples from its differences, by one of the seven predictors. See @ref lossless. */
QELJ_API QelStatus qeliReconstructPredRow_JPEG_16s_C1(
    const int16_t* src, const int16_t* prevRow, int16_t* dst, int32_t width, int32_t predictor);

/** Decodes one difference. See @ref lossless. */
QELJ_API QelStatus qeliDecodeHuffmanOne_JPEG_1u16s_C1(const uint8_t* src, int32_t srcLen, int32_t* srcPos,
    int16_t* dst, int32_t* marker, const QelDecodeHuffmanSpec* table, QelDecodeHuffmanState* state);

/** Decodes a row of up to four interleaved components. See @ref lossless. */
QELJ_API QelStatus qeliDecodeHuffmanRow_JPEG_1u16s_C1P4(const uint8_t* src, int32_t srcLen, int32_t* srcPos,
    int16_t* const* dst, int32_t width, int32_t channels, int32_t* marker,
    const QelDecodeHuffmanSpec* const* tables, QelDecodeHuffmanState* state);

/** Codes one difference, or ends the segment (flush). At most 8 bytes. See @ref lossless. */
QELJ_API QelStatus qeliEncodeHuffmanOne_JPEG_16s1u_C1(const int16_t* src, uint8_t* dst, int32_t dstLen,
    int32_t* dstPos, const QelEncodeHuffmanSpec* table, QelEncodeHuffmanState* state, int32_t flush);

/** Codes a row of up to four interleaved components, or ends the segment (flush). See @ref lossless. */
QELJ_API QelStatus qeliEncodeHuffmanRow_JPEG_16s1u_P4C1(const int16_t* const* src, int32_t width,
    int32_t channels, uint8_t* dst, int32_t dstLen, int32_t* dstPos,
    const QelEncodeHuffmanSpec* const* tables, QelEncodeHuffmanState* state, int32_t flush);

/** @} */

/**
 * @defgroup huffman_statistics Huffman statistics and optimal code lengths
 * @code{.unparsed}
 * The first pass of an optimising encoder: count the symbols that the encoders above would store for the same
 * blocks, then make the lists of a DHT segment from the counts.
 *
 * A statistics table is 256 counters, indexed by symbol, that the caller sets to zero; counters only grow.
 * The counters of blocks coded on several threads, one table a thread, are added up by the caller. *lastDC,
 * ss, se, al and state are as in the encoders; the AC functions keep the pending run in an encode state of
 * their own, and `last` not 0 counts it, as a flush stores it, and initialises the state (src, ss, se and al
 * are ignored then). After a failure the counters hold what was counted before it.
 *   qelStatusNullPointer       a pointer is null; in the AC functions acStatistics and state come first, then
 *                              `last` is served, then src is tested
 *   qelStatusBadArg            al, ss or se is out of range
 *   qelStatusJpegCoeffRange    a category above 15 (DC) or 14 (AC) in a sequential block, or above 11
 *                              (DCFirst); in an AC scan, a value or run that no symbol can express
 *
 * RawTableInit makes code lengths of the least total size, limited to 16 bits, without a code of all ones
 * (K.2); ties go to the larger symbol. `bits` has room for 16 bytes; `vals` for 256, of which as many are
 * written as `bits` adds up to. Counters of zero or below mean that a symbol is not used. The result is
 * always fit for qeliEncodeHuffmanSpecInit_JPEG_8u.
 *   qelStatusJpegHuffTable     the counts need codes of more than 32 bits before the limit; nothing is
 *                              written
 * @endcode
 * @{
 */

/** Counts the symbols of a sequential block. See @ref huffman_statistics. */
QELJ_API QelStatus qeliGetHuffmanStatistics8x8_JPEG_16s_C1(
    const int16_t* src, int32_t* dcStatistics, int32_t* acStatistics, int16_t* lastDC);

/** Counts the symbol of a block in a first scan of DC. (Refinements of DC have no symbols.)
 *  See @ref huffman_statistics. */
QELJ_API QelStatus qeliGetHuffmanStatistics8x8_DCFirst_JPEG_16s_C1(
    const int16_t* src, int32_t* dcStatistics, int16_t* lastDC, uint32_t al);

/** Counts the symbols of a block in the first scan of a band, or of the run that is pending (last).
 *  See @ref huffman_statistics. */
QELJ_API QelStatus qeliGetHuffmanStatistics8x8_ACFirst_JPEG_16s_C1(const int16_t* src, int32_t* acStatistics,
    int32_t ss, int32_t se, uint32_t al, QelEncodeHuffmanState* state, int32_t last);

/** Counts the symbols of a block in a refinement of a band, or of the run that is pending (last).
 *  See @ref huffman_statistics. */
QELJ_API QelStatus qeliGetHuffmanStatistics8x8_ACRefine_JPEG_16s_C1(const int16_t* src, int32_t* acStatistics,
    int32_t ss, int32_t se, uint32_t al, QelEncodeHuffmanState* state, int32_t last);

/** Counts the symbol of one difference of the lossless process. See @ref huffman_statistics. */
QELJ_API QelStatus qeliGetHuffmanStatisticsOne_JPEG_16s_C1(const int16_t* src, int32_t* statistics);

/** The two lists of a DHT segment that code the counted symbols in the fewest bits.
 *  See @ref huffman_statistics. */
QELJ_API QelStatus qeliEncodeHuffmanRawTableInit_JPEG_8u(
    const int32_t* statistics, uint8_t* bits, uint8_t* vals);

/** @} */

/* ========================================================================================================
 * JPEG 2000 (ISO/IEC 15444-1)
 * ======================================================================================================== */

/**
 * @defgroup component_transforms Component transforms (Annex G)
 * @code{.unparsed}
 * Decorrelate three components of equal size, before the wavelet; and the way back. RCT: reversible (G.2).
 * ICT: irreversible (G.3). The level shift and the limiting to the output range are not included.
 *   C3P3R  from pixels of three samples to three planes;  P3C3R  back;  P3IR  three planes in place.
 * The components are red, green, blue on the one side and Y, Cb, Cr (RCT: Y, U, V) on the other, in this
 * order. size.width pixels a row, size.height rows; the one step of a planar side belongs to all three
 * planes.
 *
 *   RCT        Y = (R + 2G + B) >> 2, U = B - G, V = R - G;  G = Y - ((U + V) >> 2), R = V + G, B = U + G.
 *              Forward, then inverse, gives back any data whose differences fit the sample type.
 *              32s: sums wrap. 16s: sums are formed in 32 bits and results cut to 16.
 *   ICT, 32f   single precision, products first, then the sums from left to right; no fused multiply-add.
 *              Y = 0.299 R + 0.587 G + 0.114 B, Cb = -0.16875 R - 0.33126 G + 0.5 B,
 *              Cr = 0.5 R - 0.41869 G - 0.08131 B;  R = 1.402 Cr + Y, G = (-0.34413 Cb - 0.71414 Cr) + Y,
 *              B = 1.772 Cb + Y.
 *   ICT, 32s   the same with coefficients of 14 fractional bits and rounding, in 32 bits that wrap: results
 *              are right while |sample| stays below 2^16.
 *   ICT, 16s   results saturate. Forward, Cb and Cr are scaled differences B - Y and R - Y, which are cut to
 *              16 bits before the scaling: keep |sample| below 2^14, or a far difference folds over.
 *
 * Checked in this order: every pointer and plane pointer (qelStatusNullPointer), steps (qelStatusBadStep),
 * size (qelStatusBadSize). None of these functions forks.
 * @endcode
 * @{
 */

/** Reversible, forward: 16-bit pixels R, G, B to planes Y, U, V. See @ref component_transforms. */
QELJ_API QelStatus qeliRCTFwd_JPEG2K_16s_C3P3R(
    const int16_t* src, int32_t srcStep, int16_t* const dst[3], int32_t dstStep, QelSize size);

/** Reversible, forward: three 16-bit planes in place. See @ref component_transforms. */
QELJ_API QelStatus qeliRCTFwd_JPEG2K_16s_P3IR(int16_t* const srcDst[3], int32_t srcDstStep, QelSize size);

/** Reversible, forward: 32-bit pixels R, G, B to planes Y, U, V. See @ref component_transforms. */
QELJ_API QelStatus qeliRCTFwd_JPEG2K_32s_C3P3R(
    const int32_t* src, int32_t srcStep, int32_t* const dst[3], int32_t dstStep, QelSize size);

/** Reversible, forward: three 32-bit planes in place. See @ref component_transforms. */
QELJ_API QelStatus qeliRCTFwd_JPEG2K_32s_P3IR(int32_t* const srcDst[3], int32_t srcDstStep, QelSize size);

/** Reversible, inverse: 16-bit planes Y, U, V to pixels R, G, B. See @ref component_transforms. */
QELJ_API QelStatus qeliRCTInv_JPEG2K_16s_P3C3R(
    const int16_t* const src[3], int32_t srcStep, int16_t* dst, int32_t dstStep, QelSize size);

/** Reversible, inverse: three 16-bit planes in place. See @ref component_transforms. */
QELJ_API QelStatus qeliRCTInv_JPEG2K_16s_P3IR(int16_t* const srcDst[3], int32_t srcDstStep, QelSize size);

/** Reversible, inverse: 32-bit planes Y, U, V to pixels R, G, B. See @ref component_transforms. */
QELJ_API QelStatus qeliRCTInv_JPEG2K_32s_P3C3R(
    const int32_t* const src[3], int32_t srcStep, int32_t* dst, int32_t dstStep, QelSize size);

/** Reversible, inverse: three 32-bit planes in place. See @ref component_transforms. */
QELJ_API QelStatus qeliRCTInv_JPEG2K_32s_P3IR(int32_t* const srcDst[3], int32_t srcDstStep, QelSize size);

/** Irreversible, forward: three 16-bit planes in place; results saturate. Keep |sample| below 2^14.
 *  See @ref component_transforms. */
QELJ_API QelStatus qeliICTFwd_JPEG2K_16s_P3IR(int16_t* const srcDst[3], int32_t srcDstStep, QelSize size);

/** Irreversible, forward: float pixels R, G, B to planes Y, Cb, Cr. See @ref component_transforms. */
QELJ_API QelStatus qeliICTFwd_JPEG2K_32f_C3P3R(
    const float* src, int32_t srcStep, float* const dst[3], int32_t dstStep, QelSize size);

/** Irreversible, forward: three float planes in place. See @ref component_transforms. */
QELJ_API QelStatus qeliICTFwd_JPEG2K_32f_P3IR(float* const srcDst[3], int32_t srcDstStep, QelSize size);

/** Irreversible, forward: three 32-bit planes in place. Keep |sample| below 2^16.
 *  See @ref component_transforms. */
QELJ_API QelStatus qeliICTFwd_JPEG2K_32s_P3IR(int32_t* const srcDst[3], int32_t srcDstStep, QelSize size);

/** Irreversible, inverse: three 16-bit planes in place; results saturate. See @ref component_transforms. */
QELJ_API QelStatus qeliICTInv_JPEG2K_16s_P3IR(int16_t* const srcDst[3], int32_t srcDstStep, QelSize size);

/** Irreversible, inverse: float planes Y, Cb, Cr to pixels R, G, B. See @ref component_transforms. */
QELJ_API QelStatus qeliICTInv_JPEG2K_32f_P3C3R(
    const float* const src[3], int32_t srcStep, float* dst, int32_t dstStep, QelSize size);

/** Irreversible, inverse: three float planes in place. See @ref component_transforms. */
QELJ_API QelStatus qeliICTInv_JPEG2K_32f_P3IR(float* const srcDst[3], int32_t srcDstStep, QelSize size);

/** Irreversible, inverse: three 32-bit planes in place. Keep |sample| below 2^16.
 *  See @ref component_transforms. */
QELJ_API QelStatus qeliICTInv_JPEG2K_32s_P3IR(int32_t* const srcDst[3], int32_t srcDstStep, QelSize size);

/** @} */

/**
 * @defgroup wavelet_53 Reversible 5/3 wavelet: rows and columns (F.4.8.1, F.3.8.2.1)
 * @code{.unparsed}
 * Building blocks for callers that walk a tile themselves; qeliWTFwd_B53... below do a whole tile.
 *   Row       transforms the rows of a region      Col   transforms its columns, each by itself
 *   ColLift   one lifting step down the columns on separate rows, to transform vertically row by row
 *
 * Row and Col. With x[k] the sample k places from src along the transform, L and H the two bands, w their
 * length (size.width for Row, size.height for Col; size is that of each band), and all shifts rounding down:
 *   phase 0: x[0] is at an even position; L[i] is centred on x[2i], H[i] on x[2i + 1].
 *   phase not 0: x[0] is at an odd position; H[i] is centred on x[2i], L[i] on x[2i + 1].
 *   forward: H = x - ((left + right) >> 1) at odd positions, L = x + ((left H + right H + 2) >> 2) at even
 *   ones.
 *   inverse: even x = L - ((left H + right H + 2) >> 2), odd x = H + ((left x + right x) >> 1).
 * Both bands have w samples and a line has 2w. For a line of odd length take the longer band's length, let
 * the border reach far enough, and ignore the last sample of the shorter band.
 * Nothing is extended: these samples outside the region are read and must hold the extended signal (for Col:
 * whole rows of size.width samples at the same step).
 *   forward, phase 0: x[-2] to x[2w]; else x[-1] to x[2w + 1].
 *   inverse, phase 0: L[0] to L[w], H[-1] to H[w]; else L[-1] to L[w - 1], H[-1] to H[w].
 * Checked in this order: the three pointers (qelStatusNullPointer), the three steps (qelStatusBadStep), size
 * (qelStatusBadSize).
 *
 * ColLift. Rows of `width` samples; in terms of rows 2k of the signal,
 *   forward: srcEven, srcOdd, srcEvenNext are rows 2k, 2k + 1, 2k + 2; dstHigh becomes H[k] = srcOdd -
 *   ((srcEven + srcEvenNext) >> 1), dstLow becomes L[k] = srcEven + ((srcHighPrev + dstHigh + 2) >> 2);
 *   srcHighPrev is the dstHigh of the call before.
 *   inverse: srcLow is L[k], srcHighPrev and srcHigh are H[k - 1] and H[k]; dstEven becomes row 2k = srcLow -
 *   ((srcHighPrev + srcHigh + 2) >> 2), dstOdd becomes row 2k - 1 = srcHighPrev +
 *   ((srcEvenPrev + dstEven) >> 1); srcEvenPrev is the dstEven of the call before.
 * At the ends of the signal give mirrored rows. The whole loop, for any number of rows from 2 up and either
 *   phase, is in examples/tiny/column_lifting.h: forward begins one pair early, for the first srcHighPrev,
 *   and inverse ends one pair late, for the last odd row.
 * Checked in this order: the six pointers (qelStatusNullPointer), width (qelStatusBadSize).
 *
 * 32s: sums wrap at 32 bits. 16s: exact while the sum of any two neighbours, and of two high samples and 2,
 * fits 16 bits; outside that range ColLift wraps at 16 bits, and its inverse still gives back what its
 * forward step took; the results of Row and Col are not specified there. Outputs must not overlap inputs.
 * None of these functions forks.
 * @endcode
 * @{
 */

/** Values of `phase`: where the first sample stands. Any other value is odd. */
enum QelPhase {
  qelPhaseEven = 0, /**< at an even position: the first sample is a low-pass one */
  qelPhaseOdd = 1   /**< at an odd position: the first sample is a high-pass one */
};

/** 5/3, forward along the rows of a 16-bit region. See @ref wavelet_53. */
QELJ_API QelStatus qeliWTFwdRow_B53_JPEG2K_16s_C1R(const int16_t* src, int32_t srcStep, int16_t* dstLow,
    int32_t dstLowStep, int16_t* dstHigh, int32_t dstHighStep, QelSize size, uint32_t phase);

/** 5/3, inverse along the rows of a 16-bit region: 2 * size.width samples a row. See @ref wavelet_53. */
QELJ_API QelStatus qeliWTInvRow_B53_JPEG2K_16s_C1R(const int16_t* srcLow, int32_t srcLowStep,
    const int16_t* srcHigh, int32_t srcHighStep, QelSize size, int16_t* dst, int32_t dstStep, uint32_t phase);

/** 5/3, forward along the rows of a 32-bit region. See @ref wavelet_53. */
QELJ_API QelStatus qeliWTFwdRow_B53_JPEG2K_32s_C1R(const int32_t* src, int32_t srcStep, int32_t* dstLow,
    int32_t dstLowStep, int32_t* dstHigh, int32_t dstHighStep, QelSize size, uint32_t phase);

/** 5/3, inverse along the rows of a 32-bit region: 2 * size.width samples a row. See @ref wavelet_53. */
QELJ_API QelStatus qeliWTInvRow_B53_JPEG2K_32s_C1R(const int32_t* srcLow, int32_t srcLowStep,
    const int32_t* srcHigh, int32_t srcHighStep, QelSize size, int32_t* dst, int32_t dstStep, uint32_t phase);

/** 5/3, forward down the columns of a 16-bit region. See @ref wavelet_53. */
QELJ_API QelStatus qeliWTFwdCol_B53_JPEG2K_16s_C1R(const int16_t* src, int32_t srcStep, int16_t* dstLow,
    int32_t dstLowStep, int16_t* dstHigh, int32_t dstHighStep, QelSize size, uint32_t phase);

/** 5/3, inverse down the columns of a 16-bit region: 2 * size.height rows. See @ref wavelet_53. */
QELJ_API QelStatus qeliWTInvCol_B53_JPEG2K_16s_C1R(const int16_t* srcLow, int32_t srcLowStep,
    const int16_t* srcHigh, int32_t srcHighStep, QelSize size, int16_t* dst, int32_t dstStep, uint32_t phase);

/** 5/3, forward down the columns of a 32-bit region. See @ref wavelet_53. */
QELJ_API QelStatus qeliWTFwdCol_B53_JPEG2K_32s_C1R(const int32_t* src, int32_t srcStep, int32_t* dstLow,
    int32_t dstLowStep, int32_t* dstHigh, int32_t dstHighStep, QelSize size, uint32_t phase);

/** 5/3, inverse down the columns of a 32-bit region: 2 * size.height rows. See @ref wavelet_53. */
QELJ_API QelStatus qeliWTInvCol_B53_JPEG2K_32s_C1R(const int32_t* srcLow, int32_t srcLowStep,
    const int32_t* srcHigh, int32_t srcHighStep, QelSize size, int32_t* dst, int32_t dstStep, uint32_t phase);

/** 5/3, one forward step down the columns: two 16-bit rows in, a low and a high row out.
 *  See @ref wavelet_53. */
QELJ_API QelStatus qeliWTFwdColLift_B53_JPEG2K_16s_C1(const int16_t* srcEven, const int16_t* srcOdd,
    const int16_t* srcEvenNext, int16_t* dstLow, const int16_t* srcHighPrev, int16_t* dstHigh, int32_t width);

/** 5/3, one inverse step down the columns: a low and a high row in, two 16-bit rows out.
 *  See @ref wavelet_53. */
QELJ_API QelStatus qeliWTInvColLift_B53_JPEG2K_16s_C1(const int16_t* srcLow, const int16_t* srcHighPrev,
    const int16_t* srcHigh, const int16_t* srcEvenPrev, int16_t* dstOdd, int16_t* dstEven, int32_t width);

/** 5/3, one forward step down the columns: two 32-bit rows in, a low and a high row out.
 *  See @ref wavelet_53. */
QELJ_API QelStatus qeliWTFwdColLift_B53_JPEG2K_32s_C1(const int32_t* srcEven, const int32_t* srcOdd,
    const int32_t* srcEvenNext, int32_t* dstLow, const int32_t* srcHighPrev, int32_t* dstHigh, int32_t width);

/** 5/3, one inverse step down the columns: a low and a high row in, two 32-bit rows out.
 *  See @ref wavelet_53. */
QELJ_API QelStatus qeliWTInvColLift_B53_JPEG2K_32s_C1(const int32_t* srcLow, const int32_t* srcHighPrev,
    const int32_t* srcHigh, const int32_t* srcEvenPrev, int32_t* dstOdd, int32_t* dstEven, int32_t width);

/** @} */

/**
 * @defgroup wavelet_97 Irreversible 9/7 wavelet: rows and columns (F.4.8.2, F.3.8.2.2)
 * @code{.unparsed}
 * Building blocks as above: Row and ColLift in 16s, 32s and 32f, Col in 32f. qeliWTFwd_D97... below do a
 * whole tile. x, L, H, w and phase mean what they mean for 5/3. Nothing is extended; read are
 *   forward, phase 0: x[-4] to x[2w + 2]; else x[-3] to x[2w + 3].
 *   inverse, phase 0: L[-1] to L[w + 1], H[-2] to H[w + 1]; else L[-2] to L[w], H[-2] to H[w + 1].
 *
 * Lifting, where "left" and "right" are the values of the other parity on either side after the stage before:
 *   forward: d = x + alpha (left + right) at odd positions, s = x + beta (left + right) at even ones, D = d +
 *   gamma (left + right), L = (s + delta (left + right)) / K, H = D K.
 *   inverse: E = K L - (delta / K)(left + right), O = H / K - gamma (left + right), E2 = E - beta (left +
 *   right), O2 = O - alpha (left + right); E2 and O2 are the even and odd samples.
 *   alpha = -1.5861343, beta = -0.052980117, gamma = 0.8829111, delta = 0.44350687, K = 1.2301741. The low
 *   band has a gain of 1 at frequency 0, the high band of 2 at the highest frequency.
 * A line of one sample a band is not lifted but filtered directly, with the taps of the standard.
 *
 * ColLift. Rows of `width` samples; a call advances the pipeline by one pair of rows. All rows are different
 * memory.
 *   forward          comes as                    is left as
 *   srcEven          row 2k
 *   srcOdd           row 2k + 1
 *   srcEvenNext      row 2k + 2
 *   srcDstLow        s of row 2k - 2             low row k - 1
 *   dstLowNext                                   s of row 2k
 *   srcDstHigh       D of row 2k - 3             high row k - 2
 *   srcDstHighNext   d of row 2k - 1             D of row 2k - 1
 *   dstHighNext                                  d of row 2k + 1
 *   For the next call rotate: srcDstLow = dstLowNext, srcDstHigh = srcDstHighNext, srcDstHighNext =
 *   dstHighNext, and use the two rows that are free for the new ones.
 *   inverse          comes as                    is left as
 *   srcLow           L[k]
 *   srcHighPrev      H[k - 1]
 *   srcHigh          H[k]
 *   srcEvenDone      even row k - 2, finished
 *   srcDstOdd        O of k - 2                  odd row k - 2, finished
 *   srcDstEven       E of k - 1                  even row k - 1, finished
 *   dstOddNext                                   O of k - 1
 *   dstEvenNext                                  E of k
 *   For the next call rotate: srcEvenDone = srcDstEven, srcDstOdd = dstOddNext, srcDstEven = dstEvenNext.
 * The caller's first calls fill the pipeline: begin two pairs before the first row, on mirrored rows
 * (forward), or one low row before (inverse), with any contents in the rows that are not known yet, and leave
 * out what comes of those. The whole loop, for any number of rows from 2 up and either phase, is in
 * examples/tiny/column_lifting.h.
 *
 * Arithmetic.
 *   32f  each product and each sum rounded by itself, neighbours added first; no fused multiply-add.
 *   32s  16.16 fixed point: (c x + 32768) >> 16 with 64-bit products. Nothing saturates: sums of two samples
 *        and results wrap at 32 bits. L, E and O are formed from one 64-bit sum and rounded once; but in Row
 *        the last low sample (phase not 0: the last two) is rounded twice.
 *   16s  15 fractional bits, saturating: ColLift, and Row but near the ends of a line. Sums of two values
 *        saturate before they are scaled, and d reaches 4.2 times the largest sample: below 3900 nothing
 *        saturates. The ends of a Row, up to four samples of each stage, have the wider arithmetic of 32s
 *        with saturated results.
 *
 * Row and Col check, in this order: the three pointers (qelStatusNullPointer), the three steps
 * (qelStatusBadStep), size (qelStatusBadSize). ColLift: the eight pointers (qelStatusNullPointer), width
 * (qelStatusBadSize). Outputs must not overlap inputs but for the rows that are both. None of these functions
 * forks.
 * @endcode
 * @{
 */

/** 9/7, forward along the rows of a 16-bit region, saturating. See @ref wavelet_97. */
QELJ_API QelStatus qeliWTFwdRow_D97_JPEG2K_16s_C1R(const int16_t* src, int32_t srcStep, int16_t* dstLow,
    int32_t dstLowStep, int16_t* dstHigh, int32_t dstHighStep, QelSize size, uint32_t phase);

/** 9/7, inverse along the rows of a 16-bit region, saturating: 2 * size.width samples a row.
 *  See @ref wavelet_97. */
QELJ_API QelStatus qeliWTInvRow_D97_JPEG2K_16s_C1R(const int16_t* srcLow, int32_t srcLowStep,
    const int16_t* srcHigh, int32_t srcHighStep, QelSize size, int16_t* dst, int32_t dstStep, uint32_t phase);

/** 9/7, forward along the rows of a float region. See @ref wavelet_97. */
QELJ_API QelStatus qeliWTFwdRow_D97_JPEG2K_32f_C1R(const float* src, int32_t srcStep, float* dstLow,
    int32_t dstLowStep, float* dstHigh, int32_t dstHighStep, QelSize size, uint32_t phase);

/** 9/7, inverse along the rows of a float region: 2 * size.width samples a row. See @ref wavelet_97. */
QELJ_API QelStatus qeliWTInvRow_D97_JPEG2K_32f_C1R(const float* srcLow, int32_t srcLowStep,
    const float* srcHigh, int32_t srcHighStep, QelSize size, float* dst, int32_t dstStep, uint32_t phase);

/** 9/7, forward along the rows of a 32-bit region, in 16.16 fixed point. See @ref wavelet_97. */
QELJ_API QelStatus qeliWTFwdRow_D97_JPEG2K_32s_C1R(const int32_t* src, int32_t srcStep, int32_t* dstLow,
    int32_t dstLowStep, int32_t* dstHigh, int32_t dstHighStep, QelSize size, uint32_t phase);

/** 9/7, inverse along the rows of a 32-bit region, in 16.16 fixed point: 2 * size.width samples a row.
 *  See @ref wavelet_97. */
QELJ_API QelStatus qeliWTInvRow_D97_JPEG2K_32s_C1R(const int32_t* srcLow, int32_t srcLowStep,
    const int32_t* srcHigh, int32_t srcHighStep, QelSize size, int32_t* dst, int32_t dstStep, uint32_t phase);

/** 9/7, forward down the columns of a float region. See @ref wavelet_97. */
QELJ_API QelStatus qeliWTFwdCol_D97_JPEG2K_32f_C1R(const float* src, int32_t srcStep, float* dstLow,
    int32_t dstLowStep, float* dstHigh, int32_t dstHighStep, QelSize size, uint32_t phase);

/** 9/7, inverse down the columns of a float region: 2 * size.height rows. See @ref wavelet_97. */
QELJ_API QelStatus qeliWTInvCol_D97_JPEG2K_32f_C1R(const float* srcLow, int32_t srcLowStep,
    const float* srcHigh, int32_t srcHighStep, QelSize size, float* dst, int32_t dstStep, uint32_t phase);

/** 9/7, one forward step down the columns of 16-bit rows, saturating. See @ref wavelet_97. */
QELJ_API QelStatus qeliWTFwdColLift_D97_JPEG2K_16s_C1(const int16_t* srcEven, const int16_t* srcOdd,
    const int16_t* srcEvenNext, int16_t* srcDstLow, int16_t* dstLowNext, int16_t* srcDstHigh,
    int16_t* srcDstHighNext, int16_t* dstHighNext, int32_t width);

/** 9/7, one inverse step down the columns of 16-bit rows, saturating. See @ref wavelet_97. */
QELJ_API QelStatus qeliWTInvColLift_D97_JPEG2K_16s_C1(const int16_t* srcLow, const int16_t* srcHighPrev,
    const int16_t* srcHigh, const int16_t* srcEvenDone, int16_t* srcDstOdd, int16_t* srcDstEven,
    int16_t* dstOddNext, int16_t* dstEvenNext, int32_t width);

/** 9/7, one forward step down the columns of float rows. See @ref wavelet_97. */
QELJ_API QelStatus qeliWTFwdColLift_D97_JPEG2K_32f_C1(const float* srcEven, const float* srcOdd,
    const float* srcEvenNext, float* srcDstLow, float* dstLowNext, float* srcDstHigh, float* srcDstHighNext,
    float* dstHighNext, int32_t width);

/** 9/7, one inverse step down the columns of float rows. See @ref wavelet_97. */
QELJ_API QelStatus qeliWTInvColLift_D97_JPEG2K_32f_C1(const float* srcLow, const float* srcHighPrev,
    const float* srcHigh, const float* srcEvenDone, float* srcDstOdd, float* srcDstEven, float* dstOddNext,
    float* dstEvenNext, int32_t width);

/** 9/7, one forward step down the columns of 32-bit rows, in 16.16 fixed point. See @ref wavelet_97. */
QELJ_API QelStatus qeliWTFwdColLift_D97_JPEG2K_32s_C1(const int32_t* srcEven, const int32_t* srcOdd,
    const int32_t* srcEvenNext, int32_t* srcDstLow, int32_t* dstLowNext, int32_t* srcDstHigh,
    int32_t* srcDstHighNext, int32_t* dstHighNext, int32_t width);

/** 9/7, one inverse step down the columns of 32-bit rows, in 16.16 fixed point. See @ref wavelet_97. */
QELJ_API QelStatus qeliWTInvColLift_D97_JPEG2K_32s_C1(const int32_t* srcLow, const int32_t* srcHighPrev,
    const int32_t* srcHigh, const int32_t* srcEvenDone, int32_t* srcDstOdd, int32_t* srcDstEven,
    int32_t* dstOddNext, int32_t* dstEvenNext, int32_t width);

/** @} */

/**
 * @defgroup wavelet_tiles Whole-tile wavelets (F.3.2, F.4.2)
 * @code{.unparsed}
 * One level of the two-dimensional wavelet over a tile-component or resolution level, with the symmetric
 * extension done inside. Forward: columns, then rows. Inverse: rows, then columns. B53: the reversible 5/3
 * filter. D97: the irreversible 9/7 filter. Call them once a level, each time on the low-low quadrant of the
 * level before.
 *
 * Tile.     tile->width samples a row, tile->height rows. tile->x and tile->y are the coordinates of the
 *   first sample in its level; only their lowest bits px and py count, also of negative ones. A sample at an
 *   even coordinate is a low-pass position, at an odd one a high-pass position: a line of n samples has
 *   (n + 1 - p) >> 1 low and n - that many high ones.
 * Layout.   C1IR: the tile is transformed in place. In the transformed tile the low samples of each line come
 *   first: low-low at the top left, high-pass across at the top right, high-pass down at the bottom left.
 *   C1R: image and bands are apart. The four planes and their steps are, in this order: low both ways; low
 *   across and high down; high across and low down; high both ways. With w and h the tile's width and height
 *   their sizes are (w + 1) / 2 or w / 2 columns (low, high across) and (h + 1) / 2 or h / 2 rows (low, high
 *   down), whatever px and py: the transformed tile is cut there also when an odd origin with an odd length
 *   makes the low band one line shorter, so that plane 0 then holds a high-pass line last. The inverse joins
 *   them in the same way. For such tiles C1IR gives the bands of the standard. A plane whose size is empty is
 *   not accessed, though its pointer must not be null.
 * Buffer.   A work buffer of at least the size that qeliWTGetBufSize_* of the same filter, type and layout
 *   reports for the tile; any alignment; its contents mean nothing before and after the call. It must not be
 *   null even where the size is 0; then it is not touched. The size functions check tile, then size
 *   (qelStatusNullPointer). They compute with any width w and height h, with s bytes a sample and a margin m
 *   of 4 (B53) or 8 (D97) samples:
 *     C1IR   s * (max(w, h) + m); 0 where both are below 3 (B53) or 2 (D97)
 *     C1R    the same and h * p, p being s * w rounded up to a multiple of 32
 *   THE RESULT WRAPS AT 32 BITS, and a wrapped one may be positive: nothing in it tells. It holds as long as
 *   the exact value is below 2^31. For C1IR that is a longer side of up to
 *     B53 16s 1073741819      B53 32s 536870907      D97 16s 1073741815      D97 32s 536870903
 *   and for C1R a square tile of up to 32766 (16s) or 23168 (32s) samples a side. Take C1R tiles of other
 *   shapes, when they come near 2^31 bytes, from the formula in 64 bits, or transform them by C1IR.
 *
 * Arithmetic.
 *   B53, 32s  sums wrap at 32 bits.     B53, 16s  each step in 32 bits, its result cut to 16.
 *   B53 gives back every line of three samples or more, and in 32s of two, whatever it holds. A line of two
 *   samples in 16s whose odd sample less the even one does not fit 16 bits comes back with the top bit of
 *   both samples flipped (each wrong by 32768, modulo 65536): keep samples within 15 bits, or transform such
 *   lines in 32s.
 *   D97, 16s  fixed point with 14 fractional bits, each result cut to 16; nothing saturates. Between the
 *             stages values reach 4.2 times the largest sample: below 7800 nothing is lost.
 *   D97, 32s  single precision inside. Results of each direction are cut towards zero to integers and
 *             saturate; the sum of two input samples wraps before it is converted. Scale samples up by some
 *             fractional bits before the first level to keep precision. A result that saturates may raise the
 *             flag for an invalid operation.
 *   A line of one sample stays at an even coordinate. At an odd one it is doubled, wrapping, and the inverse
 *   halves it towards zero: it comes back as long as the double fits the sample.
 *
 * These functions are exact in their own right and don't go through the row and column functions above: B53
 * gives the same values as those, D97 close but not equal ones. They allocate nothing and don't fork. Image
 * rows must not overlap one another, nor the planes, nor the buffer.
 *
 * C1IR checks, in this order: srcDst (qelStatusNullPointer), srcDstStep (qelStatusBadStep), tile, buffer
 * (qelStatusNullPointer). A width or height below 1 is not an error there: nothing is done.
 * C1R checks, in this order: the image, both arrays, tile, buffer (qelStatusNullPointer), the image's step
 * (qelStatusBadStep), the four planes (qelStatusNullPointer), their four steps (qelStatusBadStep), width and
 * height (qelStatusBadSize).
 * @endcode
 * @{
 */

/** The bytes of the work buffer for the two transforms below it; 0 for tiles of up to 2 x 2.
 *  See @ref wavelet_tiles. */
QELJ_API QelStatus qeliWTGetBufSize_B53_JPEG2K_16s_C1IR(const QelRect* tile, int32_t* size);

/** 5/3, one level forward, a 16-bit tile in place. See @ref wavelet_tiles. */
QELJ_API QelStatus qeliWTFwd_B53_JPEG2K_16s_C1IR(
    int16_t* srcDst, int32_t srcDstStep, const QelRect* tile, uint8_t* buffer);

/** 5/3, one level inverse, a 16-bit tile in place. See @ref wavelet_tiles. */
QELJ_API QelStatus qeliWTInv_B53_JPEG2K_16s_C1IR(
    int16_t* srcDst, int32_t srcDstStep, const QelRect* tile, uint8_t* buffer);

/** The bytes of the work buffer for the two transforms below it; 0 for tiles of up to 2 x 2.
 *  See @ref wavelet_tiles. */
QELJ_API QelStatus qeliWTGetBufSize_B53_JPEG2K_32s_C1IR(const QelRect* tile, int32_t* size);

/** 5/3, one level forward, a 32-bit tile in place. See @ref wavelet_tiles. */
QELJ_API QelStatus qeliWTFwd_B53_JPEG2K_32s_C1IR(
    int32_t* srcDst, int32_t srcDstStep, const QelRect* tile, uint8_t* buffer);

/** 5/3, one level inverse, a 32-bit tile in place. See @ref wavelet_tiles. */
QELJ_API QelStatus qeliWTInv_B53_JPEG2K_32s_C1IR(
    int32_t* srcDst, int32_t srcDstStep, const QelRect* tile, uint8_t* buffer);

/** The bytes of the work buffer for the two transforms below it, which holds the tile as well.
 *  See @ref wavelet_tiles. */
QELJ_API QelStatus qeliWTGetBufSize_B53_JPEG2K_16s_C1R(const QelRect* tile, int32_t* size);

/** 5/3, one level forward, from a 16-bit image to four bands. See @ref wavelet_tiles. */
QELJ_API QelStatus qeliWTFwd_B53_JPEG2K_16s_C1R(const int16_t* src, int32_t srcStep, const QelRect* tile,
    int16_t* const dst[4], const int32_t dstStep[4], uint8_t* buffer);

/** 5/3, one level inverse, from four bands to a 16-bit image. See @ref wavelet_tiles. */
QELJ_API QelStatus qeliWTInv_B53_JPEG2K_16s_C1R(const int16_t* const src[4], const int32_t srcStep[4],
    int16_t* dst, int32_t dstStep, const QelRect* tile, uint8_t* buffer);

/** The bytes of the work buffer for the two transforms below it, which holds the tile as well.
 *  See @ref wavelet_tiles. */
QELJ_API QelStatus qeliWTGetBufSize_B53_JPEG2K_32s_C1R(const QelRect* tile, int32_t* size);

/** 5/3, one level forward, from a 32-bit image to four bands. See @ref wavelet_tiles. */
QELJ_API QelStatus qeliWTFwd_B53_JPEG2K_32s_C1R(const int32_t* src, int32_t srcStep, const QelRect* tile,
    int32_t* const dst[4], const int32_t dstStep[4], uint8_t* buffer);

/** 5/3, one level inverse, from four bands to a 32-bit image. See @ref wavelet_tiles. */
QELJ_API QelStatus qeliWTInv_B53_JPEG2K_32s_C1R(const int32_t* const src[4], const int32_t srcStep[4],
    int32_t* dst, int32_t dstStep, const QelRect* tile, uint8_t* buffer);

/** The bytes of the work buffer for the two transforms below it; 0 for a tile of 1 x 1.
 *  See @ref wavelet_tiles. */
QELJ_API QelStatus qeliWTGetBufSize_D97_JPEG2K_16s_C1IR(const QelRect* tile, int32_t* size);

/** 9/7, one level forward, a 16-bit tile in place, fixed point. See @ref wavelet_tiles. */
QELJ_API QelStatus qeliWTFwd_D97_JPEG2K_16s_C1IR(
    int16_t* srcDst, int32_t srcDstStep, const QelRect* tile, uint8_t* buffer);

/** 9/7, one level inverse, a 16-bit tile in place, fixed point. See @ref wavelet_tiles. */
QELJ_API QelStatus qeliWTInv_D97_JPEG2K_16s_C1IR(
    int16_t* srcDst, int32_t srcDstStep, const QelRect* tile, uint8_t* buffer);

/** The bytes of the work buffer for the two transforms below it; 0 for a tile of 1 x 1.
 *  See @ref wavelet_tiles. */
QELJ_API QelStatus qeliWTGetBufSize_D97_JPEG2K_32s_C1IR(const QelRect* tile, int32_t* size);

/** 9/7, one level forward, a 32-bit tile in place, single precision inside. See @ref wavelet_tiles. */
QELJ_API QelStatus qeliWTFwd_D97_JPEG2K_32s_C1IR(
    int32_t* srcDst, int32_t srcDstStep, const QelRect* tile, uint8_t* buffer);

/** 9/7, one level inverse, a 32-bit tile in place, single precision inside. See @ref wavelet_tiles. */
QELJ_API QelStatus qeliWTInv_D97_JPEG2K_32s_C1IR(
    int32_t* srcDst, int32_t srcDstStep, const QelRect* tile, uint8_t* buffer);

/** The bytes of the work buffer for the two transforms below it, which holds the tile as well.
 *  See @ref wavelet_tiles. */
QELJ_API QelStatus qeliWTGetBufSize_D97_JPEG2K_16s_C1R(const QelRect* tile, int32_t* size);

/** 9/7, one level forward, from a 16-bit image to four bands, fixed point. See @ref wavelet_tiles. */
QELJ_API QelStatus qeliWTFwd_D97_JPEG2K_16s_C1R(const int16_t* src, int32_t srcStep, const QelRect* tile,
    int16_t* const dst[4], const int32_t dstStep[4], uint8_t* buffer);

/** 9/7, one level inverse, from four bands to a 16-bit image, fixed point. See @ref wavelet_tiles. */
QELJ_API QelStatus qeliWTInv_D97_JPEG2K_16s_C1R(const int16_t* const src[4], const int32_t srcStep[4],
    int16_t* dst, int32_t dstStep, const QelRect* tile, uint8_t* buffer);

/** The bytes of the work buffer for the two transforms below it, which holds the tile as well.
 *  See @ref wavelet_tiles. */
QELJ_API QelStatus qeliWTGetBufSize_D97_JPEG2K_32s_C1R(const QelRect* tile, int32_t* size);

/** 9/7, one level forward, from a 32-bit image to four bands, single precision inside.
 *  See @ref wavelet_tiles. */
QELJ_API QelStatus qeliWTFwd_D97_JPEG2K_32s_C1R(const int32_t* src, int32_t srcStep, const QelRect* tile,
    int32_t* const dst[4], const int32_t dstStep[4], uint8_t* buffer);

/** 9/7, one level inverse, from four bands to a 32-bit image, single precision inside.
 *  See @ref wavelet_tiles. */
QELJ_API QelStatus qeliWTInv_D97_JPEG2K_32s_C1R(const int32_t* const src[4], const int32_t srcStep[4],
    int32_t* dst, int32_t dstStep, const QelRect* tile, uint8_t* buffer);

/** @} */

/**
 * @defgroup codeblock_encoder Code-block encoder
 * @code{.unparsed}
 * Codes the quantised samples of one code-block (Annexes C and D). Two stages, so that a rate allocator can
 * weigh every coding pass: Load runs the passes and notes their symbols and distortions; StoreBits gives the
 * bytes, in as many calls as the caller's buffers need. One state serves any number of blocks, one after the
 * other.
 *
 * Samples.  32 bits, sign and magnitude: bit 31 the sign, bits 30 to 0 the magnitude, left-aligned, so that
 *   the lowest coded plane is 31 - magnitudeBits: shift magnitudes of M bits left by 31 - M and give
 *   magnitudeBits M. Planes below are not coded but count in the distortion. Values of magnitudeBits outside
 *   0..31 are clamped.
 * subband     QelSubband; decides the significance contexts. Any other value counts as LL or LH.
 * codeStyle   bits of QelCodeStyle, the encoder's and the decoders'. They are this library's own, not those
 *             of the standard's marker segments. Further bits are ignored.
 *
 * qeliEncodeInitAlloc_JPEG2K   allocates a state for blocks of up to `size` samples.
 *   state (qelStatusNullPointer), size (qelStatusBadSize), then qelStatusNoMemory with *state null.
 * qeliEncodeFree_JPEG2K        releases it. Null: qelStatusNullPointer. The pointer is not tested further.
 * qeliEncodeLoadCodeBlock_...  src: size.height rows of size.width samples. prevByte: the byte in front of
 *   the block's output, 0 if there is none (only its low 8 bits count; it matters when it is 255). reserved:
 *   kept, not used. Gives numBitPlanes (the largest magnitude's top bit + 1, counted from bit 0 of the
 *   sample: 0 to 31; the packet header's number of zero planes is 31 - numBitPlanes when magnitudeBits is the
 *   band's number of planes), numPasses, 0 or 3 * planes - 2, and numTermPasses, the number of codeword
 *   segments: with qelCodeStyleTerminate one a pass, else one and another for each change between MQ and raw
 *   passes (a block without passes: 0 with it, else 1, of no bytes). Checked in this order: state
 *   (qelStatusNullPointer), a state that is none (qelStatusContextMismatch), the three results
 *   (qelStatusNullPointer), size (qelStatusBadSize), src (qelStatusNullPointer), srcStep (qelStatusBadStep),
 *   and a block larger than the state's memory (qelStatusBadSize).
 * qeliEncodeStoreBits_...      *dstLen: room in dst, then the bytes written. *isNotFinished: 1 while bytes
 *   remain, else 0, also when the last byte just fits. A call with nothing left gives 0 bytes.
 *   Checked: state, its kind, dst, dstLen, isNotFinished (qelStatusNullPointer), *dstLen below 1
 *   (qelStatusBadSize).
 * qeliEncodeGetRate_...        bytes that suffice to decode all passes up to passNumber, from 0; never falls.
 * qeliEncodeGetDist_...        by how much passes 0 to passNumber lower the squared error, exactly summed, in
 *   units of the square of the lowest plane.
 * qeliEncodeGetTermPassLen_... the bytes of one codeword segment.
 *   Checked: state, its kind, the result (qelStatusNullPointer), a number that is negative or too high
 *   (qelStatusJpeg2kBadPassNumber). They may be called at any time after the load.
 *
 * A segment ends by the flush of C.2.9 and never in 0xFF; a raw segment's last byte is filled with 0, 1, 0,
 * ...
 * @endcode
 * @{
 */

/** Values of `subband`. */
enum QelSubband {
  qelSubbandLL = 0, /**< low both ways */
  qelSubbandLH = 1, /**< low across, high down */
  qelSubbandHL = 2, /**< high across, low down */
  qelSubbandHH = 3  /**< high both ways */
};

/** Bits of `codeStyle`. */
enum QelCodeStyle {
  qelCodeStyleCausal = 0x1,           /**< vertically causal context */
  qelCodeStyleBypass = 0x2,           /**< from the fifth plane on, only cleanup passes are not raw bits */
  qelCodeStyleTerminate = 0x4,        /**< every coding pass is a codeword segment of its own */
  qelCodeStyleReset = 0x8,            /**< the contexts' probabilities start anew with each pass */
  qelCodeStyleSymbols = 0x10,         /**< a segmentation symbol (1010) at the end of each cleanup pass */
  qelCodeStyleLossless = 0x20,        /**< encoder: nothing stands below the lowest plane (its distortion) */
  qelCodeStyleCut = 0x10000,          /**< one call: cut samples at the plane where a bad segment ended */
  qelCodeStyleKeepSamples = 0x20000,  /**< decoders: don't clear the samples at the start of a block */
  qelCodeStyleKeepMidPoint = 0x40000, /**< one call: leave the mid-point bit where it is at the end */
  qelCodeStyleKeepFlags = 0x80000,    /**< decoders: don't clear the state's flags at the start of a block */
  qelCodeStylePredictable = 0x100000  /**< decoders: test predictable termination */
};

/** An encoder's state. See @ref codeblock_encoder. */
typedef struct QelEncodeStateJPEG2K QelEncodeStateJPEG2K;

/** Allocates an encoder's state for blocks of up to `size` samples; release it by qeliEncodeFree_JPEG2K.
 *  See @ref codeblock_encoder. */
QELJ_API QelStatus qeliEncodeInitAlloc_JPEG2K(QelEncodeStateJPEG2K** state, QelSize size);

/** Releases an encoder's state; null gives qelStatusNullPointer. See @ref codeblock_encoder. */
QELJ_API QelStatus qeliEncodeFree_JPEG2K(QelEncodeStateJPEG2K* state);

/** Runs all coding passes over a block and notes symbols and distortions; the state then answers for this
 *  block. See @ref codeblock_encoder. */
QELJ_API QelStatus qeliEncodeLoadCodeBlock_JPEG2K_32s_C1R(const int32_t* src, int32_t srcStep, QelSize size,
    QelEncodeStateJPEG2K* state, int32_t subband, int32_t magnitudeBits, int32_t prevByte, int32_t reserved,
    int32_t codeStyle, int32_t* numBitPlanes, int32_t* numPasses, int32_t* numTermPasses);

/** The block's next bytes, as many as *dstLen has room for; call it until *isNotFinished is 0.
 *  See @ref codeblock_encoder. */
QELJ_API QelStatus qeliEncodeStoreBits_JPEG2K_1u(
    uint8_t* dst, int32_t* dstLen, QelEncodeStateJPEG2K* state, int32_t* isNotFinished);

/** The bytes that suffice to decode passes 0 to passNumber. See @ref codeblock_encoder. */
QELJ_API QelStatus qeliEncodeGetRate_JPEG2K(QelEncodeStateJPEG2K* state, int32_t passNumber, int32_t* rate);

/** By how much passes 0 to passNumber lower the squared error. See @ref codeblock_encoder. */
QELJ_API QelStatus qeliEncodeGetDist_JPEG2K(QelEncodeStateJPEG2K* state, int32_t passNumber, double* dist);

/** The bytes of one codeword segment, counted from 0. See @ref codeblock_encoder. */
QELJ_API QelStatus qeliEncodeGetTermPassLen_JPEG2K(
    QelEncodeStateJPEG2K* state, int32_t termPassNumber, int32_t* length);

/** @} */

/**
 * @defgroup codeblock_decoder Code-block decoder
 * @code{.unparsed}
 * Decodes a code-block in one call, from its codeword segments, which follow one another in src; their
 * lengths stand in segmentLengths. The samples come in sign and magnitude: bit 31 the sign, magnitude bit p
 * for bit plane p. The first plane is numBitPlanes - 1; above 31 numBitPlanes counts as 31. What a segment
 * is: with termination on each pass one pass; with bypass alone the passes of the first four planes, then by
 * turns a significance and refinement pass together, and a cleanup pass; else the whole block. A segment that
 * ends early reads as ones: any bytes of any length decode to something, and nothing outside the segments and
 * the block is touched.
 *
 * While a block is incomplete, a sample has a 1 below its last known bit, the mid-point; at the end every bit
 * below the current plane (the plane that the next pass would code) is cleared, unless codeStyle has
 * qelCodeStyleKeepMidPoint. In a block without termination on each pass that ends with a cleanup, the current
 * plane is still that cleanup's.
 * A corrupted segment - wrong segmentation symbol, or qelCodeStylePredictable and an end that an encoder with
 * predictable termination can't make - gives qelStatusJpeg2kBadCodeBlock: decoding stops behind it, all
 * samples so far stand, and bitPlaneReached, unless null, receives the current plane (0xFFFFFFFF below plane
 * 0). With qelCodeStyleCut, samples are then cut at that plane: those that keep a magnitude get the plane's
 * bit set, the others become 0.
 *
 * state: memory of the size that qeliDecodeGetBufSize_JPEG2K reports for the block, at any address.
 * Checked in this order: src, state (qelStatusNullPointer), size (qelStatusBadSize), segmentLengths, dst
 * (qelStatusNullPointer), dstStep (qelStatusBadStep). GetBufSize: size (also where the result would pass 2^31
 * - 1: qelStatusBadSize), stateSize (qelStatusNullPointer). No segments, or numSegments below 0: the samples
 * are cleared.
 * @endcode
 * @{
 */

/** The bytes of state memory that qeliDecodeCodeBlock_JPEG2K_1u32s_C1R needs for a block of that size.
 *  See @ref codeblock_decoder. */
QELJ_API QelStatus qeliDecodeGetBufSize_JPEG2K(QelSize size, int32_t* stateSize);

/** Decodes a whole block from its codeword segments, in one call. See @ref codeblock_decoder. */
QELJ_API QelStatus qeliDecodeCodeBlock_JPEG2K_1u32s_C1R(const uint8_t* src, int32_t* dst, int32_t dstStep,
    QelSize size, int32_t subband, uint32_t numBitPlanes, uint32_t numPasses, const uint32_t* segmentLengths,
    int32_t numSegments, int32_t codeStyle, uint32_t* bitPlaneReached, uint8_t* state);

/** @} */

/**
 * @defgroup codeblock_progressive Progressive code-block decoder
 * @code{.unparsed}
 * The same decoder for blocks that arrive in pieces: Init or InitAlloc; Attach; SetPassCounter; Step for each
 * codeword segment, with the counter raised as passes arrive; Attach again for the next block. Between steps
 * the samples hold what is known, with the mid-point bit.
 *
 * State.  Memory of the size that GetStateSize reports for the largest block, at any address, filled by Init,
 *   with no release; or from InitAlloc, released by Free. Passed as void*, so that plain bytes serve.
 *   Attaching a larger block than the state was made for is not detected. The memory must not move between
 *   calls.
 * Attach.  Clears the block's samples (size.width * 4 bytes a row; not with qelCodeStyleKeepSamples) and the
 *   flags (not with qelCodeStyleKeepFlags: then those that the last block of the same size left are used),
 *   resets the contexts. numBitPlanes is clamped to 0..31. The pass counter is 0: set it before the first
 *   step. The block must stay in place until the last step.
 * Step.  Decodes one segment of srcLen bytes (below 0: as 0), as long as the counter is above 0 and the
 *   current plane is not negative; else it does nothing. Segments come whole: in a block without termination
 *   on each pass, a segment that was cut short by the counter can't go on after the counter is raised.
 * Checks.
 *   GetStateSize        size (qelStatusBadSize; also where the result would pass 2^31 - 1), stateSize
 *   Init                state
 *   InitAlloc           state, size (qelStatusBadSize), then qelStatusNoMemory with *state null
 *   Attach              state, its kind, dst, dstStep (qelStatusBadStep), size (qelStatusBadSize)
 *   Set/GetPassCounter  state, numPasses, the state's kind
 *   GetCurBitPlaneNum   state, its kind, bitPlane
 *   Step                src, state, its kind, a state without a block (qelStatusJpeg2kNotAttached); then
 *                       qelStatusJpeg2kBadCodeBlock for a corrupted segment, after which decoding may go on
 *   Free                state, its kind
 * Null pointers give qelStatusNullPointer; "its kind": qelStatusContextMismatch for memory that holds no
 * state.
 * @endcode
 * @{
 */

/** A progressive decoder's state. See @ref codeblock_progressive. */
typedef struct QelDecodeStateJPEG2K QelDecodeStateJPEG2K;

/** The bytes of a progressive decoder's state for blocks of up to that size.
 *  See @ref codeblock_progressive. */
QELJ_API QelStatus qeliDecodeCBProgrGetStateSize_JPEG2K(QelSize size, int32_t* stateSize);

/** Prepares a state in your memory, of the size that GetStateSize gave. It needs no release.
 *  See @ref codeblock_progressive. */
QELJ_API QelStatus qeliDecodeCBProgrInit_JPEG2K(void* state);

/** Allocates a state for blocks of up to `size` samples; release it by qeliDecodeCBProgrFree_JPEG2K.
 *  See @ref codeblock_progressive. */
QELJ_API QelStatus qeliDecodeCBProgrInitAlloc_JPEG2K(QelDecodeStateJPEG2K** state, QelSize size);

/** Releases a state that InitAlloc has made. See @ref codeblock_progressive. */
QELJ_API QelStatus qeliDecodeCBProgrFree_JPEG2K(void* state);

/** Begins a block: ties the state to its samples and clears them. See @ref codeblock_progressive. */
QELJ_API QelStatus qeliDecodeCBProgrAttach_JPEG2K_32s_C1R(int32_t* dst, int32_t dstStep, QelSize size,
    void* state, int32_t subband, int32_t numBitPlanes, int32_t codeStyle);

/** Says how many coding passes are still to be decoded. See @ref codeblock_progressive. */
QELJ_API QelStatus qeliDecodeCBProgrSetPassCounter_JPEG2K(int32_t numPasses, void* state);

/** How many coding passes are still to be decoded. See @ref codeblock_progressive. */
QELJ_API QelStatus qeliDecodeCBProgrGetPassCounter_JPEG2K(const void* state, int32_t* numPasses);

/** The bit plane that the next pass codes; -1 below plane 0. See @ref codeblock_progressive. */
QELJ_API QelStatus qeliDecodeCBProgrGetCurBitPlaneNum_JPEG2K(const void* state, int32_t* bitPlane);

/** Decodes one codeword segment of the attached block. See @ref codeblock_progressive. */
QELJ_API QelStatus qeliDecodeCBProgrStep_JPEG2K(const uint8_t* src, int32_t srcLen, void* state);

/** @} */

/* ========================================================================================================
 * JPEG XR (ITU-T T.832)
 * ======================================================================================================== */

/**
 * @defgroup photo_core Photo core transform
 * @code{.unparsed}
 * The transform of 4x4 blocks (T.832, 9.9.7), in place: every aligned 4x4 block of the region by itself. No
 * overlap filter, and no coefficient leaves its block; a macroblock's second transform over the DC values is
 * a further call on the gathered values.
 *   behind Fwd   row 0, column 0   the block's DC: its sum over 4, up to rounding; a flat block of v gives 4v
 *                (0,1) (1,0) (1,1) the rest of the low-pass butterfly
 *                (0,2) (0,3) (1,2) (1,3) and (2,0) (2,1) (3,0) (3,1)   the two odd rotations
 *                (2,2) (2,3) (3,2) (3,3)   the odd-odd rotation
 *   16s, 32s     every step wraps in the width of the sample, and Inv undoes Fwd to the bit for every input
 *   32f          each step is rounded to single precision, without fused operations; not lossless
 *   16x16, 8x16, 8x8   the region's width and height are part of the name: 8x16 is 8 columns by 16 rows
 *   size         width and height in samples, multiples of 4. The 32f functions transform blocks in pairs:
 *                with a width that is no multiple of 8, the last four columns stay as they are
 *   srcDstStep   bytes, compared as unsigned: a negative step passes, and the rows then go upwards. Rows must
 *                not overlap
 * qelStatusNullPointer; qelStatusBadSize (a side below 1); qelStatusBadStep (below the bytes of a row);
 * qelStatusBadSize (a side that is no multiple of 4). Fixed sizes: qelStatusNullPointer, qelStatusBadStep.
 * @endcode
 * @{
 */

/** Forward on each 4x4 block of a 16-bit region. See @ref photo_core. */
QELJ_API QelStatus qeliPCTFwd_JPEGXR_16s_C1IR(int16_t* srcDst, int32_t srcDstStep, QelSize size);

/** Forward on each 4x4 block of a 32-bit region. See @ref photo_core. */
QELJ_API QelStatus qeliPCTFwd_JPEGXR_32s_C1IR(int32_t* srcDst, int32_t srcDstStep, QelSize size);

/** Forward on each 4x4 block of a float region; the last four columns of a width of 8n + 4 stay.
 *  See @ref photo_core. */
QELJ_API QelStatus qeliPCTFwd_JPEGXR_32f_C1IR(float* srcDst, int32_t srcDstStep, QelSize size);

/** Forward, 16 x 16 samples of 16 bits. See @ref photo_core. */
QELJ_API QelStatus qeliPCTFwd16x16_JPEGXR_16s_C1IR(int16_t* srcDst, int32_t srcDstStep);

/** Forward, 16 x 16 samples of 32 bits. See @ref photo_core. */
QELJ_API QelStatus qeliPCTFwd16x16_JPEGXR_32s_C1IR(int32_t* srcDst, int32_t srcDstStep);

/** Forward, 16 x 16 floats. See @ref photo_core. */
QELJ_API QelStatus qeliPCTFwd16x16_JPEGXR_32f_C1IR(float* srcDst, int32_t srcDstStep);

/** Forward, 8 columns by 16 rows of 16-bit samples. See @ref photo_core. */
QELJ_API QelStatus qeliPCTFwd8x16_JPEGXR_16s_C1IR(int16_t* srcDst, int32_t srcDstStep);

/** Forward, 8 columns by 16 rows of 32-bit samples. See @ref photo_core. */
QELJ_API QelStatus qeliPCTFwd8x16_JPEGXR_32s_C1IR(int32_t* srcDst, int32_t srcDstStep);

/** Forward, 8 columns by 16 rows of floats. See @ref photo_core. */
QELJ_API QelStatus qeliPCTFwd8x16_JPEGXR_32f_C1IR(float* srcDst, int32_t srcDstStep);

/** Forward, 8 x 8 samples of 16 bits. See @ref photo_core. */
QELJ_API QelStatus qeliPCTFwd8x8_JPEGXR_16s_C1IR(int16_t* srcDst, int32_t srcDstStep);

/** Forward, 8 x 8 samples of 32 bits. See @ref photo_core. */
QELJ_API QelStatus qeliPCTFwd8x8_JPEGXR_32s_C1IR(int32_t* srcDst, int32_t srcDstStep);

/** Forward, 8 x 8 floats. See @ref photo_core. */
QELJ_API QelStatus qeliPCTFwd8x8_JPEGXR_32f_C1IR(float* srcDst, int32_t srcDstStep);

/** Inverse on each 4x4 block of a 16-bit region. See @ref photo_core. */
QELJ_API QelStatus qeliPCTInv_JPEGXR_16s_C1IR(int16_t* srcDst, int32_t srcDstStep, QelSize size);

/** Inverse on each 4x4 block of a 32-bit region. See @ref photo_core. */
QELJ_API QelStatus qeliPCTInv_JPEGXR_32s_C1IR(int32_t* srcDst, int32_t srcDstStep, QelSize size);

/** Inverse on each 4x4 block of a float region; the last four columns of a width of 8n + 4 stay.
 *  See @ref photo_core. */
QELJ_API QelStatus qeliPCTInv_JPEGXR_32f_C1IR(float* srcDst, int32_t srcDstStep, QelSize size);

/** Inverse, 16 x 16 samples of 16 bits. See @ref photo_core. */
QELJ_API QelStatus qeliPCTInv16x16_JPEGXR_16s_C1IR(int16_t* srcDst, int32_t srcDstStep);

/** Inverse, 16 x 16 samples of 32 bits. See @ref photo_core. */
QELJ_API QelStatus qeliPCTInv16x16_JPEGXR_32s_C1IR(int32_t* srcDst, int32_t srcDstStep);

/** Inverse, 16 x 16 floats. See @ref photo_core. */
QELJ_API QelStatus qeliPCTInv16x16_JPEGXR_32f_C1IR(float* srcDst, int32_t srcDstStep);

/** Inverse, 8 columns by 16 rows of 16-bit samples. See @ref photo_core. */
QELJ_API QelStatus qeliPCTInv8x16_JPEGXR_16s_C1IR(int16_t* srcDst, int32_t srcDstStep);

/** Inverse, 8 columns by 16 rows of 32-bit samples. See @ref photo_core. */
QELJ_API QelStatus qeliPCTInv8x16_JPEGXR_32s_C1IR(int32_t* srcDst, int32_t srcDstStep);

/** Inverse, 8 columns by 16 rows of floats. See @ref photo_core. */
QELJ_API QelStatus qeliPCTInv8x16_JPEGXR_32f_C1IR(float* srcDst, int32_t srcDstStep);

/** Inverse, 8 x 8 samples of 16 bits. See @ref photo_core. */
QELJ_API QelStatus qeliPCTInv8x8_JPEGXR_16s_C1IR(int16_t* srcDst, int32_t srcDstStep);

/** Inverse, 8 x 8 samples of 32 bits. See @ref photo_core. */
QELJ_API QelStatus qeliPCTInv8x8_JPEGXR_32s_C1IR(int32_t* srcDst, int32_t srcDstStep);

/** Inverse, 8 x 8 floats. See @ref photo_core. */
QELJ_API QelStatus qeliPCTInv8x8_JPEGXR_32f_C1IR(float* srcDst, int32_t srcDstStep);

/** @} */

/**
 * @defgroup vlc_state Adaptive VLC state and scan
 * @code{.unparsed}
 * The record that the coefficient coders adapt (T.832, 8.8): the code table in use for each of 21 classes of
 * symbols with its discriminants, and three scans, whose places move with the coefficients seen. An encoder
 * and a decoder stay in step when they make the same calls on the same data.
 *
 * The record lies in the caller's memory, at any address, and owns nothing. It points into itself: a copy at
 * another address needs ScanSet before its first use. One record serves one thread at a time.
 *
 * Order of calls: GetStateSize, Init, ScanReset of all three scans; then, as the image goes, ScanSet and the
 * coders, Adapt at the moments that T.832 prescribes, ScanReset where it restarts the counts. Nothing adapts
 * on its own.
 *
 * GetStateSize  the record's size in bytes. qelStatusNullPointer.
 * Init          start tables, discriminants at 0, the scans in their initial orders, scan 2 in use. The
 *               memory may hold anything. The counts of the scans are not set: ScanReset must follow for each
 *               scan.
 *               qelStatusNullPointer.
 * Adapt         chooses the code tables of a group (QelVLCGroup) anew by its discriminants.
 *               qelStatusNullPointer, then qelStatusOutOfRange (another group).
 * ScanReset     sets the counts of a scan (QelVLCScan) to their start values and leaves its order as it is.
 * ScanSet       makes a scan the one that the block coders use.
 *               Both: qelStatusNullPointer, then qelStatusOutOfRange (another index).
 * Scan4x4DC     walks a low-pass block along scan 2, which becomes the scan in use and is sorted on the way,
 *               and splits `modelBits` low bits (0 to 15) off each coefficient.
 *   src         16 coefficients by position (position p stands at column 0 1 0 1 3 2 3 2 0 1 0 1 3 2 3 2 and
 *               row 0 0 1 1 0 0 1 1 3 3 2 2 3 3 2 2 of a block); position 0, the DC, is not coded
 *   residual    16 values by position; position 0 is not written, and nothing is with modelBits 0. The low
 *               bits of a coefficient with a level give 2 * bits; one without gives 4 * magnitude +
 *               2 * (negative) + 1, or 0
 *   runLevel    room for 15 pairs (run of places without a level, signed level); only the pairs found are
 *               written
 *   pairCount   their number
 *               Arrays need no alignment. qelStatusNullPointer, then qelStatusOutOfRange (modelBits above
 *               15).
 * @endcode
 * @{
 */

/** What the coefficient coders adapt. See @ref vlc_state. */
typedef struct VLCState VLCState;

/** Values of `group`. */
enum QelVLCGroup {
  qelVLCGroupLowPass = 0, /**< the classes of low-pass symbols, and of runs */
  qelVLCGroupHighPass = 1 /**< the classes of high-pass symbols */
};

/** Values of `scanIndex`. */
enum QelVLCScan {
  qelVLCScanHighPassTop = 0, /**< high-pass blocks of a macroblock that is predicted from its top */
  qelVLCScanHighPass = 1,    /**< other high-pass blocks */
  qelVLCScanLowPass = 2      /**< the low-pass block */
};
/** The record's size in bytes. Null gives qelStatusNullPointer. See @ref vlc_state. */
QELJ_API QelStatus qeliVLCGetStateSize_JPEGXR(int32_t* stateSize);
/** Start tables, discriminants at 0, scans in their initial orders, scan 2 in use; ScanReset of all three
 *  must follow. See @ref vlc_state. */
QELJ_API QelStatus qeliVLCInit_JPEGXR(VLCState* state);
/** Chooses the code tables of a group (QelVLCGroup) anew, by its discriminants. See @ref vlc_state. */
QELJ_API QelStatus qeliVLCAdapt_JPEGXR(VLCState* state, int32_t group);
/** Sets the counts of a scan (QelVLCScan) to their start values, and leaves its order. See @ref vlc_state. */
QELJ_API QelStatus qeliVLCScanReset_JPEGXR(VLCState* state, int32_t scanIndex);

/** Makes a scan (QelVLCScan) the one that the block coders use. See @ref vlc_state. */
QELJ_API QelStatus qeliVLCScanSet_JPEGXR(VLCState* state, uint32_t scanIndex);
/** Walks a low-pass block along scan 2, which becomes the scan in use, to pairs for the DC encoders.
 *  See @ref vlc_state. */
QELJ_API QelStatus qeliVLCScan4x4DC_JPEGXR_32s(const int32_t* src, uint32_t modelBits, uint32_t* residual,
    int32_t* runLevel, int32_t* pairCount, VLCState* state);

/** @} */

/**
 * @defgroup vlc_blocks Block coefficient coding
 * @code{.unparsed}
 * The fifteen AC coefficients of a 4x4 block (T.832, 8.7), in the layout of the photo core transform and
 * along the scan in use. The DC at row 0, column 0 is neither coded nor written.
 *
 * Bit position, for these and the following families: three values that the caller keeps between calls.
 *   stream      the next byte to write or read; the stream is big-endian in units of 16 bits
 *   bitBuffer   the bits held, left-aligned; those below bitCount must be 0, and are on return
 *   bitCount    how many are held, 0 to 32
 * An encoder stores two bytes whenever more than 16 bits are held, a decoder fetches two whenever fewer than
 * 16 are; both do so on entry as well. The three values on return depend on nothing but the number of bits
 * coded. Nothing is flushed, and neither side knows the end of its buffer: the caller flushes the last bits,
 * gives an encoder room, and gives a decoder a readable margin:
 *   a decoder of a block, or of DC444, moves *stream on by 96 bytes at most; of DC422 by 90, of DC420 by 40,
 *   and the fixed-length decoder by 32 (by 2 * ceil(15 * (flexBits + 1) / 16) + 2, or 2 with flexBits 0)
 *   and it may read up to 16 bytes behind the *stream that it returns. So keep these sums readable from the
 *   *stream that a call is given, 112, 106, 56 and 48 bytes: 112 bytes behind the data serve all. What those
 *   bytes hold changes no result.
 *   an encoder moves *stream on by 58 bytes at most for a 16s block, by 98 for a 32s block (96 for magnitudes
 *   that can be coded), by 98 for DC444 (104 for 16 pairs), 92 for DC422, 40 for DC420, and by 32 for the
 *   fields of a block. It writes nothing at or behind the *stream that it returns.
 *
 *   chroma      0 luma, else chroma: which classes of symbols are used
 *   modelBits   0 to 15, the low bits of each magnitude that are not coded here
 *   pairCount   out: coefficients coded. With none, no bit is written
 *   scale       the decoder multiplies by it; the product wraps to the sample's width
 *   count       out: coefficients decoded, or 16 when the stream sent one behind the end of the block, at
 *               which the decoder stops. That is the only sign of a corrupt stream; the samples before it are
 *               in place
 *   step        bytes, not tested: rows may lie anywhere
 * Flex forms also give what modelBits splits off, less its `trimBits` lowest bits (0 to 15, may exceed
 * modelBits), as 16 values by position for the fixed-length encoder, in the forms told at
 * qeliVLCScan4x4DC_JPEGXR_32s. All but position 0 are written, whatever modelBits is.
 * The decoders clear the fifteen samples first. Magnitudes above 2^30 + 1 behind modelBits can't be coded:
 * their length field is cut.
 * qelStatusNullPointer (also for a null byte pointer in `stream`), then qelStatusOutOfRange (bitCount below 0
 * or above 32, modelBits or trimBits above 15), then qelStatusContextMismatch: the scan in use is none of the
 * record's own three, as in a record that was never filled, or in a copy before its first ScanSet.
 * @endcode
 * @{
 */

/** Values of `chroma`. Any other value is chroma. */
enum QelVLCPlane {
  qelVLCPlaneLuma = 0,  /**< the classes of luma */
  qelVLCPlaneChroma = 1 /**< those of chroma */
};

/** A value of *count. */
enum QelVLCCount {
  qelVLCCountOverrun = 16 /**< the stream sent a coefficient behind the end of the block: it is corrupt */
};

/** Codes the fifteen AC coefficients of a 16-bit block: at most 58 bytes. See @ref vlc_blocks. */
QELJ_API QelStatus qeliVLCEncode4x4_JPEGXR_16s1u_C1R(const int16_t* src, int32_t srcStep, int32_t chroma,
    uint32_t modelBits, uint8_t** stream, uint32_t* bitBuffer, int32_t* bitCount, int32_t* pairCount,
    VLCState* state);

/** Codes the fifteen AC coefficients of a 32-bit block: at most 98 bytes. See @ref vlc_blocks. */
QELJ_API QelStatus qeliVLCEncode4x4_JPEGXR_32s1u_C1R(const int32_t* src, int32_t srcStep, int32_t chroma,
    uint32_t modelBits, uint8_t** stream, uint32_t* bitBuffer, int32_t* bitCount, int32_t* pairCount,
    VLCState* state);

/** Codes a 16-bit block and gives the bits split off, for the fixed-length encoder: at most 58 bytes.
 *  See @ref vlc_blocks. */
QELJ_API QelStatus qeliVLCEncode4x4Flex_JPEGXR_16s1u_C1R(const int16_t* src, int32_t srcStep, int32_t chroma,
    uint32_t modelBits, uint32_t trimBits, uint32_t* residual, uint8_t** stream, uint32_t* bitBuffer,
    int32_t* bitCount, int32_t* pairCount, VLCState* state);

/** Codes a 32-bit block and gives the bits split off, for the fixed-length encoder: at most 98 bytes.
 *  See @ref vlc_blocks. */
QELJ_API QelStatus qeliVLCEncode4x4Flex_JPEGXR_32s1u_C1R(const int32_t* src, int32_t srcStep, int32_t chroma,
    uint32_t modelBits, uint32_t trimBits, uint32_t* residual, uint8_t** stream, uint32_t* bitBuffer,
    int32_t* bitCount, int32_t* pairCount, VLCState* state);

/** Decodes the fifteen AC coefficients of a 16-bit block: keep 112 bytes readable from *stream.
 *  See @ref vlc_blocks. */
QELJ_API QelStatus qeliVLCDecode4x4_JPEGXR_1u16s_C1R(const uint8_t** stream, uint32_t* bitBuffer,
    int32_t* bitCount, int16_t scale, int16_t* dst, int32_t dstStep, int32_t chroma, int32_t* count,
    VLCState* state);

/** Decodes the fifteen AC coefficients of a 32-bit block: keep 112 bytes readable from *stream.
 *  See @ref vlc_blocks. */
QELJ_API QelStatus qeliVLCDecode4x4_JPEGXR_1u32s_C1R(const uint8_t** stream, uint32_t* bitBuffer,
    int32_t* bitCount, int32_t scale, int32_t* dst, int32_t dstStep, int32_t chroma, int32_t* count,
    VLCState* state);

/** @} */

/**
 * @defgroup vlc_dc DC block coding
 * @code{.unparsed}
 * The second-stage block of a macroblock (T.832, 8.7): the low-pass coefficients that the caller's transform
 * over the DC values gives. DC444 has 15 of them, DC422 14 (both chroma planes, interleaved by the caller),
 * DC420 6.
 *   pairs       (run, level) as made by qeliVLCScan4x4DC_JPEGXR_32s; a level is not 0, and runs stay in the
 *               block
 *   pairCount   at most 16, 14, 6. With 0 or less nothing is coded
 *   chroma      DC444 only: 0 luma, else chroma. DC422 and DC420 are always chroma
 *   dst         DC444: by position of scan 2, which is sorted on the way; what has no coefficient stays as it
 *               was. DC422, DC420: 14 or 6 consecutive values, cleared first
 *   count       levels decoded. A coefficient behind the end of the block stops the decoder: DC422 and DC420
 *               then leave `count` as it was, DC444 sets it to 16. Nothing is written outside the block
 * The encoders leave the scans alone. Lists that don't fit their block (runs that leave it, or are negative)
 * give streams that no decoder follows, of 124 bytes at most. The bit position, its margins and most bytes
 * are told at the block coders.
 * qelStatusNullPointer (of `stream`, the encoders test the outer pointer only), then qelStatusOutOfRange
 * (bitCount below 0 or above 32, pairCount too large).
 * @endcode
 * @{
 */

/** Codes up to 6 pairs, of a chroma plane of 4:2:0: at most 40 bytes. See @ref vlc_dc. */
QELJ_API QelStatus qeliVLCEncodeDC420_JPEGXR_32s1u(const int32_t* pairs, int32_t pairCount, uint8_t** stream,
    uint32_t* bitBuffer, int32_t* bitCount, VLCState* state);

/** Codes up to 14 pairs, of two chroma planes of 4:2:2: at most 92 bytes. See @ref vlc_dc. */
QELJ_API QelStatus qeliVLCEncodeDC422_JPEGXR_32s1u(const int32_t* pairs, int32_t pairCount, uint8_t** stream,
    uint32_t* bitBuffer, int32_t* bitCount, VLCState* state);

/** Codes up to 16 pairs, of luma or a chroma plane of 4:4:4: at most 98 bytes for 15 of them.
 *  See @ref vlc_dc. */
QELJ_API QelStatus qeliVLCEncodeDC444_JPEGXR_32s1u(const int32_t* pairs, int32_t pairCount, int32_t chroma,
    uint8_t** stream, uint32_t* bitBuffer, int32_t* bitCount, VLCState* state);

/** Decodes 6 values: keep 56 bytes readable from *stream. See @ref vlc_dc. */
QELJ_API QelStatus qeliVLCDecodeDC420_JPEGXR_1u32s(const uint8_t** stream, uint32_t* bitBuffer,
    int32_t* bitCount, int32_t* dst, int32_t* count, VLCState* state);

/** Decodes 14 values: keep 106 bytes readable from *stream. See @ref vlc_dc. */
QELJ_API QelStatus qeliVLCDecodeDC422_JPEGXR_1u32s(const uint8_t** stream, uint32_t* bitBuffer,
    int32_t* bitCount, int32_t* dst, int32_t* count, VLCState* state);

/** Decodes up to 15 values, by position: keep 112 bytes readable from *stream. See @ref vlc_dc. */
QELJ_API QelStatus qeliVLCDecodeDC444_JPEGXR_1u32s(const uint8_t** stream, uint32_t* bitBuffer,
    int32_t* bitCount, int32_t* dst, int32_t chroma, int32_t* count, VLCState* state);

/** @} */

/**
 * @defgroup flc Fixed-length coding
 * @code{.unparsed}
 * The flex bits of a block (T.832, 8.7.20): a field of `flexBits` bits (0 to 15) for each of the fifteen AC
 * coefficients, in a fixed order, with a sign where the block coders sent none. The bit position and its
 * margins are told at the block coders.
 *   fromResidual  not 0: the fields are those of `residual`, 16 values by position as the Flex encoders make
 *                 them; a value wider than its field sends its low bits. 0: they are made from the samples,
 *                 whose magnitudes lose `trimBits` low bits (0 to 15); a sign goes with every magnitude that
 *                 is not 0 then
 *   refine        0: a field that is not 0 has a sign, and replaces the sample. Not 0: a sample that is 0
 *                 takes a signed field; another has its magnitude raised by the field, which has no sign then
 *   scale         the decoder multiplies the field by it; samples wrap to their width
 * Row 0, column 0 is neither read nor written. `residual` is not read with fromResidual 0, but must not be
 * null. qelStatusNullPointer (also for a null byte pointer in `stream`), then qelStatusOutOfRange (bitCount
 * below 0 or above 32, flexBits or trimBits above 15).
 * @endcode
 * @{
 */

/** Values of `fromResidual`. */
enum QelFLCSource {
  qelFLCSourceSamples = 0, /**< fields are made from the samples */
  qelFLCSourceResidual = 1 /**< fields are those that a Flex encoder has given */
};

/** Values of `refine`. */
enum QelFLCMode {
  qelFLCModeReplace = 0, /**< a field replaces its sample */
  qelFLCModeRefine = 1   /**< a field raises the magnitude of its sample */
};

/** Codes the fields of a 16-bit block: at most 32 bytes. See @ref flc. */
QELJ_API QelStatus qeliFLCEncode4x4_JPEGXR_16s1u_C1R(const int16_t* src, int32_t srcStep,
    const uint32_t* residual, uint8_t** stream, uint32_t* bitBuffer, int32_t* bitCount, uint32_t flexBits,
    uint32_t trimBits, int32_t fromResidual);

/** Codes the fields of a 32-bit block: at most 32 bytes. See @ref flc. */
QELJ_API QelStatus qeliFLCEncode4x4_JPEGXR_32s1u_C1R(const int32_t* src, int32_t srcStep,
    const uint32_t* residual, uint8_t** stream, uint32_t* bitBuffer, int32_t* bitCount, uint32_t flexBits,
    uint32_t trimBits, int32_t fromResidual);

/** Decodes the fields of a 16-bit block into its samples: keep 48 bytes readable from *stream.
 *  See @ref flc. */
QELJ_API QelStatus qeliFLCDecode4x4_JPEGXR_1u16s_C1IR(const uint8_t** stream, uint32_t* bitBuffer,
    int32_t* bitCount, int16_t* srcDst, int32_t srcDstStep, uint32_t flexBits, int16_t scale, int32_t refine);

/** Decodes the fields of a 32-bit block into its samples: keep 48 bytes readable from *stream.
 *  See @ref flc. */
QELJ_API QelStatus qeliFLCDecode4x4_JPEGXR_1u32s_C1IR(const uint8_t** stream, uint32_t* bitBuffer,
    int32_t* bitCount, int32_t* srcDst, int32_t srcDstStep, uint32_t flexBits, int32_t scale, int32_t refine);

/** @} */

/* ========================================================================================================
 * Texture blocks (BC1 to BC7)
 * ======================================================================================================== */

/**
 * @defgroup texture_decoding DXT1, DXT3, DXT5, BC4 and BC5 decoding
 * @code{.unparsed}
 * Expand a stream of 4x4 blocks into an image of size.width x size.height pixels, 8 bits a channel. The
 * formats are the Direct3D ones: DXT1, DXT3 and DXT5 are BC1, BC2 and BC3; BC4 and BC5 are the unsigned
 * variants.
 *
 *   DXT1   8 bytes a block -> RGBA       DXT3, DXT5   16 bytes a block -> RGBA
 *   BC4    8 bytes a block -> 1 channel  BC5          16 bytes a block -> 2 channels (first, second)
 *
 * src holds ceil(width / 4) x ceil(height / 4) blocks in raster order and has no length argument: the caller
 * vouches for it. Any bytes are valid blocks. Of blocks that cross the right or bottom edge only the pixels
 * inside the image are written; nothing is written between the end of one row and the start of the next.
 *
 * Values. Colours expand to 8 bits by repeating their high bits. Interpolated colours are (2 c0 + c1) / 3 and
 * (c0 + 2 c1) / 3, truncated. In DXT1, c0 <= c1 selects the palette c0, c1, (c0 + c1) / 2 and opaque white:
 * alpha is always 255. DXT3 and DXT5 always have four colours. A DXT3 alpha n is 16 n (15 gives 240). The
 * ramps of DXT5 alpha, BC4 and BC5 are rounded to nearest; a0 <= a1 selects the ramp of six with 0 and 255.
 *
 * Any dstStep but 0 is accepted: it is not compared with the row's bytes, and a negative one stores rows
 * upwards. Rows must not overlap. Checked in this order: src, dst (qelStatusNullPointer), dstStep of 0
 * (qelStatusBadStep), size below 1 (qelStatusBadSize).
 * @endcode
 * @{
 */

/** DXT1 (BC1), 8 bytes a block, to RGBA. Alpha is always 255. See @ref texture_decoding. */
QELJ_API QelStatus qeliTextureDecodeBlockToRGBA_DXT1_8u_C1C4R(
    const uint8_t* src, uint8_t* dst, int32_t dstStep, QelSize size);

/** DXT3 (BC2), 16 bytes a block, to RGBA. Alpha is 16 times its 4 bits: 240 at most.
 *  See @ref texture_decoding. */
QELJ_API QelStatus qeliTextureDecodeBlockToRGBA_DXT3_8u_C1C4R(
    const uint8_t* src, uint8_t* dst, int32_t dstStep, QelSize size);

/** DXT5 (BC3), 16 bytes a block, to RGBA. See @ref texture_decoding. */
QELJ_API QelStatus qeliTextureDecodeBlockToRGBA_DXT5_8u_C1C4R(
    const uint8_t* src, uint8_t* dst, int32_t dstStep, QelSize size);

/** BC4, unsigned, 8 bytes a block, to one channel. See @ref texture_decoding. */
QELJ_API QelStatus qeliTextureDecodeBlock_BC4_8u_C1R(
    const uint8_t* src, uint8_t* dst, int32_t dstStep, QelSize size);

/** BC5, unsigned, 16 bytes a block, to two channels. See @ref texture_decoding. */
QELJ_API QelStatus qeliTextureDecodeBlockToRG_BC5_8u_C1C2R(
    const uint8_t* src, uint8_t* dst, int32_t dstStep, QelSize size);

/** @} */

/**
 * @defgroup texture_encoding DXT1, DXT3, DXT5, BC4 and BC5 encoding
 * @code{.unparsed}
 * Compress an image into 4x4 blocks of the formats above, for speed: the end-points are the corners of a
 * block's bounding box, each channel pulled inwards by (max - min) / 16, and every pixel takes an index by a
 * fixed rule. The bytes depend on nothing but the pixels and, in DXT5, on their position (below).
 *
 *   FromRGBA_DXT1   R, G, B, alpha ignored; never transparent
 *   FromRGBA_DXT3, FromRGBA_DXT5   R, G, B, alpha
 *   BC4             one channel
 *   FromRG_BC5      two channels
 *   FromYCoCg_DXT5  three channels Y, Co, Cg, chroma centred on 128. A DXT5 decoder gives Co in red, Cg in
 *                   green, Y in alpha, and a scale code of 0, 1 or 3 in the upper five bits of blue: chroma
 *                   was multiplied by code + 1 around 128, by 4 where all of a block lies within 128 +- 31,
 *                   by 2 within 128 +- 63.
 *
 * dst receives ceil(width / 4) x ceil(height / 4) blocks in raster order, 8 bytes each for DXT1 and BC4 and
 * 16 for the others; it has no length argument. A block that crosses the right edge repeats each row's last
 * pixel inside the image, one that crosses the bottom edge repeats its last row. No byte outside the image's
 * pixels is read.
 *
 * In DXT5 (from RGBA) the first 16 x floor(width / 16) columns of complete rows of blocks find their indices
 * by a faster rule than the remaining blocks, with the same end-points. The same pixels may therefore give
 * other indices at another place of the image.
 *
 * Any srcStep but 0 is accepted, a negative one included. Checked in this order: src, dst
 * (qelStatusNullPointer), srcStep of 0 (qelStatusBadStep), size below 1 (qelStatusBadSize).
 * @endcode
 * @{
 */

/** RGBA to DXT1, 8 bytes a block; alpha is ignored. See @ref texture_encoding. */
QELJ_API QelStatus qeliTextureEncodeBlockFromRGBA_DXT1_8u_C4C1R(
    const uint8_t* src, int32_t srcStep, QelSize size, uint8_t* dst);

/** RGBA to DXT3, 16 bytes a block. See @ref texture_encoding. */
QELJ_API QelStatus qeliTextureEncodeBlockFromRGBA_DXT3_8u_C4C1R(
    const uint8_t* src, int32_t srcStep, QelSize size, uint8_t* dst);

/** RGBA to DXT5, 16 bytes a block. Indices depend on the block's place in the image.
 *  See @ref texture_encoding. */
QELJ_API QelStatus qeliTextureEncodeBlockFromRGBA_DXT5_8u_C4C1R(
    const uint8_t* src, int32_t srcStep, QelSize size, uint8_t* dst);

/** One channel to BC4, 8 bytes a block. See @ref texture_encoding. */
QELJ_API QelStatus qeliTextureEncodeBlock_BC4_8u_C1R(
    const uint8_t* src, int32_t srcStep, QelSize size, uint8_t* dst);

/** Two channels to BC5, 16 bytes a block. See @ref texture_encoding. */
QELJ_API QelStatus qeliTextureEncodeBlockFromRG_BC5_8u_C2C1R(
    const uint8_t* src, int32_t srcStep, QelSize size, uint8_t* dst);

/** Y, Co, Cg to DXT5 with scaled chroma, 16 bytes a block. See @ref texture_encoding. */
QELJ_API QelStatus qeliTextureEncodeBlockFromYCoCg_DXT5_8u_C3C1R(
    const uint8_t* src, int32_t srcStep, QelSize size, uint8_t* dst);

/** @} */

/**
 * @defgroup bc6 BC6 decoding
 * @code{.unparsed}
 * Blocks of 16 bytes, 4x4 pixels of three half-precision channels each (BC6H of Direct3D), into interleaved
 * R, G, B of 16 bits: the bit patterns of halves, unsigned ones (16u: UF16, never negative) or ones with sign
 * and magnitude (16s: SF16). Values never reach the patterns of infinity or NaN, but for the most negative
 * end-points that the signed form can code, whose magnitudes reach 0x7DF0.
 *
 * The image's size comes as two numbers, width and height in pixels; dstStep is in bytes. src holds
 * ceil(width / 4) x ceil(height / 4) blocks in raster order and has no length argument. Any bytes are valid
 * blocks; one of a reserved mode decodes to zeros. Of blocks that cross the right or bottom edge only the
 * pixels inside the image are written, and nothing between two rows. Any dstStep but 0 is accepted, a
 * negative one included; rows must not overlap. Checked in this order: src, dst (qelStatusNullPointer),
 * dstStep of 0 (qelStatusBadStep), width, height below 1 (qelStatusBadSize).
 * @endcode
 * @{
 */

/** BC6, unsigned halves (UF16), to R, G, B of 16 bits. See @ref bc6. */
QELJ_API QelStatus qeliTextureDecodeBlockToRGB_BC6_16u_C1C3R(
    const uint8_t* src, uint16_t* dst, int32_t dstStep, int32_t width, int32_t height);

/** BC6, signed halves (SF16), to R, G, B of 16 bits. See @ref bc6. */
QELJ_API QelStatus qeliTextureDecodeBlockToRGB_BC6_16s_C1C3R(
    const uint8_t* src, int16_t* dst, int32_t dstStep, int32_t width, int32_t height);

/** @} */

/**
 * @defgroup bc7 BC7 decoding and encoding
 * @code{.unparsed}
 * Blocks of 16 bytes, 4x4 pixels of 8-bit RGBA each, as Direct3D publishes the format.
 *
 * Decoding: src holds ceil(width / 4) x ceil(height / 4) blocks in raster order and has no length argument.
 * Any bytes are valid blocks; one whose first byte is 0 (the reserved mode) decodes to transparent black. Of
 * blocks that cross the right or bottom edge only the pixels inside the image are written, and nothing
 * between two rows. Any dstStep but 0 is accepted, a negative one included; rows must not overlap. Checked in
 * this order: src, dst (qelStatusNullPointer), dstStep of 0 (qelStatusBadStep), size below 1
 * (qelStatusBadSize).
 *
 * Encoding: dst receives ceil(width / 4) x ceil(height / 4) blocks in raster order; it has no length
 * argument. A block that crosses the right edge repeats each row's last pixel inside the image, one that
 * crosses the bottom edge repeats its last row; no byte outside the image's pixels is read. Any srcStep but 0
 * is accepted, a negative one included. Checked in this order: src, dst (qelStatusNullPointer), srcStep of 0
 * (qelStatusBadStep), size below 1 (qelStatusBadSize).
 * What is made smallest is the squared error over red, green, blue and alpha, all weighing the same, as the
 * decoder above decodes. The same pixels always give the same block. Opaque blocks (alpha 255 throughout) use
 * modes 6, 1 and 3 and decode to an alpha of 255; others use modes 6, 5, 4 and 7. A block of one colour
 * decodes to within 1 of it, and exactly when it is opaque and has no channel of 0. Of the 64 shapes of two
 * subsets, two are tried, chosen by the error that the best lines through their subsets would leave. Modes 0
 * and 2 and rotations are not used.
 * Blocks are encoded side by side, 4 to 16 of them in little more time than one: a call should have many.
 * @endcode
 * @{
 */

/** BC7, 16 bytes a block, to RGBA. See @ref bc7. */
QELJ_API QelStatus qeliTextureDecodeBlockToRGBA_BC7_8u_C1C4R(
    const uint8_t* src, uint8_t* dst, int32_t dstStep, QelSize size);

/** RGBA to BC7, 16 bytes a block, for the least squared error. See @ref bc7. */
QELJ_API QelStatus qeliTextureEncodeBlock4x4FromRGBA_BC7_8u_C4C1R(
    const uint8_t* src, int32_t srcStep, QelSize size, uint8_t* dst);

/** @} */

/* ========================================================================================================
 * TIFF
 * ======================================================================================================== */

/**
 * @defgroup tiff_rows PackBits and byte planes of a row
 * @code{.unparsed}
 * PackBits (TIFF 6.0, section 9) codes a row of bytes as tokens: a byte n of 0..127 and n + 1 literal bytes,
 * or a byte 1 - c and the value of a run of c equal bytes, 2 to 128. -128 is no token. Rows are coded one by
 * one.
 *
 * Pack    codes srcLen bytes to dst + *dstPos, and moves *dstPos behind the last token. dstLen is the size of
 *         dst itself, not what is left of it. Two equal bytes at the start of a token begin a run, which goes
 *         on to at most 128. A literal holds up to 128 bytes, pairs included; it ends before three equal
 *         bytes, and before two that end the row. qelStatusOutOfBuffer: a token did not fit; *dstPos is
 *         behind the last one that did, nothing is written behind it, and how much of src was coded is not
 *         told. A row of n bytes never needs more than n + ceil(n / 128) bytes.
 * Unpack  decodes from src + *srcPos until dst is full (qelStatusOk), and moves *srcPos behind the last byte
 *         read; source may be left. srcLen is the size of src itself. qelStatusOutOfBuffer: the source is
 *         used up (*srcPos at or above srcLen), or a literal does not lie within srcLen, or a token holds
 *         more than dst has room for; in the latter two cases *srcPos is behind that token's first byte and
 *         nothing of the token is written. The bytes of the tokens before it are in dst; their number is not
 *         told.
 *         WHERE THE LAST OF THE srcLen BYTES BEGINS A RUN, THE RUN'S VALUE IS READ FROM src[srcLen]: ONE BYTE
 *         BEHIND THE SOURCE. Keep a readable byte there unless the source is known to be well formed; or put
 *         a byte -128, which is no token, behind it and count that in srcLen: a run or literal that takes it
 *         leaves *srcPos at srcLen, and was cut short. Nothing else is read at or above srcLen.
 *
 * Checked in this order: pointers (qelStatusNullPointer), srcLen, dstLen below 1 (qelStatusBadSize).
 * Positions are unsigned, up to 0xFFFFFFFF; one at or above the length gives qelStatusOutOfBuffer and stays.
 *
 * Split   writes the high bytes of len 16-bit samples to plane dst[0] and the low bytes to plane dst[1].
 * Join    makes samples from the high bytes src[0] and the low bytes src[1].
 * len counts samples. Checked in this order: src, dst (qelStatusNullPointer), len below 1 (qelStatusBadStep,
 * though it is a length). The plane pointers themselves are not checked and must not be null.
 * @endcode
 * @{
 */

/** Codes one row; a row of n bytes needs at most n + ceil(n / 128). See @ref tiff_rows. */
QELJ_API QelStatus qeliPackBitsRow_TIFF_8u_C1(
    const uint8_t* src, int32_t srcLen, uint8_t* dst, uint32_t* dstPos, int32_t dstLen);

/** Decodes until dst is full. A truncated source may be read one byte beyond its end. See @ref tiff_rows. */
QELJ_API QelStatus qeliUnpackBitsRow_TIFF_8u_C1(
    const uint8_t* src, uint32_t* srcPos, int32_t srcLen, uint8_t* dst, int32_t dstLen);

/** 16-bit samples to a plane of high bytes and one of low bytes. See @ref tiff_rows. */
QELJ_API QelStatus qeliSplitRow_TIFF_16u8u_C1(const uint16_t* src, uint8_t* const* dst, int32_t len);

/** A plane of high bytes and one of low bytes to 16-bit samples. See @ref tiff_rows. */
QELJ_API QelStatus qeliJoinRow_TIFF_8u16u_C1(const uint8_t* const* src, uint16_t* dst, int32_t len);

/** @} */

#ifdef __cplusplus
}
#endif
#endif
