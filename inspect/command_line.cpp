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

// The code of the call that failed.
platform::Status write_new_file(const std::string& path, std::string_view content) {
  auto file = platform::system().create_new(path);
  if (!file.ok())
    return file.status();
  std::span<const std::byte> rest = std::as_bytes(std::span(content));
  while (!rest.empty()) {
    const auto written = file.value()->write_at(content.size() - rest.size(), rest);
    if (!written.ok())
      return written.status();
    rest = rest.subspan(written.value());
  }
  return file.value()->close();
}

// Whether the page could be written.
bool write_report(const Arguments& arguments, const Inspection& inspection, std::ostream& out,
                  std::ostream& err) {
  const std::string& path = *arguments.report_path;
  if (path == "-") {
    print_page(out, *arguments.directory, inspection);
    return true;
  }
  std::ostringstream page;
  print_page(page, *arguments.directory, inspection);
  const platform::Status status = write_new_file(path, page.view());
  if (!status.ok())
    err << "quenor-dbinfo: " << path << " cannot be written: " << system_error_string(status.code) << '\n';
  return status.ok();
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
  const Inspection inspection = inspect_pair(directory, arguments.journal_path, details_for(arguments));
  if (arguments.report_path && !write_report(arguments, inspection, out, err))
    return status_not_written;
  // A report alone says everything.
  if (!arguments.report_path || arguments.json || !arguments.views.is_summary())
    (arguments.json ? print_json : print_text)(out, directory, inspection, arguments.views);
  if (!out.flush()) {
    err << "quenor-dbinfo: the output cannot be written\n";
    return status_not_written;
  }
  if (inspection.verdict() == Verdict::sound && lacks_node(arguments, inspection))
    return status_no_such_node;
  return static_cast<int>(inspection.verdict());
}

}  // namespace

int run(std::span<const char* const> words, std::ostream& out, std::ostream& err) {
  try {
    const Arguments arguments = parse_arguments(words);
    if (arguments.help) {
      out << usage;
      return status_ok;
    }
    if (arguments.version) {
      out << "quenor-dbinfo " << QUENOR_VERSION << '\n';
      return status_ok;
    }
    return inspect_and_print(arguments, out, err);
  } catch (const WrongUsage& wrong) {
    err << "quenor-dbinfo: " << wrong.text << "\nTry quenor-dbinfo --help.\n";
    return status_unusable;
  }
}

}  // namespace inspect
