// node codecs_bench.mjs PACKAGE PEERS PHOTOGRAPH.ppm [FORMAT]: decoding beside the peers of npm, by turns on the
// same files in the same process; medians, and the ratio of the two.
import {readFileSync} from "node:fs";
import {createRequire} from "node:module";
import {resolve} from "node:path";
import {pathToFileURL} from "node:url";

const [folder, peers, photograph, only] = process.argv.slice(2);
const print = console.log;
console.log = () => {};  // the peer tells of each file
const {load} = await import(pathToFileURL(`${folder}/qelj.js`));
const qelj = await load();
const require = createRequire(import.meta.url);

async function peer(name, script) {
  const path = resolve(peers, `node_modules/@cornerstonejs/${name}/dist/${script}`);
  return require(path)({wasmBinary: readFileSync(`${path.slice(0, -3)}.wasm`)});
}
const openjpeg = await peer("codec-openjpeg", "openjpegwasm_decode.js");
const turbo = await peer("codec-libjpeg-turbo-8bit", "libjpegturbowasm_decode.js");

function decoderOf(Decoder) {
  const decoder = new Decoder();
  return (file) => {
    decoder.getEncodedBuffer(file.length).set(file);
    decoder.decode();
    return decoder.getDecodedBuffer().slice();
  };
}
const peerOf = {
  "JPEG 2000": decoderOf(openjpeg.J2KDecoder),
  JPEG: decoderOf(turbo.JPEGDecoder)
};

const rgb = qelj.decode(readFileSync(photograph));
const {width, height} = rgb;
// Luminance with the bits that its weights give: 16 of them.
const deep = new Uint16Array(width * height);
for (let i = 0; i < deep.length; ++i)
  deep[i] = (19595 * rgb.data[3 * i] + 38470 * rgb.data[3 * i + 1] + 7471 * rgb.data[3 * i + 2]) >> 8;

const cases = [
  ["JPEG 2000", "lossless, 16-bit grey", qelj.encode({data: deep, width, height}, "j2k").data],
  ["JPEG 2000", "lossless, RGB", qelj.encode(rgb, "j2k").data],
  ["JPEG", "quality 85, 4:2:0", qelj.encode(rgb, "jpg", {quality: 85, sampling: 420}).data],
  ["JPEG", "quality 85, 4:4:4", qelj.encode(rgb, "jpg", {quality: 85, sampling: 444}).data],
  [
    "JPEG", "quality 95, grey",
    qelj.encode({data: Uint8Array.from(deep, (v) => v >> 8), width, height}, "jpg", {quality: 95}).data
  ],
];
const median = (list) => list.sort((a, b) => a - b)[list.length >> 1];
const timed = (work) => {
  const start = performance.now();
  work();
  return performance.now() - start;
};
for (const [format, words, file] of cases) {
  if (only && format !== only) continue;
  const ours = () => qelj.decode(file).data, theirs = () => peerOf[format](file);
  const a = ours(), b = theirs();
  const bytes = new Uint8Array(a.buffer, a.byteOffset, a.byteLength);
  if (b.length !== bytes.length) throw new Error(`${words}: ${b.length} bytes in place of ${bytes.length}`);
  const far = bytes.reduce((most, v, i) => Math.max(most, Math.abs(v - b[i])), 0);
  if (format === "JPEG 2000" && far) throw new Error(`${words}: the peer decodes to something else`);
  const times = [[], []];
  for (let i = 0; i < 4; ++i) ours(), theirs();
  for (let i = 0; i < 15; ++i) times[0].push(timed(ours)), times[1].push(timed(theirs));
  const [t, u] = times.map(median);
  print(
      `${format}, ${words}: ${t.toFixed(2)} ms, peer ${u.toFixed(2)} ms, ratio ${(u / t).toFixed(2)}` +
      (far ? ` (samples up to ${far} apart)` : ""));
}
process.exit(0);
