#include "views/text.h"

#include "views/names.h"

namespace inspect {
namespace {

constexpr std::size_t label_width = 12;

std::string place_text(const Place& place) {
  std::string text(name_of(place.file));
  if (place.block)
    text::append(text, text::concat(", block ", *place.block));
  return text::concat(text, ", offset ", place.offset);
}

void print_findings(std::ostream& out, const Report& report) {
  for (const Finding& finding : report.findings()) {
    out << (finding.severity == Severity::damage ? "damage: " : "note: ") << place_text(finding.place) << ": "
        << finding.text << '\n';
  }
  if (report.omitted_count() != 0)
    out << "... and " << counted(report.omitted_count(), "finding") << " more\n";
}

void print_unavailable(std::ostream& out, const Inspection& inspection) {
  for (const std::string& line : inspection.unavailable)
    out << printable(line) << '\n';
  if (inspection.mdb && inspection.mdb->block_count != 0 && !inspection.journal)
    out << "main.odb is looked at as it stands, without its journal\n";
}

void print_verdict(std::ostream& out, const Inspection& inspection) {
  const Report& report = inspection.report;
  switch (inspection.verdict()) {
    case Verdict::sound:
      out << "Sound";
      break;
    case Verdict::damaged:
      out << "Damaged: " << counted(report.damage_count(), "violated invariant");
      break;
    case Verdict::not_a_pair:
      out << "Not a pair of databases: what is there is sound";
      break;
  }
  if (report.note_count() != 0)
    out << ", " << counted(report.note_count(), "note");
  out << ".\n";
}

void print_views(std::ostream& out, const Inspection& inspection, const Views& views) {
  if (views.is_summary())
    print_summary(out, inspection);
  if (views.check)
    print_findings(out, inspection.report);
  if (inspection.tsdb && views.chains)
    print_chains(out, *inspection.tsdb);
  if (!inspection.mdb)
    return;
  if (views.indexes)
    print_indexes(out, *inspection.mdb);
  if (views.nodes)
    print_nodes(out, *inspection.mdb);
  if (views.node)
    print_node(out, *inspection.mdb, *views.node);
  if (inspection.journal && views.journal)
    print_journal(out, *inspection.journal, *inspection.mdb);
}

}  // namespace

std::string label(std::string_view name) {
  return "  " + left(std::string(name), label_width);
}

std::string counted(std::uint64_t count, std::string_view thing) {
  return text::concat(count, " ", thing, count == 1 ? "" : "s");
}

std::string left(std::string text, std::size_t width) {
  if (text.size() < width)
    text.resize(width, ' ');
  return text;
}

std::string right(std::string text, std::size_t width) {
  if (text.size() < width)
    text.insert(0, width - text.size(), ' ');
  return text;
}

void print_outcome(std::ostream& out, const Inspection& inspection) {
  print_unavailable(out, inspection);
  print_verdict(out, inspection);
}

void print_text(std::ostream& out, const std::string& directory, const Inspection& inspection,
                const Views& views) {
  out << (views.check ? "Check of the databases in " : "Databases in ") << printable(directory) << '\n';
  print_views(out, inspection, views);
  print_outcome(out, inspection);
  if (!views.check && inspection.report.damage_count() != 0)
    out << "Run quenor-dbinfo --check to see what was found.\n";
}

}  // namespace inspect
