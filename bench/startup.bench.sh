#!/usr/bin/env bash
# Start-up of the whole tarnwell process with a full History: time to the main window's first
# paint and to the hand-over of the restored scans, in ms since the process started.
# usage: bench/startup.bench.sh BUILD_DIR [TREE] [RUNS]
#   TREE is not used (scripts/bench passes one); the History is built by library_bench:
#   200 retained scans of 100,000 items, kept in $TW_STARTUP_BENCH_DIR (default
#   /var/tmp/tw-startup-bench, about 3.7 GB) and reused by later runs.
set -euo pipefail
build=$1 runs=${3:-10}
work=${TW_STARTUP_BENCH_DIR:-/var/tmp/tw-startup-bench}
mkdir -p "$work"
"$build/bench/library_bench" "$work" 200 100000 0 0 | grep -v '^median' || true
runtime=$(mktemp -d "${TMPDIR:-/tmp}/tw-startup-run.XXXXXX")
chmod 700 "$runtime"
trap 'rm -rf "$runtime"' EXIT
mkdir -p "$work/home"

evict() {  # drop the library's pages from the page cache
  python3 - "$work/data/Tarnwell" <<'PY'
import os, sys
for folder, _, names in os.walk(sys.argv[1]):
    for name in names:
        try:
            fd = os.open(os.path.join(folder, name), os.O_RDONLY)
        except OSError:
            continue
        os.posix_fadvise(fd, 0, 0, os.POSIX_FADV_DONTNEED)
        os.close(fd)
PY
}

run() {
  env -u DBUS_SESSION_BUS_ADDRESS HOME="$work/home" XDG_DATA_HOME="$work/data" \
    XDG_CONFIG_HOME="$work/config" XDG_RUNTIME_DIR="$runtime" \
    QT_QPA_PLATFORM="${QT_QPA_PLATFORM:-offscreen}" TARNWELL_TRACE_STARTUP=quit \
    timeout 30 "$build/tarnwell" 2>/dev/null
}

for kind in warm cold; do
  painted=() restored=()
  run >/dev/null  # warm-up
  for ((i = 0; i < runs; i++)); do
    [ "$kind" = cold ] && evict
    out=$(run)
    painted+=("$(awk '$1 == "painted" { print $2 }' <<<"$out")")
    restored+=("$(awk '$1 == "restored" { print $2 }' <<<"$out")")
  done
  python3 - "$kind" "$runs" "${painted[*]}" "${restored[*]}" <<'PY'
import statistics, sys
kind, runs = sys.argv[1], sys.argv[2]
for label, text in (("painted", sys.argv[3]), ("restored", sys.argv[4])):
    values = [float(v) for v in text.split()]
    print(f"{kind} start-up, {runs} runs: {label:8} median {statistics.median(values):7.1f} ms, "
          f"max {max(values):7.1f} ms  ({' '.join(f'{v:.0f}' for v in values)})")
PY
done
