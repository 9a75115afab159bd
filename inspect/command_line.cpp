#include "inspect/command_line.h"

#include <algorithm>
#include <sstream>

#include "arguments.h"
#include "inspect/inspection.h"
#include "platform/platform.h"
#include "views/names.h"
#include "views/views.h"

namespace inspect {
namespace {

constexpr int status_ok = 0;
constexpr int status_unusable = 2;
constexpr int status_no_such_node = 3;
constexpr int status_not_written = 4;

// Nothing when `path` is a directory, else what is wrong with it.
std::optional<std::string> directory_problem(const std::string& path) {
  const auto is_directory = platform::system().is_directory(path);
  if (!is_directory.ok())
    return text::concat(path, ": ", system_error_string(is_directory.status().code));
  if (!is_directory.value())
    return path + " is not a directory";
  return std::nullopt;
}

Wanted details_for(const Arguments& arguments) {
  const Views& views = arguments.views;
  const bool report = arguments.report_path.has_value();
  return {.chains = views.chains || report,
          .journal = views.journal || report,
          .entries = views.indexes,
          .nodes = views.nodes || views.node || report};
}

// Thrown when a call for the report failed, with the code of that call.
struct ReportNotWritten {
  platform::Status status;
};

// The file of the page. It is made before the databases are looked at, so that nobody waits to hear of a name
// that is taken, and is gone again unless the whole page is in it.
class ReportFile {
 public:
  // Throws ReportNotWritten.
  explicit ReportFile(const std::string& path) : path_(path) {
    const platform::InterruptsHeld held(platform::system());
    auto made = platform::system().create_new(path);
    check(made.status());
    file_ = std::move(made.value());
    platform::system().end_on_interrupt(
        text::concat("quenor-dbinfo: interrupted: ", path, " is there, but not whole\n"));
  }
  ~ReportFile() {
    if (!is_whole_) {
      file_.reset();  // some systems remove no file that is open
      (void)platform::system().remove(path_);
    }
    platform::system().end_on_interrupt("");
  }
  ReportFile(const ReportFile&) = delete;
  ReportFile& operator=(const ReportFile&) = delete;

  // Throws ReportNotWritten. To be called once.
  void write(std::string_view page) {
    std::span<const std::byte> rest = std::as_bytes(std::span(page));
    while (!rest.empty()) {
      const auto written = file_->write_at(page.size() - rest.size(), rest);
      check(written.status());
      rest = rest.subspan(written.value());
    }
    check(file_->close());
    is_whole_ = true;
  }

 private:
  static void check(platform::Status status) {
    if (!status.ok())
      throw ReportNotWritten{status};
  }

  std::string path_;
  std::unique_ptr<platform::File> file_;
  bool is_whole_ = false;
};

// Writes the page to the file, or to `out` without one. Throws ReportNotWritten.
void write_report(const Arguments& arguments, const Inspection& inspection, std::optional<ReportFile>& file,
                  std::ostream& out) {
  if (!file) {
    print_page(out, *arguments.directory, inspection);
    return;
  }
  std::ostringstream page;
  print_page(page, *arguments.directory, inspection);
  file->write(page.view());
}

// Throws ReportNotWritten.
Inspection inspect_and_report(const Arguments& arguments, std::ostream& out) {
  std::optional<ReportFile> file;
  if (arguments.report_path && *arguments.report_path != "-")
    file.emplace(*arguments.report_path);
  Inspection inspection = inspect_pair(*arguments.directory, arguments.journal_path, details_for(arguments));
  if (arguments.report_path)
    write_report(arguments, inspection, file, out);
  return inspection;
}

bool lacks_node(const Arguments& arguments, const Inspection& inspection) {
  const std::optional<NodeKey>& id = arguments.views.node;
  if (!id || !inspection.mdb)
    return false;
  return std::ranges::find(inspection.mdb->nodes, id, &NodeFacts::id) == inspection.mdb->nodes.end();
}

int inspect_and_print(const Arguments& arguments, std::ostream& out, std::ostream& err) {
  const std::string& directory = *arguments.directory;
  if (const auto problem = directory_problem(directory)) {
    err << "quenor-dbinfo: " << *problem << '\n';
    return status_unusable;
  }
  const Inspection inspection = inspect_and_report(arguments, out);
  // A report alone says everything, but nobody reads it to understand a status.
  if (!arguments.report_path || arguments.json || !arguments.views.is_summary()) {
    (arguments.json ? print_json : print_text)(out, directory, inspection, arguments.views);
  } else if (inspection.verdict() != Verdict::sound) {
    print_outcome(err, inspection);
  }
  if (lacks_node(arguments, inspection)) {
    err << "quenor-dbinfo: There is no node " << text_of(*arguments.views.node) << ".\n";
    if (inspection.verdict() == Verdict::sound)
      return status_no_such_node;
  }
  return static_cast<int>(inspection.verdict());
}

// Returns the status that everything had if `out` took it all.
int run_with(const Arguments& arguments, std::ostream& out, std::ostream& err) {
  if (arguments.help) {
    out << usage;
    return status_ok;
  }
  if (arguments.version) {
    out << "quenor-dbinfo " << QUENOR_VERSION << '\n';
    return status_ok;
  }
  try {
    return inspect_and_print(arguments, out, err);
  } catch (const ReportNotWritten& failure) {
    err << "quenor-dbinfo: " << *arguments.report_path
        << " cannot be written: " << system_error_string(failure.status.code) << '\n';
    return status_not_written;
  }
}

}  // namespace

int run(std::span<const char* const> words, std::ostream& out, std::ostream& err) {
  // So that a limit that is met and a pipe that nobody reads have a status and a line.
  platform::system().ignore_write_signals();
  try {
    const int status = run_with(parse_arguments(words), out, err);
    // Only now is it known whether a full disk took what was printed.
    if (out.flush())
      return status;
    err << "quenor-dbinfo: the output cannot be written\n";
    return status_not_written;
  } catch (const WrongUsage& wrong) {
    err << "quenor-dbinfo: " << wrong.text << "\nTry quenor-dbinfo --help.\n";
    return status_unusable;
  }
}

}  // namespace inspect
