#!/usr/bin/env bash
# The agent demo: installs what is missing, builds vekgnmid and vekgnmi
# (release), makes a throwaway CA, a server certificate and a users file
# (openssl CLI; removed at the end), starts vekgnmid on 127.0.0.1 with TLS,
# the users file and a demo device that keeps changing, and talks to it with
# vekgnmi: a refused anonymous call, capabilities, an authenticated get, a
# set refused to a read-only user and accepted for a writer, get again, a
# one-off subscription and a few seconds of streaming, and the audit log of
# the Sets. The server is stopped by its pid when the script ends, however
# it ends.
#
#   bash scripts/demo.sh                      # a free port, 8 interfaces
#   DEMO_PORT=57400 DEMO_SECONDS=10 DEMO_INTERFACES=1000 bash scripts/demo.sh
set -euo pipefail
cd "$(dirname "$0")/.."

port=${DEMO_PORT:-0}  # 0: the system picks a free port
seconds=${DEMO_SECONDS:-4}
interfaces=${DEMO_INTERFACES:-8}
churn=${DEMO_CHURN:-10}

bold=""; dim=""; reset=""
if [ -t 1 ]; then bold=$'\e[1m'; dim=$'\e[2m'; reset=$'\e[0m'; fi
say() { printf '\n%s== %s%s\n' "$bold" "$*" "$reset"; }
# Prints a command as one would type it (single quotes where the shell
# needs them), then runs it.
show() {
  printf '%s$' "$dim"
  local arg
  for arg in "$@"; do
    if [[ $arg =~ ^[A-Za-z0-9_./:=,@%+-]+$ ]]; then printf ' %s' "$arg"; else printf " '%s'" "${arg//\'/\'\\\'\'}"; fi
  done
}
run() {
  show "$@"
  printf '%s\n' "$reset"
  "$@"
}

say "Installing what is missing"
bash scripts/install-deps.sh

say "Building vekgnmid and vekgnmi (release)"
if [ ! -f build/build.ninja ]; then bash scripts/configure.sh release >/dev/null; fi
cmake --build build -j"$(nproc)" --target vekgnmid vekgnmi | tail -n 1

server_pid=""
log=$(mktemp -t vekgnmid.XXXXXX.log)
pki=$(mktemp -d -t vekgnmid-demo.XXXXXX)
stop_server() {
  if [ -n "$server_pid" ] && kill -0 "$server_pid" 2>/dev/null; then
    kill -INT "$server_pid" 2>/dev/null || true
    wait "$server_pid" 2>/dev/null || true
  fi
  rm -f "$log"
  rm -rf "$pki"
}
trap stop_server EXIT

say "A throwaway CA and server certificate, and a users file (in $pki, removed at the end)"
ec=(-newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes)
run openssl req -x509 "${ec[@]}" -days 1 -subj "/CN=vekgnmid demo CA" \
  -keyout "$pki/ca.key" -out "$pki/ca.pem" 2>/dev/null
run openssl req "${ec[@]}" -subj "/CN=localhost" -keyout "$pki/server.key" -out "$pki/server.csr" 2>/dev/null
printf 'subjectAltName=DNS:localhost,IP:127.0.0.1\nextendedKeyUsage=serverAuth\n' >"$pki/server.ext"
run openssl x509 -req -in "$pki/server.csr" -CA "$pki/ca.pem" -CAkey "$pki/ca.key" -CAcreateserial \
  -days 1 -extfile "$pki/server.ext" -out "$pki/server.pem" 2>/dev/null
# Each line NAME:HASH:ROLE[:PREFIX,...]; the hashes are salted SHA-512-crypt.
{
  echo "# made by scripts/demo.sh"
  echo "noc:$(openssl passwd -6 noc-secret):read"
  echo "ops:$(openssl passwd -6 ops-secret):write:/devices/dev1/interfaces,/devices/dev1/system"
} >"$pki/users"
printf '%s$ cat %s%s\n' "$dim" "$pki/users" "$reset"
cat "$pki/users"

say "Starting vekgnmid: TLS, the users file, a demo device of $interfaces interfaces changing $churn times a second"
server=(./build/agent/vekgnmid --address "127.0.0.1:$port" --interfaces "$interfaces" --churn "$churn"
        --tls-cert "$pki/server.pem" --tls-key "$pki/server.key" --users "$pki/users"
        --audit-log "$pki/audit.log")
show "${server[@]}"
printf ' &%s\n' "$reset"
"${server[@]}" >"$log" 2>&1 &
server_pid=$!
# It prints "vekgnmid: serving gNMI on ... (port N), ..." once it listens.
for _ in $(seq 1 100); do
  if grep -q 'serving gNMI' "$log"; then break; fi
  if ! kill -0 "$server_pid" 2>/dev/null; then
    echo "vekgnmid did not start:" >&2
    cat "$log" >&2
    exit 1
  fi
  sleep 0.1
done
if ! grep -q 'serving gNMI' "$log"; then
  echo "vekgnmid did not start listening within 10 s" >&2
  exit 1
fi
cat "$log"
port=$(sed -n 's/.*(port \([0-9]*\)).*/\1/p' "$log" | head -n 1)
cli=(./build/agent/vekgnmi --address "127.0.0.1:$port" --tls-ca "$pki/ca.pem" --timeout 5s)
# vekgnmi takes the credentials from the environment (kept out of the
# process list); `as USER PASSWORD` sets them for the commands that follow.
as() {
  export VEKGNMI_USERNAME=$1 VEKGNMI_PASSWORD=$2
  printf '%s(as %s)%s\n' "$dim" "$1" "$reset"
}

eth1=/devices/dev1/interfaces[name=eth1]

say "Without credentials the agent answers nothing but UNAUTHENTICATED"
run "${cli[@]}" capabilities || true

say "Capabilities: the gNMI version, the model and the encodings"
as noc noc-secret
run "${cli[@]}" capabilities

say "Get one interface's configuration (noc may read everything)"
run "${cli[@]}" get --type config --path "$eth1"

say "noc may not Set: its role is read"
run "${cli[@]}" set --update "$eth1/mtu=9000" || true

say "ops may: its MTU and description in one request (applied all or nothing)"
as ops ops-secret
run "${cli[@]}" set --update "$eth1/mtu=9000" --update "$eth1/description=\"uplink to core\""

say "but only under its prefixes (/devices/dev1/interfaces and /devices/dev1/system)"
run "${cli[@]}" set --update "/devices/dev1/routes[routesKey=10.0.0.0/31]/metric=5" || true

say "Get them again"
run "${cli[@]}" get --path "$eth1/mtu" --path "$eth1/description"

say "A Set the device refuses changes nothing (an MTU out of range)"
run "${cli[@]}" set --update "$eth1/description=\"never written\"" --update "$eth1/mtu=20000" || true
run "${cli[@]}" get --path "$eth1/description"

say "Subscribe once: the system's values, then sync_response"
run "${cli[@]}" subscribe --mode once --path /devices/dev1/system

say "Subscribe (stream, on change) to every interface's counters and status for ${seconds}s"
run "${cli[@]}" subscribe --updates-only --stream-mode on-change \
  --path "/devices/dev1/interfaces[name=*]/counters/inPkts" \
  --path "/devices/dev1/interfaces[name=*]/operStatus" --duration "${seconds}s"

say "The audit log: one line per Set, whoever sent it and however it ended"
run cat "$pki/audit.log"

say "Stopping vekgnmid (pid $server_pid)"
kill -INT "$server_pid"
wait "$server_pid" || true
server_pid=""
tail -n 1 "$log"
echo
echo "More: ./build/agent/vekgnmid --help, ./build/agent/vekgnmi --help and agent/README.md"

# --- Part 2: a YANG model -----------------------------------------------------
# vekgnmid serving the IETF interface modules Debian installs (libyuma-base)
# with a small data file written here: a Get in JSON_IETF and one Set.
yang_dirs=(--yang-dir /usr/share/yuma/nmda-modules/ietf --yang-dir /usr/share/yuma/modules/ietf)
yang_data=$(mktemp -t vekgnmid-data.XXXXXX.json)
yang_log=$(mktemp -t vekgnmid-yang.XXXXXX.log)
yang_pid=""
stop_yang() {
  if [ -n "$yang_pid" ] && kill -0 "$yang_pid" 2>/dev/null; then
    kill -INT "$yang_pid" 2>/dev/null || true
    wait "$yang_pid" 2>/dev/null || true
  fi
  rm -f "$yang_data" "$yang_log"
}
trap 'stop_server; stop_yang' EXIT
cat >"$yang_data" <<'JSON'
{"ietf-interfaces:interfaces": {"interface": [
  {"name": "eth0", "type": "iana-if-type:ethernetCsmacd", "description": "uplink",
   "admin-status": "up", "oper-status": "up", "if-index": 2,
   "statistics": {"discontinuity-time": "2024-01-01T00:00:00Z", "in-octets": "1234567"},
   "ietf-ip:ipv4": {"address": [{"ip": "10.0.0.1", "prefix-length": 24}]}},
  {"name": "lo", "type": "iana-if-type:softwareLoopback", "admin-status": "up", "oper-status": "up",
   "if-index": 1, "statistics": {"discontinuity-time": "2024-01-01T00:00:00Z"}}]}}
JSON

say "Serving YANG: ietf-interfaces, ietf-ip and iana-if-type with a small data file"
server=(./build/agent/vekgnmid --address 127.0.0.1:0 "${yang_dirs[@]}" --module ietf-interfaces --module ietf-ip
        --module iana-if-type --data "$yang_data")
show "${server[@]}"
printf ' &%s\n' "$reset"
TZ=UTC "${server[@]}" >"$yang_log" 2>&1 &
yang_pid=$!
for _ in $(seq 1 100); do
  if grep -q 'serving gNMI' "$yang_log" || ! kill -0 "$yang_pid" 2>/dev/null; then break; fi
  sleep 0.1
done
cat "$yang_log"
port=$(sed -n 's/.*(port \([0-9]*\)).*/\1/p' "$yang_log" | head -n 1)
if [ -z "$port" ]; then echo "vekgnmid did not start" >&2; exit 1; fi
cli=(./build/agent/vekgnmi --address "127.0.0.1:$port" --timeout 5s)

say "Get /interfaces in JSON_IETF (RFC 7951 values)"
run "${cli[@]}" get --encoding json_ietf --path /interfaces

say "Set: a new interface with an IPv4 address (made by the update), then Get it"
eth1='/interfaces/interface[name=eth1]'
run "${cli[@]}" set --update "$eth1/type=\"ethernetCsmacd\"" \
  --update "$eth1/ietf-ip:ipv4/address[ip=10.1.1.1]/prefix-length=24"
run "${cli[@]}" get --encoding json_ietf --path "$eth1"

say "Stopping vekgnmid (pid $yang_pid)"
kill -INT "$yang_pid"
wait "$yang_pid" || true
yang_pid=""
