#!/usr/bin/env bash
# Runs the publisher's pipeline of docs/examples/publish.sh with nginx on a loopback port and a player: a first
# release, an update, what is refused, a release that is damaged before players get it, and a rollback.
# Fails if a step ends otherwise than docs/pipeline.md says, or if the player has other files than it says.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
place=$root/build/pipeline
source scripts/own_network.sh
source scripts/web_server.sh

fail() { echo "pipeline.sh: $*" >&2; exit 1; }

scripts/install_packages.sh build demo
enter_own_network "$@"
scripts/build.sh native VelmoraUpdate velmora-publish
export PATH=$root/build/native:$PATH

rm -rf "$place"
mkdir -p "$place"/{tree/data,player,site}
cd "$place"
trap stop_web_server EXIT
start_web_server "$place/nginx" "$place/site/current" || fail "no web server"
export SITE=$place/site URL=http://127.0.0.1:$port/game

printf '#!/bin/sh\n' >tree/Game.exe
seq 1 50000 >tree/data/level1.map
echo "first" >tree/notes.txt
cp "$root/build/native/VelmoraUpdate.exe" tree/
printf '[Setting]\r\nServerAddress=127.0.0.1:%s\r\nData=/game\r\n' "$port" >tree/VelmoraUpdate.dat
cp tree/VelmoraUpdate.{exe,dat} player/

# step EXPECTED ARGUMENTS...: runs the pipeline's step; EXPECTED is a part of what it prints last.
step() {
  local status=0 expected=$1
  shift
  bash "$root/docs/examples/publish.sh" "$@" >output 2>&1 || status=$?
  tail -1 output | grep -qF -- "$expected" || { cat output >&2; fail "$*: no word of: $expected"; }
  [[ $status -eq 0 ]] || [[ $(tail -1 output) == "publish.sh: "* ]] || fail "$*: ends with status $status"
  echo "   publish.sh $*: $(tail -1 output)"
}

# player_has TREE: after an update, the player has the files of this tree.
player_has() {
  (cd player && printf 'wait\nwait\nclose\n' | ./VelmoraUpdate.exe >/dev/null 2>"$place/player.err")
  for _ in $(seq 200); do
    [[ ! -e player/_VelmoraUpdate.exe ]] && break
    sleep 0.05
  done
  diff -r --exclude=VelmoraUpdate.cvc --exclude=session.log "$1" player || fail "the player has other files than $1"
}

echo "== A first release and an update"
step "nothing is prepared" release
step "Release 1 is prepared" prepare tree
step "Players get release 1" release
player_has tree
cp -r tree tree1
echo "second" >tree/notes.txt
echo "new" >tree/data/new.txt
step "Release 2 is prepared" prepare tree
player_has tree1  # players don't notice
step "Release 2 is prepared" prepare tree  # once more, since nobody has it yet
step "Players get release 2" release
player_has tree
cp -r tree tree2

echo "== What is refused"
mkdir empty
step "release 3 isn't prepared" prepare empty
[[ ! -e site/releases/3 ]] || fail "a refused release is left"
exec 8>site/.pipeline
flock 8
step "another pipeline is at work" release
exec 8>&-
step "there is no release 7" rollback 7
player_has tree2

echo "== A release that is damaged before players get it"
echo "third" >tree/notes.txt
step "Release 3 is prepared" prepare tree
mv site/releases/3/notes.txt away
step "release 3 isn't complete; players don't notice" release
player_has tree2
mv away site/releases/3/notes.txt
echo "THIRD" >site/releases/3/notes.txt  # in its size
step "they get the files of release 2 again" release
player_has tree2

echo "== A mistake that only players found"
step "Release 5 is prepared" prepare tree
step "Players get release 5" release
player_has tree
step "Players get release 6, which has the files of release 1" rollback 1
player_has tree1
echo "== The pipeline works; the player has what it says."
