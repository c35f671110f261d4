#!/usr/bin/env bash
# Runs the fuzz programs, one after the other, and says at the end what each has found. The exit
# status is non-zero when any found something or could not be built.
#
# Usage: scripts/fuzz.sh [SECONDS]     for each program; 60 if not given
#
# In build/fuzz/: corpus/NAME keeps what a program has learnt for the next run, findings/NAME the
# inputs that it failed on, which every later run tries first, and NAME.log what it said.
set -u
root=$(dirname -- "$(dirname -- "$(readlink -f -- "${BASH_SOURCE[0]}")")")
cd -- "$root" || exit 1
source scripts/packages.sh

seconds=${1-60}
if [[ $# -gt 1 || ! $seconds =~ ^[1-9][0-9]*$ ]]; then
  echo "usage: scripts/fuzz.sh [SECONDS]" >&2
  exit 2
fi
require_packages "${fuzz_packages[@]}" || exit 1
{ cmake --preset fuzz && cmake --build --preset fuzz; } >&2 || exit 1

# fuzz NAME: a line of result. False when something was found.
fuzz() {
  local name=$1 work=build/fuzz runs status
  mkdir -p "$work/corpus/$name" "$work/findings/$name"
  # The program writes to the first directory and reads all of them.
  "$work/fuzz/tessivane_${name}_fuzz" -max_total_time="$seconds" -timeout=10 -print_final_stats=1 \
    -artifact_prefix="$work/findings/$name/" \
    "$work/corpus/$name" "$work/findings/$name" "fuzz/seeds/$name" >"$work/$name.log" 2>&1
  status=$?
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$work/$name.log")
  if [[ $status -eq 0 && -n $runs ]]; then
    printf '%-12s %9d runs, nothing found\n' "$name" "$runs"
    return
  fi
  printf '%-12s %9d runs, FAILED: %s\n' "$name" "${runs:-0}" "$(
    grep -m 1 -E '^violated: |^SUMMARY: |ERROR: ' "$work/$name.log" || echo "exit status $status")"
  printf '%13ssee %s\n' "" "$work/$name.log and $work/findings/$name/"
  return 1
}

failed=0
for source in fuzz/*.cpp; do
  fuzz "$(basename -- "$source" .cpp)" || failed=1
done
exit $failed
