#!/bin/sh
# What takes longer than tests may, the quicker things first:
#   all pairs of FPLib patterns, which the files show few of; the long tests of functions; functions
#   in wide formats, a million inputs of each in double precision;
#   all patterns of 16-bit formats through the C++ models of functions, then through their VHDL;
#   the full replay: a pairwise cover of formats, settings, device families, languages and kinds of
#   vectors for every operator word, and one for the model flow: an hour of one core;
#   the functions of single precision, all 2^32 inputs (tools/exhaustive.py), in docs/accuracy.md.
#   certify.sh PROGRAM FOLDER
# Each case is one command, what it prints is kept in FOLDER/verdicts.txt; a run that was stopped
# goes on where it was (delete FOLDER to begin anew, as one must when the cases are others). JOBS at
# a time, 2 unless the environment says otherwise. Ends with a summary in FOLDER/summary.txt; status
# 0 only when every case passed.
set -eu
here=$(dirname "$(realpath "$0")")
program=$(realpath "$1")
built=$(dirname "$program")
mkdir -p "$2"
folder=$(realpath "$2")
jobs=${JOBS:-2}
if [ -w /dev/shm ]; then  # many small files
  TMPDIR=$(mktemp -d -p /dev/shm)
  export TMPDIR
  trap 'rm -rf "$TMPDIR"' EXIT
  trap 'exit 1' HUP INT TERM
fi
"$built/function_draws" words >"$folder/drawn.txt"
for kind in halves kiln vectors; do  # a cover that lacks a pair ends the run
  "$here/replay_cases.py" --kind "$kind" >"$folder/$kind.txt"
done
{
  for format in "2 1" "3 2" "4 3"; do echo "$built/fplib_pairs $format"; done
  long="the long tests of functions"
  echo "$built/backend_functions_test --gtest_also_run_disabled_tests" \
    "--gtest_filter='*DISABLED*' >$folder/functions.txt && echo ok $long ||" \
    "{ echo FAILED $long, see $folder/functions.txt; false; }"
  for format in "20000 6 9" "20000 7 16" "20000 9 30" "20000 11 40" "5000 15 64" "1000000 11 52"; do
    sed "s|^|$built/function_draws $format |" "$folder/drawn.txt"
  done
  sed "s|^|$here/replay_model.sh $program |" "$folder/halves.txt"
  for kind in halves kiln vectors; do
    sed "s|^|$here/replay.sh $program |" "$folder/$kind.txt"
  done
} >"$folder/cases.new"
if [ -f "$folder/jobs.log" ] && ! cmp -s "$folder/cases.new" "$folder/cases.txt"; then
  echo "$folder is of other cases: delete it to begin anew"
  exit 1
fi
mv "$folder/cases.new" "$folder/cases.txt"
total=$(wc -l <"$folder/cases.txt")
echo "$total cases, $jobs at a time"
parallel --will-cite --jobs "$jobs" --resume-failed --joblog "$folder/jobs.log" \
  :::: "$folder/cases.txt" | tee -a "$folder/verdicts.txt" |
  while read -r verdict of; do
    [ "$verdict" = ok ] || echo "$verdict $of"
    said=$((${said:-0} + 1))
    [ $((said % 20)) != 0 ] || echo "$(($(wc -l <"$folder/jobs.log") - 1)) of $total cases done"
  done || true
# A case that was run again stands in the log twice.
awk -F '\t' 'NR > 1 {status[$1] = $7; command[$1] = $9}
  END {for (k in status) if (status[k] != 0) print "FAILED " command[k]}' "$folder/jobs.log" \
  >"$folder/failed.txt"
exhaustive=$folder/exhaustive
accuracy_passed=yes
"$here/exhaustive.py" prepare "$program" "$exhaustive"
echo "single precision: $(wc -l <"$exhaustive/shards.txt") parts, $jobs at a time"
parallel --will-cite --bar --jobs "$jobs" --joblog "$exhaustive/jobs.log" \
  :::: "$exhaustive/shards.txt" || accuracy_passed=no
"$here/exhaustive.py" table "$exhaustive" >"$exhaustive/accuracy.md" || accuracy_passed=no
cp "$exhaustive/accuracy.md" "$here/../docs/accuracy.md"
done=$(awk -F '\t' 'NR > 1 {seen[$1]} END {print length(seen)}' "$folder/jobs.log")
passed=$((done - $(wc -l <"$folder/failed.txt")))
rows=$(sed -n 's/^ok \([0-9]*\) rows.*/\1/p' "$folder/verdicts.txt" | awk '{s += $1} END {print s + 0}')
{
  echo "$passed of $total cases passed, $rows rows compared"
  echo "all of single precision passed: $accuracy_passed"
  cat "$folder/failed.txt"
} | tee "$folder/summary.txt"
[ "$passed" = "$total" ] && [ "$accuracy_passed" = yes ]
