"""The two programs on a cluster of two workers, of which one is killed on the way."""
import argparse
import os
import shutil
import signal
import subprocess

import numpy as np
import pytest

import cluster
import huge
import qelj
import recode
import tile

IMAGES = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "images")


def write_pnm(path, samples, highest):
    with open(path, "wb") as file:
        kind = 5 if samples.ndim == 2 else 6
        file.write(b"P%d\n# rows\n%d %d\n%d\n" % (kind, samples.shape[1], samples.shape[0], highest))
        file.write(samples.astype(">u2" if highest > 255 else np.uint8).tobytes())


def decoded_elsewhere(path, channels):
    """What another decoder makes of a file, or None where it isn't installed."""
    if not shutil.which("opj_decompress"):
        return None
    out = f"{path}.ppm" if channels == 3 else f"{path}.pgm"
    subprocess.run(["opj_decompress", "-i", path, "-o", out], check=True, capture_output=True)
    return tile.open_picture(out)[0]


@pytest.mark.parametrize("shape, highest, side, levels", [
    ((130, 193, 3), 255, 64, 3), ((65, 129), 65535, 64, 6), ((200, 131, 3), 4095, 128, 5), ((1, 1), 255, 64, 5),
    ((40, 300), 1, 256, 2)])
@pytest.mark.parametrize("kind", ["noise", "extremes", "flat"])
def test_tiles_are_exact(tmp_path, shape, highest, side, levels, kind):
    random = np.random.default_rng(3)
    samples = {"noise": random.integers(0, highest + 1, shape), "extremes": random.integers(0, 2, shape) * highest,
               "flat": np.full(shape, highest // 2 + 1)}[kind]
    source = str(tmp_path / "picture.pnm")
    write_pnm(source, samples, highest)
    layout = tile.layout_of(source, side, levels)
    assert layout.bits == highest.bit_length()
    for ending in ("j2k", "jp2"):
        path = str(tmp_path / f"coded.{ending}")
        with open(path, "wb") as file:
            parts = (tile.code_tile(source, layout, n) for n in range(layout.tiles[0] * layout.tiles[1]))
            file.writelines(tile.joined(layout, parts, ending == "jp2"))
        assert np.array_equal(qelj.imread(path), samples)
    elsewhere = decoded_elsewhere(path, layout.channels)
    assert elsewhere is None or np.array_equal(elsewhere, samples)


def test_what_cannot_be_coded_is_refused(tmp_path):
    source = str(tmp_path / "picture.npy")
    np.save(source, np.zeros((300, 200, 3), np.uint8))
    for side, levels in ((100, 3), (32, 3), (64, 7), (64, 0), (1 << 16, 5)):
        with pytest.raises(ValueError):
            tile.layout_of(source, side, levels)
    with pytest.raises(ValueError, match="take another size"):
        tile.Layout(1 << 20, 1 << 20, 1, 8, 1024, 5).checked()
    short = tmp_path / "short.ppm"
    short.write_bytes(b"P6 10 10 255\n" + bytes(299))
    with pytest.raises(ValueError, match="cut short"):
        tile.layout_of(str(short), 64, 5)


@pytest.fixture(scope="module")
def client():
    with cluster.connected(argparse.Namespace(scheduler=None, workers=2)) as connection:
        yield connection


@pytest.fixture
def killed(client, monkeypatch):
    """Kills the worker that has most to do, or to give, when the third result has come; yields the pids that went."""
    pids, step = [], cluster.Progress.step

    def killing_step(self):
        step(self)
        if self.done == 3:
            has, does = client.has_what(), client.processing()
            work = {address: len(has.get(address, ())) + len(does[address]) for address in does}
            victim = max(work, key=work.get)
            assert work[victim] > 0
            pids.append(client.run(os.getpid, workers=[victim])[victim])
            os.kill(pids[0], signal.SIGKILL)

    client.wait_for_workers(2)
    monkeypatch.setattr(cluster.Progress, "step", killing_step)
    yield pids
    assert len(pids) == 1 and pids[0] not in client.run(os.getpid).values()


def test_a_large_picture_survives_a_worker(client, killed, tmp_path):
    samples = np.ascontiguousarray(qelj.imread(os.path.join(IMAGES, "coffee.png"))[:300, :400, :3])
    source, target = str(tmp_path / "picture.npy"), str(tmp_path / "picture.jp2")
    np.save(source, samples)
    words = huge.code_picture(client, source, target, side=64, levels=4)
    assert "400 x 300, 35 tiles" in words
    assert np.array_equal(qelj.imread(target), samples)
    elsewhere = decoded_elsewhere(target, 3)
    assert elsewhere is None or np.array_equal(elsewhere, samples)
    # The bytes don't tell how many workers there were, nor which of them was lost.
    layout = tile.layout_of(source, 64, 4)
    with open(target, "rb") as file:
        parts = (tile.code_tile(source, layout, n) for n in range(35))
        assert file.read() == b"".join(tile.joined(layout, parts, True))
    assert not list(tmp_path.glob("*.part"))


def test_a_folder_survives_a_worker(client, killed, tmp_path):
    coffee = qelj.imread(os.path.join(IMAGES, "coffee.png"))[..., :3]
    folder, out = tmp_path / "photographs", tmp_path / "out"
    (folder / "deeper").mkdir(parents=True)
    crops = {}
    for n in range(12):
        name = f"deeper/{n}" if n % 3 == 0 else str(n)
        crops[name] = coffee[20 * n:20 * n + 100, 10 * n:10 * n + 150]
        qelj.imwrite(folder / f"{name}.{('png', 'tif')[n % 2]}", crops[name])
    (folder / "torn.jpg").write_bytes(b"\xFF\xD8\xFF\xE0 torn")
    (folder / "notes.txt").write_text("no picture")
    summary = recode.recode_folder(client, str(folder), str(out), "jxr", {"lossless": True})
    assert (summary.done, summary.failed) == (12, 1) and summary.told[0][0].endswith("torn.jpg")
    assert summary.bytes_after == sum(os.path.getsize(out / f"{name}.jxr") for name in crops)
    for name, crop in crops.items():
        assert np.array_equal(qelj.imread(out / f"{name}.jxr"), crop)
    # Two that would be one are refused before anything is written.
    qelj.imwrite(folder / "1.png", crops["1"])
    with pytest.raises(ValueError, match="would both be"):
        recode.pairs_of(str(folder), str(out), "jxr")
