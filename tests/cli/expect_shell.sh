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
. "$(dirname "$0")/check_result.sh"
check_result "$status" "$want_status" "$pattern" "$output" "script: $script"
