#!/bin/sh
# Replays a spread of settings for one operator word, both languages among them.
#   replay_word.sh PROGRAM WORD [CASES [KIND]]
# KIND is a kind of vectors as replay_cases.py has them; random when left out.
here=$(dirname "$(realpath "$0")")
"$here/replay_cases.py" --kind "${4:-random}" --spread "${3:-3}" "$2" | {
  status=0
  while read -r line; do
    "$here/replay.sh" "$1" "$line" </dev/null || status=1
  done
  exit $status
}
