#!/usr/bin/env bash
# Checks that each directory of the host includes only directories below it, and of src/ only what both
# ends of the connection share.
#
#   include_direction_test.sh HOST_DIRECTORY
set -euo pipefail
cd "$1"

declare -A floor=(
  [text]=1 [files]=2 [step]=3 [framework]=4 [display]=4 [trace]=4 [backup]=5 [cli]=6 [manual]=7
)
wrong=0
while IFS=: read -r file line include; do
  from=${file%%/*}
  to=${include#*\"}
  to=${to%%/*}
  case "$to" in
    "$from" | protocol | zarn) continue ;;
  esac
  if [ -z "${floor[$from]:-}" ] || [ -z "${floor[$to]:-}" ] || [ "${floor[$to]}" -ge "${floor[$from]}" ]; then
    echo "host/$file:$line: host/$from must not include \"$to/\""
    wrong=1
  fi
done < <(grep -rn --include='*.h' --include='*.cpp' '^#include "' . | sed 's|^\./||')
exit "$wrong"
