// What the program shows of an inspection. The views are three renderings of the same facts: text, JSON, and
// a page of pictures. Whatever comes from the files is escaped: it may be anything.

#pragma once

#include <optional>
#include <ostream>
#include <string>

#include "inspect/inspection.h"

namespace inspect {

// The views that were asked for; none of them means the summary.
struct Views {
  bool check = false;
  bool nodes = false;
  std::optional<NodeKey> node{};  // one node alone
  bool chains = false;
  bool journal = false;
  bool indexes = false;

  bool is_summary() const { return !check && !nodes && !node && !chains && !journal && !indexes; }
};

// What could not be looked at, and the verdict.
void print_outcome(std::ostream& out, const Inspection& inspection);

// The views one after the other, then the outcome.
void print_text(std::ostream& out, const std::string& directory, const Inspection& inspection,
                const Views& views);

// One object, with a member for each view.
void print_json(std::ostream& out, const std::string& directory, const Inspection& inspection,
                const Views& views);

// A page that needs nothing but itself. It shows everything but the values of the properties.
void print_page(std::ostream& out, const std::string& directory, const Inspection& inspection);

}  // namespace inspect
