#!/usr/bin/env bash
# Runs a command and checks its exit status and, if a pattern is given, that its output (standard
# output and error together) matches the extended regular expression.
#   expect.sh STATUS PATTERN COMMAND [ARG...]
set -u
want_status=$1
pattern=$2
shift 2
output=$("$@" 2>&1)
status=$?
fail=0
if [ "$status" != "$want_status" ]; then
  echo "exit status $status, expected $want_status"
  fail=1
fi
if [ -n "$pattern" ] && ! grep -Eq -- "$pattern" <<<"$output"; then
  echo "output does not match: $pattern"
  fail=1
fi
if [ "$fail" != 0 ]; then
  echo "command: $*"
  echo "--- output"
  echo "$output"
  exit 1
fi
