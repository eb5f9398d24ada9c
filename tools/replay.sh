#!/bin/sh
# One replay: generates the unit of a command line, has the simulator replay its vectors.
#   replay.sh PROGRAM WORDS...
# Prints "ok ROWS-LINE | WORDS" or "FAILED reason | WORDS"; status 0 only when rows were compared and
# every one passed.
set -u
case $1 in
  /*) program=$1 ;;
  *) program=$PWD/$1 ;;
esac
shift
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder" || exit 1
fail() {
  echo "FAILED $1 | $words"
  exit 1
}
words="$*"
# A user's line arrives as one text from the list of cases: its words are split here.
# shellcheck disable=SC2086
timeout 300 "$program" $words >generator.log 2>generator.err ||
  fail "generator: $(tail -n 1 generator.err)"
timeout 900 ./topModel/simulate.sh >simulation.log 2>&1 ||
  fail "simulator: $(tail -n 3 simulation.log | tr '\n' ';')"
while read -r line; do verdict=$line; done <simulation.log
case $verdict in
  "0 rows"*) fail "simulator: no row was compared" ;;
esac
echo "ok $verdict | $words"
