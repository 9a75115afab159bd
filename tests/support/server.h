// A server's work on the nodes of a meta database, beside a record of what the database must hold.

#pragma once

#include <algorithm>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "metadb/storage/backing_store.h"
#include "metadb/storage/buffer_cache.h"
#include "metadb/storage/journal.h"
#include "metadb/storage/mapped_journal.h"
#include "metadb/storage/mdb_header.h"
#include "nodemodel/node_lookup.h"
#include "small_pair.h"
#include "soundness.h"

namespace support {

// A copy goes on in the same way on a computer of its own, once it has opened the database there.
class Server : public Computer {
 public:
  // Leaves the database open.
  Server(const mdb_test::MdbShape& shape, std::uint64_t seed) : random_(seed), block_size_(shape.block_size) {
    mdb_test::create_mdb(sim, shape);
    open();
  }

  static void open() { open_nodes(mdb_test::mdb_path); }

  std::uint32_t up_to(std::uint32_t limit) { return static_cast<std::uint32_t>(random_() % (limit + 1)); }
  bool one_in(std::uint32_t chances) { return random_() % chances == 0; }

  // A few random changes of nodes, of which some are taken back again. What is thrown by the end itself
  // leaves it open whether the transaction counts.
  void transact(std::uint32_t change_count, bool lazy, bool give_up = false) {
    working_ = history_.back();
    unless_too_large([&] {
      mdb::Transaction outer;
      for (; change_count > 0; --change_count) {
        const Nodes before = working_;
        std::optional<mdb::Transaction> nested;
        if (one_in(5))
          nested.emplace();
        change_some_node();
        if (nested && one_in(2)) {
          nested->end();
        } else if (nested) {
          working_ = before;  // aborted
        }
      }
      if (!give_up)
        end(outer, lazy);
    });
  }
  // One change, in the transactions that the storage makes of it.
  void change_alone() {
    working_ = history_.back();
    unless_too_large([&] {
      try {
        change_some_node();
      } catch (...) {
        in_doubt_ = working_;
        throw;
      }
      note_commit();
    });
  }
  // A transaction whose end does not fit into the half that it began in.
  void move_to_the_other_half() {
    mdb::journal_flip(false);
    if (mdb::journal_free() > 10'000)
      return;  // to fill it takes long
    transact(1, true);
    working_ = history_.back();
    unless_too_large([&] {
      constexpr std::size_t entry_header = 20, most_bytes = 284, least_entry = 24;
      mdb::Transaction outer;
      change_some_node();
      while (const std::uint32_t free = mdb::journal_free()) {
        std::vector<std::byte> bytes(std::min(most_bytes, free - entry_header));
        const std::size_t rest = free - entry_header - bytes.size();
        if (rest != 0 && rest < least_entry)
          bytes.resize(bytes.size() - 16);  // so that another one fits there
        const std::uint64_t anywhere = std::uint64_t{mdb::index_root(0)} * mdb::block_size();
        mdb::read_bytes_current(bytes, anywhere);
        mdb::transaction_update(bytes, anywhere);
      }
      end(outer, true);
    });
  }
  void read_all() const {
    EXPECT_EQ(stored(), history_.back());
    std::size_t children_count = 0;
    for (std::uint32_t parent = 0; parent <= max_parent; ++parent) {
      for (auto child = mdb::node_children({0, parent}); !child.at_end(); child.next())
        children_count += 1;
    }
    EXPECT_EQ(children_count, history_.back().size());
  }

  static Nodes stored() { return stored_nodes(1, max_id); }
  std::uint64_t committed_count() const { return committed_count_; }

  // What is synced is all that counts.
  void note_sync() { history_ = {history_.back()}; }
  // Expects that the open database holds one of the states that it may be in, and takes it for committed.
  void settle() {
    if (in_doubt_)
      history_.push_back(*std::exchange(in_doubt_, {}));
    Nodes nodes = stored();
    EXPECT_TRUE(std::ranges::count(history_, nodes) != 0) << "none of " << history_.size() << " states";
    history_ = {std::move(nodes)};
  }

 private:
  static constexpr std::uint32_t max_id = 40;
  static constexpr std::uint32_t max_parent = 6;

  // A half too small for a transaction is no failure: it has been taken back.
  template <typename Work>
  void unless_too_large(Work work) {
    try {
      work();
    } catch (const mdb::error_transact&) {
      in_doubt_.reset();
    } catch (const mdb::error_internal& error) {
      if (error.message() != "After journal flip; no space for transend.")
        throw;
      in_doubt_.reset();
    }
  }
  void end(mdb::Transaction& transaction, bool lazy) {
    in_doubt_ = working_;
    transaction.end(lazy);
    in_doubt_.reset();
    if (!lazy && working_ != history_.back())  // a transaction without updates syncs nothing
      history_.clear();
    note_commit();
  }
  void note_commit() {
    history_.push_back(working_);
    committed_count_ += 1;
  }

  void change_some_node() {
    const std::uint32_t id = 1 + up_to(max_id - 1);
    const std::uint32_t other_id = 1 + up_to(max_id - 1);
    NodeFacts node{up_to(max_parent),
                   std::string(up_to(block_size_ / (one_in(8) ? 2 : 6)), static_cast<char>('a' + up_to(25)))};
    if (one_in(10))
      node.name = "TBEGTBEGTBEGTBEG";  // wherever it lies in the journal, it begins like a transaction
    const auto old = working_.extract(id);
    const std::uint32_t dice = up_to(5);
    std::uint32_t changed_id = id;
    if (old && dice == 2)
      node.parent = old.mapped().parent;
    if (old && dice == 3)
      node.name = old.mapped().name;
    if (old && dice == 4 && !working_.contains(other_id))
      changed_id = other_id;
    if (!old || dice >= 2)
      working_[changed_id] = node;
    store_as_in(working_, changed_id, id);
  }

  std::mt19937_64 random_;
  std::uint32_t block_size_;
  std::vector<Nodes> history_ = {{}};  // the committed states, from the last synced one on
  Nodes working_;                      // as the open transaction sees it
  std::optional<Nodes> in_doubt_;      // what an end that failed may have committed
  std::uint64_t committed_count_ = 0;
};

// What a server does. The first three are the usual things.
struct ServerStep {
  const char* name;
  void (*take)(Server& server);
  bool syncs = false;
};
inline constexpr ServerStep server_steps[] = {
    {"Change", [](Server& server) { server.change_alone(); }},
    {"Changes", [](Server& server) { server.transact(1 + server.up_to(3), true); }},
    {"SynchronousEnd", [](Server& server) { server.transact(1 + server.up_to(3), false); }},
    {"ManyChanges", [](Server& server) { server.transact(12, true); }},
    {"EndInTheOtherHalf", [](Server& server) { server.move_to_the_other_half(); }},
    {"GivenUp", [](Server& server) { server.transact(1 + server.up_to(3), true, true); }},
    {"Flip", [](Server&) { mdb::journal_flip(false); }, true},
    {"FlipWithRedirection", [](Server&) { mdb::journal_flip(true); }, true},
    {"Sync", [](Server&) { mdb::journal_sync(); }, true},
    {"ChangeASecondLater",
     [](Server& server) {
       server.sim.advance_microseconds(1'000'000);
       server.transact(1, true);
     }},
    {"Checkpoint", [](Server&) { mdb::journal_checkpoint(); }},
    {"Growth", [](Server&) { mdb::backing_grow(60); }},
    {"Reading", [](Server& server) { server.read_all(); }},
    {"ShutDown", [](Server&) { mdb_test::close_mdb(); }, true},
    {"Death", [](Server&) { drop_databases(); }},
};

// Opens the database again when the step leaves it closed.
inline void take(Server& server, const ServerStep& step) {
  step.take(server);
  if (step.syncs)
    server.note_sync();
  if (!mdb::backing_is_open())
    Server::open();
}
inline void take_some_step(Server& server) {
  const std::uint32_t dice = server.up_to(31);
  take(server, server_steps[dice < std::size(server_steps) ? dice : dice % 3]);
}

}  // namespace support
