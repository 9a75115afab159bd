#include "common/log.h"

#include <iostream>
#include <utility>

namespace logging {
namespace {

void write_to_standard_error(Level, Area, std::string_view text) {
  std::cerr << text << '\n';
}

Sink current_sink = write_to_standard_error;

}  // namespace

void write(Level level, Area area, std::string_view text) {
  current_sink(level, area, text);
}

Sink set_sink(Sink sink) {
  return std::exchange(current_sink, sink != nullptr ? sink : write_to_standard_error);
}

}  // namespace logging
