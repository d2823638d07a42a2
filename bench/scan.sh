#!/usr/bin/env bash
# Times a whole scan of TREE by tarnwell-scan against the lower-bound probe and other tools, warm
# cache, and prints tarnwell-scan's own figures (memory per entry among them).
# usage: bench/scan.sh BUILD_DIR TREE [RUNS]
set -euo pipefail
build=$1 tree=$2 runs=${3:-10}
scan="$build/tarnwell-scan"
probe="$build/walkprobe"
results="$build/bench-scan.json"

commands=("$probe $tree 2" "$scan --json --threads 2 $tree")
names=("walkprobe (2 threads)" "tarnwell-scan --threads 2")
command -v ncdu >/dev/null && { commands+=("ncdu -0 -x -o /dev/null $tree"); names+=("ncdu -x"); }
command -v gdu >/dev/null && { commands+=("gdu -n -p -x $tree"); names+=("gdu -n -x"); }
commands+=("du -s -x $tree"); names+=("du -s -x")

# Warm the caches once so every command meets the same state.
"$probe" "$tree" 2 >/dev/null

args=()
for i in "${!commands[@]}"; do args+=(-n "${names[$i]}" "${commands[$i]}"); done
hyperfine -N --warmup 1 --runs "$runs" --export-json "$results" "${args[@]}" >/dev/null

python3 - "$results" <<'PY'
import json, sys
r = json.load(open(sys.argv[1]))["results"]
base = r[0]["mean"]
print(f"{'command':30} {'mean s':>8} {'min s':>8} {'× probe':>8}")
for x in r:
    print(f"{x['command']:30} {x['mean']:8.3f} {x['min']:8.3f} {x['mean']/base:8.2f}")
PY

echo
line=$("$scan" --json --threads 2 "$tree")
echo "$line"
python3 - "$line" <<'PY'
import json, sys
j = json.loads(sys.argv[1])
per = (j["peak_rss_bytes"] - j["baseline_rss_bytes"]) / max(1, j["entries"])
print(f"memory above baseline: {per:.1f} bytes per entry ({j['entries']} entries, {j['nodes']} nodes)")
PY
