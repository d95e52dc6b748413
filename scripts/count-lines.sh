#!/bin/sh
# Lines of code (not blank, not a whole-line comment) of the product and of its tests, and their ratio.
# The bus simulator and other test support count with neither: they are tools, not tests.
cd "$(dirname "$0")/.." || exit 1
count() {
    find "$@" \( -name '*.cpp' -o -name '*.h' -o -name '*.qml' \) -print0 | xargs -0 cat |
        grep -v '^[[:space:]]*$' | grep -v '^[[:space:]]*//' | wc -l
}
product=$(count app cli database link telemetry widgets tools transmitter)
tests=$(count tests/app tests/cli tests/database tests/link tests/telemetry tests/tools tests/widgets)
echo "product $product"
echo "tests   $tests"
echo "ratio   $(awk "BEGIN { printf \"%.0f %%\", 100 * $tests / $product }")"
