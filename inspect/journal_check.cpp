#include "journal_check.h"

#include <algorithm>
#include <utility>

#include "journal_entries.h"
#include "metadb/storage/journal_format.h"
#include "words.h"

namespace inspect {
namespace {

namespace format = mdb::format;
using State = TransactionExtent::State;

// Serials of the two halves differ by one, or by two after a run that followed a redirection.
constexpr std::uint64_t greatest_serial_distance = 2;

// The search for transactions behind a torn one reads no more than this many times the journal.
constexpr std::uint64_t search_effort = 4;

struct HalfWalk {
  HalfEnd end;
  std::uint64_t position;  // where it ended
  std::uint64_t transaction_count = 0;
};

class JournalCheck {
 public:
  JournalCheck(ByteView journal, const MdbLayout& layout, const Wanted& wanted, JournalFacts& facts,
               Report& report)
      : journal_(journal),
        entries_(journal),
        geometry_{journal.size()},
        layout_(layout),
        wanted_(wanted),
        facts_(facts),
        report_(report) {}

  std::vector<Update> run() {
    if (!check_header())
      return {};
    for (const unsigned half : {0U, 1U})
      read_pointer(half);
    check_serials();
    choose_half();
    if (!facts_.newest_half) {
      report_.damage(at(format::index_pointer_offset(0)),
                     "index pointers: found neither readable, expected one at least");
      return {};
    }
    replay(*facts_.newest_half);
    survey_older_half();
    return std::move(updates_);
  }

 private:
  Place at(std::uint64_t position) const {
    if (!facts_.is_internal)
      return {DatabaseFile::journal, std::nullopt, position};
    const std::uint64_t in_file = std::uint64_t{layout_.journal_first_block} * layout_.block_size + position;
    return place_in_mdb(in_file / layout_.block_size, in_file % layout_.block_size);
  }

  bool check_header() {
    namespace header = format::journal_header;
    if (journal_.size() < format::journal_header_size) {
      report_.damage(at(0), "journal header: found ", journal_.size(), " bytes, expected ",
                     format::journal_header_size, " at least");
      return false;
    }
    const std::uint32_t magic = bytes::load_u32(journal_, header::magic);
    facts_.version = bytes::load_u32(journal_, header::version);
    report_.expect_equal(at(header::magic), "journal magic", magic_text(magic),
                         magic_text(header::magic_word));
    report_.expect_equal(at(header::version), "journal version", facts_.version, header::current_version);
    report_.expect_equal(at(header::reserved), "reserved word of the journal",
                         bytes::load_u32(journal_, header::reserved), std::uint32_t{0});
    return magic == header::magic_word && facts_.version == header::current_version;
  }

  // A half's entries begin at its start; both halves of a new journal wait at 0 for their first use.
  void read_pointer(unsigned half) {
    HalfFacts& facts = facts_.halves[half];
    const format::IndexPointer pointer = format::load_index_pointer(journal_, half);
    facts.pointer_is_valid = format::index_pointer_is_valid(journal_, half);
    facts.serial = pointer.serial;
    facts.first_entry = pointer.jpos;
    facts.capacity_bytes =
        geometry_.half_end(half) - std::min(geometry_.first_entry(half), geometry_.half_end(half));
    if (!facts.pointer_is_valid)
      return;
    const std::uint64_t expected = pointer.serial == 0 ? 0 : geometry_.first_entry(half);
    report_.expect_equal(at(format::index_pointer_offset(half) + format::index_pointer::jpos),
                         text::concat("start of half ", half), std::uint64_t{pointer.jpos}, expected);
  }

  void check_serials() {
    const auto& [first, second] = facts_.halves;
    for (const unsigned half : {0U, 1U}) {
      if (!facts_.halves[half].pointer_is_valid && facts_.halves[1 - half].pointer_is_valid) {
        report_.note(at(format::index_pointer_offset(half)), "the index pointer of half ", half,
                     " cannot be read: the journal was entering that half");
      }
    }
    if (!first.pointer_is_valid || !second.pointer_is_valid)
      return;
    const std::uint64_t distance =
        std::max(first.serial, second.serial) - std::min(first.serial, second.serial);
    if (distance > greatest_serial_distance || (distance == 0 && first.serial != 0)) {
      report_.damage(at(format::index_pointer_offset(0)), "serials of the halves: found ", first.serial,
                     " and ", second.serial, ", expected a distance of 1 or ", greatest_serial_distance);
    }
  }

  void choose_half() {
    const auto& [first, second] = facts_.halves;
    const std::uint64_t first_serial = first.pointer_is_valid ? first.serial : 0;
    if (first.pointer_is_valid)
      facts_.newest_half = 0;
    if (second.pointer_is_valid &&
        (second.serial > first_serial || (second.serial == first_serial && first.first_entry == 0))) {
      facts_.newest_half = 1;
    }
  }

  // Carries out the newest half and what follows it in the other one.
  void replay(unsigned half) {
    const HalfFacts& facts = facts_.halves[half];
    const HalfWalk walk = walk_half(half, facts.first_entry, facts.serial, true);
    fill_facts(half, walk);
    replayed_both_ = continue_replay(half, walk);
    if (!replayed_both_)
      judge_end(walk, facts.serial, half);
  }

  // Whether the replay goes on in the other half, where it then ends.
  bool continue_replay(unsigned half, const HalfWalk& walk) {
    const unsigned other = 1 - half;
    const std::uint64_t next_serial = facts_.halves[half].serial + 1;
    std::uint64_t start = geometry_.first_entry(other);
    if (walk.end == HalfEnd::redirected) {
      start = entries_.redirection_target(walk.position);
      report_.note(at(walk.position), "a redirection into half ", other);
      judge_redirection(walk.position, other);
      if (start + format::redirection_entry::size > journal_.size())
        return true;
    } else if (!begins_in_lost_half(other, next_serial)) {
      return false;
    }
    const HalfWalk rest = walk_half(other, start, next_serial, true);
    fill_facts(other, rest);
    judge_end(rest, next_serial, other);
    return true;
  }

  void judge_redirection(std::uint64_t position, unsigned other) {
    report_.expect_equal(at(position), "target of the redirection",
                         std::uint64_t{entries_.redirection_target(position)},
                         std::uint64_t{geometry_.first_entry(other)});
  }

  // Whatever ended the walk of a half that was left has come to nothing.
  bool begins_in_lost_half(unsigned half, std::uint64_t serial) const {
    const std::uint64_t start = geometry_.first_entry(half);
    return !facts_.halves[half].pointer_is_valid && entries_.kind_at(start) == EntryKind::begin &&
           entries_.begin_serial(start) == serial && entries_.transaction_at(start).state == State::complete;
  }

  // Nothing of it counts any more, but what stands there was once committed.
  void survey_older_half() {
    const unsigned half = 1 - *facts_.newest_half;
    const HalfFacts& facts = facts_.halves[half];
    if (replayed_both_ || !facts.pointer_is_valid || facts.first_entry != geometry_.first_entry(half))
      return;
    const HalfWalk walk = walk_half(half, facts.first_entry, facts.serial, false);
    fill_facts(half, walk);
    if (walk.end == HalfEnd::redirected)
      judge_redirection(walk.position, 1 - half);
    if (walk.end == HalfEnd::stale && entries_.begin_serial(walk.position) > facts.serial)
      judge_foreign_serial(walk.position, facts.serial);
  }

  void fill_facts(unsigned half, const HalfWalk& walk) {
    HalfFacts& facts = facts_.halves[half];
    facts.transaction_count = walk.transaction_count;
    facts.end = walk.end;
    facts.end_offset = walk.position;
    facts.used_bytes = walk.position - std::min(walk.position, geometry_.first_entry(half));
  }

  HalfWalk walk_half(unsigned half, std::uint64_t start, std::uint64_t serial, bool carry_out) {
    HalfWalk walk{HalfEnd::nothing_more, start};
    for (;;) {
      if (walk.position >= journal_.size()) {
        walk.end = HalfEnd::past_journal;
        return walk;
      }
      const EntryKind kind = entries_.kind_at(walk.position);
      if (kind != EntryKind::begin) {
        walk.end = kind == EntryKind::redirection ? HalfEnd::redirected : HalfEnd::nothing_more;
        return walk;
      }
      if (entries_.begin_serial(walk.position) != serial) {
        walk.end = HalfEnd::stale;
        return walk;
      }
      const TransactionExtent extent = entries_.transaction_at(walk.position);
      if (extent.state != State::complete) {
        walk.end = extent.state == State::without_updates_or_end ? HalfEnd::begun : HalfEnd::torn;
        list_transaction(half, extent,
                         walk.end == HalfEnd::begun ? TransactionFate::begun : TransactionFate::torn);
        return walk;
      }
      if (!check_transaction(extent, half)) {
        walk.end = HalfEnd::past_mapped_blocks;
        list_transaction(half, extent, TransactionFate::does_not_fit);
        return walk;
      }
      if (carry_out)
        carry_out_updates(extent);
      list_transaction(half, extent, carry_out ? TransactionFate::replayed : TransactionFate::superseded);
      walk.position = extent.next();
      walk.transaction_count += 1;
    }
  }

  void list_transaction(unsigned half, const TransactionExtent& extent, TransactionFate fate) {
    if (!wanted_.journal)
      return;
    TransactionFacts transaction{.fate = fate,
                                 .offset = extent.begin,
                                 .end = extent.state == State::complete ? extent.next() : extent.end,
                                 .serial = entries_.begin_serial(extent.begin),
                                 .updates = {}};
    entries_.for_each_update(extent, [&](std::uint64_t position) {
      const Update update = entries_.update_at(position);
      transaction.updates.push_back({position, update.target, update.length});
    });
    facts_.halves[half].transactions.push_back(std::move(transaction));
  }

  // False when an update lies past the last block that has a class: then nothing of it is carried out.
  bool check_transaction(const TransactionExtent& extent, unsigned half) {
    if (extent.update_count == 0)
      report_.damage(at(extent.begin), "committed transaction: found no update, expected one at least");
    if (extent.next() > geometry_.writable_limit(half)) {
      report_.damage(at(extent.end), "committed transaction: found its end at ", extent.next(),
                     ", expected it within the half, whose transactions end at ",
                     geometry_.writable_limit(half), " at most");
    }
    const std::uint64_t limit = layout_.addressable_blocks() * layout_.block_size;
    bool fits = true;
    entries_.for_each_update(extent, [&](std::uint64_t position) {
      const Update update = entries_.update_at(position);
      report_.expect_equal(at(position + format::update_entry::zero), "reserved word of the update",
                           entries_.update_reserved(position), std::uint32_t{0});
      if (update.target < layout_.map_position()) {
        report_.damage(at(position + format::update_entry::target), "target of the update: found ",
                       update.target, ", expected ", layout_.map_position(),
                       " at least, where the allocation map begins");
      }
      if (fits && (update.target > limit || update.length > limit - update.target)) {
        report_.damage(at(position + format::update_entry::target), "target of the update: found ",
                       update.target, " for ", update.length, " bytes, expected their end at ", limit,
                       " at most");
        fits = false;
      }
    });
    return fits;
  }

  void carry_out_updates(const TransactionExtent& extent) {
    entries_.for_each_update(
        extent, [&](std::uint64_t position) { updates_.push_back(entries_.update_at(position)); });
    facts_.replayed_transactions += 1;
    facts_.replayed_updates += extent.update_count;
  }

  // What stands behind the last transaction that is carried out.
  void judge_end(const HalfWalk& walk, std::uint64_t serial, unsigned half) {
    switch (walk.end) {
      case HalfEnd::past_journal:
        report_.damage(at(journal_.size()), "next entry: found its place at ", walk.position,
                       ", expected it within the ", journal_.size(), " bytes of the journal");
        return;
      case HalfEnd::stale:
        judge_foreign_serial(walk.position, serial);
        return;
      case HalfEnd::begun:
        report_.note(at(walk.position), "a transaction that was begun only");
        return;
      case HalfEnd::torn:
        judge_torn(walk.position, serial, half);
        return;
      case HalfEnd::redirected:  // a second one, where the replay ends
        judge_redirection(walk.position, 1 - half);
        return;
      default:
        return;
    }
  }

  // The pointer of a half is durable before the first entry that bears its serial is written. What only
  // begins like an entry may be what is left of a record.
  void judge_foreign_serial(std::uint64_t position, std::uint64_t serial) {
    const std::uint64_t found = entries_.begin_serial(position);
    if (found > serial && entries_.transaction_at(position).state == State::complete) {
      report_.damage(at(position), "serial of the begin entry: found ", found, ", expected ", serial,
                     " at most");
    } else {
      report_.note(at(position), "stale entries of serial ", found, " from an earlier use of the half");
    }
  }

  // Transactions that were not synced reach the medium in any order, so that a power cut can tear one and
  // leave a later one whole.
  void judge_torn(std::uint64_t position, std::uint64_t serial, unsigned half) {
    if (const auto later = find_complete_transaction(position + format::begin_entry::size, serial, half)) {
      report_.note(at(position),
                   "a transaction is torn: it was not synced, nor were the later ones, of which "
                   "a whole one begins at ",
                   *later);
    } else {
      report_.note(at(position), "the last transaction is torn: it was not committed");
    }
  }

  std::optional<std::uint64_t> find_complete_transaction(std::uint64_t from, std::uint64_t serial,
                                                         unsigned half) const {
    std::uint64_t effort_left = search_effort * journal_.size();
    const std::uint64_t end = geometry_.half_end(half);
    for (std::uint64_t position = format::round_up_to_entry(from); position < end;
         position += format::entry_alignment) {
      if (entries_.kind_at(position) != EntryKind::begin || entries_.begin_serial(position) != serial)
        continue;
      const TransactionExtent extent = entries_.transaction_at(position);
      if (extent.state == State::complete && extent.update_count > 0)
        return position;
      const std::uint64_t effort = extent.end - extent.begin;
      if (effort >= effort_left)
        return std::nullopt;
      effort_left -= effort;
    }
    return std::nullopt;
  }

  ByteView journal_;
  JournalEntries entries_;
  format::JournalGeometry geometry_;
  const MdbLayout& layout_;
  const Wanted& wanted_;
  JournalFacts& facts_;
  Report& report_;
  std::vector<Update> updates_;
  bool replayed_both_ = false;
};

}  // namespace

std::vector<Update> check_journal(ByteView journal, const MdbLayout& layout, const Wanted& wanted,
                                  JournalFacts& facts, Report& report) {
  return JournalCheck(journal, layout, wanted, facts, report).run();
}

}  // namespace inspect
