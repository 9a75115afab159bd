// Every invariant of the journal, broken once, and the states that interrupted runs leave in it.

#include "journal_writer.h"

namespace inspect_test {
namespace {

using testing::Contains;

TEST(Journal, DamageOfItsHeaderIsFound) {
  Pair pair;
  const FileBytes journal = pair.file("main.odbj");
  const unsigned newest = newest_half(journal);
  const std::uint64_t pointer = pointer_of(newest), serial = bytes::load_u64(journal, pointer);
  const auto start = static_cast<std::uint32_t>(half_start(journal, newest));
  const Damage damages[] = {
      {"journal magic", 0, 7},
      {"journal version: found 9", 4, 9},
      {"reserved word of the journal: found 7", 8, 7},
      {"found neither readable", 16, {{28, 0}, {44, 0}}},
      {"start of half", pointer + 8, with_crc(pointer, serial, start + 8)},
      {"found its place at 4294967288", journal.size(), with_crc(pointer, serial, 0xFFFF'FFF8)},
      {"serials of the halves", 16, with_crc(pointer, serial + 5, start)},
  };
  expect_found(pair, "main.odbj", damages);
  pair.change("main.odbj", [](FileBytes& file) { file.resize(40); });
  expect_finding("main.odbj", Severity::damage, 0, "journal header: found 40 bytes");
}

// What follows in the newest half, the finding at a distance from the half's first entry, and part of what
// the view of the journal says.
struct Entries {
  Severity severity;
  std::uint64_t named;
  const char* text;
  const char* shown;
  std::function<void(JournalWriter&)> write;
};

TEST(Journal, EntriesAreJudgedAndShown) {
  Pair pair;
  const FileBytes empty = pair.file("main.odbj");
  const std::uint64_t start = half_start(empty, newest_half(empty));
  const std::uint64_t other = half_start(empty, 1 - newest_half(empty));
  constexpr auto damage = Severity::damage, note = Severity::note;
  constexpr std::uint64_t far = std::uint64_t{1} << 46;
  const auto two = [](JournalWriter& w, std::uint64_t more_serial) {
    w.transaction().serial += more_serial;
    w.transaction();
  };
  const Entries cases[] = {
      {damage, 0, "found no update", "0 updates", [](auto& w) { w.begin().end(); }},
      {damage, 24, "where the allocation map begins", "", [](auto& w) { w.transaction(100); }},
      {damage, 24, "expected their end at", ": past the mapped blocks\n",
       [](auto& w) { w.transaction(far); }},
      {damage, 24, "for 4 bytes", ", does not fit\n", [](auto& w) { w.transaction(far); }},
      {damage, 32, "reserved word", "", [](auto& w) { w.begin().update(some_data, 0, 3).end(); }},
      {damage, 48, "redirection: found 64", "", [](auto& w) { w.transaction().redirect(64); }},
      {damage, 48, "serial of the begin entry: found", "", [=](auto& w) { two(w, 1); }},
      {note, 0, "a transaction is torn: it was", ", torn\n",
       [](auto& w) { w.transaction().tear().transaction(); }},
      {note, 0, "the last transaction is torn", ": torn\n", [](auto& w) { w.transaction().tear(); }},
      {note, 0, "the last transaction is torn", "", [](auto& w) { w.begin().update(); }},
      {note, 0, "a transaction that was begun only", ", begun\n", [](auto& w) { w.begin(); }},
      {note, 48, "from an earlier use", ": stale entries\n", [=](auto& w) { two(w, ~std::uint64_t{1}); }},
      {note, 48, "a redirection into half", ": redirected\n",
       [=](auto& w) { w.transaction().redirect(other); }},
  };
  for (const Entries& c : cases) {
    pair.change("main.odbj", [&](FileBytes& journal) {
      JournalWriter writer(journal);
      c.write(writer);
    });
    expect_finding("main.odbj", c.severity, start + c.named, c.text);
    EXPECT_THAT(run({"--journal", "/db"}).out, HasSubstr(c.shown));
    pair.sim.set_contents("/db/main.odbj", empty);
  }
}

TEST(Journal, TransactionAcrossItsHalfIsDamage) {
  Pair pair;
  std::uint64_t named = 0;
  pair.change("main.odbj", [&](FileBytes& journal) {
    // The first half becomes the newest, filled by transactions up to its end and beyond.
    write_all(journal, with_crc(pointer_of(0), JournalWriter(journal).serial + 1, 48));
    JournalWriter writer(journal, 0);
    while (writer.position < journal.size() / 2)
      writer.transaction();
    named = writer.position - 8;
  });
  expect_finding("main.odbj", Severity::damage, named, "expected it within the half");
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
    const inspect::Inspection inspection = Pair::inspect();
    expect_sound(inspection);
    EXPECT_EQ(inspection.journal->replayed_transactions, 1U);
    EXPECT_THAT(lines_of(inspection, Severity::note),
                Contains(HasSubstr("cannot be read: the journal was entering that half")));
  }
}

// Files that hold anything at all are looked at with bounded effort. Here nested begin entries all run into
// the same long row of updates: the search behind a torn transaction gives up in time.
TEST(Journal, SearchForLaterTransactionsEnds) {
  Pair pair;
  pair.change("main.odbj", [](FileBytes& journal) {
    const std::uint64_t serial = JournalWriter(journal).serial;
    journal.resize(16 << 20);
    write_all(journal, with_crc(pointer_of(0), serial, 48));
    write_all(journal,
              with_crc(pointer_of(1), serial - 1, static_cast<std::uint32_t>(half_start(journal, 1))));
    JournalWriter writer(journal, 0);
    writer.begin();
    // Each update is 40 bytes long and ends with a begin entry, for which the next update is the first.
    for (std::uint64_t at = writer.position; at + 40 < journal.size() / 2; at += 40) {
      const Writes update = {{at, bytes::magic("TUPD")}, {at + 4, 20}, {at + 24, bytes::magic("TBEG")}};
      write_all(journal, update);
      bytes::store_u64(journal, at + 32, serial);
    }
  });
  const inspect::Inspection inspection = Pair::inspect();
  expect_sound(inspection);
  EXPECT_THAT(lines_of(inspection, Severity::note), Contains(HasSubstr("the last transaction is torn")));
}

}  // namespace
}  // namespace inspect_test
