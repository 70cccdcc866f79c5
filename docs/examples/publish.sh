#!/usr/bin/env bash
# A publisher's pipeline, in three steps that a person or a CI system starts:
#
#   publish.sh prepare TREE    builds the next release of TREE, lints it, and verifies it in its folder
#   publish.sh release         lets players have it, verifies the server, and goes back if that fails
#   publish.sh rollback GOOD   gives players the files of release GOOD again
#
# Settings are taken from the environment. Needs velmora-publish and flock.
set -euo pipefail

: "${SITE:=/srv/velmora}"                      # has releases/ and current, which the web server follows
: "${URL:=http://download.example.com/game}"   # what players have: their settings' server and Data
: "${DATA:=/game}"                             # their settings' Data
: "${CLIENT:=\\Game.exe}"                      # the program that starts the game
: "${WARNINGS:=accept}"                        # "refuse": the linter's warnings stop the pipeline, too

say() { echo "== $*"; }
fail() { echo "publish.sh: $*" >&2; exit 1; }

# One pipeline at a time.
mkdir -p "$SITE/releases"
exec 9>"$SITE/.pipeline"
flock -n 9 || fail "another pipeline is at work on $SITE"

# Releases are numbered. Prints those there are, the oldest first.
releases() { find "$SITE/releases" -mindepth 1 -maxdepth 1 -name '[1-9]*' -printf '%f\n' | sort -n; }
newest() { releases | tail -1; }
# What players have; nothing before the first release.
current() { [[ ! -L $SITE/current ]] || basename "$(readlink "$SITE/current")"; }

# check COMMAND...: fails as the command does; warnings alone (status 3) only if they are refused.
check() {
  local status=0
  "$@" || status=$?
  [[ $status -eq 0 || ($status -eq 3 && $WARNINGS == accept) ]]
}

go_live() { velmora-publish switch "$SITE/current" "$SITE/releases/$1"; }
is_accepted() { check velmora-publish verify "$URL" --quiet; }

prepare() {
  local tree=$1 before next earlier=()
  before=$(current)
  # A release that was prepared and never seen by players is made again.
  [[ -z $(newest) || $(newest) -le ${before:-0} ]] || rm -r "$SITE/releases/$(newest)"
  next=$(($(newest) + 1))
  local out=$SITE/releases/$next
  [[ -z $before ]] || earlier=(--reuse "$SITE/releases/$before" --remove-from "$SITE/releases/$before")
  say "Release $next, after ${before:-none}"
  if velmora-publish build "$tree" "$out" --exe "$CLIENT" --data "$DATA" --names utf-8 "${earlier[@]}" &&
    check velmora-publish lint "$out" --tree "$tree" --data "$DATA" &&
    check velmora-publish verify "$out" --quiet; then
    [[ -z $before ]] || velmora-publish diff "$SITE/releases/$before" "$out"
    say "Release $next is prepared"
  else
    rm -rf "$out"
    fail "release $next isn't prepared; players don't notice"
  fi
}

release() {
  local before next
  before=$(current)
  next=$(newest)
  [[ -n $next && $next -gt ${before:-0} ]] || fail "nothing is prepared"
  go_live "$next" || fail "release $next isn't complete; players don't notice"
  if is_accepted; then
    say "Players get release $next"
  elif [[ -n $before ]]; then
    rollback "$before"
    fail "release $next isn't what players would accept: they get the files of release $before again"
  else
    fail "the first release isn't what players would accept"
  fi
}

rollback() {
  local good=$1 next number since=()
  [[ -e $SITE/releases/$good ]] || fail "there is no release $good; there are: $(releases | tr '\n' ' ')"
  # Players may have any of those after it.
  for number in $(releases); do
    [[ $number -le $good ]] || since+=(--from "$SITE/releases/$number")
  done
  [[ ${#since[@]} -gt 0 ]] || fail "players have release $good, and no later one"
  next=$(($(newest) + 1))
  velmora-publish rollback "$SITE/releases/$good" "${since[@]}" --into "$SITE/releases/$next"
  go_live "$next"
  is_accepted || fail "release $next, with the files of release $good, isn't what players would accept"
  say "Players get release $next, which has the files of release $good"
}

case ${1:-} in
  prepare) [[ $# -eq 2 ]] || fail "which tree?" && prepare "$2" ;;
  release) release ;;
  rollback) [[ $# -eq 2 ]] || fail "back to which release? $(releases | tr '\n' ' ')" && rollback "$2" ;;
  *) fail "usage: publish.sh prepare TREE | release | rollback GOOD" ;;
esac
