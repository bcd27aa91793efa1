// qelj in WebAssembly: the library's functions with JavaScript's arrays (call), memory that stays in the module
// (block), one function for each family, and whole files (encode, decode). Types and words on each: qelj.d.ts.
import {functions} from "./functions.js";

export class QeljError extends Error {
  constructor(name, status) {
    super(`${name} gives ${status}`);
    this.name = "QeljError";
    this.status = status;
  }
}

const colours = ["grey", "greyAlpha", "rgb", "rgba", "cmyk"];
const channelsOf = {
  grey: 1,
  greyAlpha: 2,
  rgb: 3,
  rgba: 4,
  cmyk: 4
};
const samplings = {
  444: [1, 1, "444"],
  422: [2, 1, "422"],
  420: [2, 2, "411"]
};
const textures = {
  bc1: ["FromRGBA_DXT1_8u_C4C1R", "ToRGBA_DXT1_8u_C1C4R", 8, 4],
  bc2: ["FromRGBA_DXT3_8u_C4C1R", "ToRGBA_DXT3_8u_C1C4R", 16, 4],
  bc3: ["FromRGBA_DXT5_8u_C4C1R", "ToRGBA_DXT5_8u_C1C4R", 16, 4],
  bc4: ["_BC4_8u_C1R", "_BC4_8u_C1R", 8, 1],
  bc5: ["FromRG_BC5_8u_C2C1R", "ToRG_BC5_8u_C1C2R", 16, 2],
  bc6: [null, "ToRGB_BC6_16u_C1C3R", 16, 3],
  bc7: ["4x4FromRGBA_BC7_8u_C4C1R", "ToRGBA_BC7_8u_C1C4R", 16, 4],
};
const bandCodes = {
  LL: 0,
  LH: 1,
  HL: 2,
  HH: 3
};

const highPassScan = 1, highPassGroup = 1;
// Where block i of 16 samples begins in a plane, row by row of blocks.
const blockAt = (i, width) => 4 * (Math.floor(i / (width / 4)) * width + i % (width / 4));

const given = (table, key, what) => {
  if (!Object.hasOwn(table, key))
    throw new RangeError(`${what} is one of ${Object.keys(table).join(", ")}, not ${key}`);
  return table[key];
};
const needed = (array, count, what) => {
  if (array.length < count) throw new RangeError(`${what} has ${array.length} samples where ${count} are needed`);
};

// The module asks the outside for a clock; files and streams, for which the codecs have no use here, are refused.
function imports(module) {
  const outside = {};
  let memory = null;
  const refused = 52;  // of WASI: not supported
  const known = {
    clock_time_get: (id, precision, at) => {
      new DataView(memory().buffer).setBigUint64(at, BigInt(Math.round(performance.now() * 1e6)), true);
      return 0;
    },
    emscripten_notify_memory_growth: () => {},
    proc_exit: (code) => {
      throw new Error(`the module ended with ${code}`);
    },
  };
  for (const {module: from, name} of WebAssembly.Module.imports(module))
    (outside[from] ??= {})[name] = known[name] ?? (() => refused);
  return [outside, (m) => (memory = m)];
}

async function compiled(source) {
  if (source instanceof WebAssembly.Module) return source;
  if (source === undefined) {
    const url = new URL("./qelj.wasm", import.meta.url);
    if (url.protocol === "file:" && globalThis.process?.versions?.node) {
      const {readFile} = await import("node:fs/promises");
      source = await readFile(url);
    } else {
      source = fetch(url);
    }
  }
  source = await source;
  if (typeof Response !== "undefined" && source instanceof Response) {
    if (!source.ok) throw new Error(`${source.url}: ${source.status} ${source.statusText}`);
    source = await source.arrayBuffer();
  }
  return WebAssembly.compile(source);
}

export async function load(source) {
  const module = await compiled(source);
  const [outside, tellMemory] = imports(module);
  const {exports} = await WebAssembly.instantiate(module, outside);
  tellMemory(() => exports.memory);
  exports._initialize?.();
  return new Qelj(exports);
}

// Memory of the module. `array` is a view of it as it lies now: take it anew behind any call, by which memory may grow.
class Block {
  constructor(qelj, kind, length) {
    this.qelj = qelj;
    this.kind = kind;
    this.length = length;
    this.address = qelj.allocate(Math.max(1, length * kind.BYTES_PER_ELEMENT));
  }
  get array() { return new this.kind(this.qelj.exports.memory.buffer, this.address, this.length); }
  // From `index` on, as an argument of a function.
  at(index) { return this.address + index * this.kind.BYTES_PER_ELEMENT; }
  free() {
    if (this.address) this.qelj.exports.qelFree(this.address);
    this.address = 0;
  }
}

class Qelj {
  constructor(exports) {
    this.exports = exports;
    this.functions = {};
    for (const name of Object.keys(functions)) this.functions[name] = (...values) => this.status(name, values);
    delete this.functions.qeljGetLibVersion;
  }

  // --- memory and calls ---------------------------------------------------------------------------------------------

  allocate(bytes) {
    const address = bytes < 2 ** 31 ? this.exports.qelMalloc(bytes) >>> 0 : 0;
    if (!address) throw new RangeError(`no memory for ${bytes} bytes`);
    return address;
  }
  block(kind, lengthOrArray) {
    const from = typeof lengthOrArray === "number" ? null : lengthOrArray;
    const block = new Block(this, kind, from ? from.length : lengthOrArray);
    if (from) block.array.set(from);
    return block;
  }
  // Runs work(block maker), and frees the blocks that it made.
  within(work) {
    const blocks = [];
    try {
      return work((kind, lengthOrArray) => {
        blocks.push(this.block(kind, lengthOrArray));
        return blocks.at(-1);
      });
    } finally {
      for (const block of blocks) block.free();
    }
  }

  // The status of a function. Arrays are copied into the module, and those that are written back out of it; blocks and
  // addresses are handed on as they are.
  status(name, values) {
    const letters = functions[name];
    if (letters.length !== values.length)
      throw new TypeError(`${name} takes ${letters.length} arguments, not ${values.length}`);
    const jobs = [];  // [array, offset in the arena, whether it is written]
    let room = 0;
    const place = (bytes) => {
      const at = room;
      room += 16 * Math.ceil(bytes / 16);
      return at;
    };
    const isPlain = (v) => typeof v === "number" || v instanceof Block || v === null;
    const plain = (v) => (v instanceof Block ? v.address : v ?? 0);
    const prepared = values.map((value, i) => {
      const letter = letters[i];
      if (letter === "i" || letter === "n" || isPlain(value)) return {address: plain(value)};
      if (letter === "s") {
        const at = place(8);
        jobs.push([Int32Array.of(value.width, value.height), at, false]);
        return {at};
      }
      if (letter === "r") {
        const at = place(16);
        jobs.push([Int32Array.of(value.x ?? 0, value.y ?? 0, value.width, value.height), at, false]);
        return {at};
      }
      if (letter === "p" || letter === "q") {
        const planes = value.map((plane) => {
          if (isPlain(plane)) return {address: plain(plane)};
          const at = place(plane.byteLength);
          jobs.push([plane, at, letter === "q"]);
          return {at};
        });
        return {at: place(4 * planes.length), planes};
      }
      if (!ArrayBuffer.isView(value)) throw new TypeError(`argument ${i + 1} of ${name} is no array, block or address`);
      const at = place(value.byteLength);
      jobs.push([value, at, letter === "w"]);
      return {at};
    });
    const arena = room ? this.allocate(room) : 0;
    try {
      let bytes = new Uint8Array(this.exports.memory.buffer);
      const view = new DataView(this.exports.memory.buffer);
      for (const [array, at] of jobs)
        bytes.set(new Uint8Array(array.buffer, array.byteOffset, array.byteLength), arena + at);
      const addressOf = (p) => p.address ?? arena + p.at;
      for (const {at, planes} of prepared)
        planes?.forEach((plane, k) => view.setUint32(arena + at + 4 * k, addressOf(plane), true));
      const status = this.exports[name](...prepared.map(addressOf));
      bytes = new Uint8Array(this.exports.memory.buffer);
      for (const [array, at, written] of jobs)
        if (written)
          new Uint8Array(array.buffer, array.byteOffset, array.byteLength)
              .set(bytes.subarray(arena + at, arena + at + array.byteLength));
      return status;
    } finally {
      if (arena) this.exports.qelFree(arena);
    }
  }
  // The same, and an exception for a failure; warnings are given back.
  call(name, ...values) {
    given(functions, name, "a function");
    const status = this.status(name, values);
    if (status < 0) throw new QeljError(name, status);
    return status;
  }

  text(address) {
    const bytes = new Uint8Array(this.exports.memory.buffer, address);
    return new TextDecoder().decode(bytes.slice(0, bytes.indexOf(0)));
  }

  // --- one function a family ----------------------------------------------------------------------------------------

  version() {
    const at = this.exports.qeljGetLibVersion();
    const view = new DataView(this.exports.memory.buffer);
    return {name: this.text(view.getUint32(at + 20, true)), text: this.text(view.getUint32(at + 24, true))};
  }

  levelShift(samples) {
    const forward = samples instanceof Uint8Array;
    const out = new (forward ? Int16Array : Uint8Array)(samples.length);
    this.call(
        forward ? "qeliSub128_JPEG_8u16s_C1R" : "qeliAdd128_JPEG_16s8u_C1R", samples, samples.byteLength, out,
        out.byteLength, {width: samples.length, height: 1});
    return out;
  }

  colour(image, {sampling = image.sampling ?? 444, channels = 3} = {}) {
    const {width, height} = image, size = {width, height};
    const [across, down, part] = given(samplings, sampling, "a sampling");
    const w = Math.floor(width / across), h = Math.floor(height / down);
    const middle = across > 1 ? part : "";
    const steps = across > 1 ? Int32Array.of(width, w, w) : width;
    if (!image.planes) {
      const from = image.data.length / (width * height);
      if (from !== 3 && from !== 4) throw new RangeError("a picture has three or four bytes a pixel");
      const planes = [new Uint8Array(width * height), new Uint8Array(w * h), new Uint8Array(w * h)];
      this.call(`qeliRGBToYCbCr${middle}_JPEG_8u_C${from}P3R`, image.data, from * width, planes, steps, size);
      return {planes, width, height, sampling: Number(sampling)};
    }
    image.planes.forEach((plane, i) => needed(plane, i ? w * h : width * height, "a plane"));
    const data = new Uint8Array(channels * width * height);
    const alpha = channels === 4 ? [255] : [];
    this.call(
        `qeliYCbCr${middle}ToRGB_JPEG_8u_P3C${channels}R`, image.planes, steps, data, channels * width, size, ...alpha);
    return {data, width, height};
  }

  resample(plane, {to = "half", down = true} = {}) {
    const {width, height} = plane, half = to === "half";
    const size = half ? {width: width >> 1, height: down ? height >> 1 : height} :
                        {width: 2 * width, height: down ? 2 * height : height};
    needed(plane.data, width * height, "the plane");
    return this.within((block) => {
      // The last column and row are repeated around the plane: the filter upwards reads one sample more on each side.
      const step = width + 2, bordered = block(Uint8Array, step * (height + 2)), view = bordered.array;
      for (let y = -1; y <= height; ++y) {
        const from = width * Math.max(0, Math.min(y, height - 1)), to = (y + 1) * step;
        view[to] = plane.data[from];
        view.set(plane.data.subarray(from, from + width), to + 1);
        view[to + step - 1] = plane.data[from + width - 1];
      }
      const data = new Uint8Array(size.width * size.height);
      this.call(
          `qeliSample${half ? "Down" : "Up"}H2V${down ? 2 : 1}_JPEG_8u_C1R`, bordered.at(step + 1), step,
          {width, height}, data, size.width, size);
      return {data, ...size};
    });
  }

  mcu(pixelsOrBlocks, {sampling = 444} = {}) {
    const [across, down, part] = given(samplings, sampling, "a sampling");
    if (Array.isArray(pixelsOrBlocks)) {
      pixelsOrBlocks.forEach((blocks, i) => needed(blocks, i ? 64 : 64 * across * down, "a plane of blocks"));
      const pixels = new Uint8Array(3 * 64 * across * down);
      this.call(`qeliYCbCr${part}ToRGBLS_MCU_16s8u_P3C3R`, pixelsOrBlocks, pixels, 24 * across);
      return pixels;
    }
    needed(pixelsOrBlocks, 3 * 64 * across * down, "the unit");
    const blocks = [new Int16Array(64 * across * down), new Int16Array(64), new Int16Array(64)];
    this.call(`qeliRGBToYCbCr${part}LS_MCU_8u16s_C3P3R`, pixelsOrBlocks, 24 * across, blocks);
    return blocks;
  }

  typical(which, chroma, count) {
    const at = this.exports.qeljWebTypical(which, Number(chroma));
    return new Uint8Array(this.exports.memory.buffer, at, count).slice();
  }

  quantiser({quality = 85, chroma = false, raw = this.typical(0, chroma, 64)} = {}) {
    const scaled = Uint8Array.from(raw), forward = new Uint16Array(64), inverse = new Uint16Array(64);
    this.call("qeliQuantFwdRawTableInit_JPEG_8u", scaled, quality);
    this.call("qeliQuantFwdTableInit_JPEG_8u16u", scaled, forward);
    this.call("qeliQuantInvTableInit_JPEG_8u16u", scaled, inverse);
    return {raw: scaled, forward, inverse};
  }

  forwardDct(plane, quantiser) {
    const {width, height} = plane;
    needed(plane.data, width * height, "the plane");
    const blocksWide = Math.ceil(width / 8), blocksHigh = Math.ceil(height / 8);
    return this.within((block) => {
      // The last column and row are repeated up to whole blocks.
      const step = 8 * blocksWide, samples = block(Uint8Array, step * 8 * blocksHigh), view = samples.array;
      for (let y = 0; y < 8 * blocksHigh; ++y) {
        const from = width * Math.min(y, height - 1);
        view.set(plane.data.subarray(from, from + width), y * step);
        view.fill(plane.data[from + width - 1], y * step + width, (y + 1) * step);
      }
      const table = block(Uint16Array, quantiser.forward), out = block(Int16Array, view.length);
      const transform = this.exports.qeliDCTQuantFwd8x8LS_JPEG_8u16s_C1R;
      for (let y = 0, i = 0; y < blocksHigh; ++y)
        for (let x = 0; x < blocksWide; ++x, ++i)
          transform(samples.at(8 * (y * step + x)), step, out.at(64 * i), table.address);
      return {blocks: out.array.slice(), blocksWide, blocksHigh, width, height};
    });
  }

  inverseDct(coefficients, quantiser, {side = 8} = {}) {
    const {blocks, blocksWide, blocksHigh} = coefficients;
    const names = {8: "8x8LS", 4: "8x8To4x4LS", 2: "8x8To2x2LS"};
    const transform = this.exports[`qeliDCTQuantInv${given(names, side, "a side")}_JPEG_16s8u_C1R`];
    needed(blocks, 64 * blocksWide * blocksHigh, "the picture");
    return this.within((block) => {
      const from = block(Int16Array, blocks), table = block(Uint16Array, quantiser.inverse);
      const step = side * blocksWide, out = block(Uint8Array, step * side * blocksHigh);
      for (let y = 0, i = 0; y < blocksHigh; ++y)
        for (let x = 0; x < blocksWide; ++x, ++i)
          transform(from.at(64 * i), out.at(side * (y * step + x)), step, table.address);
      const width = Math.ceil((coefficients.width ?? 8 * blocksWide) * side / 8);
      const height = Math.ceil((coefficients.height ?? 8 * blocksHigh) * side / 8);
      const data = new Uint8Array(width * height), view = out.array;
      for (let y = 0; y < height; ++y) data.set(view.subarray(y * step, y * step + width), y * width);
      return {data, width, height};
    });
  }

  // The typical lists of a DHT segment.
  typicalTables(chroma) {
    const list = (bits, vals, count) =>
        ({bits: this.typical(bits, chroma, 16), vals: this.typical(vals, chroma, count)});
    return {dc: list(1, 2, 12), ac: list(3, 4, 162)};
  }
  // The lists that code counted symbols in the fewest bits.
  optimalTable(statistics) {
    const bits = new Uint8Array(16), vals = new Uint8Array(256);
    this.call("qeliEncodeHuffmanRawTableInit_JPEG_8u", statistics, bits, vals);
    return {bits, vals: vals.slice(0, bits.reduce((sum, n) => sum + n))};
  }
  huffmanTables(blocks) {
    const dc = new Int32Array(256), ac = new Int32Array(256), last = new Int16Array(1);
    for (let i = 0; i + 64 <= blocks.length; i += 64)
      this.call("qeliGetHuffmanStatistics8x8_JPEG_16s_C1", blocks.subarray(i, i + 64), dc, ac, last);
    return {dc: this.optimalTable(dc), ac: this.optimalTable(ac)};
  }

  // Records of codes and a state: work(block maker, tables' records, state), which are released behind it.
  withHuffman(kind, tables, work) {
    const {exports} = this;
    return this.within((block) => {
      const records = block(Uint32Array, tables.length + 1);
      records.array.fill(0);
      try {
        tables.forEach(({bits, vals}, i) => {
          const list = new Uint8Array(256);  // as many as the counts may ask for
          list.set(vals);
          needed(bits, 16, "a table");
          this.call(`qeli${kind}HuffmanSpecInitAlloc_JPEG_8u`, bits, list, records.at(i));
        });
        this.call(`qeli${kind}HuffmanStateInitAlloc_JPEG_8u`, records.at(tables.length));
        return work(block, ...records.array);
      } finally {
        for (const [i, record] of records.array.entries())
          exports[`qeli${kind}Huffman${i < tables.length ? "Spec" : "State"}Free_JPEG_8u`](record);
      }
    });
  }
  // Blocks through an encoder, and its last bits: step(block's address or 0, to, room, position, last) gives a status.
  encodedBlocks(name, block, blocks, step) {
    const count = Math.floor(blocks.length / 64), room = 570 + 512 * count;
    const from = block(Int16Array, blocks), to = block(Uint8Array, room);
    const position = block(Int32Array, [0]), last = block(Int16Array, [0]);
    for (let i = 0; i <= count; ++i) {
      const status = step(i < count ? from.at(64 * i) : 0, to.address, room, position.address, last.address);
      if (status < 0) throw new QeljError(name, status);
    }
    return to.array.slice(0, position.array[0]);
  }
  decodedBlocks(name, block, bytes, count, step) {
    const from = block(Uint8Array, bytes), to = block(Int16Array, new Int16Array(64 * count));
    const position = block(Int32Array, [0]), last = block(Int16Array, [0]), marker = block(Int32Array, [0]);
    for (let i = 0; i < count; ++i) {
      const status = step(from.address, bytes.length, position.address, to.at(64 * i), last.address, marker.address);
      if (status < 0) throw new QeljError(name, status);
    }
    return to.array.slice();
  }

  huffman(blocksOrBytes, {chroma = false, tables = this.typicalTables(chroma), count = 0} = {}) {
    const {exports} = this, lists = [tables.dc, tables.ac];
    if (blocksOrBytes instanceof Int16Array)
      return this.withHuffman("Encode", lists, (block, dc, ac, state) => {
        const name = "qeliEncodeHuffman8x8_JPEG_16s1u_C1";
        return this.encodedBlocks(
            name, block, blocksOrBytes, (src, ...to) => exports[name](src, ...to, dc, ac, state, Number(src === 0)));
      });
    return this.withHuffman("Decode", lists, (block, dc, ac, state) => {
      const name = "qeliDecodeHuffman8x8_JPEG_1u16s_C1";
      return this.decodedBlocks(
          name, block, blocksOrBytes, count, (...values) => exports[name](...values, dc, ac, state));
    });
  }

  progressive(blocksOrScan, {start = 0, end = start, low = 0, count = 0} = {}) {
    const {exports} = this, isDc = start === 0, band = isDc ? [] : [start, end], kind = isDc ? "DCFirst" : "ACFirst";
    if (!(blocksOrScan instanceof Int16Array))
      return this.withHuffman("Decode", [blocksOrScan.table], (block, table, state) => {
        const name = `qeliDecodeHuffman8x8_${kind}_JPEG_1u16s_C1`;
        return this.decodedBlocks(
            name, block, blocksOrScan.bytes, count,
            (src, length, position, dst, last, marker) =>
                exports[name](src, length, position, dst, ...(isDc ? [last] : []), marker, ...band, low, table, state));
      });
    const statistics = new Int32Array(256), name = `qeliEncodeHuffman8x8_${kind}_JPEG_16s1u_C1`;
    this.withHuffman("Encode", [], (block, state) => {
      const counts = block(Int32Array, statistics), counting = `qeliGetHuffmanStatistics8x8_${kind}_JPEG_16s_C1`;
      this.encodedBlocks(
          counting, block, blocksOrScan,
          (src, to, room, position, last) => isDc ?
              src && exports[counting](src, counts.address, last, low) :
              exports[counting](src, counts.address, ...band, low, state, Number(src === 0)));
      statistics.set(counts.array);
    });
    const table = this.optimalTable(statistics);
    const bytes = this.withHuffman(
        "Encode", [table],
        (block, spec, state) => this.encodedBlocks(
            name, block, blocksOrScan,
            (src, to, room, position, last) => exports[name](
                src, to, room, position, ...(isDc ? [last] : band), low, spec, state, Number(src === 0))));
    return {bytes, table};
  }

  predict(plane, {predictor = 1, precision = 8, inverse = false} = {}) {
    const {width, height} = plane, out = new Int16Array(width * height);
    needed(plane.data, width * height, "the plane");
    const row = (array, y) => array.subarray(y * width, (y + 1) * width);
    const name = `qeli${inverse ? "Reconstruct" : "Diff"}Pred`;
    this.call(`${name}FirstRow_JPEG_16s_C1`, row(plane.data, 0), row(out, 0), width, precision, 0);
    for (let y = 1; y < height; ++y)
      this.call(
          `${name}Row_JPEG_16s_C1`, row(plane.data, y), row(inverse ? out : plane.data, y - 1), row(out, y), width,
          predictor);
    return {data: out, width, height};
  }

  components(planes, {reversible = true, inverse = false} = {}) {
    const out = planes.map((plane) => plane.slice());
    this.call(
        `qeli${reversible ? "RCT" : "ICT"}${inverse ? "Inv" : "Fwd"}_JPEG2K_${reversible ? "32s" : "32f"}_P3IR`, out,
        out[0].byteLength, {width: out[0].length, height: 1});
    return out;
  }

  wavelet(plane, {levels = 1, filter = "5/3", inverse = false} = {}) {
    const {width, height} = plane, name = `${given({"5/3": "B53", "9/7": "D97"}, filter, "a filter")}_JPEG2K_32s_C1IR`;
    needed(plane.data, width * height, "the plane");
    return this.within((block) => {
      const samples = block(Int32Array, plane.data), rect = block(Int32Array, [0, 0, width, height]);
      const bytes = block(Int32Array, 1);
      this.exports[`qeliWTGetBufSize_${name}`](rect.address, bytes.address);
      const buffer = block(Uint8Array, bytes.array[0] + 1);
      const sizes = [];
      for (let level = 0, w = width, h = height; level < levels; ++level, w = (w + 1) >> 1, h = (h + 1) >> 1)
        sizes.push([w, h]);
      for (const [w, h] of inverse ? sizes.reverse() : sizes) {
        rect.array.set([0, 0, w, h]);
        const status = this.exports[`qeliWT${inverse ? "Inv" : "Fwd"}_${name}`](
            samples.address, 4 * width, rect.address, buffer.address);
        if (status < 0) throw new QeljError(`qeliWT${inverse ? "Inv" : "Fwd"}_${name}`, status);
      }
      return {data: samples.array.slice(), width, height};
    });
  }

  codeBlock(block, {band = "LL", bits} = {}) {
    const {width, height} = block, code = given(bandCodes, band, "a band"), size = {width, height};
    needed(block.data, width * height, "the block");
    const most = block.data.reduce((m, v) => Math.max(m, Math.abs(v)), 0);
    const magnitudeBits = bits ?? Math.max(1, 32 - Math.clz32(most));
    const samples =
        Int32Array.from(block.data, (v) => (v < 0 ? 0x80000000 : 0) | (Math.abs(v) << (31 - magnitudeBits)));
    const state = new Uint32Array(1);
    return this.within((make) => {
      const at = make(Uint32Array, 1);
      this.call("qeliEncodeInitAlloc_JPEG2K", at, size);
      state[0] = at.array[0];
      try {
        const planes = new Int32Array(1), passes = new Int32Array(1), segments = new Int32Array(1);
        this.call(
            "qeliEncodeLoadCodeBlock_JPEG2K_32s_C1R", samples, 4 * width, size, state[0], code, magnitudeBits, 0, 0, 0,
            planes, passes, segments);
        const rates = [], distortions = [], rate = new Int32Array(1), distortion = new Float64Array(1);
        for (let pass = 0; pass < passes[0]; ++pass) {
          this.call("qeliEncodeGetRate_JPEG2K", state[0], pass, rate);
          this.call("qeliEncodeGetDist_JPEG2K", state[0], pass, distortion);
          rates.push(rate[0]), distortions.push(distortion[0]);
        }
        const length = Int32Array.of(Math.max(64, (rates.at(-1) ?? 0) + 64)), more = new Int32Array(1);
        const bytes = new Uint8Array(length[0]);
        this.call("qeliEncodeStoreBits_JPEG2K_1u", bytes, length, state[0], more);
        if (more[0]) throw new RangeError("the block has more bytes than its last pass tells");
        return {
          bytes: bytes.slice(0, length[0]),
          bitPlanes: planes[0],
          passes: passes[0],
          magnitudeBits,
          rates,
          distortions,
          width,
          height,
          band
        };
      } finally {
        this.exports.qeliEncodeFree_JPEG2K(state[0]);
      }
    });
  }
  decodeCodeBlock(coded, {passes = coded.passes} = {}) {
    const {width, height, magnitudeBits} = coded, size = {width, height}, bytes = new Int32Array(1);
    this.call("qeliDecodeGetBufSize_JPEG2K", size, bytes);
    const out = new Int32Array(width * height), rate = passes ? coded.rates[passes - 1] : 0;
    this.call(
        "qeliDecodeCodeBlock_JPEG2K_1u32s_C1R", coded.bytes, out, 4 * width, size,
        given(bandCodes, coded.band, "a band"), coded.bitPlanes, passes, Uint32Array.of(rate), 1, 0, null,
        new Uint8Array(bytes[0]));
    return {data: out.map((v) => (v < 0 ? -1 : 1) * ((v & 0x7fffffff) >>> (31 - magnitudeBits))), width, height};
  }

  photoCore(plane, {inverse = false} = {}) {
    const {width, height} = plane;
    needed(plane.data, width * height, "the plane");
    if (width % 16 || height % 16) throw new RangeError("the sides are multiples of 16");
    return this.within((block) => {
      const samples = block(Int32Array, plane.data);
      const transform = this.exports[`qeliPCT${inverse ? "Inv" : "Fwd"}16x16_JPEGXR_32s_C1IR`];
      for (let y = 0; y < height; y += 16)
        for (let x = 0; x < width; x += 16) transform(samples.at(y * width + x), 4 * width);
      return {data: samples.array.slice(), width, height};
    });
  }

  // Work on a record of JPEG XR's adaptive codes, with the stream of `bytes` bytes at `stream`.
  withVlc(work, bytes) {
    return this.within((block) => {
      const size = new Int32Array(1);
      this.call("qeliVLCGetStateSize_JPEGXR", size);
      const state = block(Uint8Array, size[0]), data = block(Uint8Array, bytes);
      this.call("qeliVLCInit_JPEGXR", state);
      for (const scan of [0, 1, 2]) this.call("qeliVLCScanReset_JPEGXR", state, scan);
      this.call("qeliVLCScanSet_JPEGXR", state, highPassScan);
      const stream = block(Uint32Array, [data.address]), buffer = block(Uint32Array, [0]),
            held = block(Int32Array, [0]);
      return work(block, state, data, stream, buffer, held);
    });
  }
  highPass(plane) {
    const {width, height} = plane, blocks = width * height / 16;
    needed(plane.data, width * height, "the plane");
    if (width % 4 || height % 4) throw new RangeError("the sides are multiples of 4");
    return this.withVlc((block, state, data, stream, buffer, held) => {
      const samples = block(Int32Array, plane.data), pairs = block(Int32Array, 1), coded = new Uint8Array(blocks);
      for (let i = 0; i < blocks; ++i) {
        this.call(
            "qeliVLCEncode4x4_JPEGXR_32s1u_C1R", samples.at(blockAt(i, width)), 4 * width, 0, 0, stream, buffer, held,
            pairs, state);
        coded[i] = Number(pairs.array[0] > 0);
        if (i % 16 === 15) this.call("qeliVLCAdapt_JPEGXR", state, highPassGroup);
      }
      // What is still held stands at the top.
      const length = stream.array[0] - data.address, bytes = new Uint8Array(length + Math.ceil(held.array[0] / 8));
      bytes.set(data.array.subarray(0, length));
      for (let i = length; i < bytes.length; ++i) bytes[i] = buffer.array[0] >>> (24 - 8 * (i - length));
      return {bytes, coded, width, height};
    }, 98 * blocks + 4);
  }
  decodeHighPass({bytes, coded, width, height}) {
    needed(coded, width * height / 16, "the list of coded blocks");
    return this.withVlc((block, state, data, stream, buffer, held) => {
      const samples = block(Int32Array, new Int32Array(width * height)), count = block(Int32Array, 1);
      const end = data.address + bytes.length;
      data.array.set(bytes);
      for (let i = 0; i < coded.length; ++i) {
        if (stream.array[0] > end) throw new QeljError("qeliVLCDecode4x4_JPEGXR_1u32s_C1R", -62);
        if (coded[i])
          this.call(
              "qeliVLCDecode4x4_JPEGXR_1u32s_C1R", stream, buffer, held, 1, samples.at(blockAt(i, width)), 4 * width, 0,
              count, state);
        if (i % 16 === 15) this.call("qeliVLCAdapt_JPEGXR", state, highPassGroup);
      }
      return {data: samples.array.slice(), width, height};
    }, bytes.length + 224);  // what a decoder may read behind its stream, and one block more
  }

  texture(image, format) {
    const {width, height} = image, size = {width, height};
    const [encoder, , bytes, channels] = given(textures, format, "a block format");
    if (!encoder) throw new RangeError(`${format} is only decoded`);
    needed(image.data, channels * width * height, "the picture");
    const blocks = new Uint8Array(bytes * Math.ceil(width / 4) * Math.ceil(height / 4));
    this.call(`qeliTextureEncodeBlock${encoder}`, image.data, channels * width, size, blocks);
    return {blocks, width, height, format};
  }
  decodeTexture(texture) {
    const {width, height, format} = texture, size = {width, height};
    const [, decoder, bytes, channels] = given(textures, format, "a block format");
    needed(texture.blocks, bytes * Math.ceil(width / 4) * Math.ceil(height / 4), "the texture");
    const data = new (format === "bc6" ? Uint16Array : Uint8Array)(channels * width * height);
    this.call(
        `qeliTextureDecodeBlock${decoder}`, texture.blocks, data, data.byteLength / height,
        ...(format === "bc6" ? [width, height] : [size]));
    return {data, width, height, channels};
  }

  packBits(row) {
    const out = new Uint8Array(row.length + Math.ceil(row.length / 128)), position = new Uint32Array(1);
    this.call("qeliPackBitsRow_TIFF_8u_C1", row, row.length, out, position, out.length);
    return out.slice(0, position[0]);
  }
  unpackBits(bytes, length) {
    const out = new Uint8Array(length), from = new Uint8Array(bytes.length + 1);
    from.set(bytes);
    from[bytes.length] = 0x80;  // no token: nothing is read behind it
    this.call("qeliUnpackBitsRow_TIFF_8u_C1", from, new Uint32Array(1), from.length, out, length);
    return out;
  }

  // --- whole files --------------------------------------------------------------------------------------------------

  // The answer of a codec, read and given back.
  answer(at) {
    try {
      const [good, width, height, colour, bits, half, data, bytes, text] =
          new Int32Array(this.exports.memory.buffer, at, 9);
      const words = this.text(text >>> 0);
      if (!good) throw new Error(words);
      const lines = words.split("\n").filter((line) => line);
      return {
        data: new Uint8Array(this.exports.memory.buffer, data >>> 0, bytes >>> 0).slice(),
        width,
        height,
        colour: colours[colour],
        bits,
        half: Boolean(half),
        losses: lines.filter((line) => line.startsWith("! ")).map((line) => line.slice(2)),
        stages: lines.filter((line) => !line.startsWith("! ")).map((line) => {
          const [milliseconds, name] = line.split("\t");
          return {name, milliseconds: Number(milliseconds)};
        }),
      };
    } finally {
      this.exports.qeljWebForget(at);
    }
  }
  options(options) {
    const lines =
        Object.entries(options)
            .filter(([, value]) => value !== false && value !== undefined)
            .map(
                ([name, value]) =>
                    `${name.replace(/[A-Z]/g, (c) => `-${c.toLowerCase()}`)}${value === true ? "" : `=${value}`}`);
    return new TextEncoder().encode(`${lines.join("\n")}\0`);
  }

  encode(image, format, options = {}) {
    const {width, height, bits = image.data instanceof Uint16Array ? 16 : 8} = image;
    const channels = image.data.length / (width * height);
    const colour = image.colour ?? {1: "grey", 2: "greyAlpha", 3: "rgb", 4: "rgba"}[channels];
    if (channels !== channelsOf[colour] || bits > 8 !== image.data instanceof Uint16Array)
      throw new RangeError("the picture's data don't fit its sides, colour and bits");
    return this.within((block) => {
      const samples =
          block(Uint8Array, new Uint8Array(image.data.buffer, image.data.byteOffset, image.data.byteLength));
      const name = block(Uint8Array, new TextEncoder().encode(`${format}\0`)),
            words = block(Uint8Array, this.options(options));
      const {data, stages, losses} = this.answer(this.exports.qeljWebWrite(
          name.address, words.address, samples.address, width, height, colours.indexOf(colour), bits));
      return {data, stages, losses};
    });
  }

  decode(file, options = {}) {
    return this.within((block) => {
      const bytes = block(Uint8Array, file), words = block(Uint8Array, this.options(options));
      const picture = this.answer(this.exports.qeljWebRead(bytes.address, file.length, words.address));
      if (picture.bits > 8) picture.data = new Uint16Array(picture.data.buffer);
      return picture;
    });
  }
}
