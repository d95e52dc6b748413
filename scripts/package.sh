#!/usr/bin/env bash
# Builds the Debian package: installs what is missing, makes a Release build in build-package/ and
# packs it with CPack. Install it with: sudo apt-get install ./build-package/vexo-studio_*.deb
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
build="$here/build-package"
# No tests or benchmarks in the package; a newer compiler's new warning must not stop a release build.
"$here/scripts/setup.sh" "$build" -DCMAKE_BUILD_TYPE=Release -DVEXO_BUILD_TESTS=OFF -DVEXO_BUILD_BENCH=OFF \
    -DVEXO_WERROR=OFF
rm -f "$build"/vexo-studio_*.deb
(cd "$build" && cpack -G DEB)
deb=$(ls "$build"/vexo-studio_*.deb)
echo "Package: $deb"
