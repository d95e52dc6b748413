#!/usr/bin/env bash
# Regenerates the bundled sample flight from the generator (deterministic for its seed).
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
bin=${1:-$here/build/cli/vexo-log}
"$bin" generate --seconds 600 --rate 5 --devices 6 --seed 2026 --out "$here/samples/sample-flight.log"
