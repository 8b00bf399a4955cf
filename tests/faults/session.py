"""Many runs of commands on one endpoint, without the cost of a sandbox for each.

    with session.open_session() as endpoint:
        services = endpoint.lay_out(scenario.load("healthy"), logging=True)
        ended = endpoint.run(["/opt/kxtool/KXTool", "-getVersion"], {}, services)
"""

import contextlib
import dataclasses
import json
import multiprocessing
import os
import pathlib
import queue
import shutil
import sys
import threading
from collections.abc import Callable, Iterable, Iterator
from typing import Any

from simulator import endpoints, installation, sandbox
from simulator import scenario as scenarios
from simulator.installers import images
from tests.end_to_end.harness import BUILD

Json = Any

# The temporary file of the tool: the number is rand()'s first without a seed.
OUTPUT_FILE = "KXToolInstall_1804289383"
_SERVER = pathlib.Path(__file__).with_name("serve.py")


@dataclasses.dataclass(frozen=True)
class Ended:
    """What a command has left.

    status: as subprocess gives it, negative for a signal; None: the command did not end in time.
    processes: the names of those that still ran; they are ended.
    shared_memory: whatever there is of it.
    descriptors: how many the process has that started the command.
    """

    status: int | None
    output: str
    errors: str
    processes: list[str]
    shared_memory: list[str]
    descriptors: int


class Session:
    """An endpoint that is laid out anew for each run."""

    def __init__(self, endpoint: endpoints.Endpoint, ask: Callable[[Json], Json]):
        self._root = endpoint.path("/")
        self._ask = ask

    def path(self, absolute: str) -> pathlib.Path:
        """Where a path of the endpoint lies on this machine."""
        return self._root / absolute.lstrip("/")

    def lay_out(self, complete: dict[str, Json], logging: bool) -> list[str]:
        """Puts a scenario in the place of the one before; gives its services' paths."""
        installed = installation.Installation(self._root, BUILD)
        for directory in installation.OWN_DIRECTORIES:
            for entry in list(self.path(directory).glob("*")):
                sandbox.remove_tree(entry)
        installed.write(complete, logging)
        images.Media(BUILD).place(complete["media"], self.path(installation.DEMONSTRATIONS))
        return [service["path"] for service in installed.services(complete["product"])]

    def run(self, command: list[str], environment: dict[str, str], services: list[str],
            limit: float = 120) -> Ended:
        """Runs a command with the services around it; the tool's sleeps are a thousand times
        shorter."""
        whole = {"PATH": "/usr/bin:/bin", "TMPDIR": installation.TEMPORARY,
                 **endpoints.faster_sleeps(1000), **environment}
        return Ended(**self._ask({
            "command": command, "environment": whole, "services": services,
            "directory": installation.WORKING_DIRECTORY, "limit": limit}))

    def unexpected(self, ended: Ended, processes: Iterable[str] = (),
                   output_file: bool = False) -> dict[str, Json]:
        """What has stayed behind, by its kind: what there is, and what there may be.

        `processes` and `output_file` are what a run leaves on purpose: services, and the temporary
        file of an image that could not be attached.
        """
        found = {"processes": (ended.processes, sorted(processes)),
                 "shared memory": (ended.shared_memory, [])}
        for directory in (installation.TEMPORARY, "/tmp", "/var/tmp"):
            wanted = [OUTPUT_FILE] * (output_file and directory == installation.TEMPORARY)
            found[directory] = (sorted(os.listdir(self.path(directory))), wanted)
        return {name: pair for name, pair in found.items() if pair[0] != pair[1]}


def require_sandbox() -> None:
    """Ends the program, as skipped for ctest, where endpoints are made in place: what is left of a
    run is ended with everything else in the process table, which there would be the machine's."""
    refusal = sandbox.refusal()
    if refusal is not None:
        print(f"this needs a sandbox: {refusal}")
        sys.exit(77)


@contextlib.contextmanager
def open_session() -> Iterator[Session]:
    """An endpoint without the product."""
    require_sandbox()
    empty = scenarios.load({"product": {"layout": None, "services": []}})
    with endpoints.open_endpoint(BUILD, empty) as endpoint, _asking(endpoint) as ask:
        yield Session(endpoint, ask)


@contextlib.contextmanager
def _asking(endpoint: endpoints.Endpoint) -> Iterator[Callable[[Json], Json]]:
    server = f"{installation.STAND_INS}/serve.py"
    shutil.copy(_SERVER, endpoint.path(server))
    asking, questions = os.pipe()
    answers, answering = os.pipe()

    def serve() -> None:
        try:
            endpoint.run(["/usr/bin/python3", "-I", "-S", server], stdin=asking, stdout=answering)
        finally:
            os.close(asking)
            os.close(answering)

    thread = threading.Thread(target=serve)
    thread.start()
    with open(questions, "w", encoding="utf-8") as writer, \
            open(answers, encoding="utf-8") as reader:
        reader.readline()  # the server is there: it needs nothing more of the endpoint

        def ask(question: Json) -> Json:
            print(json.dumps(question), file=writer, flush=True)
            return json.loads(reader.readline())

        yield ask
        writer.close()  # the server ends
        thread.join()


def spread(work: Callable[[list[Any], Callable[[Any], None]], None],
           items: list[Any]) -> Iterator[Any]:
    """Has several processes `work` on shares of the items, and gives what they put, as it comes.

    Raises RuntimeError when a process has failed.
    """
    context = multiprocessing.get_context("spawn")
    results: Any = context.Queue()
    count = min(len(items), 2 * (os.cpu_count() or 1))
    workers = [context.Process(target=_work, args=(work, items[number::count], results))
               for number in range(count)]
    for worker in workers:
        worker.start()
    left = count
    while left > 0:
        try:
            result = results.get(timeout=10)
        except queue.Empty:
            if any(worker.exitcode for worker in workers):
                raise RuntimeError("a process has failed") from None
            continue
        if result is None:
            left -= 1
        else:
            yield result
    for worker in workers:
        worker.join()


def _work(work: Callable[[list[Any], Callable[[Any], None]], None], share: list[Any],
          results: Any) -> None:
    work(share, results.put)
    results.put(None)
