"""Shared by the benchmarks: measuring, a web server, data, the tables."""

import hashlib
import os
import re
import resource
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
    """Wall seconds, processor seconds and peak memory of a command and all its children. It is started by
    `time`: a process that Python starts itself begins with Python's own peak."""

    under = []  # the words of a program that watches the command

    def __init__(self, command, cwd, script=None):
        if isinstance(command, str):
            command = ["bash", "-c", command]
        with tempfile.NamedTemporaryFile() as peak:
            words = ["/usr/bin/time", "-f", "%M", "-o", peak.name, *Usage.under, *command]
            begin, spent = time.monotonic(), processor_seconds()
            process = subprocess.run(words, cwd=cwd, input=(script or "").encode(),
                                     stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
            self.seconds = time.monotonic() - begin
            self.processor = processor_seconds() - spent
            if process.returncode != 0:
                sys.exit(f"{command}: {process.stderr.decode(errors='replace')}")
            self.bytes = int(peak.read()) * 1024


def processor_seconds():
    usage = resource.getrusage(resource.RUSAGE_CHILDREN)
    return usage.ru_utime + usage.ru_stime


def watched(run, words):
    """What a tracing program with an option -o writes about the run."""
    with tempfile.NamedTemporaryFile("r") as output:
        Usage.under = [*words, "-o", output.name]
        try:
            run()
        finally:
            Usage.under = []
        return output.read()


def system_calls(run):
    return int(watched(run, ["strace", "-f", "-c"]).strip().splitlines()[-1].split()[3])


def instructions(run):
    """None if the machine doesn't count them, as many virtual machines don't."""
    if not shutil.which("perf"):
        return None
    counted = re.search(r"^(\d+),", watched(run, ["perf", "stat", "-e", "instructions", "-x", ","]), re.M)
    return int(counted.group(1)) if counted else None


class Server:
    """nginx for /game/, in the configuration that the documentation recommends."""

    def __init__(self, folder, publication, *configuration):
        self.folder = folder
        lines = " ".join(f"'{line}'" for line in configuration)
        self.process = subprocess.Popen(
            ["bash", "-c", f'source "{ROOT}/scripts/web_server.sh"; trap stop_web_server EXIT;'
             f'start_web_server "{folder}" "{publication}" {lines} || exit 1; echo "$port"; read -r _'],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.port = int(self.process.stdout.readline())

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.stdin.close()
        self.process.wait()

    def processor_seconds(self):
        with open(os.path.join(self.folder, "pid")) as file:
            master = file.read().strip()
        with open(f"/proc/{master}/task/{master}/children") as file:
            workers = file.read().split()
        spent = 0
        for worker in workers:
            with open(f"/proc/{worker}/schedstat") as file:
                spent += int(file.read().split()[0])
        return spent / 1e9

    def log(self):
        """Connection and bytes sent of each request."""
        with open(os.path.join(self.folder, "access.log")) as file:
            return [tuple(map(int, line.split()[-2:])) for line in file]


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
    """Deletes the cache of the installation, or everything in it, before the next run."""
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


def alternate(turns, ours, peers, warm=True):
    """The usages of ours and of each peer; their runs alternate."""
    runs = [ours, *peers]
    if warm:
        for run in runs:
            run()
    usages = [[run() for run in runs] for _ in range(turns)]
    return [list(each) for each in zip(*usages)]


def median_of(values, form):
    """The median, with the lowest and the highest value."""
    return f"{statistics.median(values):{form}} ({min(values):{form}} to {max(values):{form}})"


class Row:
    """A task next to one peer: the medians of each round, and the cost of one unit of the task."""

    def __init__(self, work, peer, wanted, count, unit):
        self.work, self.peer, self.wanted, self.count, self.unit = work, peer, wanted, count, unit
        self.seconds, self.processor, self.calls, self.instructions = ([], []), ([], []), [], []
        self.memory = 0

    def add(self, ours, peers):
        for side, usages in enumerate((ours, peers)):
            self.seconds[side].append(statistics.median(usage.seconds for usage in usages))
            self.processor[side].append(statistics.median(usage.processor for usage in usages))
        self.memory = max(self.memory, *(usage.bytes for usage in ours))

    def ratios(self):
        return [mine / other for mine, other in zip(*self.seconds)]

    def time_line(self):
        ratio = statistics.median(self.ratios())
        return (f"| {self.work} | {median_of(self.seconds[0], '.2f')} s | {self.peer} |"
                f" {median_of(self.seconds[1], '.2f')} s | {median_of(self.ratios(), '.2f')} |"
                f" {self.wanted:.2f} | {'yes' if ratio <= self.wanted else '**no**'} |"
                f" {self.memory / 2**20:.0f} MiB |")

    def cost_line(self):
        processor = [f"{statistics.median(side) / self.count * 1e6:,.1f} µs" for side in self.processor]
        calls = [f"{count / self.count:,.1f}" for count in self.calls]
        executed = [f"{count / self.count:,.0f}" for count in self.instructions if count]
        return f"| {self.work} | {self.unit} | {self.peer} | {' | '.join(processor + calls + executed)} |"


class Table:
    def __init__(self):
        self.rows = {}

    def add(self, work, peer, wanted, usages, runs, count, unit):
        """One round: usages of ours and of the peer, as alternate returns them, and the runs themselves."""
        row = self.rows.setdefault((work, peer), Row(work, peer, wanted, count, unit))
        row.add(*usages)
        if not row.calls:
            row.calls = [system_calls(run) for run in runs]
            row.instructions = [instructions(run) for run in runs]
        print(row.time_line(), flush=True)

    def times(self):
        head = ("| Work | Ours | Peer | Peer's | Ratio | Wanted | Reached | Ours, peak memory |\n"
                "|---|---|---|---|---|---|---|---|\n")
        return head + "".join(row.time_line() + "\n" for row in self.rows.values())

    def costs(self):
        counted = any(any(row.instructions) for row in self.rows.values())
        names = ["processor time", "system calls"] + ["instructions"] * counted
        head = "| Work | For each | Peer |" + "".join(f" {name}, ours | peer's |" for name in names)
        lines = [row.cost_line() for row in self.rows.values()]
        return "\n".join([head, "|---" * (3 + 2 * len(names)) + "|", *lines]) + "\n"


# --- Data.


def random_bytes(count, seed):
    """The same bytes on every machine; they don't compress."""
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
    """Blocks that zlib compresses to about a third: random bytes between repeated ones."""
    for i in range(512):
        noise = random_bytes(1 << 15, i)
        yield b"".join(noise[k:k + 320] + bytes(704) for k in range(0, 1 << 15, 32))[:1 << 20]


def publish(tree, place, *options):
    """The publication of the tree, next to it, made once."""
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


def rounds_of(options):
    """The folder of each round, empty."""
    for _ in range(options.rounds):
        shutil.rmtree(options.place, ignore_errors=True)
        os.makedirs(options.place)
        os.chmod(options.place, 0o755)
        yield options.place


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
