// Journals that no session can tell of.

#include "journal_writer.h"

namespace inspect_test {
namespace {

using testing::Contains;

TEST(Journal, MayBeTooShortForItsHeader) {
  Pair pair;
  pair.change("main.odbj", [](FileBytes& file) { file.resize(40); });
  EXPECT_THAT(lines_of(Pair::inspect(), Severity::damage),
              Contains(HasSubstr("journal header: found 40 bytes")));
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
