#include "inspect/report.h"

#include <array>

#include "inspect/details.h"

namespace inspect {
namespace {

// In the order of DatabaseFile.
constexpr std::array<std::string_view, 3> names = {"main.tsdb", "main.odb", "main.odbj"};

}  // namespace

std::string text_of(NodeKey key) {
  return text::concat(key.first, ".", key.second);
}

std::string_view name_of(DatabaseFile file) {
  return names[static_cast<std::size_t>(file)];
}

}  // namespace inspect
