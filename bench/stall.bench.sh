#!/usr/bin/env bash
# The longest GUI event-loop stall while TREE is scanned twice and both results are saved into the
# library (the second replacing the first, whose tree is freed). Target: no gap above 50 ms.
# usage: bench/stall.bench.sh BUILD_DIR TREE
set -euo pipefail
build=$1 tree=$2
work=$(mktemp -d "${TMPDIR:-/var/tmp}/tw-stall-bench.XXXXXX")
trap 'rm -rf "$work"' EXIT
QT_QPA_PLATFORM=${QT_QPA_PLATFORM:-offscreen} "$build/bench/stall_bench" "$tree" "$work"
