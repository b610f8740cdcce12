#!/usr/bin/env bash
# Runs a bash script that uses the tool as a user would (redirections, pipes, generated input)
# and checks its exit status and, if a pattern is given, that its output (standard output and
# error together) matches the extended regular expression. The script sees $ARCHSPEC (the tool),
# $DATA (tests/cli/data) and $WORK (an empty directory of its own), and must end within 20
# seconds: input that never ends must not hang the tool.
#   expect_shell.sh ARCHSPEC DATA STATUS PATTERN SCRIPT
set -u
export ARCHSPEC=$1 DATA=$2
want_status=$3
pattern=$4
script=$5
WORK=$(mktemp -d)
export WORK
trap 'rm -rf "$WORK"' EXIT
output=$(cd "$WORK" && timeout 20 bash -c "$script" 2>&1)
status=$?
fail=0
if [ "$status" = 124 ]; then
  echo "timed out after 20 seconds"
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
  echo "script: $script"
  echo "--- output"
  head -c 4000 <<<"$output"
  exit 1
fi
