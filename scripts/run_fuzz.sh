#!/usr/bin/env bash
# Builds the fuzz flavour and runs every libFuzzer harness for SECONDS (default 60), one after the
# other in a single process each, starting from a scratch copy of its seed corpus and its kept crash
# inputs: the committed corpus never grows. Prints, per harness, the executions, executions per
# second and the coverage libFuzzer reached (cov: edges, ft: features); fails when any harness
# crashed, timed out or ran out of memory, leaving the input under build-fuzz/fuzz-artifacts/.
# Usage: run_fuzz.sh [SECONDS]
set -eu
seconds=${1:-60}
root=$(cd "$(dirname "$0")/.." && pwd)
bash "$root/scripts/setup.sh"
dir=$(bash "$root/scripts/build.sh" fuzz)
fuzz="$root/tests/fuzz"
artifacts="$dir/fuzz-artifacts"
work=$(mktemp -d /tmp/korvel_run_fuzz_XXXXXX)
trap 'rm -rf "$work"' EXIT

# harness:max_len:close_fd_mask. Inputs just beyond each reader's limits (the resolver's download,
# the playlist's line buffer) must fit; the program's console output and the decoders' warnings
# would only slow the run down.
harnesses=(fuzz_ini:4096:1 fuzz_playlist_map:8192:1 fuzz_icy_title:4096:1 fuzz_url_resolver:8192:1
           fuzz_config:2048:3 fuzz_source_chain:65536:3)

failed=()
printf '%-20s %12s %8s %7s %7s  %s\n' harness executions exec/s cov ft result
for entry in "${harnesses[@]}"; do
    IFS=: read -r name max_len fd_mask <<<"$entry"
    mkdir -p "$work/$name" "$artifacts/$name"
    cp -r "$fuzz/corpus/$name/." "$work/$name/"
    seeds=("$work/$name")
    [ -d "$fuzz/regressions/$name" ] && seeds+=("$fuzz/regressions/$name")
    log="$artifacts/$name.log"
    status=0
    (cd "$work" && "$dir/tests/fuzz/$name" -max_total_time="$seconds" -max_len="$max_len" -timeout=30 \
        -close_fd_mask="$fd_mask" -print_final_stats=1 -artifact_prefix="$artifacts/$name/" "${seeds[@]}") \
        >"$log" 2>&1 || status=$?
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
    rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log" | tail -1)
    cov=$(grep -o 'cov: [0-9]*' "$log" | tail -1 | cut -d' ' -f2)
    ft=$(grep -o 'ft: [0-9]*' "$log" | tail -1 | cut -d' ' -f2)
    result=ok
    if [ "$status" -ne 0 ]; then
        result="FAILED (exit $status, see $log)"
        failed+=("$name")
    fi
    printf '%-20s %12s %8s %7s %7s  %s\n' "$name" "${runs:-?}" "${rate:-?}" "${cov:-?}" "${ft:-?}" "$result"
done
if [ ${#failed[@]} -ne 0 ]; then
    echo "run_fuzz.sh: crashes in ${failed[*]}; inputs in $artifacts (keep each under tests/fuzz/regressions/<harness>/ once fixed)" >&2
    exit 1
fi
