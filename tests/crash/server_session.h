// A server's life with a meta database on a simulated computer that loses its process or its power again and
// again, beside a record of what the database must hold then.
//
//   E1  After an orderly end or the death of the process, in the midst of a call or between two, the database
//   holds
//       the last committed state.
//   E2  After a power cut it holds one of the states committed since the last one that was reported synced,
//       or that one.
//   E3  A commit that ended with an error may count as made or not, whole.
//   E4  Whatever happened, the files pass the inspection, and a recovery that is itself cut leads to the same
//   state
//       as one that is not.

#pragma once

#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "node_database.h"
#include "observe.h"
#include "simulation/simulated_system.h"

namespace crash {

class ServerSession {
 public:
  ServerSession(const Shape& shape, std::uint64_t seed);
  ~ServerSession();
  ServerSession(const ServerSession&) = delete;
  ServerSession& operator=(const ServerSession&) = delete;

  // Some work, an end of some kind in the midst of it, the recovery, and the comparison.
  // Returns what is wrong, empty when nothing is.
  std::string live_and_crash();

  std::uint64_t committed_count() const { return committed_count_; }

 private:
  void work(std::uint32_t step_count);
  void one_step();
  void transaction(bool lazy, bool give_up);
  void change_some_node();
  void store(std::uint32_t id, const Node& node);
  void erase(std::uint32_t id);
  void rename(std::uint32_t from, std::uint32_t to, const Node& node);
  void record_commit(bool synced);

  State state_after_undisturbed_recovery() const;
  // These two return what is wrong, empty when nothing is.
  std::string recover();
  std::string wrong_after(bool writes_were_lost);

  std::uint32_t up_to(std::uint32_t limit) { return static_cast<std::uint32_t>(random_() % (limit + 1)); }
  bool one_in(std::uint32_t chances) { return random_() % chances == 0; }
  simulation::Policy random_policy();

  Shape shape_;
  std::mt19937_64 random_;
  support::LogCapture log_;
  simulation::SimulatedSystem system_;
  simulation::Installed installed_{system_};
  std::vector<State> history_;  // from the last synced state on
  State working_;               // as the open transaction sees it
  std::optional<State> in_doubt_;
  std::uint64_t committed_count_ = 0;
};

}  // namespace crash
