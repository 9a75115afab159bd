# What the test's hover.js must say of the pictures, from the summary (first input) and the views --indexes and
# --journal (second input).
.[0].summary as $summary | .[1] as $details
| ($details.indexes | map(.nodes // []) | add) as $nodes
| "The blocks of main.tsdb by their use \($summary.tsdb.block_count)",
  "The blocks of main.odb by their class \($summary.mdb.block_count)",
  "Fill of the data blocks \($summary.mdb.data_blocks_by_class | .used + .full)",
  "Fill of the index leaves \($nodes | map(select(.leaf)) | length)",
  "Fill of the index nodes above \($nodes | map(select(.leaf | not)) | length)",
  ($details.journal.halves[] | "half: " + ([.transactions[] | .fate] | group_by(.) | map("\(length) \(.[0])") | join(", ")))
