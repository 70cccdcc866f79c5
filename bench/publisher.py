"""Compares velmora-publish with other programs that do the same work. See whole_process.py."""

import argparse
import os
import shutil

from common import (ROOT, TOOL, Server, Table, Usage, alternate, machine, make_small, publish, random_bytes,
                    replace, rounds_of, sh)


def make_mixed(place):
    """1 GiB of this machine's own programs and documents, of which some compress well and some don't."""
    tree = os.path.join(place, "mixed")
    if os.path.exists(tree):
        return tree
    os.makedirs(tree)
    left, number = 1 << 30, 0
    for top in ("/usr/lib", "/usr/share"):
        for folder, names, files in os.walk(top):
            names.sort()
            for name in sorted(files):
                path = os.path.join(folder, name)
                if os.path.islink(path) or not os.path.isfile(path) or not 0 < os.path.getsize(path) <= left:
                    continue
                shutil.copy(path, os.path.join(tree, f"f{number:06}.dat"))
                left -= os.path.getsize(path)
                number += 1
    return tree


def build(place, turns, table):
    tree = make_mixed(place)
    target = os.path.join(place, "built")

    def ours():
        shutil.rmtree(target, ignore_errors=True)
        return Usage([TOOL, "build", tree, target, "--compress", "always", "--effort", "6"], place)

    def peer():
        shutil.rmtree(target, ignore_errors=True)
        os.makedirs(target)
        return Usage(f"cd '{tree}' && find . -type f -print0 | xargs -0 sha1sum >'{target}/sums' && "
                     f"find . -type f -print0 | xargs -0 -n 500 sh -c 'for f; do pigz -z -c \"$f\" "
                     f">\"{target}/$f.z\"; done' sh", place)

    table.add(f"`build --effort 6`, 1 GiB in {len(os.listdir(tree)):,} files", "`sha1sum`, `pigz -z`", 1.1,
              alternate(turns, ours, [peer], warm=False), (ours, peer), 1024, "MiB")
    shutil.rmtree(target, ignore_errors=True)


def build_one(place, turns, table):
    mixed = make_mixed(place)
    tree = os.path.join(place, "mixed-one")
    target = os.path.join(place, "built")
    if not os.path.exists(tree):
        os.makedirs(tree)
        sh(f"cd '{mixed}' && cat f* > '{tree}/data.pak'")

    def ours():
        shutil.rmtree(target, ignore_errors=True)
        return Usage([TOOL, "build", tree, target, "--compress", "always", "--effort", "6"], place)

    def peer():
        shutil.rmtree(target, ignore_errors=True)
        os.makedirs(target)
        return Usage(f"sha1sum '{tree}/data.pak' && pigz -z -c '{tree}/data.pak' >'{target}/data.z'", place)

    table.add("`build --effort 6`, 1 GiB in one file", "`sha1sum`, `pigz -z`", 1.1,
              alternate(turns, ours, [peer], warm=False), (ours, peer), 1024, "MiB")
    shutil.rmtree(target, ignore_errors=True)


def verify(place, turns, table):
    tree = make_small(place, 10_000, lambda i: random_bytes(8192, i), "ten-thousand")
    publication = publish(tree, place, "--compress", "never")
    config = os.path.join(place, "curl.config")
    with Server(os.path.join(place, "nginx"), publication) as server:
        with open(config, "w") as file:
            for folder, _, names in os.walk(tree):
                for name in sorted(names):
                    path = os.path.relpath(os.path.join(folder, name), tree)
                    file.write(f'url = "http://127.0.0.1:{server.port}/game/{path}"\noutput = "/dev/null"\n')
        pair = (lambda: Usage([TOOL, "verify", f"http://127.0.0.1:{server.port}/game"], place),
                lambda: Usage(f"curl -s -Z --parallel-max 8 -K '{config}'", place))
        table.add("`verify`, 10,000 files of 8 KiB", "`curl -Z`, 8 at once", 1.1,
                  alternate(turns, pair[0], [pair[1]]), pair, 10_000, "file")


WORKS = {"build": build, "build-one": build_one, "verify": verify}


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("works", nargs="*", help=f"of {', '.join(WORKS)}; default all")
    parser.add_argument("--place", default=os.path.join(ROOT, "build/bench"))
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--turns", type=int, default=1)
    parser.add_argument("--document", action="store_true")
    options = parser.parse_args()
    table = Table()
    for place in rounds_of(options):
        for name in options.works or WORKS:
            WORKS[name](place, options.turns, table)
    if not options.document:
        print("\n".join([table.times(), table.costs()]))
        return
    document = os.path.join(ROOT, "docs/performance.md")
    replace(document, "publisher-machine", machine())
    replace(document, "publisher", table.times())
    replace(document, "publisher-costs", table.costs())


if __name__ == "__main__":
    main()
