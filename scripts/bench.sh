#!/usr/bin/env bash
# Builds an optimised tree and runs the benchmarks on a generated ~200 MB flight (made once, kept in
# bench-data/). Figures go to standard output.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
"$here/scripts/setup.sh" "$here/build-release" -DCMAKE_BUILD_TYPE=Release -DVEXO_BUILD_TESTS=OFF
data="$here/bench-data"
mkdir -p "$data"
log="$data/flight-200mb.log"
if [ ! -s "$log" ]; then
    echo "Generating $log ..."
    "$here/build-release/cli/vexo-log" generate --seconds 11400 --rate 50 --devices 6 --seed 1 --out "$log"
fi
"$here/build-release/bench/bench_native_log" "$log"
QT_LOGGING_RULES="*.debug=false" "$here/build-release/bench/bench_link" 10
"$here/build-release/bench/bench_database" "$log"
QT_LOGGING_RULES="*.debug=false" "$here/build-release/bench/bench_studio" "$here/samples/sample-flight.log" "$log"
"$here/build-release/bench/bench_readers" 100
"$here/build-release/bench/bench_graph"
"$here/build-release/bench/bench_table"
"$here/build-release/bench/bench_news"
"$here/build-release/bench/bench_expression"
"$here/scripts/bench-record.sh" "$here/build-release" 20
"$here/build-release/bench/bench_map"
QT_LOGGING_RULES="*.debug=false" "$here/build-release/bench/bench_download" 200
QT_LOGGING_RULES="*.debug=false" "$here/build-release/bench/bench_tx_update" 500
QT_LOGGING_RULES="*.debug=false" "$here/build-release/bench/bench_flash" 3
QT_LOGGING_RULES="*.debug=false" "$here/build-release/bench/bench_quick"
QT_QPA_PLATFORM=offscreen "$here/build-release/bench/bench_logbook"
