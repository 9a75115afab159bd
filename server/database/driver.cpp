#include "createdb/driver.h"

#include <iostream>
#include <span>
#include <string_view>

#include "common/errors.h"
#include "createdb/arguments.h"
#include "createdb/creation.h"
#include "createdb/default_content.h"
#include "createdb/dialogue.h"
#include "createdb/end_of_run.h"
#include "createdb/interrupts.h"
#include "createdb/settings.h"
#include "platform/platform.h"

namespace createdb {
namespace {

void print_title() {
  std::cout << "Quenor Database Creation Tool\n"
            << "---------------------------------------------\n";
}

void ask_for_settings(AnswerReader& answers) {
  do {
    ask_mdb_questions(answers);
    print_mdb_summary();
  } while (!confirm(answers));
  do {
    ask_tsdb_questions(answers);
    print_tsdb_summary();
  } while (!confirm(answers));
}

void confirm_default_settings(const std::string& directory, AnswerReader& answers) {
  use_default_settings(directory);
  print_mdb_summary();
  print_tsdb_summary();
  if (confirm(answers))
    return;
  std::cerr << "ok - exising.\n\n";
  throw EndOfRun{status_success};
}

void choose_settings(const Arguments& arguments) {
  AnswerReader answers(std::cin);
  if (arguments.interactive) {
    if (arguments.placement_path) {
      std::cerr << "You gave a destination path, but also asked to be \n"
                << "asked about everything...  I will ask you about everything then.\n";
    }
    ask_for_settings(answers);
  } else if (arguments.placement_path) {
    confirm_default_settings(*arguments.placement_path, answers);
  } else {
    print_usage();
    throw EndOfRun{status_success};
  }
}

void make_databases(std::span<char* const> words) {
  print_title();
  const Arguments arguments = parse_arguments(words);
  creation_settings = {};
  creation_settings.force = arguments.force;
  choose_settings(arguments);
  std::cout.flush();  // an interrupt takes nothing away that has been said
  create_mdb();
  create_tsdb();
  close_mdb();
  if (arguments.empty)
    return;
  reopen_mdb();
  write_default_content(arguments.no_admin ? Administrator::omit : Administrator::write);
  close_mdb();
}

int report(std::string_view prefix, const error::Exception& failure) {
  std::cerr << prefix << failure.full_text() << '\n';
  return status_failure;
}

}  // namespace

int run(int argc, char** argv) {
  platform::system().ignore_write_signals();
  begin_interruptible_run();
  const std::span<char* const> words(argv, static_cast<std::size_t>(argc));
  try {
    make_databases(words.empty() ? words : words.subspan(1));
    return status_success;
  } catch (const EndOfRun& end) {
    return end.status;
  } catch (const tsdb::error_io& failure) {
    return report("TSDB I/O error: ", failure);
  } catch (const mdb::error_io& failure) {
    return report("MDB I/O error: ", failure);
  } catch (const tsdb::error_generic& failure) {
    return report("TSDB Error: ", failure);
  } catch (const mdb::error_generic& failure) {
    return report("MDB Error: ", failure);
  }
}

}  // namespace createdb
