# For the scripts here, each of which gets the directories of the sources and of the build, and the compiler, or what
# shows an object file: a directory of its own, gone with the script, and an end that says why.
set -euo pipefail

readonly sources=$1 build=$2 tool=$3
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
