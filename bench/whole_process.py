"""Compares whole processes of the native patcher with other programs that do the same work.

Called by scripts/bench.sh, which installs what is needed. Each round creates all data anew in one folder,
serves it with a new nginx on a loopback port, and alternates our runs and the peer's, so that other load
affects both. The tables show the median of all rounds, the lowest and the highest. With --document they are
written to docs/performance.md.
"""

import argparse
import hashlib
import itertools
import math
import os
import shutil
import statistics
import sys

from common import (ROOT, Server, Table, Usage, alternate, clean_installation, forget, install_patcher,
                    machine, make_large, make_one, make_small, median_of, patch, publish, random_bytes,
                    replace, rounds_of, sh, sums, three_to_one)


# --- Tasks.


def full_check(place, turns, table):
    tree = make_large(place)
    for digest, name in (("sha1", "SHA-1"), ("md5", "MD5")):
        publication = publish(tree, place, "--compress", "never", "--hash", digest)
        with Server(os.path.join(place, "nginx"), publication) as server:
            install_patcher(tree, server.port)

            def ours():
                forget(tree)
                return patch(tree)

            commands = [f"openssl dgst -{digest} *.pak"]
            if digest == "sha1":
                commands.append(f"sha1sum -c --quiet '{sums(tree, 'sha1sum')}'")
            peers = [lambda c=c: Usage(c, tree) for c in commands]
            usages = alternate(turns, ours, peers)
            for command, peer, used, wanted in zip(commands, peers, usages[1:], [1.05, 0.5]):
                table.add(f"Full check, {name}, 1 GiB in 64 files", f"`{' '.join(command.split()[:2])}`",
                          wanted, (usages[0], used), (ours, peer), 1024, "MiB")
        clean_installation(tree)


def many_files(place, turns, table):
    tree = make_small(place, 100_000, lambda i: (b"%09d\n" % i) * 10, "small")
    publication = publish(tree, place, "--compress", "never")
    copy = tree + "-copy"
    if not os.path.exists(copy):
        sh(f"cp -a '{tree}' '{copy}'")
    listed = sums(tree, "sha1sum")
    with Server(os.path.join(place, "nginx"), publication) as server:
        install_patcher(tree, server.port)

        def check():
            forget(tree)
            return patch(tree)

        pair = check, lambda: Usage(f"sha1sum -c --quiet '{listed}'", tree)
        table.add("Full check, 100,000 files of 100 bytes", "`sha1sum -c`", 1.0,
                  alternate(turns, pair[0], [pair[1]]), pair, 100_000, "file")
        pair = lambda: patch(tree), lambda: Usage(f"rsync -an '{tree}/' '{copy}/'", place)
        table.add("Start with nothing to do, 100,000 records", "`rsync -an`", 0.7,
                  alternate(turns, pair[0], [pair[1]]), pair, 100_000, "record")
    clean_installation(tree)


def first_installation(place, turns, table):
    tree = make_small(place, 5_000, lambda i: random_bytes(8192, i), "medium")
    publication = publish(tree, place, "--compress", "never")
    config = os.path.join(place, "curl.config")
    numbers = itertools.count()

    # A new folder for each run: a file system may be slow to reuse the space of files just deleted.
    def folder():
        path = os.path.join(place, f"installed{next(numbers)}")
        os.mkdir(path)
        return path

    with Server(os.path.join(place, "nginx"), publication) as server:
        with open(config, "w") as file:
            for inner, _, names in os.walk(tree):
                for name in sorted(names):
                    path = os.path.relpath(os.path.join(inner, name), tree)
                    file.write(f'url = "http://127.0.0.1:{server.port}/game/{path}"\noutput = "{path}"\n')

        def ours():
            target = folder()
            install_patcher(target, server.port)
            return patch(target)

        def curl():
            return Usage(f"curl -s --create-dirs -K '{config}'", folder())

        table.add("First installation, 5,000 files of 8 KiB", "`curl -K`", 1.0,
                  alternate(turns, ours, [curl]), (ours, curl), 5_000, "file")


def one_file(place, turns, table):
    plain = make_one(place, "plain", lambda: (random_bytes(1 << 20, i) for i in range(512)))
    packed = make_one(place, "packed", three_to_one)
    works = [(plain, "never", "One file of 512 MiB", "`curl`, `sha1sum`",
              "curl -s -o fetched.bin {url} && sha1sum fetched.bin"),
             (packed, "always", "The same, compressed 3 to 1", "`curl` to `pigz -dz`, `sha1sum`",
              "curl -s {url}.compressed | pigz -dzc >fetched.bin && sha1sum fetched.bin")]
    for tree, compress, work, peer, command in works:
        publication = publish(tree, place, "--compress", compress)
        target = os.path.join(place, "installed")
        with Server(os.path.join(place, "nginx"), publication) as server:
            shutil.rmtree(target, ignore_errors=True)
            install_patcher(target, server.port)
            url = f"http://127.0.0.1:{server.port}/game/data.pak"

            def ours():
                forget(target, keep_files=False)
                return patch(target)

            def others_way():
                if os.path.exists(os.path.join(place, "fetched.bin")):
                    os.remove(os.path.join(place, "fetched.bin"))
                return Usage(command.format(url=url), place)

            table.add(work, peer, 0.8, alternate(turns, ours, [others_way]), (ours, others_way), 512, "MiB")
        shutil.rmtree(target)


# --- What a crowd costs the server and the network.


class Crowd:
    """200 patchers, and 200 curl that fetch the same files. Each patcher runs as a user of its own: one user
    can't run two. The server also listens on port 80, where patchers ask for enable.cdn."""

    def __init__(self):
        self.costs = {}

    def measure(self, place):
        if os.geteuid() != 0:
            print("200 patchers at once: needs root, for 200 users; left out", file=sys.stderr)
            return
        tree = make_small(place, 10, lambda i: random_bytes(1 << 20, i), "ten")
        publication = publish(tree, place, "--compress", "never")
        folder = os.path.join(place, "crowd")
        patcher = "bash -c 'printf \"wait\\nclose\\n\" | ./VelmoraUpdate.exe >/dev/null'"
        # A new server for each measurement, so that its log and processor time belong to that one.
        for name in ("200 patchers", "200 `curl`"):
            with Server(os.path.join(place, "nginx"), publication, "listen 127.0.0.1:80;") as server:
                urls = " ".join(f"-o f{i}.dat http://127.0.0.1:{server.port}/game/d000/f{i:07}.dat"
                                for i in range(10))
                self.prepare(folder, server.port)
                command = patcher if name == "200 patchers" else f"curl -s {urls}"
                usage = Usage(f"for i in $(seq 0 199); do (cd {folder}/$i && exec setpriv --reuid "
                              f"$((20000 + i)) --clear-groups {command}) & done; wait", place)
                self.note(name, usage, server)
            if name == "200 patchers":
                self.expect_completion(folder)
        shutil.rmtree(folder)

    @staticmethod
    def prepare(folder, port):
        shutil.rmtree(folder, ignore_errors=True)
        for i in range(200):
            install_patcher(os.path.join(folder, str(i)), port)
            sh(f"chown -R {20000 + i} '{folder}/{i}'")

    @staticmethod
    def expect_completion(folder):
        for i in range(200):
            with open(os.path.join(folder, str(i), "session.log"), "rb") as log:
                if b"Update Completed" not in log.read():
                    sys.exit(f"patcher {i} of the crowd didn't complete")

    def note(self, name, usage, server):
        log = server.log()
        self.costs.setdefault(name, []).append(
            (len(log), len({connection for connection, _ in log}), sum(sent for _, sent in log) / 2**20,
             server.processor_seconds(), usage.processor, usage.seconds))
        print(name, self.costs[name][-1], flush=True)

    def text(self):
        lines = ["| Each fetches 10 files of 1 MiB | Requests | Connections | MiB sent | nginx's processor time |"
                 " Their own processor time | Until the last has ended |", "|---|---|---|---|---|---|---|"]
        for name, costs in self.costs.items():
            requests, connections, sent, server, own, seconds = zip(*costs)
            lines.append(f"| {name} | {statistics.median(requests):,.0f} | {statistics.median(connections):,.0f} |"
                         f" {statistics.median(sent):,.1f} | {median_of(server, '.2f')} s |"
                         f" {median_of(own, '.2f')} s | {median_of(seconds, '.2f')} s |")
        return "\n".join(lines) + "\n"


# --- Growth.


def growth(place, turns):
    """Seconds for each record of a start with nothing to do, by the number of records."""
    empty = hashlib.sha1(b"").hexdigest().upper()
    points = []
    for count in (1_000, 10_000, 100_000, 1_000_000):
        tree = make_small(place, count, lambda i: b"", f"empty{count}")
        publication = os.path.join(place, f"empty{count}-list")
        if not os.path.exists(publication):
            os.makedirs(publication)
            with open(os.path.join(publication, "hashlist.dat"), "w") as file:
                for i in range(count):
                    file.write(f"FILE : d{i // 1000:03}\\f{i:07}.dat, {empty}, 0, {empty}, 0\n")
        with Server(os.path.join(place, "nginx"), publication) as server:
            install_patcher(tree, server.port)
            forget(tree)
            patch(tree)
            usages = [patch(tree) for _ in range(turns)]
        points.append((count, statistics.median(usage.seconds for usage in usages),
                       max(usage.bytes for usage in usages)))
        print(f"{count} records: {points[-1][1]:.3f} s, {points[-1][2] / 2**20:.0f} MiB", flush=True)
    return points


def growth_text(points):
    lines = ["| Records | Start with nothing to do | For each record | Peak memory |", "|---|---|---|---|"]
    for count, seconds, memory in points:
        lines.append(f"| {count:,} | {seconds:.3f} s | {seconds / count * 1e6:.2f} µs |"
                     f" {memory / 2**20:.0f} MiB |")
    return "\n".join(lines) + "\n"


def growth_plot(points):
    """Microseconds for each record, over the number of records on a logarithmic scale."""
    width, height, left, bottom = 560, 300, 60, 50
    top = max(seconds / count * 1e6 for count, seconds, _ in points) * 1.15
    def at(count, value):
        x = left + (math.log10(count) - 3) / 3 * (width - left - 20)
        y = height - bottom - value / top * (height - bottom - 20)
        return x, y

    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" '
             'font-family="sans-serif" font-size="12">',
             f'<rect width="{width}" height="{height}" fill="white"/>']
    step = 10 ** math.floor(math.log10(top / 3))
    step *= 5 if top / step > 12 else 2 if top / step > 6 else 1
    for k in range(int(top / step) + 1):
        x, y = at(1000, k * step)
        parts.append(f'<path d="M{x:.0f} {y:.0f}H{width - 20}" stroke="#ddd"/>')
        parts.append(f'<text x="{x - 8:.0f}" y="{y + 4:.0f}" text-anchor="end">{k * step:g}</text>')
    corners = [at(count, seconds / count * 1e6) for count, seconds, _ in points]
    line = " ".join(f"{x:.1f},{y:.1f}" for x, y in corners)
    parts.append(f'<polyline points="{line}" fill="none" stroke="#1f5fa8" stroke-width="2"/>')
    for (x, y), (count, seconds, _) in zip(corners, points):
        parts.append(f'<circle cx="{x:.1f}" cy="{y:.1f}" r="4" fill="#1f5fa8"/>')
        parts.append(f'<text x="{x:.0f}" y="{height - bottom + 18}" text-anchor="middle">{count:,}</text>')
    parts.append(f'<text x="{width / 2:.0f}" y="{height - 10}" text-anchor="middle">records</text>')
    parts.append(f'<text x="16" y="{height / 2:.0f}" text-anchor="middle" '
                 f'transform="rotate(-90 16 {height / 2:.0f})">µs for each record</text></svg>')
    return "\n".join(parts) + "\n"


WORKS = {"check": full_check, "many": many_files, "install": first_installation, "one": one_file}


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("works", nargs="*", help=f"of {', '.join([*WORKS, 'crowd', 'growth'])}; default all")
    parser.add_argument("--place", default=os.path.join(ROOT, "build/bench"))
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--turns", type=int, default=3)
    parser.add_argument("--document", action="store_true")
    options = parser.parse_args()
    works = options.works or [*WORKS, "crowd", "growth"]
    table, many = Table(), Crowd()
    for place in rounds_of(options):
        for name in works:
            if name in WORKS:
                WORKS[name](place, options.turns, table)
        if "crowd" in works:
            many.measure(place)
    points = growth(place, options.turns) if "growth" in works else []
    if not options.document:
        print("\n".join([table.times(), table.costs(), many.text(), growth_text(points)]))
        return
    document = os.path.join(ROOT, "docs/performance.md")
    replace(document, "machine", machine())
    replace(document, "table", table.times())
    replace(document, "costs", table.costs())
    if many.costs:
        replace(document, "crowd", many.text())
    replace(document, "growth", growth_text(points))
    with open(os.path.join(ROOT, "docs/performance-growth.svg"), "w") as file:
        file.write(growth_plot(points))


if __name__ == "__main__":
    main()
