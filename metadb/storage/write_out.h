// Has the system write out early what has been written to a file, so that a sync finds little left to wait
// for.

#pragma once

#include <cstdint>

#include "platform/platform.h"

namespace mdb {

class WriteOut {
 public:
  // Takes note of bytes that were written, and starts when many have come together.
  void wrote(platform::File& file, std::uint64_t length) {
    waiting_bytes_ += length;
    if (waiting_bytes_ >= many_bytes)
      start(file);
  }
  // Starts with what there is.
  void start(platform::File& file) {
    if (waiting_bytes_ != 0)
      file.start_sync();
    waiting_bytes_ = 0;
  }

 private:
  // So many that the calls and the requests they make cost little, and few beside a half of the journal.
  static constexpr std::uint64_t many_bytes = std::uint64_t{1} << 20;

  std::uint64_t waiting_bytes_ = 0;
};

}  // namespace mdb
