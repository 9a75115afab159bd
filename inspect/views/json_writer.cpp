#include "views/json_writer.h"

namespace inspect {

void JsonWriter::new_line() {
  out_ << '\n';
  for (unsigned i = 0; i < depth_; ++i)
    out_ << "  ";
}

void JsonWriter::next() {
  if (follows_key_) {
    follows_key_ = false;
    return;
  }
  if (!is_first_)
    out_ << (depth_ <= spread_depth_ || spread_depth_ == 0 ? "," : ", ");
  if (depth_ > 0 && depth_ <= spread_depth_)
    new_line();
  is_first_ = false;
}

void JsonWriter::open(char bracket) {
  next();
  out_ << bracket;
  depth_ += 1;
  is_first_ = true;
}

void JsonWriter::close(char bracket) {
  const bool is_spread = depth_ <= spread_depth_ && !is_first_;
  depth_ -= 1;
  if (is_spread)
    new_line();
  out_ << bracket;
  is_first_ = false;
}

}  // namespace inspect
