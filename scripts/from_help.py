#!/usr/bin/env python3
"""Makes manual pages and shell completions from what velmora-publish itself says by --help.

  from_help.py TOOL PAGES OUT

TOOL is the program, PAGES the folder of the pages' scdoc sources. They have @options@, @exit-status@ and
@commands@ in the places of what the help tells. OUT gets each page, also compressed as Debian has it, and
the completions velmora-publish.bash, _velmora-publish for zsh, and velmora-publish.fish. Fails if a command
has no page, if a page names an option that no command has, or if a synopsis lacks an argument that the
command takes.
"""
import gzip
import pathlib
import re
import subprocess
import sys
from dataclasses import dataclass, field

TOOL = "velmora-publish"


@dataclass
class Item:
    """A positional, or an option, of one command."""

    names: list
    value: str = ""  # the placeholder in the help, empty for a flag
    notes: list = field(default_factory=list)  # what the help says about the value, as sentences
    text: str = ""
    kind: str = ""  # what the value names: dir, file, or one of several words, as in a|b

    @property
    def long(self):
        return next((name for name in self.names if name.startswith("--")), "")


@dataclass
class Help:
    text: str = ""  # the first line
    items: list = field(default_factory=list)
    commands: dict = field(default_factory=dict)  # name and description
    exit_status: str = ""
    example: str = ""


def describe_value(item, word):
    """Takes apart a value's description, such as INT:INT in [1 - 12]=12."""
    word, _, default = word.partition("=")
    word, _, limit = word.partition(":")
    item.value = word
    if "|" in word:
        item.kind = word
    elif word == "TEXT":  # what isn't a path has a word of its own
        item.value = {"DIR": "DIR", "FILE": "FILE"}.get(limit, "PATH")
        item.kind = "dir" if limit == "DIR" else "file"
    elif word in ("INT", "UINT", "FLOAT"):
        item.value = "NUMBER" if word == "FLOAT" else "N"
    if bounds := re.fullmatch(r"U?INT in \[(\d+) - (\d+)\]", limit):
        item.notes.append(f"From {bounds[1]} to {bounds[2]}.")
    if default:
        item.notes.append(f"Default: {default.strip('[]')}.")


def item_of(head):
    """An item from the left column of the help."""
    item = Item([])
    head, *relations = re.split(r" (?=(?:Excludes|Needs):)", head)
    words = head.removesuffix(" ...").split(" ", 1)
    item.names = words[0].split(",")
    rest = words[1] if len(words) > 1 else ""
    if "REQUIRED" in rest:
        rest = rest.replace("REQUIRED", "").replace("...", "").strip()
        if item.names[0].startswith("-"):
            item.notes.append("Required.")
    if rest:
        describe_value(item, rest)
    for relation in relations:
        kind, _, others = relation.partition(": ")
        item.notes.append(("Not together with " if kind == "Excludes" else "Only with ") + others.strip() + ".")
    return item


def read_help(tool, *command):
    run = subprocess.run([tool, *command, "--help"], capture_output=True, encoding="utf-8", check=True)
    result = Help()
    lines = run.stdout.splitlines()
    result.text = lines[0]
    section = ""
    for line in lines[1:]:
        stripped = line.strip()
        if stripped.startswith("Exit status: "):
            result.exit_status = stripped.removeprefix("Exit status: ")
        elif stripped.startswith("Example: "):
            result.example = stripped.removeprefix("Example: ")
        elif re.fullmatch(r"(Positionals|Options|Subcommands):", stripped):
            section = stripped[:-1]
        elif not line.startswith("  ") or stripped.startswith("[") or not stripped:
            continue
        elif section == "Subcommands":
            name, text = re.split(r"\s{2,}", stripped, maxsplit=1)
            result.commands[name] = text
        elif len(line) - len(line.lstrip()) > 10:
            result.items[-1].text += (" " if result.items[-1].text else "") + stripped
        else:
            head, *text = re.split(r"\s{2,}", stripped, maxsplit=1)
            result.items.append(item_of(head))
            result.items[-1].text = text[0] if text else ""
    return result


def read_helps(tool):
    helps = {TOOL: read_help(tool)}
    for name in helps[TOOL].commands:
        helps[name] = read_help(tool, name)
    return helps


# --- Manual pages.


def escaped(text):
    return re.sub(r"([\\_*#<>`~\[\]])", r"\\\1", text)


def sentence(text):
    return text if text.endswith((".", "?")) else text + "."


def option_entries(items):
    entries = []
    for item in sorted(items, key=lambda item: item.names[0].startswith("-")):
        head = ", ".join(f"*{escaped(name)}*" if name.startswith("-") else f"_{name}_" for name in item.names)
        if item.value and item.names[0].startswith("-"):
            head += f" _{escaped(item.value)}_" if not item.kind.count("|") else f" *{escaped(item.value)}*"
        text = " ".join([sentence(item.text)] + item.notes)
        entries.append(f"{head}\n\t{escaped(text)}\n")
    return "\n".join(entries)


def command_entries(commands):
    return "\n".join(f"*{name}*\n\t{escaped(sentence(text))} See *{TOOL}-{name}*(1).\n"
                     for name, text in commands.items())


def exit_entries(text):
    """Statuses as the help tells them: 0 done, 1 failed, 2 bad command line; 1 also if ..."""
    return escaped(sentence(text[0].upper() + text[1:])) + "\n"


def replaced(text, place, made):
    return text.replace(f"@{place}@\n", made()) if f"@{place}@" in text else text


def check_names(helps, source, text, command):
    """Ends the program if the page tells of an option that isn't there, or leaves out what has to be given."""
    options = {item.long for help in helps.values() for item in help.items if item.long}
    for name in re.findall(r"(?<![\w-])--[a-z][a-z-]*", text):
        if name not in options:
            sys.exit(f"{source}: there is no option {name}")
    synopsis = text.split("# SYNOPSIS")[-1].split("\n#")[0]
    for item in helps[command].items if command in helps else []:
        needed = not item.names[0].startswith("-") or "Required." in item.notes
        if needed and (item.long or item.names[0]) not in synopsis:
            sys.exit(f"{source}: the synopsis lacks {item.names[0]}")


def formatted(text):
    """The page in roff. scdoc's paragraphs without text, which some programs warn of, are left out."""
    roff = subprocess.run(["scdoc"], input=text, capture_output=True, text=True, check=True).stdout
    roff = roff.replace(".P\n.RE\n", ".RE\n.P\n")
    roff = re.sub(r"(\.P\n)+", ".P\n", roff)
    roff = re.sub(r"(\.S[HS] .*\n)\.P\n", r"\1", roff)
    return re.sub(r"\.P\n(?=\.SH|\.SS|\.RE|\.TS|$)", "", roff)


def page(helps, source):
    text = source.read_text(encoding="utf-8")
    command = source.name.split(".")[0].removeprefix(f"{TOOL}-")
    check_names(helps, source, text, command)
    subject = helps.get(command, Help())
    text = replaced(text, "options", lambda: option_entries(subject.items))
    text = replaced(text, "exit-status", lambda: exit_entries(subject.exit_status))
    text = replaced(text, "commands", lambda: command_entries(subject.commands))
    if left := re.search(r"@[a-z-]+@", text):
        sys.exit(f"{source}: nothing to put in place of {left[0]}")
    return formatted(text)


# --- Completions.


def options_of(help):
    return [item for item in help.items if item.names[0].startswith("-")]


def positionals_of(help):
    return [item for item in help.items if not item.names[0].startswith("-")]


def bash(helps):
    commands = helps[TOOL].commands
    actions = {}
    for name in commands:
        for item in options_of(helps[name]):
            if item.value:
                actions.setdefault(item.kind, []).append(f"{name}:{item.long}")
    cases = []
    for kind, places in actions.items():
        words = f'mapfile -t COMPREPLY < <(compgen -W "{kind.replace("|", " ")}" -- "$current"); return'
        action = {"dir": "_velmora_publish_paths -d; return", "file": "_velmora_publish_paths -f; return",
                  "": "return"}.get(kind, words)
        cases.append("    " + " | \\\n      ".join(places) + ")\n      " + action + " ;;")
    lists = []
    for name in commands:
        options = " ".join(item.long for item in options_of(helps[name]))
        kinds = {item.kind for item in positionals_of(helps[name])}
        lists.append(f'    {name}) options="{options}" paths={"-d" if kinds == {"dir"} else "-f"} ;;')
    return f"""# bash completion for {TOOL}, made from its help

_velmora_publish_paths() {{
  compopt -o filenames
  mapfile -t COMPREPLY < <(compgen "$1" -- "$current")
}}

_velmora_publish() {{
  local current=${{COMP_WORDS[COMP_CWORD]}} previous=${{COMP_WORDS[COMP_CWORD - 1]}}
  # bash splits --option=value into three words.
  if [[ $current == "=" ]]; then
    current=
  elif [[ $previous == "=" ]]; then
    previous=${{COMP_WORDS[COMP_CWORD - 2]}}
  fi
  COMPREPLY=()
  if [[ $COMP_CWORD -eq 1 ]]; then
    mapfile -t COMPREPLY < <(compgen -W "{" ".join(commands)} --help --version" -- "$current")
    return
  fi
  local command=${{COMP_WORDS[1]}} options= paths=-f
  case $command:$previous in
{chr(10).join(cases)}
  esac
  case $command in
{chr(10).join(lists)}
    *) return ;;
  esac
  if [[ $current == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$options" -- "$current")
  else
    _velmora_publish_paths "$paths"
  fi
}}

complete -F _velmora_publish {TOOL}
"""


def zsh_text(text):
    return re.sub(r"([\[\]:\\])", r"\\\1", text).replace("'", "'\\''")


def zsh(helps):
    action = {"dir": "_files -/", "file": "_files"}
    functions = []
    for name in helps[TOOL].commands:
        arguments = []
        for item in options_of(helps[name]):
            kind = item.kind
            does = action.get(kind, f"({kind.replace('|', ' ')})" if kind else " ")
            value = f":{zsh_text(item.value.split('|')[0] if '|' not in item.value else 'value')}:{does}"
            arguments.append(f"'*{item.long}[{zsh_text(item.text)}]{value if item.value else ''}'")
        for item in positionals_of(helps[name]):
            arguments.append(f"':{item.names[0]}:{action[item.kind]}'")
        functions.append(f"    {name})\n      _arguments \\\n        " + " \\\n        ".join(arguments) + "\n      ;;")
    commands = "\n    ".join(f"'{name}:{zsh_text(text)}'" for name, text in helps[TOOL].commands.items())
    return f"""#compdef {TOOL}
# zsh completion, made from the program's help

local -a commands
commands=(
    {commands}
)

if (( CURRENT == 2 )); then
  _describe command commands
  compadd -- --help --version
  return
fi
shift words
(( CURRENT-- ))
case $words[1] in
{chr(10).join(functions)}
esac
"""


def fish(helps):
    def quoted(text):
        return "'" + text.replace("\\", "\\\\").replace("'", "\\'") + "'"

    lines = [f"# fish completion for {TOOL}, made from its help"]
    lines += [f"complete -c {TOOL} -n __fish_use_subcommand -f -l {name}" for name in ("help", "version")]
    for name, text in helps[TOOL].commands.items():
        lines.append(f"complete -c {TOOL} -n __fish_use_subcommand -f -a {name} -d {quoted(text)}")
        for item in options_of(helps[name]):
            kind = item.kind
            if not item.value:
                value = ""
            elif kind == "dir":
                value = " -x -a '(__fish_complete_directories)'"
            elif kind == "file":
                value = " -r"
            else:
                value = f" -x -a '{kind.replace('|', ' ')}'" if kind else " -x"
            lines.append(f"complete -c {TOOL} -n '__fish_seen_subcommand_from {name}' -l {item.long[2:]}{value}"
                         f" -d {quoted(item.text)}")
    return "\n".join(lines) + "\n"


def main():
    tool, pages, out = sys.argv[1], pathlib.Path(sys.argv[2]), pathlib.Path(sys.argv[3])
    helps = read_helps(tool)
    for name in helps[TOOL].commands:
        if not (pages / f"{TOOL}-{name}.1.scd").exists():
            sys.exit(f"{pages}: no page for the command {name}")
    made = {f"{TOOL}.bash": bash(helps), f"_{TOOL}": zsh(helps), f"{TOOL}.fish": fish(helps)}
    for source in sorted(pages.glob("*.scd")):
        roff = page(helps, source)
        made[source.stem] = roff
        (out / f"{source.stem}.gz").write_bytes(gzip.compress(roff.encode(), 9, mtime=0))
    for name, text in made.items():
        (out / name).write_text(text, encoding="utf-8")


main()
