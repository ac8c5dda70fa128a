#!/usr/bin/env bash
# The include directions between the product's folders, stated once and
# checked: every `#include "folder/..."` of a source under config/ daemon/
# metrics/ monitors/ platform/ stats/ tools/ must name a folder its own
# folder may include from. Prints each include that breaks a rule and fails
# when there is one. tests/ and bench/ may include anything and are not read.
#
# The layers, lowest first:
#   platform            the sysroot seam and the Android interfaces
#   stats, config       kernel readers and statistics; the configuration
#                       file. Side by side: neither includes the other.
#   metrics             metric records, their vocabulary and publish names
#   daemon, monitors    the engine and monitor base; the monitors (built on
#                       the base, so they include daemon/)
#   tools               above everything
set -euo pipefail
cd "$(dirname "$0")/.."

declare -A may_include=(
  [platform]="platform"
  [stats]="platform stats"
  [config]="platform config"
  [metrics]="platform stats config metrics"
  [daemon]="platform stats config metrics daemon"
  [monitors]="platform stats config metrics daemon monitors"
  [tools]="platform stats config metrics daemon monitors tools"
)
# The one exception: the factory builds the monitors, so it includes them.
declare -A exception_of=(
  [daemon/MonitorFactory.cpp]="monitors"
)

allowed() {  # source file, its folder, included folder
  local folder
  for folder in ${may_include[$2]} ${exception_of[$1]:-}; do
    [[ "$folder" == "$3" ]] && return 0
  done
  return 1
}

broken=0
while IFS= read -r source; do
  from="${source%%/*}"
  while IFS=: read -r line included; do
    to="${included%%/*}"
    if ! allowed "$source" "$from" "$to"; then
      echo "$source:$line: includes \"$included\"; $from/ may include from: ${may_include[$from]}" >&2
      broken=1
    fi
  done < <(grep -n -o -E '^[[:space:]]*#[[:space:]]*include[[:space:]]*"[^"]+"' "$source" \
             | sed -E 's/^([0-9]+):.*"([^"]+)"$/\1:\2/')
done < <(git ls-files --cached --others --exclude-standard -- "${!may_include[@]}" | grep -E '\.(cpp|h|c)$')

if [[ $broken -ne 0 ]]; then
  echo "An include points up or sideways across the layers (scripts/check-layers.sh)" >&2
  exit 1
fi
echo "Layers: every include points down"
