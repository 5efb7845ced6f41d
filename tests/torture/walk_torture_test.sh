#!/usr/bin/env bash
# Fails every system call of a walk in turn. The walk must end, and either fail or return correct counts.
#
#   walk_torture_test.sh PROBE
#
# A directory whose reading fails midway is an exception: nftw(3) takes the error for the end of the
# directory, so the walk may count less, but must not crash or hang. Exits with 77 if tracing is not
# possible.
set -u
probe=$1
export ASAN_OPTIONS=detect_leaks=0 # which does not work under a tracer

command -v strace >/dev/null || { echo 'skipped: there is no strace'; exit 77; }
tree=$(mktemp -d /tmp/arvl-walk-XXXXXX)
trap 'rm -rf "$tree"' EXIT
mkdir -p "$tree/a/b" "$tree/c"
touch "$tree/a/f" "$tree/a/b/g" "$tree/h"
ln -s nowhere "$tree/l"
whole='counted 4 files, 4 directories'

strace -o "$tree.log" -e trace=%file,%desc "$probe" "$tree" >"$tree.out" 2>&1 || { echo 'skipped: tracing is not permitted'; exit 77; }
rm -f "$tree.log"
[ "$(cat "$tree.out")" = "$whole" ] || { echo "without a fault: $(cat "$tree.out")"; exit 1; }

failed=0
runs=0
# strike CALL ERROR: fails the first call, then the second, and so on, as long as there is one.
strike() {
  local call=$1 error=$2 number output status
  for ((number = 1; number < 100; ++number)); do
    output=$(timeout 20 strace -o "$tree.log" -P "$tree" -P "$tree/a" -P "$tree/a/b" -P "$tree/c" \
      -P "$tree/h" -P "$tree/l" -P "$tree/a/f" -P "$tree/a/b/g" \
      -e trace="$call" -e inject="$call:error=$error:when=$number" "$probe" "$tree" 2>/dev/null)
    status=$?
    runs=$((runs + 1))
    grep -q INJECTED "$tree.log" || return
    case "$status $output" in
      "0 $whole" | '0 failed') ;;
      '0 counted '*) [ "$call" = getdents64 ] && continue ;;&
      *)
        echo "$call number $number with $error: status $status, \"$output\""
        failed=1
        ;;
    esac
  done
}

for error in EIO ENOMEM EACCES EINTR; do
  for call in openat newfstatat getdents64 close; do
    strike "$call" "$error"
  done
done
strike openat EMFILE
rm -f "$tree.log" "$tree.out"
[ "$runs" -gt 30 ] || { echo "only $runs runs"; exit 1; }
echo "$runs runs"
exit "$failed"
