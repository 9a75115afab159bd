#include "common/errors.h"

#include <utility>

namespace tsdb {

error_generic::error_generic(std::string text) : description(std::move(text)) {}

std::string error_generic::message() const {
  return description;
}

}  // namespace tsdb

namespace mdb {

error_generic::error_generic(std::string text) : description(std::move(text)) {}

std::string error_generic::message() const {
  return description;
}

}  // namespace mdb
