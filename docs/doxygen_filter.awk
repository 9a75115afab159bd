# Makes documentation of the comments of a header: its first block describes the file, a block that stands on a
# declaration describes that and the functions which follow it without a blank line or a comment between, a
# comment behind a member the member.
function flush_block(marker, i, line) {
  for (i = 1; i <= count; ++i) {
    line = block[i]
    sub(/\/\//, marker, line)
    print line
    last[i] = line
  }
  last_count = count
  count = 0
}
function repeat_block(i) {
  for (i = 1; i <= last_count; ++i)
    print last[i]
}
/^ *\/\/ (clang-format|NOLINT)/ { next }
/^ *\/\// {
  if (!file_described) {
    file_described = 1
    print "/// \\file"
    in_file_block = 1
  }
  block[++count] = $0
  next
}
/^ *$/ || /^ *[}#]/ {
  flush_block(in_file_block ? "///" : "//")
  in_file_block = 0
  last_count = 0
  print
  next
}
{
  match($0, /^ */)
  if (count > 0) {
    flush_block("///")
    indentation = RLENGTH
  } else if (declaration_ended && RLENGTH == indentation && /\(/) {
    repeat_block()
  }
  if (/^ *(class|struct|enum|namespace) .*[{]$/ || /^ *(public|protected|private):$/)
    last_count = 0
  sub(/ \/\/ /, " ///< ")
  print
  declaration_ended = /[;}]( *\/\/\/<.*)?$/
}
END { flush_block("//") }
