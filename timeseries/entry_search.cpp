#include "timeseries/entry_search.h"

#include <limits>

#include "common/log.h"

namespace tsdb {
namespace {

// Printed as the result of a search without one.
constexpr std::uint64_t nothing_found = std::numeric_limits<std::uint32_t>::max();

// The trace speaks of lblocks whatever the kind of the chain.
std::optional<std::uint64_t> search_run(Chain& chain, std::size_t run_index) {
  const ChainTraits& traits = chain.traits();
  const auto found = chain.find_free_in(run_index);
  if (!found) {
    log(logging::detail, logging::chains, "No pointers in this ", traits.name, "blocks were 0");
  }
  if (found || traits.reports_vain_search) {
    log(logging::detail, logging::chains, "ChainElm returned ", found.value_or(nothing_found), " as the ",
        "first free lblock");
  }
  return found;
}

}  // namespace

std::optional<std::uint64_t> find_free_entry(Chain& chain) {
  // The trace shows the runs that are known to be full as well.
  const bool traces = (log_mask & logging::detail) != 0;
  for (std::size_t index = traces ? 0 : chain.first_open_run(); index < chain.runs().size(); ++index) {
    const std::uint64_t start = chain.run_start(index);
    log(logging::detail, logging::chains, "Searching lblock offset ", start);
    if (const auto found = search_run(chain, index))
      return start + *found;
    log(logging::detail, logging::chains, "Stepping up to next ", chain.runs()[index].capacity(),
        " lblocks...");
  }
  return std::nullopt;
}

}  // namespace tsdb
