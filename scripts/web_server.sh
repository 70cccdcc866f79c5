# Sourced by scripts that serve a publication with nginx on a loopback port, as the documentation recommends.
# The caller must call stop_web_server however it ends.

# start_web_server FOLDER PUBLICATION [CONFIGURATION...]: serves PUBLICATION as /game/. Logs and the server's
# other files go to FOLDER. Each CONFIGURATION is a line for the server. Sets port and server_pid.
start_web_server() {
  local folder=$1 publication=$2
  local docs
  docs=$(cd "$(dirname "${BASH_SOURCE[0]}")/../docs" && pwd)
  PATH=$PATH:/usr/sbin  # where Debian installs nginx, not in a user's PATH
  port=$(python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
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
  log_format costs '\$remote_addr - \$remote_user [\$time_local] "\$request" \$status \$body_bytes_sent '
                   '"\$http_referer" "\$http_user_agent" \$connection \$bytes_sent';
  access_log $folder/access.log costs;
  client_body_temp_path $folder;
  proxy_temp_path $folder;
  fastcgi_temp_path $folder;
  uwsgi_temp_path $folder;
  scgi_temp_path $folder;
  types { text/html html; }
CONF
    sed -E "s|listen 80;|listen 127.0.0.1:$port;|; s|alias [^;]*;|alias $publication/;|" \
      "$docs/nginx-publication.conf" | sed '/^}/d'
    printf '  %s\n' "${@:3}"
    echo "} }"
  } >"$folder/nginx.conf"
  nginx -p "$folder" -e "$folder/error.log" -c "$folder/nginx.conf" &
  server_pid=$!
  for _ in $(seq 200); do
    (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null && return
    sleep 0.05
  done
  cat "$folder/error.log" >&2
  echo "nginx doesn't answer" >&2
  return 1
}

stop_web_server() {
  [[ -n ${server_pid:-} ]] || return 0
  kill "$server_pid" 2>/dev/null || true
  wait "$server_pid" 2>/dev/null || true
}
