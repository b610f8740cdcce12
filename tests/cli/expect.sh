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
. "$(dirname "$0")/check_result.sh"
check_result "$status" "$want_status" "$pattern" "$output" "command: $*"
