#!/usr/bin/env bash
# Sets up and runs every test: the normal build, then the same tests under address and
# undefined-behaviour sanitizers (skip those with VEXO_SKIP_SANITIZERS=1).
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
jobs=$(nproc)

"$here/scripts/setup.sh" "$here/build" -DCMAKE_BUILD_TYPE=RelWithDebInfo
"$here/scripts/check-format.sh"
(cd "$here/build" && ctest --output-on-failure -j "$jobs")

if [ "${VEXO_SKIP_SANITIZERS:-0}" != "1" ]; then
    "$here/scripts/setup.sh" "$here/build-asan" -DCMAKE_BUILD_TYPE=Debug -DVEXO_SANITIZE=ON -DVEXO_BUILD_BENCH=OFF
    (cd "$here/build-asan" && ASAN_OPTIONS=detect_leaks=1:fast_unwind_on_malloc=0 \
        LSAN_OPTIONS=suppressions="$here/tests/lsan.supp":print_suppressions=0 UBSAN_OPTIONS=print_stacktrace=1 \
        ctest --output-on-failure -j "$jobs")
fi
