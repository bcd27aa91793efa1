"""What both programs share: a cluster of Dask's, a few tasks ahead of the one whose result is due, progress."""
import argparse
import collections
import contextlib
import itertools
import os
import sys
import time
from typing import Any, Callable, Deque, Iterable, Iterator, Tuple

from distributed import Client, Future, LocalCluster

HERE = os.path.dirname(os.path.abspath(__file__))
AHEAD = 3  # tasks for each thread of the cluster: enough that none waits for the next one


def add_arguments(parser: argparse.ArgumentParser) -> None:
    parser.add_argument("--scheduler", metavar="ADDRESS", help="of a running cluster, such as tcp://host:8786; its "
                        "workers have the package qelj and see the same files under the same names")
    parser.add_argument("--workers", type=int, metavar="N", help="of a cluster on this machine: one a processor")


@contextlib.contextmanager
def connected(arguments: argparse.Namespace) -> Iterator[Client]:
    """A client of the cluster that the arguments name, whose workers have these modules, also those that come later."""
    with contextlib.ExitStack() as stack:
        address = arguments.scheduler or stack.enter_context(
            LocalCluster(n_workers=arguments.workers or os.cpu_count(), threads_per_worker=1, dashboard_address=None))
        client = stack.enter_context(Client(address))
        for module in ("tile.py", "recode.py"):
            client.upload_file(os.path.join(HERE, module))
        yield client


def in_order(client: Client, task: Callable[..., Any], pieces: Iterable[Tuple[Any, ...]]) -> Iterator[Any]:
    """The task's results on all pieces, in their order, however many there are: only some are asked for ahead of time.
    What a lost worker had, done or not, Dask gives to another one."""
    waiting: Deque[Future] = collections.deque()
    rest = iter(pieces)
    while True:
        room = max(AHEAD * sum(client.nthreads().values()), 1) - len(waiting)
        waiting.extend(client.submit(task, *piece, pure=False) for piece in itertools.islice(rest, max(room, 0)))
        if not waiting:
            return
        future = waiting.popleft()
        yield future.result()
        future.release()


class Progress:
    """A line on a terminal that is written over, or a line every ten seconds of a log."""

    def __init__(self, what: str, total: int, client: Client) -> None:
        self.what, self.total, self.client, self.done = what, total, client, 0
        self.start = self.shown = time.monotonic()

    def step(self) -> None:
        self.done += 1
        now, terminal = time.monotonic(), sys.stderr.isatty()
        if self.done < self.total and now - self.shown < (0.2 if terminal else 10):
            return
        self.shown = now
        left = (now - self.start) / self.done * (self.total - self.done)
        print(f"{self.done} of {self.total} {self.what}, {len(self.client.nthreads())} workers, {left:.0f} s left",
              end="\r" if terminal and self.done < self.total else "\n", file=sys.stderr, flush=True)

    def seconds(self) -> float:
        return time.monotonic() - self.start


@contextlib.contextmanager
def complete_or_absent(path: str) -> Iterator[str]:
    """A name beside the path for what is being written; it gets the path's name when all of it is there."""
    partial = f"{path}.{os.getpid()}.part"
    try:
        yield partial
        os.replace(partial, path)
    finally:
        with contextlib.suppress(FileNotFoundError):
            os.unlink(partial)
