# shellcheck shell=bash
# The check that expect.sh and expect_shell.sh share, sourced by both: the exit status, and if a
# pattern is given, that the output (standard output and error together) matches the extended
# regular expression. On failure it prints what was run and what came out, and exits 1.
#   check_result STATUS WANT_STATUS PATTERN OUTPUT WHAT_RAN
check_result() {
  local status=$1 want_status=$2 pattern=$3 output=$4 ran=$5 fail=0
  if [ "$status" = 124 ] && [ "$want_status" != 124 ]; then
    echo "timed out"
    fail=1
  elif [ "$status" != "$want_status" ]; then
    echo "exit status $status, expected $want_status"
    fail=1
  fi
  if [ -n "$pattern" ] && ! grep -Eq -- "$pattern" <<<"$output"; then
    echo "output does not match: $pattern"
    fail=1
  fi
  if [ "$fail" != 0 ]; then
    echo "$ran"
    echo "--- output"
    head -c 4000 <<<"$output"
    exit 1
  fi
}
