#include "createdb/dialogue.h"

#include <bit>
#include <iostream>
#include <limits>
#include <span>
#include <string>

#include "common/text.h"
#include "createdb/placement.h"
#include "createdb/settings.h"
#include "dialogue_texts.h"

namespace createdb {
namespace {

template <typename... Pieces>
void print_line(const Pieces&... pieces) {
  std::cout << text::concat(pieces...) << '\n';
}

void explain(std::span<const std::string_view> lines) {
  for (const auto line : lines)
    print_line(line);
}

struct PlacedPath {
  std::string path;
  Placement placement;
};

PlacedPath ask_path(const PathQuestion& question, AnswerReader& answers) {
  while (true) {
    show_question(question.text);
    const std::string directory = answers.word();
    const Placement placement = check_placement(directory);
    const bool usable = placement == Placement::directory ||
                        (placement == Placement::block_device && question.takes_block_device);
    if (usable)
      return {path_in(directory, question.file_name), placement};
    print_line("Please specify either a directory or a block-special");
  }
}

// Says why the answer is refused; nothing is said for a question without a refusal of its own.
bool accepts(const NumberQuestion& question, std::uint32_t answer) {
  if (answer < question.lowest || answer > question.highest) {
    if (question.has_refusal) {
      print_line("Please enter a number between ", question.lowest, " and ", question.highest);
    }
    return false;
  }
  if (question.two_power && !std::has_single_bit(answer)) {
    print_line("Please enter a two-power");
    return false;
  }
  return true;
}

std::uint32_t ask_number(const NumberQuestion& question, AnswerReader& answers) {
  static constexpr std::uint32_t never_accepted = 0;
  while (true) {
    show_question(question.text);
    const std::uint32_t answer = answers.number().value_or(never_accepted);
    if (accepts(question, answer))
      return answer;
  }
}

bool ask_whether_journal_is_external(AnswerReader& answers) {
  while (true) {
    show_question("Journal type (default: internal): [i/e] ");
    const char answer = answers.character();
    if (answer == 'i' || answer == 'e')
      return answer == 'e';
    print_line("Please enter either 'i' for internal or 'e' for external");
  }
}

void ask_journal_path(AnswerReader& answers) {
  explain(journal_path_explanation);
  const auto [path, placement] = ask_path(journal_path_question, answers);
  creation_settings.journal_path = path;
  creation_settings.journal_placement = placement;
}

// The range of a question's answers in the middle of its explanation.
void explain_range(const NumberQuestion& question, std::string_view before, std::string_view between,
                   std::string_view after) {
  print_line(before, question.lowest, between, question.highest, after);
}

}  // namespace

void ask_mdb_questions(AnswerReader& answers) {
  explain(mdb_path_explanation);
  const auto [path, placement] = ask_path(mdb_path_question, answers);
  creation_settings.mdb_path = path;
  creation_settings.mdb_placement = placement;

  explain(journal_type_explanation);
  creation_settings.journal_external = ask_whether_journal_is_external(answers);
  creation_settings.journal_path.clear();
  if (creation_settings.journal_external) {
    ask_journal_path(answers);
    // A device has its size. A file that is not there yet makes the check say so; the dialogue goes on.
    if (check_placement(creation_settings.journal_path) == Placement::block_device)
      return;
  }
  explain(journal_size_explanation);
  creation_settings.journal_size = ask_number(journal_size_question, answers) * bytes_per_mebibyte;
}

void ask_tsdb_questions(AnswerReader& answers) {
  explain(chains_explanation_before_range);
  explain_range(chains_question, "It can be no lower than ", " and no higher than ", ".");
  explain(chains_explanation_after_range);
  creation_settings.chains = ask_number(chains_question, answers);

  print_line();
  explain_range(block_size_question, "The block size can be varied from ", " to ", ", but");
  explain(block_size_explanation_after_range);
  creation_settings.block_size = ask_number(block_size_question, answers);

  explain(checks_explanation);
  creation_settings.initial_checks = ask_number(checks_question, answers);

  explain(tsdb_path_explanation);
  const auto [path, placement] = ask_path(tsdb_path_question, answers);
  creation_settings.tsdb_path = path;
  creation_settings.tsdb_placement = placement;
}

void print_mdb_summary() {
  const CreationSettings& settings = creation_settings;
  print_line();
  print_line("Will create a meta database as follows:");
  print_line(summary_rule);
  print_line("MDB path:     ", settings.mdb_path);
  print_line("Journal type: ", settings.journal_external ? "External" : "Internal");
  if (settings.journal_external) {
    print_line("Journal path: ", settings.journal_path);
    if (settings.journal_placement == Placement::block_device)
      return;
  }
  print_line("Journal size: ", settings.journal_size / bytes_per_mebibyte, " MiB");
}

void print_tsdb_summary() {
  const CreationSettings& settings = creation_settings;
  print_line();
  print_line("Will create a time series database as follows:");
  print_line(summary_rule);
  print_line("Number of chains: ", settings.chains);
  print_line("Block size:       ", settings.block_size);
  print_line("Initial checks:   ", settings.initial_checks);
  print_line("TSDB placed in:   ", settings.tsdb_path);
  print_line();
}

bool confirm(AnswerReader& answers) {
  show_question("Is the above information correct?  (y/n): ");
  if (creation_settings.force) {
    print_line("y");
    return true;
  }
  const auto answer = answers.word_if_any();
  return answer == "y" || answer == "yes";
}

}  // namespace createdb
