// A flush that failed. The system may have dropped the bytes that it could not write, so trying again would
// prove nothing: the failure stays until the file is opened anew, and whatever needs the flush throws it
// again.

#pragma once

#include <string_view>

namespace mdb {

class SyncFailure {
 public:
  bool has_failed() const { return !text_.empty(); }
  // Remembers the failure, whatever else fails. Throws error_io with the text, which outlives everything.
  [[noreturn]] void fail(std::string_view text);
  // Throws the failure again, if there was one.
  void throw_if_failed() const;

 private:
  std::string_view text_;  // empty: nothing has failed
};

// Throws the failure of the store's flush, if there was one.
void throw_if_backing_sync_failed();

}  // namespace mdb
