"""figures.py FIGURES --below RATIO | --write COMPILER COMMAND PACKAGE...: what scripts/bench makes of its rows."""
import pathlib
import re
import subprocess
import sys
import textwrap

FIELDS = ("program", "road", "unit", "peer", "goal", "input", "ours", "theirs", "ratio", "share", "note")
# The roads that README shows.
README = re.compile(
    r"(RGB to YCbCr|YCbCr to RGB), rows in cache|smallest calls|RGB to 4:2:0, cached"
    r"|4:2:[02] to RGB beside merged conversion, 4096x4096|H2V[12] (down|triangle up)"
    r"|forward DCT.*|inverse DCT( to .*)?|Huffman encoding, 4:.*|Huffman decoding(, Direct form)?"
    r"|progressive .*|lossless rows, .*|whole (?!.*fresh).*"
    r"|5/3 32s, (rows.*|.*a line a call)|9/7 32s.*(larger|inverse, .*)|9/7 float, rows.*"
    r"|RCT forward, in cache|ICT forward, float, from memory|tier-1 .*"
    r"|JPEG XR block .*all bits|(forward|inverse) transform, 32-bit"
    r"|DXT[15] (decoding|encoding)|BC7 .*coding(, mixed modes)?|BC6 decoding"
    r"|PackBits (packing runs|unpacking photographs)")
rows = []
for line in pathlib.Path(sys.argv[1]).read_text().splitlines():
    row = dict(zip(FIELDS, line.split("\t")))
    row.update((name, float(row[name])) for name in ("goal", "ours", "theirs", "ratio", "share"))
    rows.append(row)


def figure(value):
    return f"{value:,.0f}" if value >= 1000 else f"{value:.3g}" if value else "-"


def ratio(row):
    return f"{row['ratio']:.2f}" if row["theirs"] else "-"


if sys.argv[2] == "--below":
    limit = float(sys.argv[3])
    below = [row for row in rows if row["ratio"] < limit]
    print(f"\n{len(rows)} rows, {len(below)} below {limit}")
    for row in sorted(below, key=lambda row: row["ratio"]):
        print(f"  {row['ratio']:.2f}  {row['program']}: {row['road']}, {row['input']}")
    sys.exit()

compiler, command, packages = sys.argv[3], sys.argv[4], sys.argv[5:]
cpu = dict(re.findall(r"^(model name|cpu family|model)\s*: (.*)$", pathlib.Path("/proc/cpuinfo").read_text(), re.M))
processor = "{model name} (family {cpu family}, model {model})".format_map(cpu) if "model" in cpu else "this machine"
try:
    versions = subprocess.run(["dpkg-query", "-W", "-f", "${Package} ${Version}, ", *packages],
                              capture_output=True, text=True, check=True).stdout.rstrip(", ")
except (OSError, subprocess.CalledProcessError):
    versions = ", ".join(packages)

roads = {}
for row in rows:
    if row["program"] != "threading":  # wall-clock time: docs/threading.md
        roads.setdefault((row["program"], row["road"]), []).append(row)


def lowest(road):
    """The row that counts: the lowest ratio, or the lowest figure where there is no peer."""
    return min(road, key=lambda row: row["ratio"] or row["ours"])


# --- docs/performance.md ------------------------------------------------------------------------------------------
made = f"""Made by `{command}` on {processor}
with {compiler}; peers: {versions}. One thread, CPU time of the thread; each
row's figures are medians of turns that the library and the peer took one after the other in one process, and its ratio
the median of the turns' ratios: above 1 the library is faster. `memcpy` is the share of a `memcpy` of the bytes
touched. The lowest ratio of several inputs is the one that counts, and is in bold. [Measuring](measuring.md) says what
is compared."""
text = f"""# Performance

{textwrap.fill(made, 120, break_on_hyphens=False)}

## Where the library is behind

| program | what | input | qelj | peer | | ratio |
|---|---|---|---:|---:|---|---:|
"""
behind = [row for road in roads.values() for row in road if row["theirs"] and row["ratio"] < 1
          and not row["peer"].startswith(("memcpy", "rows"))]
for row in sorted(behind, key=lambda row: row["ratio"]):
    text += (f"| `{row['program']}` | {row['road']} | {row['input']} | {figure(row['ours'])} | {figure(row['theirs'])} "
             f"| {row['unit']}, {row['peer']} | {ratio(row)} |\n")
program = None
for (name, road), measured in roads.items():
    if name != program:
        program = name
        text += f"\n## {program}\n"
    peer = measured[0]["peer"]
    text += f"\n### {road}\n\n{measured[0]['unit']}{', beside ' + peer if peer else ''}\n\n"
    text += "| input | qelj | peer | ratio | memcpy | |\n|---|---:|---:|---:|---:|---|\n"
    for row in measured:
        shown = ratio(row)
        if row["theirs"] and len(measured) > 1 and row is lowest(measured):
            shown = f"**{shown}**"
        share = f"{row['share']:.2f}" if row["share"] else "-"
        text += (f"| {row['input']} | {figure(row['ours'])} | {figure(row['theirs'])} | {shown} | {share} "
                 f"| {row['note']} |\n")
pathlib.Path("docs/performance.md").write_text(text)

# --- README ------------------------------------------------------------------------------------------------------
made = f"""Made by `{command}` on {processor}
with {compiler}: medians of CPU time, one thread, the library and its
peer by turns on the same data in the same process. A ratio above 1 means that the library is faster. Of several inputs
each line has the one with the lowest ratio; [docs/performance.md](docs/performance.md) has them all, and
[docs/measuring.md](docs/measuring.md) what is compared."""
table = f"""{textwrap.fill(made, 120, break_on_hyphens=False)}

| what | input | unit | qelj | beside | ratio |
|---|---|---|---:|---|---:|
"""
for (name, road), measured in roads.items():
    if README.fullmatch(road):
        row = lowest(measured)
        quality = f" ({row['note']})" if row["note"].startswith("PSNR") else ""
        table += (f"| {road}{quality} | {row['input']} | {row['unit']} | {figure(row['ours'])} | {row['peer'] or '-'} "
                  f"| {ratio(row)} |\n")
readme = pathlib.Path("README.md")
before, rest = readme.read_text().split("<!-- figures -->\n")[:2]
after = rest.split("<!-- end of figures -->\n")[1]
readme.write_text(f"{before}<!-- figures -->\n{table}<!-- end of figures -->\n{after}")
print(f"\nwritten: README.md, docs/performance.md ({len(rows)} rows, {len(behind)} behind their peer)")
