#include "tsdb_chains.h"

#include "timeseries/chain_kind.h"
#include "timeseries/format.h"
#include "words.h"

namespace inspect {

namespace pointer_block = tsdb::format::pointer_block;

// A block that is about to be entered, and how the walk got there.
struct ChainWalker::Step {
  ChainId id;
  std::uint32_t block;
  Place named_at;                   // where the block's number stands
  std::uint64_t previous_block;     // 0 for the first
  std::uint32_t previous_sequence;  // of that block in its run
  bool may_be_unwritten;

  bool is_first() const { return previous_block == 0; }
  bool follows_directly() const { return !is_first() && block == previous_block + 1; }
};

std::string name_of(ChainId id) {
  return text::concat(tsdb::chain_traits[id.kind].name, " chain ", id.set);
}

std::vector<BlockRun> ChainBlocks::runs() const {
  std::vector<BlockRun> runs;
  for (const std::uint32_t block : blocks) {
    if (!runs.empty() && block == runs.back().first_block + runs.back().block_count) {
      runs.back().block_count += 1;
    } else {
      runs.push_back({block, 1});
    }
  }
  return runs;
}

bool ChainWalker::can_enter(const Step& step) {
  if (step.may_be_unwritten && step.block >= shape_.block_count) {
    report_.note(step.named_at, name_of(step.id), ": a run that was being added in block ", step.block,
                 ", past the end of the file");
    return false;
  }
  if (step.block == 0 || step.block >= shape_.block_count) {
    report_.damage(step.named_at, name_of(step.id), ": found block ", step.block,
                   ", expected a block from 1 to ", shape_.block_count - 1);
    return false;
  }
  const auto [owner, is_new] = owners_.try_emplace(step.block, step.id);
  if (is_new)
    return true;
  if (owner->second == step.id) {
    report_.damage(step.named_at, name_of(step.id), ": found block ", step.block,
                   ", expected a block that the chain has not passed");
  } else {
    report_.damage(step.named_at, name_of(step.id), ": found block ", step.block, " of ",
                   name_of(owner->second), ", expected a block of its own");
  }
  return false;
}

// False when the block is not of the chain, so that its link cannot be trusted.
bool ChainWalker::check_block(const Step& step, ByteView block) {
  const std::uint32_t expected_magic = tsdb::chain_traits[step.id.kind].magic;
  const std::uint32_t magic = bytes::load_u32(block, pointer_block::magic);
  if (magic != expected_magic) {
    if (step.may_be_unwritten && !first_nonzero(block.first(pointer_block::entries))) {
      report_.note(place_in_tsdb(step.block, 0), name_of(step.id),
                   ": a run that was being added and was not written");
    } else {
      report_.damage(place_in_tsdb(step.block, pointer_block::magic), name_of(step.id), ", magic: found ",
                     magic_text(magic), ", expected ", magic_text(expected_magic));
    }
    return false;
  }
  report_.expect_equal(place_in_tsdb(step.block, pointer_block::chain_set),
                       text::concat(name_of(step.id), ", set number"),
                       bytes::load_u32(block, pointer_block::chain_set), step.id.set);
  const std::uint32_t sequence = bytes::load_u32(block, pointer_block::sequence);
  const bool continues_run = step.follows_directly() && sequence == step.previous_sequence + 1;
  if (sequence != 0 && !continues_run) {
    report_.damage(place_in_tsdb(step.block, pointer_block::sequence), name_of(step.id),
                   ", sequence number: found ", sequence, ", expected ",
                   step.follows_directly() ? step.previous_sequence + 1 : 0);
  }
  return true;
}

ChainBlocks ChainWalker::walk(ChainId id, std::uint32_t first_block, const Place& named_at,
                              bool is_being_changed) {
  ChainBlocks chain;
  Step step{id, first_block, named_at, 0, 0, false};
  for (;;) {
    if (!can_enter(step))
      return chain;
    const Bytes block = file_.read(std::uint64_t{step.block} * shape_.block_size, shape_.block_size);
    if (!check_block(step, block))
      return chain;
    chain.blocks.push_back(step.block);
    const std::uint32_t next = bytes::load_u32(block, pointer_block::next_block);
    if (next == 0)
      break;
    step = {id,
            next,
            place_in_tsdb(step.block, pointer_block::next_block),
            step.block,
            bytes::load_u32(block, pointer_block::sequence),
            is_being_changed};
  }
  chain.is_whole = true;
  return chain;
}

}  // namespace inspect
