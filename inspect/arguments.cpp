#include "arguments.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>
#include <vector>

namespace inspect {

const std::string_view usage =
    "Usage: quenor-dbinfo [OPTION]... DIRECTORY\n"
    "\n"
    "Shows what the databases in DIRECTORY (main.tsdb and main.odb with its journal) consist of. Nothing in\n"
    "them is changed, and no lock is taken: a server that writes meanwhile can make sound databases look\n"
    "damaged. Whatever is shown, everything is checked.\n"
    "\n"
    "What to show; without any of these a summary:\n"
    "  --check              every invariant that does not hold, one line each\n"
    "  --nodes              every record with its properties, children under their parents\n"
    "  --node A.B           the record of one node, and its children; not together with --nodes\n"
    "  --chains             the pointer chains, levels and time series\n"
    "  --indexes            the index trees with their entries\n"
    "  --journal            the transactions of the journal, and what opening the database would do with "
    "them\n"
    "\n"
    "How to show it:\n"
    "  --json               as one JSON object\n"
    "  --report FILE        as a page of pictures in FILE, which must not exist yet; - is standard output,\n"
    "                       which then takes nothing else\n"
    "\n"
    "Other options:\n"
    "  --journal-file PATH  the journal, when it is neither main.odbj in DIRECTORY nor where main.odb says;\n"
    "                       a PATH behind --journal, beside the DIRECTORY, means the same\n"
    "  --help, -h           this text\n"
    "  --version            the version of this program\n"
    "\n"
    "Exit status: 0 sound, 1 damaged, 2 not readable as a pair of databases, or wrong arguments, 3 no such\n"
    "node, 4 the report or the output cannot be written.\n";

namespace {

struct Switch {
  std::string_view word;
  void (*set)(Arguments&);
};

constexpr std::array<Switch, 9> switches = {{
    {"--check", [](Arguments& arguments) { arguments.views.check = true; }},
    {"--nodes", [](Arguments& arguments) { arguments.views.nodes = true; }},
    {"--chains", [](Arguments& arguments) { arguments.views.chains = true; }},
    {"--indexes", [](Arguments& arguments) { arguments.views.indexes = true; }},
    {"--journal", [](Arguments& arguments) { arguments.views.journal = true; }},
    {"--json", [](Arguments& arguments) { arguments.json = true; }},
    {"--help", [](Arguments& arguments) { arguments.help = true; }},
    {"-h", [](Arguments& arguments) { arguments.help = true; }},
    {"--version", [](Arguments& arguments) { arguments.version = true; }},
}};

NodeKey parse_node(std::string_view text) {
  NodeKey id;
  const char* const end = text.data() + text.size();
  const auto first = std::from_chars(text.data(), end, id.first);
  if (first.ec == std::errc{} && first.ptr != end && *first.ptr == '.') {
    const auto second = std::from_chars(first.ptr + 1, end, id.second);
    if (second.ec == std::errc{} && second.ptr == end)
      return id;
  }
  throw WrongUsage{text::concat("--node needs the ID of a node like 0.1, not ", text)};
}

template <typename Value>
void set_once(std::optional<Value>& option, std::string_view word, Value value) {
  if (option)
    throw WrongUsage{text::concat(word, " is given twice")};
  option = std::move(value);
}

// An option with a value.
struct Valued {
  std::string_view word;
  std::string_view what;
  void (*set)(Arguments&, std::string_view word, const std::string& value);
};

void set_journal_path(Arguments& arguments, std::string_view word, const std::string& value) {
  set_once(arguments.journal_path, word, value);
}

constexpr std::array<Valued, 4> valued_options = {{
    {"--node", "the ID of a node",
     [](Arguments& arguments, std::string_view word, const std::string& value) {
       set_once(arguments.views.node, word, parse_node(value));
     }},
    {"--report", "the name of a file",
     [](Arguments& arguments, std::string_view word, const std::string& value) {
       set_once(arguments.report_path, word, value);
     }},
    {"--journal-file", "the path of a journal", set_journal_path},
    // With an equals sign only: else it is a switch.
    {"--journal", "the path of a journal", set_journal_path},
}};

constexpr std::string_view no_directory = "the directory of the databases is missing";

// A word that is no option, and whether it stands right behind --journal.
struct Operand {
  std::string word;
  bool follows_journal;
};

// One is the directory. Of several the one behind --journal is the path of the journal, which then is not to
// be shown.
void set_operands(Arguments& arguments, std::vector<Operand> operands) {
  const auto path = std::ranges::find(operands, true, &Operand::follows_journal);
  if (operands.size() > 1 && path != operands.end()) {
    set_once(arguments.journal_path, "--journal PATH", path->word);
    arguments.views.journal = false;
    operands.erase(path);
  }
  if (operands.size() > 1)
    throw WrongUsage{text::concat("one directory is expected, not also ", operands[1].word)};
  if (!operands.empty() && !operands[0].word.empty())
    arguments.directory = operands[0].word;
}

// Takes the option at words[at], and the word after it when that is its value. Returns how many words it
// took.
std::size_t take_option(Arguments& arguments, std::span<const char* const> words, std::size_t at) {
  const std::string_view word = words[at];
  if (const auto found = std::ranges::find(switches, word, &Switch::word); found != switches.end()) {
    found->set(arguments);
    return 1;
  }
  const std::size_t equals = std::min(word.find('='), word.size());
  const std::string_view name = word.substr(0, equals);
  const auto found = std::ranges::find(valued_options, name, &Valued::word);
  if (found == valued_options.end())
    throw WrongUsage{text::concat("unknown option ", word)};
  const bool is_next_word = equals == word.size();
  std::string value;
  if (!is_next_word)
    value = word.substr(equals + 1);
  else if (at + 1 < words.size())
    value = words[at + 1];
  if (value.empty())
    throw WrongUsage{text::concat(name, " needs ", found->what)};
  found->set(arguments, name, value);
  return is_next_word ? 2 : 1;
}

// What each option allows and they do not together.
void check_together(const Arguments& arguments) {
  if (!arguments.directory)
    throw WrongUsage{std::string(no_directory)};
  if (arguments.views.nodes && arguments.views.node)
    throw WrongUsage{"--nodes shows every node, --node one: give one of the two"};
  // A page and a view one behind the other would be neither.
  if (arguments.report_path == "-" && (arguments.json || !arguments.views.is_summary()))
    throw WrongUsage{"with --report - nothing else can go to standard output"};
}

}  // namespace

Arguments parse_arguments(std::span<const char* const> words) {
  Arguments arguments;
  std::vector<Operand> operands;
  bool has_options = true;
  for (std::size_t at = 0; at < words.size();) {
    const std::string_view word = words[at];
    if (has_options && word == "--") {
      has_options = false;
      at += 1;
    } else if (has_options && word.starts_with('-') && word.size() > 1) {
      at += take_option(arguments, words, at);
    } else {
      operands.push_back({std::string(word), at > 0 && std::string_view(words[at - 1]) == "--journal"});
      at += 1;
    }
  }
  set_operands(arguments, std::move(operands));
  if (!arguments.help && !arguments.version)
    check_together(arguments);
  return arguments;
}

}  // namespace inspect
