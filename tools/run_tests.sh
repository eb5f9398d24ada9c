#!/bin/sh
# Runs every test of a build folder and ends with the line "N passed, N failed".
#   run_tests.sh BUILD_FOLDER
set -u
log=$(mktemp)
trap 'rm -f "$log"' EXIT
ctest --test-dir "$1" --output-on-failure -j 2 --timeout 900 2>&1 | tee "$log"
counts=$(sed -n 's/.*tests passed, \([0-9]*\) tests failed out of \([0-9]*\)/\1 \2/p' "$log" | tail -n 1)
failed=${counts% *}
total=${counts#* }
if [ -z "$counts" ] || [ "$total" = 0 ]; then
  echo "0 passed, 1 failed"
  exit 1
fi
echo "$((total - failed)) passed, $failed failed"
[ "$failed" = 0 ]
