# Ports of servers that are started here; for sourcing.

# A port that is free now; a server takes it a moment later.
free_port() {
  /usr/bin/python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])'
}
wait_for() {
  for _ in $(seq 200); do
    (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null && return 0
    sleep 0.05
  done
  echo "nothing listens on port $1" >&2
  return 1
}
