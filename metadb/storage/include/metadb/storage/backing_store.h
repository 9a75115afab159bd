// The open file of the meta database, addressed in whole blocks or in bytes. It keeps no cache and writes
// through. One store a process, one thread.
//
// What is written survives the death of the process at once, a power cut only after backing_sync().

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace platform {
class File;
}

namespace mdb {

// Opens the existing file `name`, shared with other openers, and measures it by probing. Everything that
// an earlier store left behind is forgotten.
// Throws error_open.
void backing_open(std::string name);

// Closes the file; the store counts as closed whatever happens. Does not flush.
// Throws error_io when the close fails.
void backing_close();

// Whether a store is open; its file handle then is.
bool backing_is_open();
// True for a device that cannot be lengthened, and while nothing is open.
bool backing_has_fixed_size();
// The name given to backing_open.
const std::string& backing_name();

// Makes everything written so far durable. Once it has failed every later call throws the same error
// until the store is opened anew: what the system forgot cannot be flushed by trying again.
// Throws error_io.
void backing_sync();

// Positions the store for the next transfer. Throws error_seek when the offset cannot be expressed.
void backing_seek(std::int64_t offset);

// Reads `count` whole blocks from block `first`. REQUIRES: `buffer` holds count × block_size() bytes.
// Throws error_io when the read fails or is short.
void block_read(std::span<std::byte> buffer, std::uint32_t first, std::uint32_t count);

// Reads buffer.size() bytes at `offset`.
// Throws error_range past backing_size(), error_io when the read fails or is short.
void byte_read(std::span<std::byte> buffer, std::uint64_t offset);

// Writes the bytes at `offset`; never changes backing_size().
// Throws error_range past backing_size() unless `allow_beyond_end`, error_io when the write fails or is
// short.
void byte_write(std::span<const std::byte> bytes, std::uint64_t offset, bool allow_beyond_end);

// Lengthens the store with zeros, block by block, until block `block` is addressable and by about a fifth
// at least; does nothing on a device of fixed size. The zeros are durable after backing_sync(). Throws what
// byte_write throws; then backing_size() counts exactly the blocks that were written.
void backing_grow(std::uint32_t block);

// Bytes that may be read and written. The second form is recovery's: it has written up to there.
std::uint64_t backing_size();
void backing_set_size(std::uint64_t size);

// Bytes in a block; 0 until the header has been read.
std::uint32_t block_size();
void set_block_size(std::uint32_t size);

// The first byte position that the allocation map cannot address; recovery writes nothing at or past it.
// Without limit until the header has been read.
std::uint64_t address_limit();
void set_address_limit(std::uint64_t limit);

// The highest offset of `file` at which one byte can be read, found by reading, so that it works on raw
// devices too; 0 when there is none.
std::uint64_t probe_last_byte(platform::File& file);

}  // namespace mdb
