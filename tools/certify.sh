#!/bin/sh
# The full replay: a pairwise cover of formats, settings and languages for every operator word.
#   certify.sh PROGRAM FOLDER
# Each case is one command with one result file under FOLDER; a run that was stopped goes on where it
# was (delete FOLDER to begin anew). Ends with a summary in FOLDER/summary.txt; status 0 only when
# every case passed.
set -eu
here=$(dirname "$(realpath "$0")")
program=$(realpath "$1")
folder=$2
mkdir -p "$folder/results"
"$here/replay_cases.py" >"$folder/cases.txt"
jobs=${JOBS:-$(nproc)}
echo "$(wc -l <"$folder/cases.txt") cases, $jobs at a time"
parallel --will-cite --jobs "$jobs" --resume-failed --joblog "$folder/jobs.log" \
  --results "$folder/results/{#}" "$here/replay.sh" "$program" :::: "$folder/cases.txt" |
  awk -v total="$(wc -l <"$folder/cases.txt")" '
    $1 != "ok" {print}
    ++n % 20 == 0 {printf "%d more done, of %d cases in all\n", n, total; fflush()}' || true
find "$folder/results" -name '*[0-9]' -exec cat {} + >"$folder/verdicts.txt"
total=$(wc -l <"$folder/cases.txt")
passed=$(grep -c '^ok ' "$folder/verdicts.txt" || true)
rows=$(sed -n 's/^ok \([0-9]*\) rows.*/\1/p' "$folder/verdicts.txt" | awk '{s += $1} END {print s + 0}')
{
  echo "$passed of $total cases passed, $rows rows compared"
  grep '^FAILED' "$folder/verdicts.txt" || true
} | tee "$folder/summary.txt"
[ "$passed" = "$total" ]
