#include "overlay.h"

#include <algorithm>
#include <limits>

#include "common/bytes.h"
#include "common/errors.h"

namespace mdb {
namespace {

constexpr std::uint64_t max_start = std::numeric_limits<std::uint32_t>::max();

}  // namespace

void overlay_update(std::span<std::byte> buffer, std::uint64_t buffer_offset, std::uint64_t target,
                    std::span<const std::byte> data) {
  const std::uint64_t buffer_end = buffer_offset + buffer.size();
  const std::uint64_t data_end = target + data.size();
  if (target >= buffer_end || data_end <= buffer_offset)
    return;
  const std::uint64_t start = std::max(target, buffer_offset);
  const std::uint64_t end = std::min(buffer_end, data_end);
  if (start - buffer_offset > max_start)
    throw error_internal("Supplied data buffer left start beyond 32 bits");
  if (start - target > max_start)
    throw error_internal("Journal data buffer left start beyond 32 bits");
  if (end <= start)
    throw error_internal("Non-positive overlap during local replay");
  bytes::copy(data.subspan(static_cast<std::size_t>(start - target), static_cast<std::size_t>(end - start)),
              buffer.subspan(static_cast<std::size_t>(start - buffer_offset)));
}

void throw_incomplete_update() {
  throw error_internal("Attempt to follow incomplete update sequence beyond end of active journal space");
}

void overlay_record(std::span<std::byte> buffer, std::uint64_t buffer_offset, const UpdateRecord& record,
                    std::span<const std::byte> journal) {
  if (std::uint64_t{record.data_position} + record.length > journal.size())
    throw_incomplete_update();
  overlay_update(buffer, buffer_offset, record.target, journal.subspan(record.data_position, record.length));
}

}  // namespace mdb
