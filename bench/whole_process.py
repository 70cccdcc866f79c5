"""Whole-process figures of the native patcher beside other programs that do the same work.

Called by scripts/bench.sh, which installs what is needed. Makes its data below one folder, serves it
with nginx on a loopback port, and alternates runs of ours and of the peer's, so that whatever else the
machine does hits both. Prints one table; with --document it replaces the table in docs/performance.md.
"""

import argparse
import hashlib
import os
import re
import shutil
import socket
import statistics
import subprocess
import sys
import time
import zlib

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
PROGRAM = os.path.join(ROOT, "build/native/VelmoraUpdate.exe")
TOOL = os.path.join(ROOT, "build/native/velmora-publish")


def sh(command, **options):
    subprocess.run(["bash", "-c", command], check=True, **options)


class Usage:
    """Wall seconds and peak memory of a command and of all that it started."""

    def __init__(self, command, cwd, script=None):
        stdin = subprocess.PIPE if script else subprocess.DEVNULL
        begin = time.monotonic()
        process = subprocess.Popen(command, cwd=cwd, stdin=stdin, stdout=subprocess.DEVNULL,
                                   stderr=subprocess.PIPE, shell=isinstance(command, str),
                                   executable="/bin/bash" if isinstance(command, str) else None)
        if script:
            process.stdin.write(script.encode())
            process.stdin.close()
        errors = process.stderr.read()
        _, status, usage = os.wait4(process.pid, 0)
        self.seconds = time.monotonic() - begin
        self.bytes = usage.ru_maxrss * 1024
        process.returncode = os.waitstatus_to_exitcode(status)
        if process.returncode != 0:
            sys.exit(f"{command}: {errors.decode(errors='replace')}")


class Server:
    """nginx for /game/, in the configuration that the documentation recommends."""

    def __init__(self, folder, publication):
        self.process = subprocess.Popen(
            ["bash", "-c", f'source "{ROOT}/scripts/web_server.sh"; trap stop_web_server EXIT;'
             f'start_web_server "{folder}" "{publication}" || exit 1; echo "$port"; read -r _'],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.port = int(self.process.stdout.readline())

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.stdin.close()
        self.process.wait()


def settings(port):
    return f"[Setting]\r\nServerAddress=127.0.0.1:{port}\r\nData=/game\r\nInformation=about:blank\r\n"


def install_patcher(folder, port):
    os.makedirs(folder, exist_ok=True)
    shutil.copy(PROGRAM, folder)
    with open(os.path.join(folder, "VelmoraUpdate.dat"), "w", newline="") as file:
        file.write(settings(port))


def patch(folder):
    usage = Usage(["./VelmoraUpdate.exe"], folder, "wait\nclose\n")
    with open(os.path.join(folder, "session.log"), "rb") as log:
        if b"Update Completed" not in log.read():
            sys.exit(f"{folder}: the run didn't complete")
    return usage


def forget(folder, keep_files=True):
    """Makes the next run of the installation start without its cache, or without anything."""
    if keep_files:
        try:
            os.remove(os.path.join(folder, "VelmoraUpdate.cvc"))
        except FileNotFoundError:
            pass
        return
    for name in os.listdir(folder):
        if name in ("VelmoraUpdate.exe", "VelmoraUpdate.dat"):
            continue
        path = os.path.join(folder, name)
        shutil.rmtree(path) if os.path.isdir(path) else os.remove(path)


def alternate(runs, ours, peers, warm=True):
    """Medians of ours and of each peer, their runs taking turns."""
    times = [[] for _ in range(len(peers) + 1)]
    memory = 0
    for turn in range(runs + (1 if warm else 0)):
        for place, run in enumerate([ours, *peers]):
            usage = run()
            if warm and turn == 0:
                continue
            times[place].append(usage.seconds)
            if place == 0:
                memory = max(memory, usage.bytes)
    medians = [statistics.median(each) for each in times]
    return medians[0], medians[1:], memory


class Table:
    def __init__(self):
        self.rows = []

    def add(self, work, ours, peer, peer_seconds, wanted, memory):
        ratio = ours / peer_seconds
        reached = "yes" if ratio <= wanted else "**no**"
        self.rows.append(f"| {work} | {ours:.2f} s | {peer} | {peer_seconds:.2f} s | {ratio:.2f} |"
                         f" {wanted:.2f} | {reached} | {memory / 2**20:.0f} MiB |")
        print(self.rows[-1], flush=True)

    def text(self):
        head = ("| Work | Ours | Peer | Peer's | Ratio | Wanted | Reached | Ours, peak memory |\n"
                "|---|---|---|---|---|---|---|---|\n")
        return head + "\n".join(self.rows) + "\n"


# --- Data.


def random_bytes(count, seed):
    """The same bytes on every machine, and none that compress."""
    return hashlib.shake_128(str(seed).encode()).digest(count)


def make_large(place):
    """64 files of 16 MiB."""
    tree = os.path.join(place, "large")
    if not os.path.exists(tree):
        os.makedirs(tree)
        for i in range(64):
            with open(os.path.join(tree, f"part{i:02}.pak"), "wb") as file:
                file.write(random_bytes(1 << 24, i))
    return tree


def make_small(place, count, content, name):
    tree = os.path.join(place, name)
    if not os.path.exists(tree):
        for folder in range((count + 999) // 1000):
            os.makedirs(os.path.join(tree, f"d{folder:03}"))
        for i in range(count):
            with open(os.path.join(tree, f"d{i // 1000:03}", f"f{i:07}.dat"), "wb") as file:
                file.write(content(i))
    return tree


def make_one(place, name, content):
    tree = os.path.join(place, name)
    if not os.path.exists(tree):
        os.makedirs(tree)
        with open(os.path.join(tree, "data.pak"), "wb") as file:
            for piece in content():
                file.write(piece)
    return tree


def three_to_one():
    """Pieces that zlib makes about a third of: random bytes in between of repeated ones."""
    for i in range(512):
        noise = random_bytes(1 << 15, i)
        yield b"".join(noise[k:k + 320] + bytes(704) for k in range(0, 1 << 15, 32))[:1 << 20]


def publish(tree, place, *options):
    """The publication of the tree beside it, made once."""
    target = os.path.join(place, os.path.basename(tree) + "-" + "-".join(options).replace("-", ""))
    if not os.path.exists(os.path.join(target, "hashlist.dat")):
        subprocess.run([TOOL, "build", tree, target, *options], check=True, stdout=subprocess.DEVNULL)
    return target


def sums(tree, tool):
    path = tree + "." + tool
    if not os.path.exists(path):
        sh(f"cd '{tree}' && find . -type f -name '*.[dp]a[tk]' ! -name 'VelmoraUpdate.*' -print0 |"
           f" sort -z | xargs -0 {tool} > '{path}'")
    return path


# --- Works.


def full_check(place, runs, table):
    tree = make_large(place)
    peers = {"sha1": "SHA-1", "md5": "MD5"}
    for digest, name in peers.items():
        publication = publish(tree, place, "--compress", "never", "--hash", digest)
        with Server(os.path.join(place, "nginx"), publication) as server:
            install_patcher(tree, server.port)

            def ours():
                forget(tree)
                return patch(tree)

            commands = [f"openssl dgst -{digest} *.pak"]
            if digest == "sha1":
                commands.append(f"sha1sum -c --quiet '{sums(tree, 'sha1sum')}'")
            mine, others, memory = alternate(
                runs, ours, [lambda c=c: Usage(c, tree) for c in commands])
            wanted = [1.05, 0.5]
            for command, seconds, limit in zip(commands, others, wanted):
                table.add(f"Full check, {name}, 1 GiB in 64 files", mine,
                          f"`{' '.join(command.split()[:2])}`", seconds, limit, memory)
        clean_installation(tree)


def clean_installation(tree):
    for name in ("VelmoraUpdate.exe", "VelmoraUpdate.dat", "VelmoraUpdate.cvc", "session.log"):
        path = os.path.join(tree, name)
        if os.path.exists(path):
            os.remove(path)


def many_files(place, runs, table):
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

        mine, others, memory = alternate(
            runs, check, [lambda: Usage(f"sha1sum -c --quiet '{listed}'", tree)])
        table.add("Full check, 100,000 files of 100 bytes", mine, "`sha1sum -c`", others[0], 1.0, memory)
        mine, others, memory = alternate(
            runs, lambda: patch(tree), [lambda: Usage(f"rsync -an '{tree}/' '{copy}/'", place)])
        table.add("Start with nothing to do, 100,000 records", mine, "`rsync -an`", others[0], 0.7, memory)
    clean_installation(tree)


def first_installation(place, runs, table):
    tree = make_small(place, 5_000, lambda i: random_bytes(8192, i), "medium")
    publication = publish(tree, place, "--compress", "never")
    target = os.path.join(place, "installed")
    config = os.path.join(place, "curl.config")
    with Server(os.path.join(place, "nginx"), publication) as server:
        shutil.rmtree(target, ignore_errors=True)
        install_patcher(target, server.port)
        with open(config, "w") as file:
            for folder, _, names in os.walk(tree):
                for name in sorted(names):
                    path = os.path.relpath(os.path.join(folder, name), tree)
                    file.write(f'url = "http://127.0.0.1:{server.port}/game/{path}"\n'
                               f'output = "{place}/fetched/{path}"\n')

        def ours():
            forget(target, keep_files=False)
            return patch(target)

        def curl():
            shutil.rmtree(os.path.join(place, "fetched"), ignore_errors=True)
            return Usage(f"curl -s --create-dirs -K '{config}'", place)

        mine, others, memory = alternate(runs, ours, [curl])
        table.add("First installation, 5,000 files of 8 KiB", mine, "`curl -K`", others[0], 1.0, memory)
    shutil.rmtree(target)


def one_file(place, runs, table):
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

            mine, others, memory = alternate(runs, ours, [others_way])
            table.add(work, mine, peer, others[0], 0.8, memory)
        shutil.rmtree(target)


def crowd(place, runs, table):
    """200 patchers, each of a user of its own, since those of one user keep each other out."""
    if os.geteuid() != 0:
        print("200 patchers at once: needs root, for 200 users; left out", file=sys.stderr)
        return
    tree = make_small(place, 10, lambda i: random_bytes(1 << 20, i), "ten")
    publication = publish(tree, place, "--compress", "never")
    folder = os.path.join(place, "crowd")
    with Server(os.path.join(place, "nginx"), publication) as server:
        urls = " ".join(f"-o f{i}.dat http://127.0.0.1:{server.port}/game/d000/f{i:07}.dat"
                        for i in range(10))

        def prepare():
            shutil.rmtree(folder, ignore_errors=True)
            for i in range(200):
                install_patcher(os.path.join(folder, str(i)), server.port)
                sh(f"chown -R {20000 + i} '{folder}/{i}'")

        def all_at_once(command):
            prepare()
            return Usage(f"for i in $(seq 0 199); do (cd {folder}/$i && exec setpriv "
                         f"--reuid $((20000 + i)) --clear-groups {command}) & done; wait", place)

        def ours():
            usage = all_at_once("bash -c 'printf \"wait\\nclose\\n\" | ./VelmoraUpdate.exe >/dev/null'")
            for i in range(200):
                with open(os.path.join(folder, str(i), "session.log"), "rb") as log:
                    if b"Update Completed" not in log.read():
                        sys.exit(f"patcher {i} of the crowd didn't complete")
            return usage

        mine, others, memory = alternate(
            runs, ours, [lambda: all_at_once(f"curl -s {urls}")], warm=False)
        table.add("200 at once on one nginx, 10 MiB each", mine, "200 `curl`", others[0], 1.2, memory)
    shutil.rmtree(folder)


# --- Growth.


def growth(place, runs):
    """Seconds per record of a start with nothing to do, by the number of records."""
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
            usages = [patch(tree) for _ in range(runs)]
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
    """Microseconds for each record over the number of records, the latter on a logarithmic scale."""
    width, height, left, bottom = 560, 300, 60, 50
    top = max(seconds / count * 1e6 for count, seconds, _ in points) * 1.15
    import math

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


# --- Document.


def machine():
    cpu = "unknown"
    with open("/proc/cpuinfo") as file:
        for line in file:
            if line.startswith("model name"):
                cpu = line.split(":", 1)[1].strip()
                break
    memory = os.sysconf("SC_PAGE_SIZE") * os.sysconf("SC_PHYS_PAGES") / 2**30
    kernel = os.uname().release
    return (f"{time.strftime('%Y-%m-%d')}: {os.cpu_count()} cores of {cpu}, {memory:.0f} GiB, Linux {kernel},"
            f" {subprocess.getoutput('g++ --version').splitlines()[0]}\n")


def replace(document, mark, text):
    """Puts text between the document's lines <!-- mark --> and <!-- /mark -->."""
    with open(document) as file:
        old = file.read()
    pattern = re.compile(rf"(<!-- {mark} -->\n).*?(<!-- /{mark} -->)", re.S)
    if not pattern.search(old):
        sys.exit(f"{document} has no place for {mark}")
    with open(document, "w") as file:
        file.write(pattern.sub(lambda m: m.group(1) + text + m.group(2), old))


WORKS = {"check": full_check, "many": many_files, "install": first_installation, "one": one_file,
         "crowd": crowd}


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("works", nargs="*", help=f"of {', '.join([*WORKS, 'growth'])}; default all")
    parser.add_argument("--place", default=os.path.join(ROOT, "build/bench"))
    parser.add_argument("--runs", type=int, default=5)
    parser.add_argument("--document", action="store_true")
    options = parser.parse_args()
    works = options.works or [*WORKS, "growth"]
    os.makedirs(options.place, exist_ok=True)
    os.chmod(options.place, 0o755)
    table = Table()
    for name in works:
        if name in WORKS:
            WORKS[name](options.place, options.runs, table)
    points = growth(options.place, options.runs) if "growth" in works else []
    if options.document:
        document = os.path.join(ROOT, "docs/performance.md")
        replace(document, "machine", machine())
        replace(document, "table", table.text())
        if points:
            replace(document, "growth", growth_text(points))
            with open(os.path.join(ROOT, "docs/performance-growth.svg"), "w") as file:
                file.write(growth_plot(points))


if __name__ == "__main__":
    main()
