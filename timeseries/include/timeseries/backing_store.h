// The backing store: block numbers become byte positions of one open file. It writes whole blocks, grows
// the file by zero blocks, knows how many blocks the file holds and how many more the disk can take, and
// forces data to the medium. There is one store per process; it has no cache.
//
// Order of calls: btb_open, btb_set_block_size, then anything else. The file must exist already. While no
// store is open the numbers are 0, and every operation but btb_open and btb_close throws error_internal.
//
// Numbers: a block number and a count of blocks are 32 bits wide, a byte position is 64 bits wide.
//
// What survives: written blocks survive the death of the process at once, a power cut only after
// sync_writes().

#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>

namespace tsdb {

// The directory part of a path, its separator included; empty when the path has none. A bare drive
// ("C:") gives the drive's root. The separator is the slash in a path that has slashes and no backslash,
// else the backslash.
std::string store_directory(const std::string& path);

// Opens the file at `path` and keeps everybody else out of it; a store that is open is closed first.
// Throws error_io for a path without a directory part, error_open when the file cannot be opened.
void btb_open(const std::string& path);

// Sets the block size in bytes, a power of two, and measures block_count by reading single bytes.
//
// A file of k >= 2 whole blocks measures k - 1, one of 0 or 1 block measures 0: the number of its last
// block, not a count. On a file that is not empty, growth therefore overwrites the last block.
// Throws error_internal for a size of 0.
void btb_set_block_size(std::uint32_t block_size_bytes);

// Declares the open store a block-special device, which has no free space and cannot grow. Holds until
// the store is closed.
void btb_declare_volume();

// Closes the store, if one is open. Whatever must be durable has been given to sync_writes() before.
void btb_close();

// The block size in bytes; 0 before it was set.
std::uint32_t btb_block_size();

// Number of the block that growth appends next.
std::uint32_t btb_block_count();

// Moves the store to a byte of a block. Throws error_seek for a position that no file can have.
void btb_seek(std::uint32_t block, std::uint32_t offset_bytes);

// Writes `block_count` blocks from the start of `buffer` to `first_block` and the blocks that follow;
// for 0 blocks it only seeks. A write of 0 bytes counts as a full disk.
// Throws error_seek, error_toobig for 4 GiB or more, error_internal for a buffer that is too short,
// error_read when a write fails (the store's historic choice of class); the blocks before the failure
// may have been written.
void btb_WriteFile(std::uint32_t first_block, std::span<const std::byte> buffer, std::uint32_t block_count);

// Free space of the disk that holds the store, in half-blocks (callers compare it with block counts as it
// stands); 0 on a volume.
// Throws error_io when the disk cannot be asked, error_toobig when the figure exceeds 32 bits.
std::uint32_t cgs_space();

// Hears how far the two operations below have come, after each block; may throw, which ends them.
using BlocksWritten = std::function<void(std::uint32_t written_blocks, std::uint32_t all_blocks)>;

// Appends `block_count` zero blocks at btb_block_count().
//
// btb_block_count() advances block by block, so after a failure it counts exactly the blocks that were
// written.
// Throws error_internal on a volume, error_dbspacewrap when block numbers would pass 32 bits (before
// anything is written), error_read when a write fails.
void btb_grow(std::uint32_t block_count, const BlocksWritten& written = {});

// Overwrites the blocks 0 to btb_block_count() - 1 with zeros. Throws like btb_WriteFile.
void btb_format_volume(const BlocksWritten& written = {});

// Makes everything written so far durable. Throws error_io.
void sync_writes();

}  // namespace tsdb
