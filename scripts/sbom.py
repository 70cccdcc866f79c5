#!/usr/bin/env python3
"""Writes what is linked into released programs as SPDX 2.3, in JSON.

  sbom.py NAME VERSION COMMIT PROGRAM:FILE:BUILD...

PROGRAM is a target that was built with VELMORA_PACKAGE in the folder BUILD; FILE is what is released of it.
What is linked in comes from the linker's map and from the headers that the compiler read, and the versions
from the Debian packages that these files belong to. Fails if one belongs to a package that isn't in the table
below, so that no part can be forgotten. The time is SOURCE_DATE_EPOCH.
"""
import datetime
import hashlib
import json
import os
import pathlib
import re
import subprocess
import sys

GCC = ("GCC runtime libraries", "GPL-3.0-or-later WITH GCC-exception-3.1")
MINGW = ("mingw-w64 runtime", "ZPL-2.1")
ZLIB = ("zlib", "Zlib")

# Debian packages, as patterns, and the part of a program that their files are.
PARTS = [
    (r"g(cc|\+\+)-mingw-w64-.*|lib(stdc\+\+|gcc)-\d+-dev|gcc-\d+|g\+\+-\d+|libstdc\+\+6|libgcc-s1", GCC),
    (r"mingw-w64-.*", MINGW),
    (r"zlib1g(-dev)?|libz-mingw-w64-dev", ZLIB),
    (r"libdeflate-dev", ("libdeflate", "MIT")),
    (r"libcli11-dev", ("CLI11", "BSD-3-Clause")),
    (r"nlohmann-json3-dev", ("JSON for Modern C++", "MIT")),
    (r"libcurl4.*", ("curl", "curl")),
    (r"libssl.*", ("OpenSSL", "Apache-2.0")),
    (r"libncurses-dev|libtinfo6", ("ncurses", "X11-distribute-modifications-variant")),
    (r"libc6(-dev)?", ("GNU C Library", "LGPL-2.1-or-later")),
    (r"libgtk-4-(1|dev)", ("GTK", "LGPL-2.1-or-later")),
    (r"lib(webkit|javascriptcore)gtk-6\.0-.*", ("WebKitGTK", "LGPL-2.1-or-later AND BSD-2-Clause")),
    (r"libglib2\.0-.*", ("GLib", "LGPL-2.1-or-later")),
    (r"libpango.*", ("Pango", "LGPL-2.0-or-later")),
    # Only their headers' types are used, through GTK's and WebKit's.
    (r"lib(cairo2|gdk-pixbuf-2\.0|graphene-1\.0|harfbuzz|soup-3\.0)-.*|libcairo2", None),
    # The kernel's interface: types and numbers only, no code.
    (r"linux-libc-dev", None),
]
# Parts without a library of their own, whose code is in their headers.
IN_HEADERS = {"CLI11", "JSON for Modern C++", GCC[0]}


def output(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def debian_packages(files):
    """The package of each file. Some packages name their files without /usr, where they are today."""
    names = {name: file for file in files for name in (file, file.removeprefix("/usr"))}
    found = subprocess.run(["dpkg", "-S", *sorted(names)], capture_output=True, text=True, check=False).stdout
    packages = {}
    for line in found.splitlines():
        package, _, name = line.partition(": ")
        if name in names:
            packages[names[name]] = package.split(",")[0].split(":")[0]
    if missing := set(files) - set(packages):
        sys.exit(f"sbom.py: linked in, and of no package: {', '.join(sorted(missing))}")
    return packages


def needed_libraries(program, build):
    """The shared libraries that the program asks for; none of a Windows program, whose are the system's."""
    file = next(path for path in (build / program, build / f"{program}.exe") if path.exists())
    if file.read_bytes()[:4] != b"\x7fELF":
        return ()
    return tuple(re.findall(r"\(NEEDED\).*\[(.*)\]", output("readelf", "-dW", str(file))))


def linked_files(program, build):
    """What the linker used, from its map: files from outside of the build, and names of files within it."""
    text = (build / f"{program}.map").read_text(errors="replace")
    loaded = set(re.findall(r"^LOAD (\S+)", text, re.MULTILINE))
    # An archive counts only if a member of it was needed.
    needed = set(re.findall(r"^(\S+\.a)\(\S+\)", text, re.MULTILINE))
    shared = needed_libraries(program, build)
    outside, inside = set(), set()
    for name in loaded:
        path = (build / name).resolve()
        if build.resolve() in path.parents:
            inside.add(str(path.relative_to(build.resolve())))
        elif ".so" in path.name and not path.name.startswith(shared):
            continue
        elif path.suffix != ".a" or name in needed:
            outside.add(path)
    return outside, inside


def read_headers(build, inside):
    """The headers from outside of the project that the compiler read for these objects and archives."""
    of_archives = tuple(f"CMakeFiles/{pathlib.Path(name).stem[3:]}.dir/" for name in inside if name.endswith(".a"))
    headers, counts = set(), False
    for line in output("ninja", "-C", str(build), "-t", "deps").splitlines():
        if line.startswith("    "):
            path = pathlib.Path(build, line.strip()).resolve()
            if counts and str(path).startswith("/usr/"):
                headers.add(path)
        elif line:
            name = line.split(":")[0]
            counts = name in inside or any(part in name for part in of_archives)
    return headers


def part_of(package, path):
    for pattern, part in PARTS:
        if re.fullmatch(pattern, package):
            return part
    sys.exit(f"sbom.py: {path} of the package {package} is linked in, and no part of the table")


def parts_of(program, build):
    """Relations of the program: (part, package, relation)."""
    linked, inside = linked_files(program, build)
    headers = read_headers(build, inside)
    # Not from a package: libdeflate for Windows is built from the source of the installed version.
    built = {path for path in linked | headers if "build/libdeflate" in str(path)}
    found = {("libdeflate", "MIT", "libdeflate-dev", "STATIC_LINK") for path in built if path.suffix == ".a"}
    for path, package in debian_packages({str(path) for path in (linked | headers) - built}).items():
        part = part_of(package, path)
        if part is None:
            continue
        if pathlib.Path(path) in headers:
            if part[0] in IN_HEADERS:
                found.add((*part, package, "STATIC_LINK"))
        else:
            is_shared = re.search(r"\.so(\.|$)", path)
            found.add((*part, package, "DYNAMIC_LINK" if is_shared else "STATIC_LINK"))
    return found


def identifier(text):
    return "SPDXRef-" + re.sub(r"[^A-Za-z0-9.]+", "-", text).strip("-")


def library(name, licence, package):
    fields = "${source:Package} ${source:Version} ${Version}"
    source, version, binary = output("dpkg-query", "-W", "-f", fields, package).split()
    return {
        "SPDXID": identifier(f"{source}-{version}"),
        "name": name,
        "versionInfo": re.sub(r"^\d+:|[.+]dfsg.*|[.+]ds\d*-.*|-.*", "", binary),
        "downloadLocation": "NOASSERTION",
        "filesAnalyzed": False,
        "licenseConcluded": "NOASSERTION",
        "licenseDeclared": licence,
        "copyrightText": "NOASSERTION",
        "supplier": "Organization: Debian",
        "externalRefs": [{
            "referenceCategory": "PACKAGE-MANAGER",
            "referenceType": "purl",
            "referenceLocator": f"pkg:deb/debian/{source}@{version.replace(':', '%3A').replace('+', '%2B')}?arch=source",
        }],
    }


def product(file, version):
    return {
        "SPDXID": identifier(file.name),
        "name": file.name,
        "packageFileName": file.name,
        "versionInfo": version,
        "downloadLocation": "NOASSERTION",
        "filesAnalyzed": False,
        "checksums": [{"algorithm": "SHA256", "checksumValue": hashlib.sha256(file.read_bytes()).hexdigest()}],
        "licenseConcluded": "NOASSERTION",
        "licenseDeclared": "NONE",
        "copyrightText": "NOASSERTION",
        "primaryPackagePurpose": "APPLICATION",
    }


def main():
    name, version, commit, *programs = sys.argv[1:]
    created = datetime.datetime.fromtimestamp(int(os.environ["SOURCE_DATE_EPOCH"]), datetime.timezone.utc)
    packages = {}
    relations = set()
    for text in programs:
        program, file, build = text.split(":")
        made = product(pathlib.Path(file), version)
        packages[made["SPDXID"]] = made
        relations.add(("SPDXRef-DOCUMENT", "DESCRIBES", made["SPDXID"]))
        for part, licence, package, relation in parts_of(program, pathlib.Path(build)):
            used = library(part, licence, package)
            packages[used["SPDXID"]] = used
            relations.add((made["SPDXID"], relation, used["SPDXID"]))
    json.dump({
        "spdxVersion": "SPDX-2.3",
        "dataLicense": "CC0-1.0",
        "SPDXID": "SPDXRef-DOCUMENT",
        "name": f"{name}-{version}",
        "documentNamespace": f"https://velmora.invalid/spdx/{name}-{version}-{commit}",
        "creationInfo": {"created": created.strftime("%Y-%m-%dT%H:%M:%SZ"), "creators": ["Tool: sbom.py"]},
        "packages": [packages[key] for key in sorted(packages)],
        "relationships": [
            {"spdxElementId": one, "relationshipType": kind, "relatedSpdxElement": other}
            for one, kind, other in sorted(relations)],
    }, sys.stdout, indent=2, ensure_ascii=False)
    sys.stdout.write("\n")


main()
