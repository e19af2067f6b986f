#!/bin/bash
# A bucket of a million keys (see manykeys.py), to be listed.   manykeys.sh DIR [start|stop]   env: MANY_PORT, MANY_KEYS
. "$(dirname "$0")/lib.sh"
PORT=${MANY_PORT:-9600}
if [ "$ACTION" = stop ]; then reap many; exit; fi
need python3
spawn many python3 "$HERE/manykeys.py" "$PORT" "${MANY_KEYS:-1000000}"
up many "$PORT"
echo "MANY_ENDPOINT=http://127.0.0.1:$PORT"
