#!/usr/bin/env bash
# The report's page in a browser: it renders without an error, and shows what the JSON views say.
#   report_test.sh CREATEDB DBINFO STORAGE_WRITER    (the programs)
set -euo pipefail
readonly createdb=$1 dbinfo=$2 writer=$3
here=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
readonly here work

# browse PAGE SCRIPT [OPTION...]: the document as a browser of its own has made it, to $work/dom, the script of the
# test behind that of the page. Nothing may be complained about.
browse() {
  { sed '/<\/body>/,$d' "$1"; echo '<script>'; cat "$here/$2"; echo '</script></body></html>'; } >"$work/tested.html"
  timeout 120 chromium --headless --no-sandbox --disable-gpu --disable-quic --no-first-run \
    --disable-background-networking --disable-component-update --disable-sync \
    --user-data-dir="$(mktemp -d -p "$work")" --enable-logging=stderr "${@:3}" \
    --dump-dom "file://$work/tested.html" >"$work/dom" 2>"$work/messages"
  if grep CONSOLE "$work/messages" >&2; then return 1; fi
  if grep -o 'data-error="[^"]*"' "$work/dom" >&2; then return 1; fi
}

# Every element with a name of what it counts, as "name value".
shown_facts() {
  grep -o 'data-fact="[^"]*"[^>]*>[^<]*<' |
    sed -E 's/data-fact="([^"]*)"[^>]*>([^<]*)</\1 \2/; s/([0-9]),([0-9])/\1\2/g; s/([0-9]),([0-9])/\1\2/g'
}

# check_page DIRECTORY
check_page() {
  local directory=$1 page=$work/page.html
  rm -f "$page"
  "$dbinfo" --report "$page" "$directory"
  browse "$page" hover.js
  "$dbinfo" --chains --json "$directory" >"$work/chains.json"
  "$dbinfo" --json "$directory" >"$work/summary.json"
  jq --raw-output --slurp --from-file "$here/expected_facts.jq" "$work/chains.json" "$work/summary.json" |
    sort >"$work/expected"
  shown_facts <"$work/dom" | sort >"$work/shown"
  diff "$work/expected" "$work/shown"
  # What the pointer is told over the cells adds up to the blocks of the files and to what the halves hold; the nodes
  # stand under their parents.
  "$dbinfo" --indexes --journal --json "$directory" >"$work/details.json"
  jq --raw-output --slurp --from-file "$here/expected_sums.jq" "$work/summary.json" "$work/details.json" >"$work/expected"
  "$dbinfo" --nodes "$directory" | sed -nE 's/^  ( *)([0-9]+\.[0-9]+)( [^",]*)?( ?"(.*)")?, block .*/\1\2 \5/p' |
    sed -E ':a; s/^(\.*)  /\1./; ta; s/^/node /' | sed -n 1,300p >>"$work/expected"
  grep -o '<output>[^<]*' "$work/dom" | sed 's/<output>//; s/&lt;/</g; s/&gt;/>/g' | diff "$work/expected" -
  echo "$directory: $(wc -l <"$work/shown") facts as the databases have them, $(wc -c <"$page") bytes"
}

mkdir "$work/small" "$work/filled"
for pair in small filled; do
  "$createdb" -d "$work/$pair" -f </dev/null >/dev/null 2>&1
done
check_page "$work/small"
rm "$work/filled/main.tsdb"
"$writer" fill "$work/filled"
check_page "$work/filled"
# Eight million blocks, most of them a hole in the file: the page does not grow with them.
truncate --size 8G "$work/filled/main.tsdb"
check_page "$work/filled"
(($(wc -c <"$work/page.html") < 300000))
# Every text can be read in both schemes.
browse "$work/page.html" contrast.js --blink-settings=preferredColorScheme=1
grep -q 'data-scheme="light" data-page="light"' "$work/dom"
browse "$work/page.html" contrast.js --blink-settings=preferredColorScheme=0
grep -q 'data-scheme="dark" data-page="dark"' "$work/dom"
