#!/usr/bin/env bash
# The page of deliberate oddities is the one that the marks in the sources make.
set -euo pipefail
cd "$(dirname "$0")/../.."
scripts/deliberate.sh | diff -u docs/deliberate.md - || {
    echo "docs/deliberate.md is not current: scripts/deliberate.sh >docs/deliberate.md" >&2
    exit 1
}
