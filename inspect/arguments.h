// The words of the command line.

#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "views/views.h"

namespace inspect {

struct Arguments {
  Views views;
  bool json = false;
  bool help = false;
  bool version = false;
  std::optional<std::string> report_path;
  std::optional<std::string> journal_path;
  std::optional<std::string> directory;
};

// Thrown for arguments that make no sense.
struct WrongUsage {
  std::string text;
};

extern const std::string_view usage;

// Throws WrongUsage.
Arguments parse_arguments(std::span<const char* const> words);

}  // namespace inspect
