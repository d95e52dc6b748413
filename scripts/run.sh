#!/usr/bin/env bash
# Sets up, builds and runs the program on the bundled sample flight.
# Until the studio window exists this is the command-line companion's summary of the flight.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
"$here/scripts/setup.sh" "$here/build" -DCMAKE_BUILD_TYPE=RelWithDebInfo
exec "$here/build/cli/vexo-log" info "$here/samples/sample-flight.log"
