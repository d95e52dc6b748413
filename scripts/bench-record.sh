#!/usr/bin/env bash
# CPU use of `vexo-log record` against the bus simulator on a pseudo-terminal: the share of one core the
# record process takes while it records (and each of its threads), and the telemetry records per second.
# Usage: scripts/bench-record.sh [BUILD_DIR] [SECONDS]   (defaults: build-release, 20)
# VEXO_LOG and VEXO_BUS_SIM override the programs, e.g. to compare two builds.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$here/build-release}
seconds=${2:-20}
log=${VEXO_LOG:-$build/cli/vexo-log}
sim=${VEXO_BUS_SIM:-$build/tests/support/vexo-bus-sim}
work=$(mktemp -d)
simpid=
recpid=
trap 'kill $simpid $recpid 2>/dev/null || true; wait 2>/dev/null || true; rm -rf "$work"' EXIT

"$sim" --link "$work/ttyLX" --quiet --seed 1 >/dev/null &
simpid=$!
for _ in $(seq 50); do [ -e "$work/ttyLX" ] && break; sleep 0.1; done
"$log" record --port "$work/ttyLX" --seconds $((seconds + 4)) --out "$work/flight.log" >"$work/out.txt" &
recpid=$!

# utime + stime in clock ticks (fields 14 and 15 of stat) of the process and of each thread.
snapshot() {
    for stat in "/proc/$recpid/stat" /proc/$recpid/task/*/stat; do
        awk -v name="$(cat "${stat%/stat}/comm")" '{ sub(/^.*\) /, ""); print name, $12 + $13 }' "$stat"
    done
}
records() { awk '/records/ { r = $5 } END { print r + 0 }' "$work/out.txt"; }

sleep 2 # start-up and device discovery are not what is measured
t0=$(date +%s.%N)
snapshot >"$work/before"
r0=$(records)
sleep "$seconds"
t1=$(date +%s.%N)
snapshot >"$work/after"
r1=$(records)
wait $recpid
recpid=
paste "$work/before" "$work/after" | awk -v hz="$(getconf CLK_TCK)" -v t0="$t0" -v t1="$t1" -v r="$((r1 - r0))" '
    { share = 100 * ($4 - $2) / hz / (t1 - t0) }
    NR == 1 { printf "record: %.2f %% of one core over %.1f s, %.0f records/s\n", share, t1 - t0, r / (t1 - t0); next }
    { printf "  thread %-10s %.2f %%\n", $1, share }'
