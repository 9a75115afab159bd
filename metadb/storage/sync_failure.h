// A flush that failed. The system may have dropped the bytes that it could not write, so trying again would
// prove nothing: the failure stays until the file is opened anew, and whatever needs the flush throws it
// again.

#pragma once

#include <optional>
#include <string>

namespace mdb {

class SyncFailure {
 public:
  void clear() { text_.reset(); }
  bool has_failed() const { return text_.has_value(); }
  // Remembers the failure. Throws error_io with the text.
  [[noreturn]] void fail(std::string text);
  // Throws the failure again, if there was one.
  void throw_if_failed() const;

 private:
  std::optional<std::string> text_;
};

// Throws the failure of the store's flush, if there was one.
void throw_if_backing_sync_failed();

}  // namespace mdb
