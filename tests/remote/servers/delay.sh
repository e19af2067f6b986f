#!/bin/bash
# Delay line in front of any server here.   DELAY_TARGET=127.0.0.1:7480 delay.sh DIR [start|stop]
# env: DELAY_PORT, DELAY_MS one way (10: 20 ms round trip), DELAY_KBPS.  Needs no rights, as tc(8) would.
. "$(dirname "$0")/lib.sh"
PORT=${DELAY_PORT:-9500}
if [ "$ACTION" = stop ]; then reap delay; exit; fi
need python3
spawn delay python3 "$HERE/delayproxy.py" "$PORT" "${DELAY_TARGET:?host:port to pass to}" "${DELAY_MS:-10}" ${DELAY_KBPS:-}
up delay "$PORT"
echo "DELAY_ENDPOINT=127.0.0.1:$PORT"
