# Sourced by scripts that serve publications with nginx, as the documentation recommends. The caller must call
# stop_web_server however it ends.

publication_conf=$(cd "$(dirname "${BASH_SOURCE[0]}")/../docs/examples" && pwd)/nginx-publication.conf

# web_server ADDRESS PUBLICATION [CONFIGURATION...]: prints the configuration of a server at ADDRESS, which is
# HOST:PORT, that offers PUBLICATION as /game/. Each CONFIGURATION is a further line for the server.
web_server() {
  sed -E "s|listen 80;|listen $1;|; s|alias [^;]*;|alias $2/;|" "$publication_conf" | sed '/^}/d'
  printf '  %s\n' "${@:3}"
  echo "}"
}

# start_web_servers FOLDER SERVER...: starts servers with these configurations. Logs and nginx's other files go
# to FOLDER. Sets server_pid.
start_web_servers() {
  local folder=$1
  PATH=$PATH:/usr/sbin  # where Debian installs nginx, not in a user's PATH
  mkdir -p "$folder"
  : >"$folder/access.log"
  {
    [[ $(id -u) -eq 0 ]] && echo "user root;"
    cat <<CONF
daemon off;
worker_processes auto;
pid $folder/pid;
error_log $folder/error.log;
events { worker_connections 1024; }
http {
  log_format costs '\$remote_addr \$server_addr \$remote_user [\$time_local] "\$request" \$status \$body_bytes_sent '
                   '"\$http_referer" "\$http_user_agent" \$connection \$bytes_sent';
  access_log $folder/access.log costs;
  client_body_temp_path $folder;
  proxy_temp_path $folder;
  fastcgi_temp_path $folder;
  uwsgi_temp_path $folder;
  scgi_temp_path $folder;
  types { text/html html; }
CONF
    printf '%s\n' "${@:2}"
    echo "}"
  } >"$folder/nginx.conf"
  nginx -p "$folder" -e "$folder/error.log" -c "$folder/nginx.conf" &
  server_pid=$!
  local address
  address=$(sed -nE 's/^ *listen (.*):([0-9]+);/\1\/\2/p' "$folder/nginx.conf" | tail -1)
  for _ in $(seq 200); do
    (exec 3<>"/dev/tcp/$address") 2>/dev/null && return
    sleep 0.05
  done
  cat "$folder/error.log" >&2
  echo "nginx doesn't answer" >&2
  return 1
}

# start_web_server FOLDER PUBLICATION [CONFIGURATION...]: starts one server on a free loopback port. Sets port
# and server_pid.
start_web_server() {
  port=$(python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
  start_web_servers "$1" "$(web_server "127.0.0.1:$port" "${@:2}")"
}

stop_web_server() {
  [[ -n ${server_pid:-} ]] || return 0
  kill "$server_pid" 2>/dev/null || true
  wait "$server_pid" 2>/dev/null || true
}
