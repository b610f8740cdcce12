#!/usr/bin/env bash
# Every shell script of the project, and the bash completion that the tool writes, are clean
# under shellcheck at every severity. A script is a file named *.sh or one whose first line runs
# bash or sh; build directories are no part of the project.
#   tests/shellcheck.sh SOURCE_DIR ARCHSPEC
set -euo pipefail
source_dir=$1
archspec=$2
if ! command -v shellcheck > /dev/null; then
  echo "SKIPPED: shellcheck is not installed (apt-get install shellcheck, or scripts/setup)"
  exit 77
fi
scripts=()
while IFS= read -r -d '' file; do
  if [[ $file == *.sh ]] || head -n 1 "$file" | grep -Eq '^#!.*[/ ](ba)?sh( |$)'; then
    scripts+=("$file")
  fi
done < <(find "$source_dir" \( -path "$source_dir/build*" -o -path "$source_dir/.git" \
  -o -path "$source_dir/out" -o -name node_modules \) -prune -o -type f -print0 | sort -z)
completion=$(mktemp --suffix=-archspec-completion.bash)
trap 'rm -f "$completion"' EXIT
"$archspec" --bash-completion > "$completion"
# Sourced files are followed from the directory of the script that sources them.
shellcheck --external-sources --source-path=SCRIPTDIR "${scripts[@]}"
shellcheck --shell=bash "$completion"
echo "shellcheck: ${#scripts[@]} scripts and the bash completion are clean"
