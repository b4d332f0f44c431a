#!/usr/bin/env bash
# Runs one golden case of the host program:
#   run_golden.sh BASICS GOLDEN_TOOL CASE_DIR VERSION
# A case directory holds
#   cmd              the arguments to give the program; the word DIR stands for the case's
#                    company directory, which does not exist unless company or setup makes it
#   company          (optional) "new" or "demo": the command that makes the company first
#   setup            (optional) a shell script run after that with DIR as its argument, to
#                    put the company in the state the case needs; GOLDEN_TOOL and BASICS name
#                    the helper and the program
#   expected         the exact standard output
#   expected_stderr  (optional) the exact standard error; absent means it must be empty
#   expected_status  (optional) the exit status; absent means 0
# Every run gets --today 2026-11-22 so that dates print the same on every day. The
# company directory prints as DIR and the program's version as VERSION. With GOLDEN_BLESS=1
# the case's expected files are rewritten from what the program printed (review the diff).
set -u
BASICS=$(realpath "$1") && GOLDEN_TOOL=$(realpath "$2") && case_dir=$(realpath "$3") || exit 1
export BASICS GOLDEN_TOOL
version=$4
today=2026-11-22

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
co=$work/co

fail() {
  echo "FAIL: $*"
  exit 1
}

if [ -f "$case_dir/company" ]; then
  "$BASICS" --today "$today" "$(cat "$case_dir/company")" "$co" >/dev/null ||
    fail "the company could not be made"
fi
if [ -f "$case_dir/setup" ]; then
  bash "$case_dir/setup" "$co" || fail "the setup script failed"
fi

# shellcheck disable=SC2046
(cd "$work" && "$BASICS" --today "$today" $(sed "s#DIR#$co#g" "$case_dir/cmd") \
  >"$work/stdout" 2>"$work/stderr")
status=$?
[ $status -eq 126 ] || [ $status -eq 127 ] && fail "the program could not be run"

# Names the company directory DIR and the version VERSION in what the program wrote.
normalise() {
  sed -e "s#$co#DIR#g" -e "s#${version//./\\.}#VERSION#g" "$1"
}

if [ "${GOLDEN_BLESS:-0}" = 1 ]; then
  normalise "$work/stdout" >"$case_dir/expected"
  rm -f "$case_dir/expected_stderr" "$case_dir/expected_status"
  [ -s "$work/stderr" ] && normalise "$work/stderr" >"$case_dir/expected_stderr"
  [ "$status" != 0 ] && echo "$status" >"$case_dir/expected_status"
  echo "blessed: $(basename "$case_dir")"
  exit 0
fi

expected_status=0
[ -f "$case_dir/expected_status" ] && expected_status=$(cat "$case_dir/expected_status")
ok=1
if [ "$status" != "$expected_status" ]; then
  echo "exit status $status, expected $expected_status"
  ok=0
fi
if ! diff -u "$case_dir/expected" <(normalise "$work/stdout") >"$work/diff"; then
  echo "standard output differs:"
  head -60 "$work/diff"
  ok=0
fi
expected_stderr=/dev/null
[ -f "$case_dir/expected_stderr" ] && expected_stderr=$case_dir/expected_stderr
if ! diff -u "$expected_stderr" <(normalise "$work/stderr") >"$work/diff"; then
  echo "standard error differs:"
  head -60 "$work/diff"
  ok=0
fi
[ $ok -eq 1 ] || fail "$(basename "$case_dir")"
echo "ok: $(basename "$case_dir")"
