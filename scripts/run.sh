#!/usr/bin/env bash
# Sets up, builds and opens the studio on the bundled sample flight. Without a display it runs under
# Xvfb, saves a screenshot of the main window and says where.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
"$here/scripts/setup.sh" "$here/build" -DCMAKE_BUILD_TYPE=RelWithDebInfo
studio="$here/build/app/vexo-studio"
sample="$here/samples/sample-flight.log"
if [ -n "${DISPLAY:-}" ] || [ -n "${WAYLAND_DISPLAY:-}" ]; then
    exec "$studio" "$sample"
fi
shot="$here/build/vexo-studio-screenshot.png"
echo "No display: running the studio under Xvfb and saving a screenshot."
# A private data folder, so a headless run never touches the user's settings or database.
export XDG_DATA_HOME="$here/build/headless-data"
xvfb-run -a -s "-screen 0 1600x1000x24" "$studio" "$sample" --screenshot "$shot"
echo "Screenshot of the main window: $shot"
