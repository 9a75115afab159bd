# What the page must show of a pair, a line each as "name value", from the JSON views --chains (first input) and
# the summary (second input).
def chain_name: "\(.kind).\(.set)";

.[0].chains as $tsdb | .[1].summary as $summary | .[1].verdict as $verdict
| ($tsdb.chains | map(.block_count) | add) as $chain_blocks
| $summary.mdb as $mdb
| [
    "verdict \({sound: "Sound", damaged: "Damaged"}[$verdict])",
    "series_count \($tsdb.series | length)",
    "level_count \($tsdb.levels | length)",
    "node_count \(($mdb.records_by_type | map(.) | add) + $mdb.records_without_type)",
    "replayed_transactions \($summary.journal.replayed_transactions)",
    ($tsdb.chains[] | "tsdb.\(chain_name) \(.block_count)", "chain.\(chain_name).blocks \(.block_count)",
      "chain.\(chain_name).timestamp \(.timestamp)"),
    "tsdb.header 1",
    "tsdb.levels \($summary.tsdb.level_blocks)",
    "tsdb.free \($summary.tsdb.block_count - 1 - $chain_blocks - $summary.tsdb.level_blocks)",
    "mdb.header 1",
    "mdb.journal \($mdb.map_first_block - 1)",
    "mdb.map \($mdb.data_first_block - $mdb.map_first_block)",
    ($mdb.data_blocks_by_class | to_entries[] | select(.value > 0 or (.key | test("unknown|large") | not))
      | "mdb.\(.key) \(.value)"),
    ($mdb.indexes[] | "index.\(.index).entries \(.entry_count)", "index.\(.index).leaves \(.leaf_count)"),
    ($summary.journal.halves | to_entries[] | "half.\(.key).serial \(.value.serial)",
      "half.\(.key).transactions \(.value.transaction_count)"),
    ($mdb.records_by_type | to_entries[] | "type.\(.key) \(.value)"),
    (if $mdb.records_without_type > 0 then "type.no type \($mdb.records_without_type)" else empty end)
  ][]
