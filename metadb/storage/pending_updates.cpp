#include "pending_updates.h"

namespace mdb {

void PendingUpdates::add(const UpdateRecord& record) {
  records_.push_back(record);
  try {
    index_.add(record);
  } catch (...) {
    truncate(records_.size() - 1);
    throw;
  }
}

void PendingUpdates::truncate(std::size_t count) {
  if (count == 0) {
    records_.clear();
    index_.clear();
    return;
  }
  for (; records_.size() > count; records_.pop_back())
    index_.remove_last(records_.back());
}

void PendingUpdates::move_data(std::int64_t distance) {
  for (UpdateRecord& record : records_)
    record.data_position = static_cast<std::uint32_t>(std::int64_t{record.data_position} + distance);
  index_.move_data(distance);
}

}  // namespace mdb
