# shellcheck shell=bash
# Sourced by the scripts beside it: strict mode, the repository's root as working directory, stages with their times.
set -euo pipefail
unset CDPATH
cd -- "$(dirname -- "${BASH_SOURCE[0]}")/.."

# stage TITLE COMMAND...: runs the command under a header and says how long it took.
stage() {
  local title=$1 start=$SECONDS
  shift
  printf '\n=== %s\n' "$title"
  "$@"
  printf '=== %s: done in %d s\n' "$title" $((SECONDS - start))
}
