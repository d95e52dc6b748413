#!/usr/bin/env bash
# Fails when a source file does not match .clang-format, naming the files and the command that fixes them.
set -euo pipefail
cd "$(dirname "$0")/.."
mapfile -t files < <(git ls-files '*.cpp' '*.h')
bad=()
for f in "${files[@]}"; do
    [ -f "$f" ] || continue
    clang-format --dry-run --Werror "$f" >/dev/null 2>&1 || bad+=("$f")
done
if [ ${#bad[@]} -gt 0 ]; then
    echo "These files do not match .clang-format:" >&2
    printf '  %s\n' "${bad[@]}" >&2
    echo "Fix them with: git ls-files '*.cpp' '*.h' | xargs clang-format -i" >&2
    exit 1
fi
echo "Formatting: ${#files[@]} files match .clang-format"
