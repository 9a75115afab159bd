// Ways to damage a pair that is otherwise sound, and the findings that they must lead to.

#pragma once

#include "pair_fixture.h"

namespace inspect_test {

struct Write {
  std::uint64_t at;
  std::uint64_t value;
  unsigned size = 4;
};

// The words of an entry that a CRC of its first twelve bytes ends.
std::vector<Write> with_crc(std::uint64_t at, std::uint64_t first, std::uint32_t second);

void write_all(FileBytes& file, const std::vector<Write>& writes);

struct Damage {
  std::string finding;  // part of its text
  std::uint64_t named;  // the offset in the file that it names
  std::vector<Write> writes;

  Damage(std::string text, std::uint64_t at, std::vector<Write> changes)
      : finding(std::move(text)), named(at), writes(std::move(changes)) {}
  // One word, which is named.
  Damage(std::string text, std::uint64_t at, std::uint32_t value)
      : Damage(std::move(text), at, {{at, value}}) {}
};

// Expects that the inspection finds each of them in its place. The file is sound again afterwards.
void expect_found(Pair& pair, const std::string& file, const std::vector<Damage>& damages);

// Expects the finding in its place in the bytes of the file.
void expect_finding(const Pair& pair, const std::string& file, inspect::Severity severity,
                    std::uint64_t named, const std::string& text);

}  // namespace inspect_test
