// Journals put together by hand: what the opening makes of them, and what the inspection says of them.

#include "journal_writer.h"

namespace inspect_test {
namespace {

using support::LogCapture;
using testing::Contains;
using testing::EndsWith;
using testing::StartsWith;

TEST(Journal, MayBeTooShortForItsHeader) {
  Pair pair;
  pair.change("main.odbj", [](FileBytes& file) { file.resize(40); });
  EXPECT_THAT(lines_of(Pair::inspect(), Severity::damage),
              Contains(HasSubstr("journal header: found 40 bytes")));
}

constexpr const char* no_begin = "End of valid transaction-begin entries in journal.";
constexpr const char* no_end = "End of valid transaction end entries in journal.";
constexpr const char* bad_crc = "Invalid CRC in transaction - no more valid entries.";
constexpr const char* stale = "Found stale transaction in journal - end of replay.";
constexpr const char* second_redirection = "Encountered second redirection entry - end of replay.";
constexpr const char* bad_redirection = "Encountered bad index in redirection entry - replay end.";

// A journal in which the n-th transaction that counts writes n.
struct Entries {
  const char* finding;  // none for what is sound
  Severity severity;
  std::uint64_t named;    // where it is
  const char* shown;      // part of what the view of the journal says
  std::uint32_t applied;  // the number of the last transaction that counts
  const char* logged;     // why the replay ends
  std::function<void(JournalWriter&)> write;
};

TEST(Journal, EntriesAreAppliedUpToTheFirstOtherAndJudgedAndShown) {
  Pair pair;
  FileBytes empty = pair.file("main.odbj");
  const FileBytes mdb = pair.file("main.odb");
  const JournalWriter writer(empty);
  const unsigned half = writer.half, other = 1 - half;
  const std::uint64_t serial = writer.serial, start = writer.position, other_start = writer.start_of(other);
  const auto size = static_cast<std::uint32_t>(empty.size());
  constexpr auto damage = Severity::damage, note = Severity::note;
  constexpr std::uint64_t limit = std::uint64_t{512} * block_size;  // addressable
  // Two updates, of which the second writes there.
  const auto two_updates = [](std::uint64_t target, std::uint32_t length = 4) {
    return [=](JournalWriter& w) { w.transaction(1).begin().update(2).update(0, target, 0, length).end(); };
  };
  const char *outside = "expected their end at", *lost = "cannot be read: the journal was entering";
  const char *torn = "the last transaction is torn", *unmapped = ": past the mapped blocks\n";
  const Entries cases[] = {
      {nullptr, note, 0, ": nothing more\n", 2, no_begin, two_updates(limit - 4)},
      {outside, damage, start + 96, ", does not fit\n", 1, bad_crc, two_updates(limit - 3)},
      {outside, damage, start + 96, unmapped, 1, bad_crc, two_updates(~std::uint64_t{0})},
      {torn, note, start + 48, "", 1, no_end, two_updates(some_data, ~0U)},
      {torn, note, start + 48, "", 1, no_end, two_updates(some_data, ~0U - 20)},
      {torn, note, start + 48, "", 1, no_end, two_updates(some_data, size)},
      {"found no update", damage, start, "0 updates", 2, no_begin,
       [](auto& w) { w.begin().end().transaction(2); }},
      {"where the allocation map begins", damage, start + 24, "", 2, no_begin,
       [](auto& w) { w.transaction(0, 100).transaction(2); }},
      {"reserved word", damage, start + 32, "", 1, no_begin,
       [](auto& w) { w.begin().update(1, some_data, 3).end(); }},
      {"serial of the begin entry: found", damage, start + 48, "", 1, stale,
       [=](auto& w) { w.transaction(1).go_on_with(serial + 1).transaction(2); }},
      {"from an earlier use", note, start + 48, ": stale entries\n", 1, stale,
       [=](auto& w) { w.transaction(1).go_on_with(serial - 1).transaction(2); }},
      {"a transaction is torn: it was", note, start, ", torn\n", 0, bad_crc,
       [](auto& w) { w.transaction(1).tear().transaction(2); }},
      {torn, note, start + 48, ": torn\n", 1, bad_crc,
       [](auto& w) { w.transaction(1).transaction(2).tear(); }},
      {torn, note, start, "", 0, no_end, [](auto& w) { w.begin().update(1); }},
      {"a transaction that was begun only", note, start, ", begun\n", 0, no_end, [](auto& w) { w.begin(); }},
      {"a redirection into half", note, start + 48, ": redirected\n", 2, second_redirection,
       [=](auto& w) {
         w.transaction(1).redirect(other_start).enter(other, serial + 1).transaction(2).redirect(start);
       }},
      {"redirection: found 64", damage, start + 48, "", 1, no_begin,
       [](auto& w) { w.transaction(1).redirect(64); }},
      {"redirection: found", damage, start + 48, "", 1, bad_redirection,
       [=](auto& w) { w.transaction(1).redirect(size - 7); }},
      {"redirection: found", damage, start + 48, "", 1, no_begin,
       [=](auto& w) { w.transaction(1).redirect(size - 8); }},
      {lost, note, pointer_of(half), "", 1, no_begin, [=](auto& w) { w.transaction(1).lose_pointer(half); }},
      {lost, note, pointer_of(other), "", 1, no_begin,
       [=](auto& w) { w.transaction(1).lose_pointer(other); }},
      // A half that was left has been applied, whatever its remains look like.
      {lost, note, pointer_of(other), "", 2, no_begin,
       [=](auto& w) {
         w.transaction(1).transaction(9).tear().lose_pointer(other).enter(other, serial + 1).transaction(2);
       }},
      {lost, note, pointer_of(other), "", 1, no_begin,
       [=](auto& w) { w.transaction(1).lose_pointer(other).enter(other, serial + 2).transaction(2); }},
      {"serials of the halves", damage, pointer_of(0), "", 1, no_begin,
       [=](auto& w) {
         w.enter(1, serial).write_pointer().transaction(2).enter(0, serial).write_pointer().transaction(1);
       }},
      {"expected it within the half", damage, 32'776, "", 682, no_begin,
       [=](auto& w) {
         w.enter(0, serial + 1).write_pointer();
         for (std::uint32_t i = 1; w.position < w.journal.size() / 2; ++i)
           w.transaction(i);
       }},
  };
  for (const Entries& c : cases) {
    SCOPED_TRACE(testing::Message() << "case " << &c - cases << ": "
                                    << (c.finding != nullptr ? c.finding : "sound"));
    pair.change("main.odbj", [&](FileBytes& journal) {
      JournalWriter again(journal);
      c.write(again);
    });
    const inspect::Inspection inspection = Pair::inspect();
    EXPECT_EQ(inspection.verdict() == inspect::Verdict::damaged, c.severity == Severity::damage);
    const std::string place = text::concat("main.odbj -:", c.named, " ");
    if (c.finding != nullptr) {
      EXPECT_THAT(lines_of(inspection, c.severity), Contains(AllOf(StartsWith(place), HasSubstr(c.finding))));
    }
    EXPECT_EQ(inspection.journal->replayed_transactions, c.applied);
    EXPECT_THAT(run({"--journal", "/db"}).out, HasSubstr(c.shown));
    LogCapture::take();
    Pair::open_mdb();
    support::drop_databases();
    EXPECT_EQ(load_u32(pair.file("main.odb"), some_data), c.applied);
    EXPECT_THAT(LogCapture::lines(), Contains(EndsWith(c.logged)));
    pair.sim.set_contents("/db/main.odbj", empty);
    pair.sim.set_contents("/db/main.odb", mdb);
  }
}

// Files that hold anything at all are looked at with bounded effort. Here nested begin entries all run into
// the same long row of updates: the search behind a torn transaction gives up in time.
TEST(Journal, SearchForLaterTransactionsEnds) {
  Pair pair;
  pair.change("main.odbj", [](FileBytes& journal) {
    const std::uint64_t serial = JournalWriter(journal).serial;
    journal.resize(16 << 20);
    JournalWriter writer(journal);
    writer.enter(1, serial - 1).write_pointer();
    writer.enter(0, serial).write_pointer().begin();
    // Each update is 40 bytes long and ends with a begin entry, for which the next update is the first.
    for (std::uint64_t at = writer.position; at + 40 < journal.size() / 2; at += 40) {
      write_all(
          journal,
          {{at, bytes::magic("TUPD")}, {at + 4, 20}, {at + 24, bytes::magic("TBEG")}, {at + 32, serial, 8}});
    }
  });
  const inspect::Inspection inspection = Pair::inspect();
  expect_sound(inspection);
  EXPECT_THAT(lines_of(inspection, Severity::note), Contains(HasSubstr("the last transaction is torn")));
}

}  // namespace
}  // namespace inspect_test
