#!/usr/bin/env bash
# Runs the benchmark suite and writes its markdown table.
#
#   bench/run_suite.sh [BUILD_DIR]     (default build/default, already built)
#
# Each benchmark runs in a process of its own, so the peak resident memory it
# reports is its own. The JSON of every run and the table, suite.md, land in
# BUILD_DIR/bench/suite/; the table is printed as well. bench_peers exists only
# where OpenCV was found when configuring.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build/default}
out="$build/bench/suite"
mkdir -p "$out"
rm -f "$out"/*.json

for program in bench_suite bench_peers; do
    executable="$build/bench/suite/$program"
    [[ -x "$executable" ]] || continue
    while read -r name; do
        [[ -n "$name" ]] || continue
        file="$out/$program-$(tr '/:' '__' <<<"$name").json"
        echo "run_suite: $name" >&2
        "$executable" --benchmark_filter="^${name}\$" --benchmark_format=json --benchmark_out="$file" \
            --benchmark_out_format=json >/dev/null
    done < <("$executable" --benchmark_list_tests)
done

jq -rs -f bench/suite/table.jq "$out"/*.json >"$out/suite.md"
cat "$out/suite.md"
