"""instructions.py COUNTS BASELINE COMPILER [--keep]: the work of scripts/bench --check behind the counting."""
import pathlib
import re
import sys

counts_directory, baseline_path, compiler = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]), sys.argv[3]
LIMIT = 1.03


def dumped(pattern):
    """What each dump of a program counted, by the name that the program gave it."""
    found = {}
    for part in counts_directory.glob(pattern):
        text = part.read_text()
        name = re.search(r"^desc: Trigger: Client Request: (\w+)$", text, re.M)
        total = re.search(r"^(?:summary|totals): (\d+)", text, re.M)
        if name and total:
            found[name[1]] = int(total[1])
    return found


growth = dumped("linear.*")
steep = []
for once in (name for name in growth if name.endswith("_1")):
    one, two, four = (growth[once[:-1] + times] for times in "124")
    if two > 2.1 * one or four > 2.1 * two:
        steep.append(f"{once[:-2]}: {one}, {two}, {four} instructions for inputs of 1, 2, 4 times the length")
print(f"{len(growth) // 3} inputs doubled twice, {len(steep)} that took more than 2.1 times as long")
print("\n".join(steep), end="\n" if steep else "")

counts = dumped("out.*")

if "--keep" in sys.argv:
    lines = [compiler] + [f"{name} {count}" for name, count in sorted(counts.items())]
    baseline_path.write_text("\n".join(lines) + "\n")
    sys.exit(f"kept {len(counts)} counts" if not counts else None)

lines = baseline_path.read_text().splitlines()
kept = {name: int(count) for name, count in (line.split() for line in lines[1:])}
grown = []
for name in sorted(kept.keys() | counts.keys()):
    before, now = kept.get(name), counts.get(name)
    if before is None or now is None:
        grown.append(f"{name}: {'not counted' if now is None else 'not kept'}")
    elif now > before * LIMIT:
        grown.append(f"{name}: {before} -> {now} instructions ({100 * now / before - 100:+.1f} %)")
together = sum(counts.values()) / max(1, sum(kept.values()))
print(f"{len(counts)} exports, {100 * together - 100:+.2f} % instructions in all; "
      f"{len(grown)} more than 3 % above the kept count")
print("\n".join(grown))
if compiler != lines[0]:
    print(f"The kept counts are of another compiler ({lines[0]}): nothing is held against them.")
elif grown:
    sys.exit(1)
if steep or not growth:
    sys.exit(1)
