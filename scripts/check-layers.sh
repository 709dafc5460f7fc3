#!/usr/bin/env bash
# Checks that no file below src/ includes a header of a layer above its own. Every library sees
# all of src/ on its include path, so without this only a missing symbol at link time would
# catch an upward include. The table is the layer order of docs/ARCHITECTURE.md: each layer
# lists the folders it may include (itself and everything below it).
set -euo pipefail
cd "$(dirname "$0")/.."

declare -A allowed=(
  [platform]="platform"
  [text]="text platform"
  [infra]="infra text platform"
  [web]="web infra text platform"
  [filters]="filters web infra text platform"
  [rules]="rules infra text platform"
  [targets]="targets rules infra text platform"
  [meta]="meta rules infra text platform"
  [extraction]="extraction filters web meta targets rules infra text platform"
  [engine]="engine extraction filters web meta targets rules infra text platform"
  [acquire]="acquire engine extraction filters web meta targets rules infra text platform"
  [design]="design engine extraction filters web meta targets rules infra text platform"
)

status=0
for dir in src/*/; do
  layer=$(basename "$dir")
  if [ -z "${allowed[$layer]+set}" ]; then
    echo "check-layers: src/$layer is not in the layer table of scripts/check-layers.sh" >&2
    status=1
    continue
  fi
  while IFS=: read -r file line include; do
    target=${include#*\"}
    target=${target%%/*}
    # Includes without a folder are the file's own neighbours.
    [[ "$include" == *\"*/* ]] || continue
    case " ${allowed[$layer]} " in
      *" $target "*) ;;
      *) echo "$file:$line: layer '$layer' includes a header of layer '$target'" >&2; status=1 ;;
    esac
  done < <(grep -rnE '^[[:space:]]*#[[:space:]]*include[[:space:]]*"' "$dir" --include='*.h' --include='*.cpp' || true)
done
[ $status -eq 0 ] && echo "check-layers: every include stays within its layer or below"
exit $status
