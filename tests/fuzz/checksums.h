// Mutation for files that guard themselves with checksums. A mutant's checksums are made to fit again in half
// of the cases, so that the code behind them is met by damage as often as the code that checks them.

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace fuzz {

using Fit = void (*)(std::span<std::byte> file);

// Both index pointers, and the end entry of every run of entries that begins and ends like a transaction.
void fit_journal(std::span<std::byte> journal);
// The journal within the file, if its header claims one.
void fit_mdb(std::span<std::byte> file);
// The lines of the chain table.
void fit_tsdb(std::span<std::byte> file);

// Changes the file in one way or another and returns its new size. The arguments are those of the fuzzer's
// own custom mutator.
std::size_t mutate(std::uint8_t* data, std::size_t size, std::size_t max_size, unsigned seed, Fit fit);

}  // namespace fuzz
