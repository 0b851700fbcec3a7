#!/usr/bin/env bash
# Runs the named test labels again under a sanitizer build: run_sanitizers.sh asan|tsan LABEL...
# Any sanitizer report fails the run.
set -eu
flavour=$1
shift
root=$(cd "$(dirname "$0")/.." && pwd)
dir=$(bash "$root/scripts/build.sh" "$flavour")
labels=$(IFS='|'; echo "$*")
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1:halt_on_error=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
export TSAN_OPTIONS=${TSAN_OPTIONS:-halt_on_error=1:second_deadlock_stack=1}
cd "$dir"
ctest --output-on-failure --timeout 600 -L "^($labels)\$"
