import {load} from "../package/qelj.js";

const at = (id) => document.getElementById(id);
const bytesOf = (id) => Uint8Array.from(atob(at(id).textContent), (c) => c.charCodeAt(0));
const chosen = (name) => document.querySelector(`input[name="${name}"]:checked`).value;

const longestSide = 1024;  // of a photograph here: larger ones are drawn smaller
const extensions = {
  jpeg: "jpg",
  jpeg2000: "jp2",
  jpegxr: "jxr",
  texture: "dds"
};

const qelj =
    await load(new Response(new Blob([bytesOf("module")]).stream().pipeThrough(new DecompressionStream("gzip"))));
let picture = null;  // {rgb, rgba, width, height, luma}
let result = null;   // what the settings gave: {rgba, inside, difference, words}
let savedAt = "";

// --- the picture ----------------------------------------------------------------------------------------------------

async function take(file) {
  const bitmap = await createImageBitmap(file);
  const scale = Math.min(1, longestSide / Math.max(bitmap.width, bitmap.height));
  const width = Math.max(1, Math.round(bitmap.width * scale)), height = Math.max(1, Math.round(bitmap.height * scale));
  const canvas = new OffscreenCanvas(width, height), context = canvas.getContext("2d");
  context.fillStyle = "#fff";
  context.fillRect(0, 0, width, height);
  context.drawImage(bitmap, 0, 0, width, height);
  const rgba = new Uint8Array(context.getImageData(0, 0, width, height).data.buffer);
  const rgb = new Uint8Array(3 * width * height);
  for (let i = 0, j = 0; j < rgba.length; j += 4) rgb[i++] = rgba[j], rgb[i++] = rgba[j + 1], rgb[i++] = rgba[j + 2];
  const [luma] = qelj.colour({data: rgb, width, height}).planes;
  picture = {rgb, rgba, width, height, luma};
  paint(at("original"), rgba);
  at("stage").style.setProperty("--ratio", width / height);
}

function paint(canvas, rgba) {
  canvas.width = picture.width;
  canvas.height = picture.height;
  canvas.getContext("2d").putImageData(new ImageData(new Uint8ClampedArray(rgba), picture.width, picture.height), 0, 0);
}

function fourChannels(data, channels) {
  if (channels === 4) return data;
  const out = new Uint8Array(data.length / channels * 4);
  for (let i = 0, j = 0; j < out.length; i += channels, j += 4) {
    for (let k = 0; k < 3; ++k) out[j + k] = data[i + (channels === 1 ? 0 : k)];
    out[j + 3] = 255;
  }
  return out;
}

// --- what is inside -------------------------------------------------------------------------------------------------

// Grey for nothing, brighter for positive and darker for negative values, by their logarithms.
function shades(values, scale = 22) {
  const rgba = new Uint8Array(4 * values.length);
  for (let i = 0; i < values.length; ++i) {
    const v = values[i], shade = 128 + Math.sign(v) * Math.log2(1 + Math.abs(v)) * scale;
    rgba[4 * i] = rgba[4 * i + 1] = rgba[4 * i + 2] = shade < 0 ? 0 : shade > 255 ? 255 : shade;
    rgba[4 * i + 3] = 255;
  }
  return rgba;
}

const insides = {
  jpeg() {
    const {width, height, luma} = picture;
    const {blocks, blocksWide} =
        qelj.forwardDct({data: luma, width, height}, qelj.quantiser({quality: Number(at("quality").value)}));
    const values = new Int16Array(width * height);
    let zeros = 0;
    for (let y = 0, i = 0; y < height; ++y)
      for (let x = 0; x < width; ++x, ++i)
        values[i] = blocks[64 * ((y >> 3) * blocksWide + (x >> 3)) + 8 * (y & 7) + (x & 7)];
    for (const v of blocks) zeros += v === 0;
    return [
      shades(values),
      `Each block of 8 by 8 pixels as 64 waves, divided by the quantiser and rounded: ` +
          `${Math.round(100 * zeros / blocks.length)} of 100 brightness coefficients are zero.`
    ];
  },
  jpeg2000() {
    const {width, height, luma} = picture, levels = Number(at("levels").value);
    const data = Int32Array.from(luma, (v) => v - 128);
    const bands = qelj.wavelet({data, width, height}, {levels, filter: at("filter").value});
    const still = Math.round(100 * bands.data.reduce((n, v) => n + (Math.abs(v) < 2), 0) / bands.data.length);
    return [
      shades(bands.data),
      `${levels} wavelet levels part the picture into ${3 * levels + 1} bands: a small picture ` +
          `at the top left, and the detail it lacks around it. ${still} of 100 samples are within one step of zero.`
    ];
  },
  jpegxr() {
    const {width, height, luma} = picture, w = width & ~15, h = height & ~15;
    if (!w || !h) return [shades(new Int32Array(width * height)), "The picture is smaller than one macroblock."];
    const data = new Int32Array(w * h);
    for (let y = 0; y < h; ++y)
      for (let x = 0; x < w; ++x) data[y * w + x] = luma[y * width + x] - 128;
    const core = qelj.photoCore({data, width: w, height: h});
    const values = new Int32Array(width * height);
    for (let y = 0; y < h; ++y) values.set(core.data.subarray(y * w, (y + 1) * w), y * width);
    return [
      shades(values),
      "The photo core transform of each 16 by 16 pixels: 16 blocks of 4 by 4 with 15 fine " +
          "coefficients each, and a second transform over their 16 means."
    ];
  },
  texture(file) {
    const {width, height} = picture, format = at("block").value, bytes = format === "bc1" ? 8 : 16;
    const blocks = file.subarray(file.length - bytes * Math.ceil(width / 4) * Math.ceil(height / 4));
    const modes = ["#e6194b", "#f58231", "#ffe119", "#3cb44b", "#42d4f4", "#4363d8", "#911eb4", "#a9a9a9"].map(
        (c) => [1, 3, 5].map((i) => parseInt(c.slice(i, i + 2), 16)));
    const used = new Set(), rgba = new Uint8Array(4 * width * height);
    for (let y = 0, i = 0; y < height; ++y)
      for (let x = 0; x < width; ++x, ++i) {
        const block = bytes * ((y >> 2) * Math.ceil(width / 4) + (x >> 2)), end = block + bytes - 8;
        let shade;
        if (format === "bc7") {
          const mode = Math.min(7, 31 - Math.clz32(blocks[block] & -blocks[block]));
          used.add(mode);
          shade = modes[mode];
        } else {
          const colour = blocks[end + 1] << 8 | blocks[end];
          shade = [(colour >> 11) << 3, (colour >> 5 & 63) << 2, (colour & 31) << 3];
        }
        rgba.set(shade, 4 * i);
        rgba[4 * i + 3] = 255;
      }
    return [
      rgba,
      format === "bc7" ?
          `Which of eight kinds each block of 4 by 4 pixels is (red is 0, grey is 7): this picture uses ${used.size}.` :
          "The first of the two end colours that each block of 4 by 4 pixels keeps; its pixels choose between them."
    ];
  },
};

function differenceOf(rgba) {
  const out = new Uint8Array(rgba.length);
  let sum = 0;
  for (let i = 0; i < out.length; ++i) {
    if ((i & 3) === 3) {
      out[i] = 255;
      continue;
    }
    const d = rgba[i] - picture.rgba[i];
    sum += d * d;
    out[i] = Math.max(0, Math.min(255, 128 + 4 * d));
  }
  return [out, sum === 0 ? Infinity : 10 * Math.log10(255 * 255 * 0.75 * out.length / sum)];
}

// --- compute and show -----------------------------------------------------------------------------------------------

function settings(format) {
  if (format === "jpeg")
    return {quality: at("quality").value, sampling: at("sampling").value, progressive: at("scans").value !== ""};
  if (format === "jpegxr") return {quality: at("quality").value, sampling: at("sampling").value};
  if (format === "texture") return {block: at("block").value};
  const lossy = at("filter").value === "9/7";
  return {levels: at("levels").value, irreversible: lossy, rate: lossy ? at("rate").value : undefined};
}

const milliseconds = (t) => `${t < 10 ? t.toFixed(1) : Math.round(t)} ms`;

function compute() {
  const format = chosen("format"), {width, height} = picture;
  const image = format === "texture" ? {data: picture.rgba, width, height} : {data: picture.rgb, width, height};
  const start = performance.now();
  const file = qelj.encode(image, extensions[format], settings(format));
  const middle = performance.now();
  const back = qelj.decode(file.data);
  const end = performance.now();
  const rgba = fourChannels(back.data, back.data.length / (width * height));
  const [difference, psnr] = differenceOf(rgba);
  const [inside, words] = insides[format](file.data);
  result = {rgba, inside, difference, words};
  const bytes = file.data.length, raw = 3 * width * height;
  at("size").textContent = `${bytes.toLocaleString("en")} bytes`;
  at("bits").textContent = (8 * bytes / (width * height)).toFixed(2);
  at("smaller").textContent = `${(raw / bytes).toFixed(1)} times`;
  at("psnr").textContent = psnr === Infinity ? "exact" : `${psnr.toFixed(1)} dB`;
  at("writing").textContent = milliseconds(middle - start);
  at("reading").textContent = milliseconds(end - middle);
  at("stages").replaceChildren(...[["Writing", file.stages], ["Reading", back.stages]].flatMap(
      ([way, stages]) => stages.map(({name, milliseconds: t}) => {
        const row = document.createElement("tr");
        for (const text of [`${way}: ${name}`, t.toFixed(1)]) row.insertCell().textContent = text;
        return row;
      })));
  URL.revokeObjectURL(savedAt);
  savedAt = URL.createObjectURL(new Blob([file.data]));
  at("save").href = savedAt;
  at("save").download = `picture.${extensions[format]}`;
}

const words = {
  result: "Drag the slider to compare. What you see on the right was written to a file and read back.",
  difference: "Grey where nothing changed; differences are shown four times as strong.",
};
function show() {
  const view = chosen("view");
  paint(at("shown"), view === "result" ? result.rgba : result[view]);
  at("shown").setAttribute("aria-label", {
    result: "The picture behind compression",
    inside: "What the format keeps of it",
    difference: "How far the result is from the original"
  }[view]);
  at("words").textContent = view === "inside" ? result.words : words[view];
  split();
}
function split() {
  const part = chosen("view") === "result" ? Number(at("split").value) : 0;
  at("slide").hidden = at("line").hidden = chosen("view") !== "result";
  at("slide").style.display = at("slide").hidden ? "none" : "";
  at("original").style.clipPath = `inset(0 ${100 - part}% 0 0)`;
  at("line").style.left = `${part}%`;
}
function labels() {
  const format = chosen("format");
  for (const field of document.querySelectorAll("[data-for]"))
    field.hidden = !field.dataset.for.split(" ").includes(format);
  at("rateField").hidden ||= at("filter").value !== "9/7";
  at("qualityShown").textContent = at("quality").value;
  at("levelsShown").textContent = at("levels").value;
  at("rateShown").textContent = Number(at("rate").value).toFixed(1);
  at("insideName").textContent =
      {jpeg: "Coefficients", jpeg2000: "Wavelet bands", jpegxr: "Coefficients", texture: "Blocks"}[format];
}

// At most once a frame, with the settings as they are then.
let waiting = false;
function changed() {
  labels();
  if (waiting) return;
  waiting = true;
  requestAnimationFrame(() => setTimeout(() => {
                          waiting = false;
                          try {
                            compute();
                            show();
                            at("problem").hidden = true;
                          } catch (error) {
                            at("problem").textContent = `That did not work: ${error.message}`;
                            at("problem").hidden = false;
                          }
                        }));
}

async function taken(file) {
  try {
    await take(file);
    changed();
  } catch {
    at("problem").textContent = "This file is no picture that the browser can read.";
    at("problem").hidden = false;
  }
}

for (const control of document.querySelectorAll(".settings select, .settings input:not([type=file])"))
  control.addEventListener("input", changed);
for (const view of document.querySelectorAll("#views input")) view.addEventListener("input", show);
at("split").addEventListener("input", split);
at("stage").addEventListener("pointermove", (event) => {
  if (chosen("view") !== "result" || (event.pointerType === "mouse" && !event.buttons)) return;
  const box = at("stage").getBoundingClientRect();
  at("split").value = 100 * (event.clientX - box.left) / box.width;
  split();
});
at("file").addEventListener("change", () => at("file").files.length && taken(at("file").files[0]));
for (const kind of ["dragover", "dragleave", "drop"])
  document.addEventListener(kind, (event) => {
    event.preventDefault();
    at("drop").classList.toggle("over", kind === "dragover");
    if (kind === "drop" && event.dataTransfer.files.length) taken(event.dataTransfer.files[0]);
  });

taken(new Blob([bytesOf("photograph")], {type: "image/png"}));
