# Sourced by scripts that start patchers or servers: in a network of its own, a script meets no patcher that
# is in use and no port that is taken. Test programs create one themselves.

# in_own_network COMMAND...: where the system forbids namespaces, the command runs in the shared network.
in_own_network() {
  local enter=(unshare --net)
  [[ $(id -u) -eq 0 ]] || enter+=(--user --map-current-user --keep-caps)
  "${enter[@]}" ip link set lo up 2>/dev/null || enter=()
  [[ ${#enter[@]} -eq 0 ]] || enter+=(sh -c 'ip link set lo up && exec "$@"' sh)
  VELMORA_OWN_NETWORK=1 "${enter[@]}" "$@"
}

# enter_own_network ARGUMENTS...: restarts the script in its own network, with these arguments. Call it when
# nothing is left to download.
enter_own_network() {
  [[ -z ${VELMORA_OWN_NETWORK:-} ]] || return 0
  in_own_network "$0" "$@"
  exit
}
