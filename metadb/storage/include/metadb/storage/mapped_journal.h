// The byte range that holds the journal, mapped into memory, on a file handle of its own. One a process.

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace mdb {

inline constexpr std::uint64_t no_journal_limit = ~std::uint64_t{0};

// Opens the file and maps `length` bytes from `offset`, or when `length` is 0 everything up to the end of
// the file. An external journal takes no second opener. Entries are placed below `limit` only; a range
// too long to be mapped whole is mapped as far as the limit asks. What an earlier journal left is forgotten.
// Throws error_open, error_io.
void journal_map(const std::string& name, std::uint64_t offset, std::uint64_t length, bool external,
                 std::uint64_t limit = no_journal_limit);

// Makes the mapped bytes durable and stamps the file with the time. A failed flush stays failed: every later
// call throws the same error until a journal is mapped anew.
// Throws error_io.
void journal_sync();

// Copies bytes into the journal at `position`, where they must fit. Much faster than through
// journal_bytes_to_change() when entries follow one another; the system starts to write them out before the
// next sync. Throws error_io when the system refuses, which like a failed flush lasts until a journal is
// mapped anew.
void journal_write(std::uint64_t position, std::span<const std::byte> bytes);
// Copies bytes out of the journal from `position` on, where so many must lie. Much faster than through
// journal_bytes() for what has not been looked at since the journal was mapped.
void journal_read(std::uint64_t position, std::span<std::byte> bytes);
// Has the system begin to write out what journal_write() has written, for a sync that is soon to come.
void journal_start_sync();
// Whether a write or a flush of the journal has failed.
bool journal_has_failed();

// A sync when journal bytes may have been changed since the last one. Throws what journal_sync throws.
void journal_sync_if_written();

// Syncs, unmaps and closes. Throws error_io.
void journal_unmap();

// Drops the mapping and the file without a sync and without an error.
void journal_drop();

// Throws the error of a failed flush of the journal or the store, if there was one.
void throw_if_sync_failed();

// Whether a journal is attached.
bool journal_is_mapped();
// The bytes that may hold the journal: the mapped ones up to the limit. Empty when nothing is mapped.
std::span<const std::byte> journal_bytes();
// The same to be changed.
std::span<std::byte> journal_bytes_to_change();
// The length that was mapped, for reports.
std::uint64_t journal_mapped_length();

}  // namespace mdb
