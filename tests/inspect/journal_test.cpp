// Every invariant of the journal, broken once, and the states that interrupted runs leave in it.

#include "common/crc32.h"
#include "damage.h"
#include "journal_writer.h"

namespace inspect_test {
namespace {

using inspect::Severity;
using testing::Contains;
using testing::HasSubstr;

TEST(Journal, DamageOfItsHeaderIsFound) {
  Pair pair;
  const FileBytes journal = pair.file("main.odbj");
  const unsigned newest = newest_half(journal);
  const std::uint64_t pointer = pointer_of(newest), serial = bytes::load_u64(journal, pointer);
  const auto start = static_cast<std::uint32_t>(half_start(journal, newest));
  expect_found(pair, "main.odbj",
               {{"journal magic", 0, 7},
                {"journal version: found 9", 4, 9},
                {"reserved word of the journal: found 7", 8, 7},
                {"found neither readable", 16, {{28, 0}, {44, 0}}},
                {"start of half", pointer + 8, with_crc(pointer, serial, start + 8)},
                {"found its place at 4294967288", journal.size(), with_crc(pointer, serial, 0xFFFF'FFF8)},
                {"serials of the halves", 16, with_crc(pointer, serial + 5, start)}});
  pair.change("main.odbj", [](FileBytes& file) { file.resize(40); });
  expect_finding(pair, "main.odbj", Severity::damage, 0, "journal header: found 40 bytes");
}

// What follows in the newest half, and the finding at a distance from the half's first entry.
struct Entries {
  Severity severity;
  std::uint64_t named;
  const char* text;
  std::function<void(JournalWriter&)> write;
};

TEST(Journal, EntriesAreJudged) {
  Pair pair;
  const FileBytes empty = pair.file("main.odbj");
  const std::uint64_t start = half_start(empty, newest_half(empty));
  const std::uint64_t other = half_start(empty, 1 - newest_half(empty));
  const Entries cases[] = {
      {Severity::damage, 0, "found no update", [](auto& w) { w.begin().end(); }},
      {Severity::damage, 24, "where the allocation map begins", [](auto& w) { w.transaction(100); }},
      {Severity::damage, 24, "for 4 bytes, expected their end at",
       [](auto& w) { w.transaction(0x7000'0000'0000); }},
      {Severity::damage, 32, "reserved word of the update: found 3",
       [](auto& w) { w.begin().update(some_data, 0, 3).end(); }},
      {Severity::damage, 48, "target of the redirection: found 64",
       [](auto& w) { w.transaction().redirect(64); }},
      {Severity::damage, 48, "serial of the begin entry: found",
       [](auto& w) {
         w.transaction().serial += 1;
         w.transaction();
       }},
      {Severity::note, 0, "a transaction is torn: it was not synced",
       [](auto& w) { w.transaction().tear().transaction(); }},
      {Severity::note, 0, "the last transaction is torn", [](auto& w) { w.transaction().tear(); }},
      {Severity::note, 0, "the last transaction is torn", [](auto& w) { w.begin().update(); }},
      {Severity::note, 0, "a transaction that was begun only", [](auto& w) { w.begin(); }},
      {Severity::note, 48, "from an earlier use of the half",
       [](auto& w) {
         w.transaction().serial -= 2;
         w.transaction();
       }},
      {Severity::note, 48, "a redirection into half", [=](auto& w) { w.transaction().redirect(other); }},
  };
  for (const Entries& c : cases) {
    pair.change("main.odbj", [&](FileBytes& journal) {
      JournalWriter writer(journal);
      c.write(writer);
    });
    expect_finding(pair, "main.odbj", c.severity, start + c.named, c.text);
    pair.sim.set_contents("/db/main.odbj", empty);
  }
}

TEST(Journal, TransactionAcrossItsHalfIsDamage) {
  Pair pair;
  std::uint64_t named = 0;
  pair.change("main.odbj", [&](FileBytes& journal) {
    // The first half becomes the newest, filled by transactions up to its end and beyond.
    const std::uint64_t serial = JournalWriter(journal).serial + 1;
    write_all(journal, with_crc(pointer_of(0), serial, 48));
    JournalWriter writer(journal, 0, serial);
    while (writer.position() < journal.size() / 2)
      writer.transaction();
    named = writer.position() - 8;
  });
  expect_finding(pair, "main.odbj", Severity::damage, named, "expected it within the half");
}

// The pointer of either half may be lost while the journal enters that half.
TEST(Journal, UnreadablePointerHidesNothing) {
  Pair pair;
  const FileBytes journal = pair.file("main.odbj");
  for (const unsigned lost : {newest_half(journal), 1 - newest_half(journal)}) {
    pair.sim.set_contents("/db/main.odbj", journal);
    pair.change("main.odbj", [&](FileBytes& file) {
      JournalWriter(file).transaction(some_data, 77);
      file[pointer_of(lost) + 12] ^= std::byte{1};
    });
    const inspect::Inspection inspection = pair.inspect();
    expect_sound(inspection);
    EXPECT_EQ(inspection.journal->replayed_transactions, 1U);
    EXPECT_THAT(lines_of(inspection, Severity::note),
                Contains(HasSubstr("cannot be read: the journal was entering that half")));
  }
}

}  // namespace
}  // namespace inspect_test
