# Sourced by scripts that start patchers or servers: in a network of its own a script meets no patcher
# that somebody uses and no port that is taken. Test programs enter one by themselves.

# in_own_network COMMAND...: where the system forbids namespaces, the command runs in the common network.
in_own_network() {
  local enter=(unshare --net)
  [[ $(id -u) -eq 0 ]] || enter+=(--user --map-current-user --keep-caps)
  "${enter[@]}" ip link set lo up 2>/dev/null || enter=()
  [[ ${#enter[@]} -eq 0 ]] || enter+=(sh -c 'ip link set lo up && exec "$@"' sh)
  VELMORA_OWN_NETWORK=1 "${enter[@]}" "$@"
}

# enter_own_network ARGUMENTS...: goes on as in_own_network, the script from its beginning with these
# arguments. To be called when nothing is left to download.
enter_own_network() {
  [[ -z ${VELMORA_OWN_NETWORK:-} ]] || return 0
  in_own_network "$0" "$@"
  exit
}
