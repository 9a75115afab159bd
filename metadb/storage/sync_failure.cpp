#include "sync_failure.h"

#include <string>

#include "common/errors.h"

namespace mdb {

void SyncFailure::fail(std::string_view text) {
  text_ = text;
  throw error_io(std::string(text_));
}

void SyncFailure::throw_if_failed() const {
  if (has_failed())
    throw error_io(std::string(text_));
}

}  // namespace mdb
