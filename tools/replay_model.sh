#!/bin/sh
# One replay through the C++ model: generates the unit of a command line, of one output, and has its
# model answer the vectors.
#   replay_model.sh PROGRAM WORDS...
# Prints "ok ROWS rows compared | WORDS" or "FAILED reason | WORDS"; status 0 only when every row has
# an accepted answer.
set -u
program=$(realpath "$1")
proofs=$(dirname "$(dirname "$(realpath "$0")")")/proofs
shift
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder" || exit 1
words="$*"
fail() {
  echo "FAILED $1 | $words"
  exit 1
}
# A user's line arrives as one text from the list of cases: its words are split here.
# shellcheck disable=SC2086
timeout 300 "$program" -generateCSimulationModel $words >generator.log 2>generator.err ||
  fail "generator: $(tail -n 1 generator.err)"
cd topModel || exit 1
g++ -std=c++20 -O1 -I. -include topModel_model.h "$proofs/model_replay.cpp" topModel_model.cpp \
  -o replay 2>../compiler.log || fail "compiler: $(head -n 1 ../compiler.log)"
awk '$1 == 1' topModel_xOut.stm >accepted
widths=$(awk '{for (i = 1; i <= 3; ++i) print length($i); exit}' accepted)
# shellcheck disable=SC2086
timeout 300 ./replay $widths <topModel_xIn.stm >answers || fail "model: status $?"
# Behind valid, channel and the answer: valid, channel and the answers that are accepted.
paste -d ' ' answers accepted | awk '
  {
    good = $1 == $4 && $2 == $5 && NF > 5
    found = 0
    for (i = 6; i <= NF; ++i) found += $3 == $i || $i ~ /^-/
    if (!good || !found) {print "row " NR ": " $0; exit}
  }
  END {if (NR == 0) print "no rows"}' >wrong
[ -s wrong ] && fail "$(cat wrong)"
echo "ok $(wc -l <accepted) rows compared, 0 mismatches | $words"
