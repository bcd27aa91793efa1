// qelj in WebAssembly. Functions throw QeljError for a failure of the library, RangeError or TypeError for arguments
// that don't fit, and Error with words for a file that can't be read or written.
import type { Functions } from "./functions.js";

export interface Size {
  width: number;
  height: number;
}
export interface Rect extends Size {
  x?: number;
  y?: number;
}
export type Samples =
  | Uint8Array | Int8Array | Uint16Array | Int16Array | Uint32Array | Int32Array | Float32Array | Float64Array;
/** Memory of the module: what a block holds, or a number. Null is 0. */
export type Address = Block<Samples> | number | null;
export type Planes<Kind> = ReadonlyArray<Kind | Address>;

/** Memory of the module. Functions take it in place of an array without copying. */
export interface Block<Kind extends Samples> {
  readonly address: number;
  readonly length: number;
  /** A view of the memory as it lies now: take it anew behind any call, by which memory may grow. */
  readonly array: Kind;
  /** The address of an element. */
  at(index: number): number;
  free(): void;
}

/** One plane, rows without gaps. */
export interface Plane<Kind extends Samples = Uint8Array> extends Size {
  data: Kind;
}
/** Interleaved pixels, rows without gaps: three or four bytes each for the functions of a family; for encode also one
 *  or two, and two-byte samples. */
export interface Picture extends Size {
  data: Uint8Array | Uint16Array;
  /** By default what the number of channels says: grey, greyAlpha, rgb, rgba. */
  colour?: Colour;
  /** Significant bits of a sample, 8 or 16 by default. */
  bits?: number;
}
export type Colour = "grey" | "greyAlpha" | "rgb" | "rgba" | "cmyk";
/** Chroma planes: full, halved across, halved both ways. */
export type Sampling = 444 | 422 | 420;
export interface ColourPlanes extends Size {
  planes: Uint8Array[];
  sampling: Sampling;
}
export interface Quantiser {
  /** Divisors in zig-zag order, as a file has them. */
  raw: Uint8Array;
  forward: Uint16Array;
  inverse: Uint16Array;
}
/** Blocks of 64 coefficients in natural order, row by row of blocks; the sides are those of the plane. */
export interface Coefficients {
  blocks: Int16Array;
  blocksWide: number;
  blocksHigh: number;
  width?: number;
  height?: number;
}
/** The lists of a DHT segment: how many codes of each length, and symbols in order of their codes. */
export interface HuffmanTable {
  bits: Uint8Array;
  vals: Uint8Array;
}
export interface HuffmanTables {
  dc: HuffmanTable;
  ac: HuffmanTable;
}
export interface Scan {
  bytes: Uint8Array;
  table: HuffmanTable;
}
export type Band = "LL" | "LH" | "HL" | "HH";
export interface CodedBlock extends Size {
  bytes: Uint8Array;
  band: Band;
  bitPlanes: number;
  magnitudeBits: number;
  passes: number;
  /** Of each pass: the bytes that suffice to decode up to it, and by how much the squared error has fallen. */
  rates: number[];
  distortions: number[];
}
/** Coded blocks, row by row of blocks; those with no coefficient have no bits. */
export interface HighPass extends Size {
  bytes: Uint8Array;
  coded: Uint8Array;
}
export type BlockFormat = "bc1" | "bc2" | "bc3" | "bc4" | "bc5" | "bc6" | "bc7";
export interface Texture extends Size {
  blocks: Uint8Array;
  format: BlockFormat;
}
export interface Stage {
  name: string;
  milliseconds: number;
}
/** Options of the codecs by name, such as quality, sampling, progressive, lossless, levels, irreversible, rate, block:
 *  those of the converter's command line. */
export type CodecOptions = Record<string, string | number | boolean | undefined>;

export class QeljError extends Error {
  readonly status: number;
}

/** Loads the module: from beside this file, or from its bytes, a response, or what was compiled before. */
export function load(
  source?: BufferSource | Response | WebAssembly.Module | Promise<BufferSource | Response>): Promise<Qelj>;

export interface Qelj {
  /** Each function of the library by its name; gives its status. */
  readonly functions: Functions;
  /** The same by name; throws for a failure, and gives 0 or a warning. */
  call<Name extends keyof Functions>(name: Name, ...values: Parameters<Functions[Name]>): number;
  /** Memory of the module: so many elements, or the copy of an array. */
  block<Kind extends Samples>(
    kind: { new (buffer: ArrayBuffer, offset?: number, length?: number): Kind; BYTES_PER_ELEMENT: number },
    lengthOrArray: number | ArrayLike<number>): Block<Kind>;

  version(): { name: string; text: string };
  /** Bytes less 128, or such samples back to bytes. */
  levelShift(samples: Uint8Array): Int16Array;
  levelShift(samples: Int16Array): Uint8Array;
  /** Pixels to luminance and chrominance planes, and back. */
  colour(picture: Plane, options?: { sampling?: Sampling }): ColourPlanes;
  colour(planes: ColourPlanes, options?: { channels?: 3 | 4 }): Plane;
  /** A plane of half or double the width, and of the height too unless `down` is false. */
  resample(plane: Plane, options?: { to?: "half" | "double"; down?: boolean }): Plane;
  /** The pixels of one minimum coded unit to its blocks, and back. */
  mcu(pixels: Uint8Array, options?: { sampling?: Sampling }): Int16Array[];
  mcu(blocks: Int16Array[], options?: { sampling?: Sampling }): Uint8Array;
  /** A typical table, or `raw`, scaled to a quality, in all three forms. */
  quantiser(options?: { quality?: number; chroma?: boolean; raw?: Uint8Array }): Quantiser;
  /** A plane's blocks, transformed and quantised; the last column and row are repeated up to whole blocks. */
  forwardDct(plane: Plane, quantiser: Quantiser): Coefficients;
  /** Back to samples; with `side` 4 or 2 to a picture of a half or a quarter of the sides. */
  inverseDct(coefficients: Coefficients, quantiser: Quantiser, options?: { side?: 8 | 4 | 2 }): Plane;
  /** The tables that code these blocks in the fewest bits. */
  huffmanTables(blocks: Int16Array): HuffmanTables;
  /** Blocks to baseline Huffman data, by the typical tables or others, and `count` blocks back. */
  huffman(blocks: Int16Array, options?: { chroma?: boolean; tables?: HuffmanTables }): Uint8Array;
  huffman(bytes: Uint8Array, options: { chroma?: boolean; tables?: HuffmanTables; count: number }): Int16Array;
  /** The first scan of coefficients `start` to `end`, less their `low` lowest bits, with the table made for it; and
   *  back to `count` blocks, in which other coefficients are zero. The first coefficient has scans of its own. */
  progressive(blocks: Int16Array, options?: { start?: number; end?: number; low?: number }): Scan;
  progressive(scan: Scan, options: { start?: number; end?: number; low?: number; count: number }): Int16Array;
  /** The differences that lossless JPEG codes, and the samples back from them. */
  predict(plane: Plane<Int16Array>,
    options?: { predictor?: number; precision?: number; inverse?: boolean }): Plane<Int16Array>;
  /** The component transform of JPEG 2000 on three planes: of integers if reversible, else of floats. */
  components(planes: Int32Array[], options?: { reversible?: true; inverse?: boolean }): Int32Array[];
  components(planes: Float32Array[], options: { reversible: false; inverse?: boolean }): Float32Array[];
  /** Levels of a wavelet over a plane, low bands at the top left. */
  wavelet(plane: Plane<Int32Array>,
    options?: { levels?: number; filter?: "5/3" | "9/7"; inverse?: boolean }): Plane<Int32Array>;
  /** All coding passes of a code-block, and its samples back from the first `passes` of them. */
  codeBlock(block: Plane<Int32Array>, options?: { band?: Band; bits?: number }): CodedBlock;
  decodeCodeBlock(coded: CodedBlock, options?: { passes?: number }): Plane<Int32Array>;
  /** The photo core transform of JPEG XR on whole macroblocks. */
  photoCore(plane: Plane<Int32Array>, options?: { inverse?: boolean }): Plane<Int32Array>;
  /** The fifteen coefficients behind the first of each 4 by 4 block, in the adaptive codes of JPEG XR; and back. */
  highPass(plane: Plane<Int32Array>): HighPass;
  decodeHighPass(coded: HighPass): Plane<Int32Array>;
  /** Blocks of a texture, from RGBA (bc4 one channel, bc5 two), and back. bc6 is only decoded, to halves of RGB. */
  texture(picture: Plane, format: BlockFormat): Texture;
  decodeTexture(texture: Texture): Plane<Uint8Array | Uint16Array> & { channels: number };
  packBits(row: Uint8Array): Uint8Array;
  unpackBits(bytes: Uint8Array, length: number): Uint8Array;

  /** A whole file: jpg, j2k, jp2, jxr, dds, ktx2, pnm, pgm, ppm or pfm. */
  encode(picture: Picture, format: string, options?: CodecOptions): {
    data: Uint8Array;
    stages: Stage[];
    losses: string[];
  };
  decode(file: Uint8Array, options?: CodecOptions): Required<Picture> & {
    half: boolean;
    stages: Stage[];
    losses: string[];
  };
}
