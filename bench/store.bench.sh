#!/usr/bin/env bash
# Scan database figures on TREE: write against the plain C reference, open, wide folder, queries.
# usage: bench/store.bench.sh BUILD_DIR TREE
set -euo pipefail
build=$1 tree=$2
out=$(mktemp -d "${TMPDIR:-/tmp}/tw-store-bench.XXXXXX")
trap 'rm -rf "$out"' EXIT
"$build/bench/store_bench" "$tree" "$out" 3
"$build/tarnwell-scan" --json -o "$out/scan.sqlite" "$tree"
"$build/tarnwell-scan" --json --open "$out/scan.sqlite"
