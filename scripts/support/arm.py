"""arm.py ARMV8 PORTABLE PEERS COMPILER EMULATOR PEER: the tables of docs/porting.md, of scripts/bench --arm's counts.

ARMV8 and PORTABLE have a line an export, its name and its instructions on that image; PEERS has three lines a row of a
benchmark: its name, the library's instructions and the peer's."""
import pathlib
import re
import sys
import textwrap

# One or two functions a family, the ones that a codec runs most.
SHOWN = """
qeliRGBToYCbCr_JPEG_8u_C3P3R qeliYCbCrToRGB_JPEG_8u_P3C3R qeliYCbCr411ToBGR_JPEG_8u_P3C3R
qeliSampleDownH2V2_JPEG_8u_C1R qeliSampleUpRowH2V2_Triangle_JPEG_8u_C1 qeliSampleDown411LS_MCU_8u16s_C3P3R
qeliDCTQuantFwd8x8LS_JPEG_8u16s_C1R qeliDCTQuantInv8x8LS_JPEG_16s8u_C1R
qeliEncodeHuffman8x8_JPEG_16s1u_C1 qeliDecodeHuffman8x8_JPEG_1u16s_C1 qeliDecodeHuffmanRow_JPEG_1u16s_C1P4
qeliEncodeHuffman8x8_ACRefine_JPEG_16s1u_C1
qeliWTInv_B53_JPEG2K_16s_C1R qeliWTInv_D97_JPEG2K_32s_C1R qeliWTFwdColLift_D97_JPEG2K_16s_C1
qeliRCTFwd_JPEG2K_16s_C3P3R qeliDecodeCodeBlock_JPEG2K_1u32s_C1R
qeliPCTFwd16x16_JPEGXR_32s_C1IR qeliFLCDecode4x4_JPEGXR_1u32s_C1IR
qeliTextureDecodeBlockToRGBA_BC7_8u_C1C4R qeliTextureEncodeBlock4x4FromRGBA_BC7_8u_C4C1R
qeliTextureEncodeBlockFromRGBA_DXT1_8u_C4C1R
qeliUnpackBitsRow_TIFF_8u_C1 qeliSplitRow_TIFF_16u8u_C1
""".split()


def exports(path):
    return {name: int(count) for name, count in re.findall(r"^(qel\w+) (\d+)$", pathlib.Path(path).read_text(), re.M)}


now, before = exports(sys.argv[1]), exports(sys.argv[2])
times = {name: before[name] / now[name] for name in now if now[name] and before.get(name)}
ordered = sorted(times.values())
compiler, emulator, peer = sys.argv[4:7]
median, most = ordered[len(ordered) // 2], sum(t >= 1.5 for t in ordered)
words = f"""Counted by `scripts/bench --arm` ({compiler}; {emulator}): instructions, not time. On the comparison's
calls (a twentieth of the rounds) the portable image takes {median:.2f} times as many as `armv8-a` in the median of
{len(times)} exports, of which many have no vectors; {most} of them take 1.5 times as many or more,
{sum(t < 0.97 for t in ordered)} less than 0.97 times, the least {ordered[0]:.2f}. Some functions of each family:"""
text = textwrap.fill(words, 120, break_on_hyphens=False) + """

| function | portable | `armv8-a` | ratio |
|---|---:|---:|---:|
"""
for name in SHOWN:
    if name in times:
        text += f"| `{name}` | {before[name]:,} | {now[name]:,} | {times[name]:.2f} |\n"

lines = pathlib.Path(sys.argv[3]).read_text().splitlines()
words = f"""Beside the NEON routines of libjpeg-turbo ({peer}), which are called row by row or block by block as a codec
does; a ratio above 1 means that the library takes fewer instructions. The programs are those of
[Measuring](measuring.md), and its words on what each side includes hold here, too."""
text += "\n" + textwrap.fill(words, 120, break_on_hyphens=False) + """

| what | qelj | libjpeg-turbo | ratio |
|---|---:|---:|---:|
"""
for row, ours, theirs in zip(lines[::3], lines[1::3], lines[2::3]):
    text += f"| {row.partition(': ')[2]} | {int(ours):,} | {int(theirs):,} | {int(theirs) / int(ours):.2f} |\n"

document = pathlib.Path("docs/porting.md")
head, rest = document.read_text().split("<!-- aarch64: -->\n")
tail = rest[rest.index("<!-- :aarch64 -->"):]
document.write_text(f"{head}<!-- aarch64: -->\n\n{text}\n{tail}")
low = sorted(times, key=times.get)[:12]
print("\n".join(f"{times[name]:.2f} {name}: {before[name]} -> {now[name]}" for name in low))
