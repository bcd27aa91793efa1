// node module_test.mjs PACKAGE: the module by way of its package, as a user has it.
import assert from "node:assert/strict";
import {pathToFileURL} from "node:url";

const {load, QeljError} = await import(pathToFileURL(`${process.argv[2]}/qelj.js`));
const qelj = await load();

const width = 48, height = 32, size = {
  width,
  height
};
const rgb = Uint8Array.from({length: 3 * width * height}, (_, i) => {
  const x = Math.floor(i / 3) % width, y = Math.floor(i / 3 / width);
  return (5 * x + 3 * y + 40 * (i % 3) + (x * y) % 7) & 255;
});
const picture = {
  data: rgb,
  ...size
};
const worst = (a, b) => a.reduce((most, v, i) => Math.max(most, Math.abs(v - b[i])), 0);
const luma = {
  data: qelj.colour(picture).planes[0],
  ...size
};
const signed = {
  data: Int32Array.from(luma.data, (v) => v - 128),
  ...size
};

const tests = {
  "all functions are there"() {
    assert.equal(Object.keys(qelj.functions).length, 299);  // and the version
    assert.match(qelj.version().text, /^7\.1\.0 /);
  },
  "what a function refuses is a status, or an exception"() {
    const out = Uint8Array.of(7);
    assert.equal(qelj.functions.qeliAdd128_JPEG_16s8u_C1R(Int16Array.of(1), 0, out, 1, {width: 1, height: 1}), -14);
    assert.throws(
        () => qelj.call("qeliAdd128_JPEG_16s8u_C1R", null, 2, out, 1, {width: 1, height: 1}),
        (e) => e instanceof QeljError && e.status === -8);
    assert.equal(out[0], 7);
    assert.throws(() => qelj.functions.qeliAdd128_JPEG_16s8u_C1R(out), TypeError);
    assert.throws(() => qelj.texture(picture, "bc9"), RangeError);
  },
  "blocks stay in the module"() {
    const block = qelj.block(Int16Array, [-128, 0, 127]), out = new Uint8Array(3);
    qelj.call("qeliAdd128_JPEG_16s8u_C1R", block, 6, out, 3, {width: 3, height: 1});
    assert.deepEqual([...out], [0, 128, 255]);
    block.free();
  },
  "level shift"() { assert.deepEqual(qelj.levelShift(qelj.levelShift(rgb)), rgb); },
  "colour, at each sampling"() {
    for (const [sampling, w, h] of [[444, 48, 32], [422, 24, 32], [420, 24, 16]]) {
      const planes = qelj.colour(picture, {sampling});
      assert.equal(planes.planes[1].length, w * h);
      const flat = qelj.colour({...planes, planes: planes.planes.map((p, i) => p.fill(i ? 128 : 90))}, {channels: 4});
      assert.ok(worst(flat.data.filter((_, i) => i % 4 < 3), new Uint8Array(3 * width * height).fill(90)) <= 1);
    }
  },
  "resampling"() {
    const half = qelj.resample({data: new Uint8Array(width * height).fill(77), ...size});
    assert.deepEqual([half.width, half.height], [24, 16]);
    assert.ok(qelj.resample(half, {to: "double"}).data.every((v) => v === 77));
  },
  "minimum coded units"() {
    const unit = Uint8Array.from({length: 768}, (_, i) => 60 + (i / 48 | 0));
    assert.ok(worst(qelj.mcu(qelj.mcu(unit, {sampling: 420}), {sampling: 420}), unit) <= 3);
  },
  "transform, quantiser and Huffman codes"() {
    const quantiser = qelj.quantiser({quality: 100}),
          odd = {data: luma.data.subarray(0, 45 * 30), width: 45, height: 30};
    const coefficients = qelj.forwardDct(odd, quantiser);
    assert.deepEqual([coefficients.blocksWide, coefficients.blocksHigh], [6, 4]);
    const bytes = qelj.huffman(coefficients.blocks);
    assert.deepEqual(qelj.huffman(bytes, {count: 24}), coefficients.blocks);
    assert.ok(worst(qelj.inverseDct(coefficients, quantiser).data, odd.data) <= 2);
    assert.equal(qelj.inverseDct(coefficients, quantiser, {side: 4}).width, 23);
    assert.throws(() => qelj.huffman(bytes.subarray(0, 10), {count: 24}), QeljError);
    const tables = qelj.huffmanTables(coefficients.blocks), fewer = qelj.huffman(coefficients.blocks, {tables});
    assert.ok(fewer.length < bytes.length);
    assert.deepEqual(qelj.huffman(fewer, {tables, count: 24}), coefficients.blocks);
    assert.throws(
        () => qelj.huffman(
            fewer, {tables: {dc: {bits: new Uint8Array(16).fill(255), vals: []}, ac: tables.ac}, count: 24}),
        QeljError);
  },
  "progressive scans"() {
    const {blocks} = qelj.forwardDct(luma, qelj.quantiser({quality: 90})), count = blocks.length / 64;
    const first = qelj.progressive(qelj.progressive(blocks, {low: 1}), {low: 1, count});
    assert.deepEqual(first, blocks.map((v, i) => (i % 64 ? 0 : (v >> 1) * 2)));
    const band = {start: 1, end: 63};
    const others = qelj.progressive(qelj.progressive(blocks, band), {...band, count});
    assert.deepEqual(others, blocks.map((v, i) => (i % 64 ? v : 0)));
  },
  "prediction"() {
    const data = Int16Array.from(luma.data), plane = {data, ...size};
    assert.deepEqual(qelj.predict(qelj.predict(plane, {predictor: 4}), {predictor: 4, inverse: true}).data, data);
  },
  "component transforms and wavelets"() {
    const planes = [0, 1, 2].map((c) => Int32Array.from({length: 99}, (_, i) => rgb[3 * i + c]));
    assert.deepEqual(qelj.components(qelj.components(planes), {inverse: true}), planes);
    const floats = planes.map((p) => Float32Array.from(p));
    const way = {reversible: false};
    assert.ok(worst(qelj.components(qelj.components(floats, way), {...way, inverse: true})[1], floats[1]) < 0.01);
    const bands = qelj.wavelet(signed, {levels: 3});
    assert.notDeepEqual(bands.data, signed.data);
    assert.deepEqual(qelj.wavelet(bands, {levels: 3, inverse: true}).data, signed.data);
  },
  "code-blocks"() {
    const block = {data: signed.data.subarray(0, 32 * 32), width: 32, height: 32};
    const coded = qelj.codeBlock(block, {band: "HL"});
    assert.deepEqual(qelj.decodeCodeBlock(coded).data, block.data);
    assert.ok(worst(qelj.decodeCodeBlock(coded, {passes: coded.passes - 3}).data, block.data) > 0);
  },
  "photo core transform and its codes"() {
    const core = qelj.photoCore(signed);
    assert.deepEqual(qelj.photoCore(core, {inverse: true}).data, signed.data);
    const coded = qelj.highPass(core);
    const rest = core.data.map((v, i) => (i % 4 || Math.floor(i / width) % 4 ? v : 0));
    assert.deepEqual(qelj.decodeHighPass(coded).data, rest);
    assert.throws(() => qelj.decodeHighPass({...coded, bytes: coded.bytes.subarray(0, 20)}), QeljError);
  },
  "textures"() {
    const data =
        Uint8Array.from({length: 4 * width * height}, (_, i) => (i % 4 === 3 ? 255 : rgb[3 * (i >> 2) + (i & 3)]));
    for (const [format, bytes] of [["bc1", 8], ["bc3", 16], ["bc7", 16]]) {
      const texture = qelj.texture({data, ...size}, format);
      assert.equal(texture.blocks.length, bytes * 12 * 8);
      assert.equal(qelj.decodeTexture(texture).data.length, data.length);
    }
    const halves = qelj.decodeTexture({blocks: new Uint8Array(16 * 12 * 8).fill(3), ...size, format: "bc6"});
    assert.ok(halves.data.length === 3 * width * height && halves.data.some((v) => v > 0));
  },
  "PackBits"() {
    const row = Uint8Array.of(...new Array(200).fill(5), 1, 2, 3);
    const packed = qelj.packBits(row);
    assert.equal(packed.length, 8);
    assert.deepEqual(qelj.unpackBits(packed, row.length), row);
    assert.throws(() => qelj.unpackBits(packed.subarray(0, 3), row.length), QeljError);
  },
  "whole files, without loss where there is none"() {
    const grey = {data: Uint16Array.from({length: width * height}, (_, i) => (i * 40503) & 0xffff), ...size};
    for (const [format, options] of [["jp2", {}], ["jxr", {quality: 100}], ["jpg", {lossless: true}]]) {
      const back = qelj.decode(qelj.encode(picture, format, options).data);
      assert.deepEqual(back.data, rgb, format);
      assert.ok(back.stages.length > 0);
      const deep = qelj.decode(qelj.encode(grey, format, options).data);
      assert.deepEqual([deep.data, deep.bits, deep.colour], [grey.data, 16, "grey"], format);
    }
    const sizes = [20, 95].map((quality) => qelj.encode(picture, "jpg", {quality, sampling: 420}).data.length);
    assert.ok(sizes[0] < sizes[1]);
  },
  "files that can't be read, and options that there are not"() {
    assert.throws(() => qelj.decode(Uint8Array.of(1, 2, 3)), /no format/);
    const file = qelj.encode(picture, "jpg").data;
    assert.throws(() => qelj.decode(file.subarray(0, 400)), Error);
    assert.throws(() => qelj.encode(picture, "jpg", {quality: 101}), /from 1 to 100/);
    assert.throws(() => qelj.encode(picture, "png"), /no format/);
    assert.throws(() => qelj.encode(picture, "jpg", {qualty: 5}), /no option/);
  },
};
let failed = 0;
for (const [name, test] of Object.entries(tests)) {
  try {
    test();
  } catch (error) {
    ++failed;
    console.log(`${name}: ${error.stack}`);
  }
}
console.log(`${Object.keys(tests).length} tests, ${failed} failed`);
process.exit(failed ? 1 : 0);
