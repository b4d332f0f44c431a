#!/usr/bin/env bash
# The host program on a server: `basics --server CONNINFO demo COMPANY` into a fresh schema
# must succeed and print exactly what the demo prints on a directory, the company's name
# standing where the directory's stood; a server that cannot be reached is one line on
# standard error and exit status 1.
#   server_demo_test.sh BASICS       (the server: BASICS_TEST_PG)
set -u
basics=$1
fail() {
  echo "FAIL: $*"
  exit 1
}
[ -n "${BASICS_TEST_PG:-}" ] || fail "BASICS_TEST_PG is not set (the test server's connection string)"
work=$(mktemp -d)
company="server_demo_$$_$RANDOM"
drop_schemas() {
  command -v psql >/dev/null &&
    psql "$BASICS_TEST_PG" -q -c "DROP SCHEMA IF EXISTS \"$company\" CASCADE" \
      -c "DROP SCHEMA IF EXISTS \"$company/cash-basis\" CASCADE" >/dev/null 2>&1
  rm -rf "$work"
}
trap drop_schemas EXIT
today=2026-11-22

"$basics" --today "$today" demo "$work/$company" >"$work/dir.out" 2>"$work/dir.err" ||
  fail "the demo on a directory failed: $(cat "$work/dir.err")"
"$basics" --today "$today" --server "$BASICS_TEST_PG" demo "$company" >"$work/server.out" \
  2>"$work/server.err" || fail "the demo on the server failed: $(cat "$work/server.err")"
[ -s "$work/server.err" ] && fail "the demo on the server wrote to stderr: $(cat "$work/server.err")"
sed "s#$work/##g" "$work/dir.out" >"$work/dir.named"
diff -u "$work/dir.named" "$work/server.out" >"$work/diff" ||
  fail "the server's demo differs from the directory's: $(head -n 40 "$work/diff")"
grep -q "Cash-basis sample company created in $company/cash-basis" "$work/server.out" ||
  fail "the cash-basis company is not named as its schema"

# What the demo made can be read back by later runs, the cash-basis company too.
"$basics" --server "$BASICS_TEST_PG" check "$company" >/dev/null 2>&1 ||
  fail "check does not find the company on the server"
"$basics" --server "$BASICS_TEST_PG" check "$company/cash-basis" >/dev/null 2>&1 ||
  fail "check does not find the cash-basis company on the server"
"$basics" --server "$BASICS_TEST_PG" demo "$company" >/dev/null 2>&1 &&
  fail "a second demo into the same schema succeeded"

# No server there.
"$basics" --server "host=$work/no-server port=5432 user=postgres dbname=postgres" check x \
  >"$work/none.out" 2>"$work/none.err"
status=$?
[ $status -eq 1 ] || fail "an unreachable server gave exit status $status, not 1"
[ "$(wc -l <"$work/none.err")" -eq 1 ] && grep -q "^basics: the server cannot be reached: " \
  "$work/none.err" || fail "an unreachable server is not one line: $(cat "$work/none.err")"
[ -s "$work/none.out" ] && fail "an unreachable server printed output"
echo "ok"
