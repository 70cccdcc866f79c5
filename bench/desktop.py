"""What the desktop program costs beside the one for terminals: memory, start-up, and whether its window ever
stands still. Run by scripts/bench.sh desktop on a display of its own."""

import argparse
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time

from common import ROOT, Server, install_patcher, make_small, median_of, publish, replace

PROGRAMS = {"terminal": "build/native/VelmoraUpdate.exe", "desktop": "build/desktop/VelmoraUpdate.exe"}
ROUNDS = 7
PAGE = os.path.join(ROOT, "docs/examples/news")


def processes_below(pid):
    with open(f"/proc/{pid}/task/{pid}/children") as file:
        children = [int(child) for child in file.read().split()]
    return [pid] + [one for child in children for one in processes_below(child)]


def memory_of(pids):
    """What the processes add to the memory in use, in MiB: shared pages count in proportion."""
    kib = 0
    for pid in pids:
        with open(f"/proc/{pid}/smaps_rollup") as file:
            kib += sum(int(line.split()[1]) for line in file if line.startswith("Pss:"))
    return kib / 1024


def times_until(conditions):
    """When each of the conditions came true, in milliseconds from now."""
    begin = time.monotonic()
    after = [None] * len(conditions)
    while None in after:
        for i, condition in enumerate(conditions):
            if after[i] is None and condition():
                after[i] = (time.monotonic() - begin) * 1000
        if time.monotonic() - begin > 60:
            sys.exit(f"bench: still waiting after a minute: {after}")
        time.sleep(0.002)
    return after


class Start:
    """One start with nothing to do, from the program's start to its end. Times in milliseconds."""

    def __init__(self, kind, folder, server):
        log = os.path.join(folder, "session.log")
        if os.path.exists(log):
            os.remove(log)
        environment = dict(os.environ, LOOP_TURNS=os.path.join(folder, "turns"))
        if kind == "desktop":
            environment["LD_PRELOAD"] = os.path.join(ROOT, "build/desktop/bench/libloop_turns.so")
        pages = self.pages(server)
        process = subprocess.Popen(["./VelmoraUpdate.exe"], cwd=folder, env=environment, stdin=subprocess.PIPE,
                                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        if kind == "terminal":
            self.completed_after, = times_until([lambda: self.completed(log)])
        else:
            self.completed_after, self.page_after = times_until(
                [lambda: self.completed(log), lambda: self.pages(server) > pages])
            time.sleep(0.5)  # until the page is drawn
        self.own_memory = memory_of([process.pid])
        self.all_memory = memory_of(processes_below(process.pid))
        begin = time.monotonic()
        process.send_signal(signal.SIGTERM)
        process.wait()
        self.ended_after = (time.monotonic() - begin) * 1000
        if kind == "desktop":
            with open(environment["LOOP_TURNS"]) as file:
                self.longest_turn = max(float(each) for each in file)
            os.remove(environment["LOOP_TURNS"])

    @staticmethod
    def completed(log):
        try:
            with open(log, "rb") as file:
                return b"Update Completed" in file.read()
        except FileNotFoundError:
            return False

    @staticmethod
    def pages(server):
        with open(os.path.join(server.folder, "access.log")) as file:
            return file.read().count("/news/ ")


def measure(place, count):
    tree = make_small(place, count, lambda i: i.to_bytes(8, "big") * 12, "tree")
    publication = publish(tree, place, "--compress", "never")
    rows = {kind: [] for kind in PROGRAMS}
    page = f"location /news/ {{ alias {PAGE}/; index index.html; }}"
    with Server(os.path.join(place, "nginx"), publication, page) as server:
        for kind, program in PROGRAMS.items():
            folder = os.path.join(place, kind)
            shutil.copytree(tree, folder)
            install_patcher(folder, server.port)
            shutil.copy(os.path.join(ROOT, program), folder)
            settings = os.path.join(folder, "VelmoraUpdate.dat")
            with open(settings) as file:
                text = file.read().replace("about:blank", f"http://127.0.0.1:{server.port}/news/")
            with open(settings, "w") as file:
                file.write(text)
        for turn in range(ROUNDS + 1):  # the first isn't counted, and fills the caches
            for kind in PROGRAMS:
                start = Start(kind, os.path.join(place, kind), server)
                if turn > 0:
                    rows[kind].append(start)
    return rows


def line(what, rows, attribute, form, unit):
    cells = [median_of([getattr(start, attribute) for start in rows[kind]], form) + " " + unit
             if hasattr(rows[kind][0], attribute) else "" for kind in PROGRAMS]
    return f"| {what} | {' | '.join(cells)} |"


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--document", action="store_true")
    options = parser.parse_args()
    lines = ["| | Terminal | Desktop |\n|---|---|---|"]
    for count, name in ((10, "10 records"), (100_000, "100,000 records")):
        with tempfile.TemporaryDirectory(dir=os.path.join(ROOT, "build")) as place:
            rows = measure(place, count)
        lines += [
            line(f"{name}: run completed after", rows, "completed_after", ".0f", "ms"),
            line(f"{name}: page asked for after", rows, "page_after", ".0f", "ms"),
            line(f"{name}: longest turn of the window's loop", rows, "longest_turn", ".0f", "ms"),
            line(f"{name}: memory of the patcher", rows, "own_memory", ".0f", "MiB"),
            line(f"{name}: with the browser's processes", rows, "all_memory", ".0f", "MiB"),
            line(f"{name}: closed within", rows, "ended_after", ".0f", "ms"),
        ]
    print("\n".join(lines))
    if options.document:
        replace(os.path.join(ROOT, "docs/performance.md"), "desktop", "\n".join(lines) + "\n")


if __name__ == "__main__":
    main()
