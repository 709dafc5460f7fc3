# Serves a folder with nginx on a free port of 127.0.0.1, from a generated configuration in a
# folder of its own; nginx's own system service is neither used nor needed. Source this file,
# then:
#   nginx_start ROOT WORKDIR   # sets NGINX_URL (http://127.0.0.1:PORT) and NGINX_PID
#   nginx_stop                 # stops it (also safe when it never started)
# WORKDIR holds the configuration, the logs and nginx's temporary folders.

nginx_free_port() {
  python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])'
}

nginx_start() {
  local root dir port user_line=""
  root=$(cd "$1" && pwd)
  dir=$2
  mkdir -p "$dir/tmp" "$dir/logs"
  port=$(nginx_free_port)
  # Run as root, nginx's workers would switch to an unprivileged user who may not read the files.
  if [ "$(id -u)" -eq 0 ]; then user_line="user root root;"; fi
  cat >"$dir/nginx.conf" <<CONF
$user_line
worker_processes 1;
daemon on;
pid $dir/nginx.pid;
error_log $dir/logs/error.log warn;
events { worker_connections 1024; }
http {
  access_log ${NGINX_ACCESS_LOG:-$dir/logs/access.log};
  client_body_temp_path $dir/tmp/body;
  proxy_temp_path $dir/tmp/proxy;
  fastcgi_temp_path $dir/tmp/fastcgi;
  uwsgi_temp_path $dir/tmp/uwsgi;
  scgi_temp_path $dir/tmp/scgi;
  types { text/html htm html; text/plain txt; }
  default_type application/octet-stream;
  keepalive_requests 100000;
  server {
    listen 127.0.0.1:$port;
    root $root;
  }
}
CONF
  nginx -p "$dir" -e "$dir/logs/error.log" -c "$dir/nginx.conf"
  local i
  for i in $(seq 1 100); do
    [ -s "$dir/nginx.pid" ] && break
    sleep 0.05
  done
  NGINX_PID=$(cat "$dir/nginx.pid")
  NGINX_URL="http://127.0.0.1:$port"
  NGINX_DIR=$dir
}

nginx_stop() {
  if [ -n "${NGINX_PID:-}" ] && kill -0 "$NGINX_PID" 2>/dev/null; then
    kill -QUIT "$NGINX_PID"
    local i
    for i in $(seq 1 100); do
      kill -0 "$NGINX_PID" 2>/dev/null || break
      sleep 0.05
    done
  fi
  NGINX_PID=""
}
