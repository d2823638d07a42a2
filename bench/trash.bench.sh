#!/usr/bin/env bash
# Cleanup figures on TREE: 10,000 of its files moved to the Trash and marked deleted in the saved
# scan, then Undo Cleanup (restore and unmark). The tree ends as it began; the Trash used lies
# beside it, on its own disk, and is removed afterwards.
# Each round leaves the tree and the saved scan as they were, so rounds repeat the same work.
# usage: bench/trash.bench.sh BUILD_DIR TREE [COUNT] [ROUNDS]
#   TREE is made first when missing (MKTREE: the path of ../shared/bench/mktree.py)
set -euo pipefail
build=$1 tree=$2 count=${3:-10000} rounds=${4:-3}
mktree=${MKTREE:-$(cd "$(dirname "$0")/.." && pwd)/../shared/bench/mktree.py}
if [ ! -d "$tree" ]; then
  python3 "$mktree" "$tree" 1000000 1
fi
out=$(mktemp -d "$(dirname "$tree")/.tw-trash-bench.XXXXXX")
trap 'rm -rf "$out"' EXIT
"$build/tarnwell-scan" --json -o "$out/scan.sqlite" "$tree"
for _ in $(seq "$rounds"); do
  "$build/bench/cleanup_bench" "$out/scan.sqlite" "$out/Trash" "$count"
done
