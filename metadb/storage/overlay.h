// Laying a journalled update over a buffer that stands for a range of the database.

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "update_index.h"

namespace mdb {

// Copies the part of the update (`data` at byte `target` of the database) that lies within the buffer, whose
// first byte is byte `buffer_offset` of the database; nothing when they do not touch.
// Throws error_internal when a position within either is beyond 32 bits, or for an empty update inside the
// buffer.
void overlay_update(std::span<std::byte> buffer, std::uint64_t buffer_offset, std::uint64_t target,
                    std::span<const std::byte> data);

// Throws error_internal: the data of an update do not lie where the journal may hold them.
[[noreturn]] void throw_incomplete_update();

// The same for an update of a list, whose data lie in `journal`, the part of the journal that may hold them.
// Throws error_internal when they do not.
void overlay_record(std::span<std::byte> buffer, std::uint64_t buffer_offset, const UpdateRecord& record,
                    std::span<const std::byte> journal);

}  // namespace mdb
