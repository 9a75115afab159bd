#include "damage.h"

#include "common/bytes.h"
#include "common/crc32.h"

namespace inspect_test {

std::vector<Write> with_crc(std::uint64_t at, std::uint64_t first, std::uint32_t second) {
  std::array<std::byte, 12> covered;
  bytes::store_u64(covered, 0, first);
  bytes::store_u32(covered, 8, second);
  return {{at, first, 8}, {at + 8, second}, {at + 12, security::crc32(covered)}};
}

void write_all(FileBytes& file, const std::vector<Write>& writes) {
  for (const Write& write : writes) {
    for (unsigned i = 0; i < write.size; ++i)
      file.at(write.at + i) = static_cast<std::byte>(write.value >> 8 * (write.size - 1 - i));
  }
}

void expect_finding(const Pair& pair, const std::string& file, inspect::Severity severity,
                    std::uint64_t named, const std::string& text) {
  const std::string place =
      file == "main.odbj" ? "-:" + std::to_string(named)
                          : std::to_string(named / block_size) + ":" + std::to_string(named % block_size);
  const inspect::Inspection inspection = pair.inspect();
  EXPECT_EQ(inspection.verdict() == inspect::Verdict::damaged, severity == inspect::Severity::damage) << text;
  EXPECT_THAT(lines_of(inspection, severity),
              testing::Contains(
                  testing::AllOf(testing::StartsWith(file + " " + place + " "), testing::HasSubstr(text))));
}

void expect_found(Pair& pair, const std::string& file, const std::vector<Damage>& damages) {
  const FileBytes sound = pair.file(file);
  for (const Damage& damage : damages) {
    pair.change(file, [&](FileBytes& bytes) { write_all(bytes, damage.writes); });
    expect_finding(pair, file, inspect::Severity::damage, damage.named, damage.finding);
    pair.sim.set_contents("/db/" + file, sound);
  }
}

}  // namespace inspect_test
