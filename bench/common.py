"""What the benchmarks share: timing, a web server, data, the table."""

import hashlib
import os
import re
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
PROGRAM = os.path.join(ROOT, "build/native/VelmoraUpdate.exe")
TOOL = os.path.join(ROOT, "build/native/velmora-publish")


def sh(command, **options):
    subprocess.run(["bash", "-c", command], check=True, **options)


class Usage:
    """Wall seconds and peak memory of a command and of all that it started. time starts it, since a
    process that Python starts begins with Python's own peak."""

    def __init__(self, command, cwd, script=None):
        if isinstance(command, str):
            command = ["bash", "-c", command]
        with tempfile.NamedTemporaryFile() as peak:
            begin = time.monotonic()
            process = subprocess.run(["/usr/bin/time", "-f", "%M", "-o", peak.name, *command], cwd=cwd,
                                     input=(script or "").encode(), stdout=subprocess.DEVNULL,
                                     stderr=subprocess.PIPE)
            self.seconds = time.monotonic() - begin
            if process.returncode != 0:
                sys.exit(f"{command}: {process.stderr.decode(errors='replace')}")
            self.bytes = int(peak.read()) * 1024


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


def clean_installation(tree):
    for name in ("VelmoraUpdate.exe", "VelmoraUpdate.dat", "VelmoraUpdate.cvc", "session.log"):
        path = os.path.join(tree, name)
        if os.path.exists(path):
            os.remove(path)


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
