#include "sync_failure.h"

#include <utility>

#include "common/errors.h"

namespace mdb {

void SyncFailure::fail(std::string text) {
  text_ = std::move(text);
  throw error_io(*text_);
}

void SyncFailure::throw_if_failed() const {
  if (text_.has_value())
    throw error_io(*text_);
}

}  // namespace mdb
