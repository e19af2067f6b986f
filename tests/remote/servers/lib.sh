# shellcheck shell=bash
# Sourced by every server script here. Convention: SCRIPT DIR [start|stop]
# DIR holds all state (data, logs, pids); loopback only; start and stop are idempotent.
set -euo pipefail
HERE=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
DIR=${1:?usage: $0 DIR [start|stop]}; ACTION=${2:-start}
mkdir -p "$DIR"; DIR=$(cd "$DIR" && pwd)

die() { echo "$0: $*" >&2; exit 1; }
need() { local c; for c in "$@"; do command -v "$c" >/dev/null || die "missing $c (scripts/install-deps)"; done; }
settings() { # NAME=DEFAULT...   taken from the environment at DIR's first start and kept for the later ones
  local s name
  [ -e "$DIR/settings" ] || for s in "$@"; do name=${s%%=*}; echo "$name=${!name:-${s#*=}}"; done >"$DIR/settings"
  . "$DIR/settings"
}

# A pid file holds "pid starttime", so that a recycled pid is never taken for ours.
_birth() { sed -n 's/.*) \([^Z] .*\)/\1/p' "/proc/$1/stat" 2>/dev/null | cut -d' ' -f20; }  # empty for a zombie
alive() { # NAME
  local pid birth; read -r pid birth 2>/dev/null <"$DIR/$1.pid" || return 1
  [ -n "$birth" ] && [ "$(_birth "$pid")" = "$birth" ]
}
spawn() { # NAME COMMAND...   runs COMMAND in the background unless it is already up
  local name=$1; shift
  alive "$name" && return 0
  setsid "$@" >>"$DIR/$name.log" 2>&1 </dev/null &
  echo "$! $(_birth $!)" >"$DIR/$name.pid"
}
reap() { # NAME...   ends what spawn started: TERM, then KILL after 5 s
  local name pid i
  for name in "$@"; do
    if alive "$name"; then
      read -r pid _ <"$DIR/$name.pid"
      kill "$pid" 2>/dev/null || true
      for i in $(seq 50); do alive "$name" || break; sleep 0.1; done
      ! alive "$name" || kill -9 "$pid" 2>/dev/null || true
    fi
    rm -f "$DIR/$name.pid"
  done
}
wait_for() { # SECONDS COMMAND...   polls COMMAND until it succeeds
  local end=$((SECONDS + $1)); shift
  until "$@" >/dev/null 2>&1; do [ $SECONDS -lt $end ] || return 1; sleep 0.1; done
}
port_open() { (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null; }
up() { # NAME PORT   waits for spawned NAME to listen, or shows why it did not
  wait_for 30 port_open "$2" && alive "$1" || { tail -20 "$DIR/$1.log" >&2; die "$1 did not come up on $2"; }
}
