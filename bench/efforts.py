"""What each effort of `velmora-publish build` makes of real games, next to other compressors. See bench.sh."""

import argparse
import os
import shutil

from common import ROOT, TOOL, Usage, median_of, replace, sh

GAMES = {"neverball-data": "games/neverball", "pingus-data": "games/pingus", "freedoom": "games/doom"}
EFFORTS = [1, 6, 9, 12]
# Each reads a file's name from $1 and writes a zlib stream.
PEERS = {"`pigz -z`": "pigz -z -c \"$1\"", "`zopfli`": "zopfli --zlib -c \"$1\""}
SLOW = "`zopfli`"  # measured once


def unpacked(game, place):
    sh(f"source scripts/debian_game.sh; unpack_game '{game}' '{place}'", cwd=ROOT)
    tree = os.path.join(place, "tree-" + game)
    shutil.rmtree(tree, ignore_errors=True)
    sh(f"cp -rL '{place}/{game}/usr/share/{GAMES[game]}' '{tree}'")
    return tree


def records(publication):
    """Path, transfer size and content size of what is compressed."""
    with open(os.path.join(publication, "hashlist.dat"), encoding="cp932") as file:
        for line in file:
            fields = line.rstrip("\n").removeprefix("FILE : ").split(", ")
            path = fields[0].removesuffix(".compressed")
            if line.startswith("FILE : ") and path != fields[0]:
                yield path.replace("\\", "/"), int(fields[2]), int(fields[4])


def built(tree, place, effort):
    target = os.path.join(place, "built")
    shutil.rmtree(target, ignore_errors=True)
    usage = Usage([TOOL, "build", tree, target, "--effort", str(effort)], place)
    return usage, list(records(target))


def compressed(tree, names, command, place):
    """All cores, one file each. Returns the usage and the bytes."""
    target = os.path.join(place, "peer")
    shutil.rmtree(target, ignore_errors=True)
    os.makedirs(target)
    list_file = os.path.join(place, "names")
    with open(list_file, "w") as file:
        file.write("\0".join(names))
    usage = Usage(f"cd '{tree}' && xargs -0 -n 1 -P \"$(nproc)\" -a '{list_file}' sh -c '"
                  f"{command} >\"{target}/$(echo \"$1\" | tr / _)\"' sh", place)
    return usage, sum(os.path.getsize(os.path.join(target, name)) for name in os.listdir(target))


class Line:
    def __init__(self, game, what):
        self.game, self.what, self.seconds, self.peak, self.bytes, self.of = game, what, [], 0, 0, 0

    def add(self, usage, size, of):
        self.seconds.append(usage.seconds)
        self.peak, self.bytes, self.of = max(self.peak, usage.bytes), size, of

    def text(self):
        return (f"| {self.game} | {self.what} | {self.bytes:,} | {100 * self.bytes / self.of:.2f} % |"
                f" {median_of(self.seconds, '.2f')} s | {self.peak / 2**20:.0f} MiB |")


def measure(game, place, rounds):
    tree = unpacked(game, place)
    # The sums are about the files that pay with the least effort.
    _, first = built(tree, place, EFFORTS[0])
    contents = {path: size for path, _, size in first}
    names, content = list(contents), sum(contents.values())
    lines = {what: Line(game, what) for what in [f"effort {effort}" for effort in EFFORTS] + list(PEERS)}
    for turn in range(rounds):
        for effort in EFFORTS:
            usage, made = built(tree, place, effort)
            sizes = contents | {path: size for path, size, _ in made}
            lines[f"effort {effort}"].add(usage, sum(sizes[name] for name in names), content)
        for peer, command in PEERS.items():
            if peer != SLOW or turn == 0:
                lines[peer].add(*compressed(tree, names, command, place), content)
    for line in lines.values():
        print(line.text(), flush=True)
    return [line.text() for line in lines.values()]


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("games", nargs="*", help=f"of {', '.join(GAMES)}; default all")
    parser.add_argument("--place", default=os.path.join(ROOT, "build/bench-efforts"))
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--document", action="store_true")
    options = parser.parse_args()
    os.makedirs(options.place, exist_ok=True)
    head = ["| Game | Compressor | Bytes of what compresses | of its content | Time | Peak memory |",
            "|---|---|---|---|---|---|"]
    lines = [line for game in options.games or GAMES for line in measure(game, options.place, options.rounds)]
    if options.document:
        replace(os.path.join(ROOT, "docs/performance.md"), "efforts", "\n".join(head + lines) + "\n")


if __name__ == "__main__":
    main()
