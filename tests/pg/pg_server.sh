#!/usr/bin/env bash
# A throwaway PostgreSQL server for the tests and benchmarks.
#   pg_server.sh start DIR   makes a fresh cluster in DIR/data (trust authentication, no TCP,
#                            its Unix socket in DIR), starts it and writes the libpq connection
#                            string to DIR/conninfo
#   pg_server.sh stop DIR    stops it at once and removes DIR; succeeds when nothing runs
# Run as root, the server runs as the `postgres` system user and DIR belongs to it.
# Every failure is one line on stderr starting "pg_server:" and exit status 1.
set -uo pipefail

fail() {
  echo "pg_server: $*" >&2
  exit 1
}

[ $# -eq 2 ] || fail "usage: pg_server.sh start|stop DIR"
action=$1
case "$2" in
  /*) dir=$2 ;;
  *) dir=$PWD/$2 ;;
esac
dir=$(realpath -m -- "$dir")
[ "$dir" != "/" ] || fail "refusing to use / as the server's directory"

bindir=
for candidate in $(ls -d /usr/lib/postgresql/*/bin 2>/dev/null | sort -V -r); do
  if [ -x "$candidate/initdb" ] && [ -x "$candidate/pg_ctl" ]; then
    bindir=$candidate
    break
  fi
done

# Runs a PostgreSQL program as the user the server belongs to.
as_owner() {
  if [ "$(id -u)" -eq 0 ]; then
    runuser -u postgres -- "$@"
  else
    "$@"
  fi
}

# The last non-empty line of a file, for a one-line reason.
last_line() {
  grep -v '^[[:space:]]*$' "$1" 2>/dev/null | tail -n 1
}

# Stops a server running from $dir/data, if any; never fails.
stop_server() {
  [ -n "$bindir" ] || return 0
  [ -f "$dir/data/postmaster.pid" ] || return 0
  as_owner "$bindir/pg_ctl" stop -D "$dir/data" -m immediate -w -t 30 >/dev/null 2>&1
  if [ -f "$dir/data/postmaster.pid" ]; then
    # pg_ctl could not stop it (for instance a damaged data directory): end the postmaster
    # named in its pid file, if that process still runs from this directory.
    local pid
    pid=$(head -n 1 "$dir/data/postmaster.pid" 2>/dev/null)
    if [[ "$pid" =~ ^[0-9]+$ ]] && [ -d "/proc/$pid" ] &&
       grep -qF -- "$dir/data" "/proc/$pid/cmdline" 2>/dev/null; then
      kill -KILL "$pid" 2>/dev/null
    fi
  fi
  return 0
}

# Removes $dir, but only when it is empty or was made by this script.
remove_dir() {
  [ -e "$dir" ] || return 0
  if [ -n "$(ls -A "$dir" 2>/dev/null)" ] && [ ! -f "$dir/conninfo" ] &&
     [ ! -d "$dir/data" ] && [ ! -f "$dir/server.log" ]; then
    fail "$dir is not empty and was not made by pg_server.sh; not removing it"
  fi
  rm -rf -- "$dir" || fail "cannot remove $dir"
}

case "$action" in
  start)
    [ -n "$bindir" ] ||
      fail "no PostgreSQL server programs under /usr/lib/postgresql/*/bin (install postgresql)"
    if [ "$(id -u)" -eq 0 ]; then
      id -u postgres >/dev/null 2>&1 || fail "running as root, but there is no postgres user"
      owner=postgres
    else
      owner=$(id -un)
    fi
    # The socket's path must fit in a sockaddr_un (107 bytes).
    socket="$dir/.s.PGSQL.5432"
    [ ${#socket} -le 107 ] || fail "$dir is too long a path for the server's socket"

    stop_server
    remove_dir
    mkdir -p -- "$dir" || fail "cannot make $dir"
    if [ "$owner" != "$(id -un)" ]; then
      chown "$owner": "$dir" || fail "cannot give $dir to the $owner user"
    fi
    chmod 0755 "$dir" || fail "cannot open $dir to other users"
    as_owner test -w "$dir" -a -x "$dir" ||
      fail "the $owner user cannot reach $dir (a directory above it is closed to that user)"

    log="$dir/server.log"
    if ! as_owner "$bindir/initdb" -D "$dir/data" --auth=trust --no-sync -U postgres \
         -E UTF8 --locale=C >"$dir/initdb.log" 2>&1; then
      fail "initdb failed: $(last_line "$dir/initdb.log")"
    fi
    # No TCP at all; the socket lives in DIR. Durability is not wanted of a test server.
    as_owner tee -a "$dir/data/postgresql.conf" >/dev/null <<CONF || fail "cannot configure $dir/data"

# pg_server.sh
listen_addresses = ''
port = 5432
unix_socket_directories = '$dir'
unix_socket_permissions = 0777
fsync = off
synchronous_commit = off
full_page_writes = off
max_connections = 100
max_locks_per_transaction = 256
logging_collector = off
CONF
    if ! as_owner "$bindir/pg_ctl" start -D "$dir/data" -l "$log" -w -t 60 \
         >"$dir/pg_ctl.log" 2>&1; then
      reason=$(last_line "$log")
      [ -n "$reason" ] || reason=$(last_line "$dir/pg_ctl.log")
      stop_server
      fail "the server did not start: $reason"
    fi
    conninfo="host=$dir port=5432 user=postgres dbname=postgres"
    if [[ "$dir" =~ [[:space:]\'\\] ]]; then
      quoted=${dir//\\/\\\\}
      quoted=${quoted//\'/\\\'}
      conninfo="host='$quoted' port=5432 user=postgres dbname=postgres"
    fi
    printf '%s\n' "$conninfo" >"$dir/conninfo" || fail "cannot write $dir/conninfo"
    # The server must answer, not merely have started.
    if [ -x "$bindir/pg_isready" ] && ! "$bindir/pg_isready" -q -h "$dir" -p 5432 -t 30; then
      fail "the server started but does not answer on $socket"
    fi
    ;;
  stop)
    stop_server
    (remove_dir) || true
    exit 0
    ;;
  *)
    fail "usage: pg_server.sh start|stop DIR"
    ;;
esac
exit 0
