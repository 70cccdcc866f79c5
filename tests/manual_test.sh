#!/usr/bin/env bash
# Checks the manual pages and the completions that a build has made.
#
#   tests/manual_test.sh TOOL FOLDER COMMAND_LINE_SOURCE
set -euo pipefail
tool=$(realpath "$1") folder=$(realpath "$2") source=$3
failed=0
complain() { echo "manual_test: $*" >&2; failed=1; }
commands=$("$tool" --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z]*\) .*/\1/p')
[[ $(wc -w <<<"$commands") -ge 8 ]] || complain "the help names too few commands"

# options [COMMAND]: the options of its help.
options() { "$tool" "$@" --help | grep -oE '^ *(-[a-z],)?--[a-z-]+' | grep -oE -- '--[a-z-]+'; }

# --- Each page can be shown without a warning, and has each option of the help at the head of an entry.

shown() { MANWIDTH=100 MAN_KEEP_FORMATTING='' man --warnings=w -E UTF-8 -l "$1" 2>"$work/warnings"; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
if command -v man >/dev/null; then
  for page in "$folder"/*.[1-9]; do
    shown "$page" >"$work/text"
    [[ ! -s $work/warnings ]] || complain "$page: $(head -3 "$work/warnings")"
    for section in NAME DESCRIPTION EXAMPLES "SEE ALSO"; do
      grep -q "^$section$" "$work/text" || complain "$page: no section $section"
    done
    # What a page refers to exists.
    for other in $(sed -n '/^\.SH SEE ALSO/,$p' "$page" | sed -nE 's/\\fB([^\]*)\\fR\((.)\)/\n\1.\2\n/gp' |
      grep -E '\.[1-9]$'); do
      [[ -e $folder/$other ]] || complain "$page: there is no $other"
    done
  done
  for command in "" $commands; do
    page=$folder/velmora-publish${command:+-$command}.1
    shown "$page" >"$work/text"
    for option in $(options $command); do
      grep -qE -- "^       (-[a-z], )?$option( |$)" "$work/text" || complain "$page: no entry for $option"
    done
  done
  shown "$folder/VelmoraUpdate.6" | grep -oE '^       /[A-Z] ' | tr -d ' /\n' >"$work/documented"
  known=$(sed -nE "s/^constexpr std::string_view k(OptionsScan|SettingsPathScan) = \"([A-Z]*)\";/\2/p" "$source" |
    tr -d 'L\n' | grep -o . | sort | tr -d '\n')  # /L is accepted and has no effect
  [[ $(<"$work/documented") == "$known" ]] ||
    complain "VelmoraUpdate.6 has the options $(<"$work/documented"), and the program $known"
else
  echo "manual_test: no man here, so pages aren't checked"
fi
if command -v mandoc >/dev/null; then
  for page in "$folder"/*.[1-9]; do
    mandoc -Tlint -W warning "$page" || complain "$page"
  done
fi

# --- Completions. The shells' own machinery is replaced where it needs a terminal.

compopt() { :; }
# shellcheck source=/dev/null
source "$folder/velmora-publish.bash"
# completes 'WORD...' EXPECTED...: what bash proposes for the last word.
completes() {
  read -ra COMP_WORDS <<<"$1"
  [[ $1 != *" " ]] || COMP_WORDS+=("")
  COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
  _velmora_publish
  [[ "${COMPREPLY[*]}" == "${*:2}" ]] || complain "bash, $1: ${COMPREPLY[*]}, not ${*:2}"
}
completes "velmora-publish ro" rollback
completes "velmora-publish build --compress " always never pays
completes "velmora-publish build --compress = a" always
completes "velmora-publish build --pays-from "
completes "velmora-publish verify --pass" --password-file
cd "$work" && mkdir tree && touch Tree.dat
completes "velmora-publish lint --tree " tree
completes "velmora-publish lint --settings T" Tree.dat
completes "velmora-publish switch link tr" tree
for command in $commands; do
  completes "velmora-publish $command --" $(options "$command")
done
if command -v zsh >/dev/null; then
  zsh -n "$folder/_velmora-publish" || complain "zsh"
fi
if command -v fish >/dev/null; then
  proposed=$(HOME=$work fish -c "source '$folder/velmora-publish.fish'; complete -C 'velmora-publish build --compress '" |
    cut -f1 | tr '\n' ' ')
  [[ $proposed == "always never pays " ]] || complain "fish proposes $proposed"
fi
exit $failed
