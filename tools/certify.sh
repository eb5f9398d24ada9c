#!/bin/sh
# What takes longer than tests may:
#   the functions of single precision, all 2^32 inputs (tools/exhaustive.py), in docs/accuracy.md;
#   all patterns of 16-bit formats through the C++ models of functions;
#   the full replay: a pairwise cover of formats, settings and languages for every operator word,
#   once for each kind of vectors; all pairs of FPLib patterns, which the files show few of;
#   functions in wide formats; and the long tests of functions.
#   certify.sh PROGRAM FOLDER
# Each case is one command with one result file under FOLDER; a run that was stopped goes on where it
# was (delete FOLDER to begin anew). Ends with a summary in FOLDER/summary.txt; status 0 only when
# every case passed.
set -eu
here=$(dirname "$(realpath "$0")")
program=$(realpath "$1")
folder=$2
mkdir -p "$folder/results"
jobs=${JOBS:-2}
for kind in random exhaustive special sweeps further; do
  "$here/replay_cases.py" --kind "$kind" | sed "s|^|$here/replay.sh $program |"
done >"$folder/cases.txt"
"$here/replay_cases.py" --kind model | sed "s|^|$here/replay_model.sh $program |" >>"$folder/cases.txt"
pairs=$folder/fplib_pairs.txt
pairs_passed=yes
for format in "2 1" "3 2" "4 3"; do
  # shellcheck disable=SC2086
  "$(dirname "$program")/fplib_pairs" $format || pairs_passed=no
done >"$pairs"
echo "$(grep -c '^ok' "$pairs" || true) of $(grep -c '^ok\|^FAILED' "$pairs" || true) sets of FPLib pairs passed"
# A million inputs of each function in double precision, fewer in odd formats.
draws=$folder/function_draws.txt
draws_passed=yes
for run in "1000000 11 52" "20000 6 9" "20000 7 16" "20000 9 30" "20000 11 40" "5000 15 64"; do
  # shellcheck disable=SC2086
  "$(dirname "$program")/function_draws" $run || draws_passed=no
done >"$draws"
echo "$(grep -c '^ok' "$draws" || true) of $(grep -c '^ok\|^FAILED' "$draws" || true) sets of function inputs passed"
functions=$folder/functions.txt
functions_passed=yes
"$(dirname "$program")/backend_functions_test" --gtest_also_run_disabled_tests \
  --gtest_filter='*DISABLED*' >"$functions" || functions_passed=no
echo "long tests of functions passed: $functions_passed"
echo "$(wc -l <"$folder/cases.txt") cases, $jobs at a time"
parallel --will-cite --jobs "$jobs" --resume-failed --joblog "$folder/jobs.log" \
  --results "$folder/results/{#}" :::: "$folder/cases.txt" |
  awk -v total="$(wc -l <"$folder/cases.txt")" '
    $1 != "ok" {print}
    ++n % 20 == 0 {printf "%d more done, of %d cases in all\n", n, total; fflush()}' || true
find "$folder/results" -name '*[0-9]' -exec cat {} + >"$folder/verdicts.txt"
exhaustive=$folder/exhaustive
accuracy_passed=yes
"$here/exhaustive.py" prepare "$program" "$exhaustive"
echo "single precision: $(wc -l <"$exhaustive/shards.txt") parts, $jobs at a time"
parallel --will-cite --bar --jobs "$jobs" --joblog "$exhaustive/jobs.log" \
  :::: "$exhaustive/shards.txt" || accuracy_passed=no
"$here/exhaustive.py" table "$exhaustive" >"$exhaustive/accuracy.md" || accuracy_passed=no
cp "$exhaustive/accuracy.md" "$here/../docs/accuracy.md"
total=$(wc -l <"$folder/cases.txt")
passed=$(grep -c '^ok ' "$folder/verdicts.txt" || true)
rows=$(sed -n 's/^ok \([0-9]*\) rows.*/\1/p' "$folder/verdicts.txt" | awk '{s += $1} END {print s + 0}')
{
  echo "$passed of $total cases passed, $rows rows compared"
  echo "all of single precision passed: $accuracy_passed"
  grep -h '^FAILED' "$folder/verdicts.txt" "$pairs" "$draws" || true
} | tee "$folder/summary.txt"
[ "$passed" = "$total" ] && [ "$pairs_passed" = yes ] && [ "$draws_passed" = yes ] &&
  [ "$functions_passed" = yes ] && [ "$accuracy_passed" = yes ]
