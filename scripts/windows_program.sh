# Sourced by scripts that use the Windows program as a player does. It runs under Wine, on a display and in
# a Wine prefix of its own, so that no other patcher counts as already running. The caller must call
# end_windows however it exits.

windows_root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
windows_started=()

in_prefix() { WINEPREFIX=$VELMORA_WINEPREFIX "$@"; }

end_windows() {
  [[ -n ${VELMORA_WINEPREFIX:-} ]] || return 0
  in_prefix wineserver -k 2>/dev/null || true
  local i
  for ((i = ${#windows_started[@]} - 1; i >= 0; i--)); do
    kill "${windows_started[i]}" 2>/dev/null || true
    wait "${windows_started[i]}" 2>/dev/null || true
  done
}

# within SECONDS COMMAND...: waits until the command succeeds.
within() {
  local last=$((SECONDS + $1))
  until "${@:2}"; do
    [[ $SECONDS -lt $last ]] || return 1
    sleep 0.1
  done
}

# start_windows FOLDER: starts a display with a window manager, and makes the prefix, all in FOLDER.
start_windows() {
  windows_place=$1
  export VELMORA_WINEPREFIX=$windows_place/prefix
  mkdir -p "$windows_place"
  rm -f "$windows_place/display"
  Xvfb -displayfd 3 -screen 0 1280x1024x24 -nolisten tcp 3>"$windows_place/display" 2>/dev/null &
  windows_started+=($!)
  within 20 test -s "$windows_place/display" || { echo "no virtual display" >&2; return 1; }
  DISPLAY=:$(<"$windows_place/display")
  export DISPLAY
  openbox >/dev/null 2>&1 &
  windows_started+=($!)
  [[ -e $VELMORA_WINEPREFIX/system.reg ]] && return
  echo "== Making a Wine prefix"
  (cd "$windows_place" && "$windows_root/scripts/wine.sh" cmd /c ver >/dev/null 2>&1) ||
    { echo "Wine doesn't start" >&2; return 1; }
}

dialog() { xdotool search --onlyvisible --name '^VELMORA ' 2>/dev/null | head -1; }
is_open() { [[ -n $(dialog) ]]; }
is_closed() { ! is_open; }

# start_windows_patcher INSTALLATION ARGUMENTS...: returns when the dialog is shown.
start_windows_patcher() {
  windows_installation=$1
  (cd "$1" && exec "$windows_root/scripts/wine.sh" ./VelmoraUpdate.exe "${@:2}") \
    >"$windows_place/wine.log" 2>&1 &
  windows_started+=($!)
  within 60 is_open || { cat "$windows_place/wine.log" >&2; echo "the dialog doesn't appear" >&2; return 1; }
}

windows_completed() {
  grep -aqF 'GetMissingFile() : Update Completed.' "$windows_installation/session.log" 2>/dev/null
}

# Closes the dialog with the keyboard, and waits for all processes of the chain.
close_windows_patcher() {
  xdotool windowactivate --sync "$(dialog)" key alt+F4
  within 20 is_closed || { echo "the dialog doesn't close" >&2; return 1; }
  in_prefix timeout 60 wineserver -w || { echo "the chain doesn't end" >&2; return 1; }
}
