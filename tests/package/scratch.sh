# For the scripts here: a directory of its own, gone with the script, and an end that says why.
set -euo pipefail

readonly scratch=$(mktemp -d "${TMPDIR:-/tmp}/quenor-package-XXXXXX")
trap 'rm -rf -- "$scratch"' EXIT

fail() {
  echo "$*" >&2
  exit 1
}

# For tests that need a program which a computer may not have.
skip_without() {
  command -v "$1" >/dev/null && return
  echo "Skipped: there is no $1"
  exit 77
}
