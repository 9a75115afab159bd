#include "server_session.h"

#include <algorithm>

#include "common/errors.h"
#include "common/text.h"
#include "metadb/storage/backing_store.h"
#include "metadb/storage/buffer_cache.h"
#include "metadb/storage/journal.h"
#include "metadb/storage/mapped_journal.h"

namespace crash {

ServerSession::ServerSession(const Shape& shape, std::uint64_t seed) : shape_(shape), random_(seed) {
  mdb::cache_set_limit(64);
  create_database(system_, shape);
  open_database();
  history_ = {{}};
}

ServerSession::~ServerSession() {
  drop_databases();
  mdb::cache_set_limit(8192);
}

void ServerSession::store(std::uint32_t id, const Node& node) {
  store_node(id, node);
  working_[id] = node;
}

void ServerSession::erase(std::uint32_t id) {
  erase_node(id);
  working_.erase(id);
}

void ServerSession::rename(std::uint32_t from, std::uint32_t to, const Node& node) {
  rename_node(from, to, node);
  working_.erase(from);
  working_[to] = node;
}

void ServerSession::change_some_node() {
  const std::uint32_t id = 1 + up_to(max_id - 1);
  const std::uint32_t other_id = 1 + up_to(max_id - 1);
  Node node{up_to(6), std::string(up_to(shape_.block_size / 6), static_cast<char>('a' + up_to(25)))};
  if (one_in(10))
    node.name = "TBEGTBEGTBEGTBEG";  // wherever it comes to lie in the journal, it begins like a transaction
  const auto found = working_.find(id);
  if (found == working_.end())
    return store(id, node);
  switch (up_to(5)) {
    case 0:
    case 1:
      return erase(id);
    case 2:
      node.parent = found->second.parent;
      break;
    case 3:
      node.name = found->second.name;
      break;
    case 4:
      if (!working_.contains(other_id))
        return rename(id, other_id, node);
      break;
    default:
      break;
  }
  store(id, node);
}

void ServerSession::record_commit(bool synced) {
  committed_count_ += 1;
  if (synced)
    history_.clear();
  history_.push_back(working_);
}

// What is thrown by the end itself leaves it open whether the transaction counts.
void ServerSession::transaction(bool lazy, bool give_up) {
  working_ = history_.back();
  mdb::Transaction outer;
  const std::uint32_t changes = 1 + up_to(3);
  for (std::uint32_t i = 0; i < changes; ++i) {
    if (one_in(5)) {
      const State before = working_;
      mdb::Transaction nested;
      change_some_node();
      if (one_in(2)) {
        nested.end();
      } else {
        working_ = before;  // aborted
      }
      continue;
    }
    change_some_node();
  }
  if (give_up)
    return;
  in_doubt_ = working_;
  outer.end(lazy);
  in_doubt_.reset();
  const bool has_updates = working_ != history_.back();  // a transaction without any syncs nothing
  record_commit(!lazy && has_updates);
}

void ServerSession::one_step() {
  const std::uint32_t dice = up_to(19);
  if (dice == 0)
    return system_.advance_microseconds(1'000'000);
  if (dice == 1) {
    mdb::journal_flip(one_in(2));
    history_ = {history_.back()};
    return;
  }
  try {
    transaction(dice < 14, dice == 19);
  } catch (const mdb::error_transact&) {
    // The half was too small for this one; it has been taken back.
  } catch (const mdb::error_internal& error) {
    if (error.message() != "After journal flip; no space for transend.")
      throw;
    in_doubt_.reset();
  }
}

void ServerSession::work(std::uint32_t step_count) {
  for (std::uint32_t i = 0; i < step_count; ++i)
    one_step();
}

simulation::Policy ServerSession::random_policy() {
  constexpr simulation::Kept kinds[] = {simulation::Kept::everything, simulation::Kept::nothing,
                                        simulation::Kept::all_but_one, simulation::Kept::random_writes,
                                        simulation::Kept::random_sectors};
  return {kinds[up_to(4)], random_()};
}

State ServerSession::state_after_undisturbed_recovery() const {
  simulation::SimulatedSystem twin(system_);
  const simulation::Installed use(twin);
  open_database();
  State state = stored_state();
  drop_databases();
  return state;
}

// Opens the database, sometimes only after openings that were cut short themselves.
std::string ServerSession::recover() {
  std::optional<State> expected;
  while (one_in(3)) {
    if (!expected)
      expected = state_after_undisturbed_recovery();
    system_.inject({.occurrence = 1 + up_to(30), .power_fails = true});
    try {
      open_database();
    } catch (const error::Exception&) {
      // The next one finds what this one left.
    }
    drop_databases();
    system_.clear_faults();
    system_.power_cut(random_policy());
  }
  open_database();
  return expected && stored_state() != *expected ? "A recovery that was cut leads elsewhere" : "";
}

std::string ServerSession::wrong_after(bool writes_were_lost) {
  if (std::string damage = findings(); !damage.empty())
    return damage;
  const State state = stored_state();
  if (in_doubt_)
    history_.push_back(*in_doubt_);  // E3
  const std::size_t acceptable = writes_were_lost ? history_.size() : (in_doubt_ ? 2 : 1);
  const auto first = history_.end() - static_cast<std::ptrdiff_t>(acceptable);
  if (std::find(first, history_.end(), state) == history_.end()) {
    return text::concat("The state of ", state.size(), " nodes is none of the last ", acceptable,
                        " that were committed");
  }
  history_ = {state};
  in_doubt_.reset();
  return {};
}

std::string ServerSession::live_and_crash() {
  support::LogCapture::take();  // lest the lines pile up
  enum class End { power_cut, process_death, orderly };
  const End end = one_in(8) ? End::orderly : one_in(6) ? End::process_death : End::power_cut;
  try {
    if (one_in(2))
      system_.write_back_mapped_stores(random_());
    if (end == End::power_cut)
      system_.inject({.occurrence = 1 + up_to(60), .power_fails = true});
    work(1 + up_to(15));
    if (end == End::orderly) {
      mdb::journal_shutdown();
      mdb::backing_sync();
      history_ = {history_.back()};
    }
  } catch (const error::Exception&) {
    if (end != End::power_cut)
      throw;
  }
  drop_databases();
  system_.clear_faults();
  const bool cuts_power = end != End::process_death;
  const simulation::Policy policy = random_policy();
  if (cuts_power)
    system_.power_cut(policy);
  if (std::string damage = findings(); !damage.empty())
    return "Before the recovery: " + damage;
  if (!cuts_power) {
    open_database();
  } else if (std::string difference = recover(); !difference.empty()) {
    return difference;
  }
  return wrong_after(cuts_power && policy.kept != simulation::Kept::everything);
}

}  // namespace crash
