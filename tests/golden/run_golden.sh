#!/usr/bin/env bash
# Golden tests of the host program. Each case is a directory under tests/golden/cases with
#   cmd       the arguments to give the program; the word DIR stands for a fresh company
#             directory
#   setup     (optional) a command run on DIR first, "new" or "demo"
#   expected  the exact standard output
# Dates print from a fixed today (the host's --today option) so the output is stable.
set -u
bin=$1
root=$2
status=0
shopt -s nullglob
for case_dir in "$root"/cases/*/; do
  name=$(basename "$case_dir")
  work=$(mktemp -d)
  if [ -f "$case_dir/setup" ]; then
    "$bin" --today 2026-11-22 "$(cat "$case_dir/setup")" "$work/co" >/dev/null ||
      { echo "FAIL $name: setup"; status=1; rm -rf "$work"; continue; }
  fi
  args=$(sed "s#DIR#$work/co#g" "$case_dir/cmd")
  # shellcheck disable=SC2086
  actual=$("$bin" --today 2026-11-22 $args 2>&1 | sed "s#$work/co#DIR#g")
  if [ "$actual" != "$(cat "$case_dir/expected")" ]; then
    echo "FAIL $name"
    diff <(echo "$actual") "$case_dir/expected" | head -40
    status=1
  else
    echo "ok   $name"
  fi
  rm -rf "$work"
done
exit $status
