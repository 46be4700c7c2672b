#!/usr/bin/env bash
# Sets up, builds qvarray and runs its command-line tool: `scripts/run.sh [qvtool arguments]`
# (default: `solve`, a dense solve of the built-in example).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
cmake --preset release >/dev/null
cmake --build --preset release --target qvtool
[ $# -gt 0 ] || set -- solve
exec build/release/tools/qvtool/qvtool "$@"
