"""Pictures in bands and tiles, on a pool of threads."""
import concurrent.futures
import functools
from typing import Any, Callable, Iterable, List, Optional, Tuple

from ._library import lib


def set_num_threads(threads: int) -> int:
    """How many threads the library may use for calls of this thread; 0 for what holds without a setting. Returns what
    had been set before."""
    return lib.qelSetNumThreads(threads)


def get_num_threads() -> int:
    """How many threads the library may use for calls of this thread."""
    return lib.ownGetNumThreads()


def _map(function: Callable[..., Any], pieces: Iterable[Tuple[Any, ...]], threads: Optional[int]) -> List[Any]:
    """The function's results on all pieces, in their order. Calls inside stay on their threads: a team for each of the
    pool's threads would only be in the way."""
    with concurrent.futures.ThreadPoolExecutor(threads or get_num_threads(),
                                               initializer=functools.partial(set_num_threads, 1)) as pool:
        return [done.result() for done in [pool.submit(function, *piece) for piece in pieces]]


def map_rows(function: Callable[..., Any], *arrays: Any, band: int = 64, threads: Optional[int] = None) -> List[Any]:
    """Calls `function` with views of the same band of rows of all arrays, band for band, on a pool of threads.

    band      rows of the first array in a band; the last one may have fewer. An array of half as many rows, a chroma
              plane, gives half as many to each band: then `band` is to be even.
    threads   how many; as many as the library would use itself if nothing is said

    Returns the results in the order of the bands. Outputs are passed as arrays, too, and written through their views.
    Where values depend on a pixel's place in its row, rows are whole here, so that they are those of one call; a
    function that looks at rows above and below (qeliSampleUpH2V2_JPEG_8u_C1R) sees those of its neighbours, since
    a view may be walked out of.
    """
    height = arrays[0].shape[0]
    scales = []
    for array in arrays:
        rows = max(array.shape[0], 1)
        up, down = (round(rows / max(height, 1)), 1) if rows >= height else (1, round(height / rows))
        if band % down and height > band:
            raise ValueError(f"bands of {band} rows don't cut an array that has one row for {down}")
        scales.append((up, down))
    cuts = [*range(0, height, band), height]
    pieces = (tuple(array[start * up // down:end * up // down if end < height else None]
                    for array, (up, down) in zip(arrays, scales)) for start, end in zip(cuts, cuts[1:]))
    return _map(function, pieces, threads)


def map_tiles(function: Callable[..., Any], *arrays: Any, tile: Tuple[int, int] = (256, 256),
              threads: Optional[int] = None) -> List[Any]:
    """Calls `function` with views of the same tile of all arrays, of (rows, columns) each, on a pool of threads.

    Tiles at the right and at the bottom may be smaller. All arrays have the same height and width. Returns the results
    in raster order. Pixels at a tile's right edge are the last of their rows there: where the header says that these
    have a form of their own, the values are those of rows cut at that place.
    """
    height, width = arrays[0].shape[:2]
    if any(array.shape[:2] != (height, width) for array in arrays):
        raise ValueError("the arrays have different heights or widths")
    rows, columns = tile
    pieces = (tuple(array[y:y + rows, x:x + columns] for array in arrays)
              for y in range(0, height, rows) for x in range(0, width, columns))
    return _map(function, pieces, threads)
