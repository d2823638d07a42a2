#!/usr/bin/env bash
# Duplicate search figures on a saved scan of TREE (made with tarnwell-scan -o when SCAN does not
# exist yet), warm cache: each round restores the scan without checksums, then times
#   xargs -0 -P2 sha256sum over the candidate list     (reference of a first search)
#   tarnwell-scan --duplicates, first search            (hashes every candidate)
#   the candidate query and an lstat of every candidate (reference of a repeated search)
#   tarnwell-scan --duplicates, repeated search         (reads nothing)
# usage: bench/dups.bench.sh BUILD_DIR TREE SCAN [ROUNDS]
set -euo pipefail
build=$1 tree=$2 scan=$3 rounds=${4:-1}
out=$(mktemp -d "${TMPDIR:-/tmp}/tw-dups-bench.XXXXXX")
trap 'rm -rf "$out"' EXIT
[ -f "$scan" ] || "$build/tarnwell-scan" --json -o "$scan" "$tree"
seconds() {
  local start=$(date +%s%N)
  "$@" >/dev/null
  local ms=$((($(date +%s%N) - start) / 1000000))
  printf '%d.%03d' $((ms / 1000)) $((ms % 1000))
}
cp "$scan" "$out/work.sqlite"
"$build/bench/dups_bench" "$out/work.sqlite" "$out/candidates"
xargs -0 -P2 cat <"$out/candidates" >/dev/null   # warm the file cache
for round in $(seq "$rounds"); do
  cp "$scan" "$out/work.sqlite"
  sha=$(seconds sh -c "xargs -0 -P2 sha256sum <'$out/candidates'")
  first=$("$build/tarnwell-scan" --json --open "$out/work.sqlite" --duplicates)
  reference=$("$build/bench/dups_bench" "$out/work.sqlite" /dev/null)
  repeated=$("$build/tarnwell-scan" --json --open "$out/work.sqlite" --duplicates)
  echo "round $round, load $(cut -d' ' -f1-3 /proc/loadavg)"
  echo "  sha256sum -P2: ${sha} s"
  echo "  first search: $first"
  echo "  reference:    $reference"
  echo "  repeated:     $repeated"
done
