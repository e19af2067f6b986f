#!/bin/bash
# Fault proxy in front of any server here (rules: see faultproxy.py).   FAULT_TARGET=127.0.0.1:7480 fault.sh DIR [start|stop]
# env: FAULT_PORT.  Latency on every packet of any protocol: delay.sh.
. "$(dirname "$0")/lib.sh"
PORT=${FAULT_PORT:-9400}
if [ "$ACTION" = stop ]; then reap fault; exit; fi
need python3
spawn fault python3 "$HERE/faultproxy.py" "$PORT" "${FAULT_TARGET:?host:port to pass to}"
up fault "$PORT"
echo "FAULT_ENDPOINT=http://127.0.0.1:$PORT"
