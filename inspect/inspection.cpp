#include "inspect/inspection.h"

#include <algorithm>
#include <limits>

#include "journal_check.h"
#include "metadb/storage/mdb_format.h"
#include "object_check.h"
#include "tsdb_check.h"

namespace inspect {
namespace {

// One finding for so many bytes of the files is kept, and a good number in any case.
constexpr std::uint64_t bytes_per_finding = 256;

std::string path_in(const std::string& directory, DatabaseFile file) {
  return directory + "\\" + std::string(name_of(file));
}

class PairInspection {
 public:
  PairInspection(const std::string& directory, const std::optional<std::string>& journal_path,
                 const Wanted& wanted)
      : directory_(directory), journal_path_(journal_path), wanted_(wanted) {}

  Inspection run() {
    const auto tsdb = open(DatabaseFile::tsdb);
    const auto mdb = open(DatabaseFile::mdb);
    set_limit((tsdb ? tsdb->size_bytes() : 0) + (mdb ? mdb->size_bytes() : 0));
    if (tsdb)
      guarded(name_of(DatabaseFile::tsdb),
              [&] { result_.tsdb = check_tsdb(*tsdb, wanted_, result_.report); });
    if (mdb)
      guarded(name_of(DatabaseFile::mdb), [&] { inspect_mdb(*mdb); });
    return std::move(result_);
  }

 private:
  void set_limit(std::uint64_t file_bytes) {
    const std::uint64_t findings =
        std::max<std::uint64_t>(Report::default_limit, file_bytes / bytes_per_finding);
    result_.report.set_limit(static_cast<std::size_t>(findings));
  }

  std::optional<SourceFile> open(const std::string& path, std::string_view shown_name) {
    std::optional<SourceFile> source;
    guarded(shown_name, [&] { source.emplace(path); });
    return source;
  }
  std::optional<SourceFile> open(DatabaseFile file) { return open(path_in(directory_, file), name_of(file)); }

  template <typename Action>
  void guarded(std::string_view shown_name, Action action) {
    try {
      action();
    } catch (const Unreadable& failure) {
      result_.unavailable.push_back(
          text::concat(shown_name, " is missing or cannot be read: ", failure.text));
    }
  }

  void inspect_mdb(const SourceFile& file) {
    result_.mdb.emplace();
    const auto layout = check_mdb_header(file, *result_.mdb, result_.report);
    if (!layout)
      return;
    const Bytes journal = read_journal(file, *layout);
    std::vector<Update> updates;
    if (result_.journal)
      updates = check_journal(journal, *layout, wanted_, *result_.journal, result_.report);
    const MdbImage image(file, journal, layout->block_size, updates);
    updates = {};
    MdbFacts& facts = *result_.mdb;
    facts.block_count = image.block_count();
    facts.journal_first_block = layout->journal_first_block;
    const BlockClasses classes = check_map(image, *layout, facts, result_.report);
    facts.classes = classes.bytes();
    check_objects(image, classes, check_trees(image, *layout, classes, wanted_, facts, result_.report),
                  wanted_, facts, result_.report);
  }

  // Sets the facts of the journal when there is one.
  Bytes read_journal(const SourceFile& file, const MdbLayout& layout) {
    return layout.journal_is_internal ? read_internal_journal(file, layout) : read_external_journal(layout);
  }

  Bytes read_internal_journal(const SourceFile& file, const MdbLayout& layout) {
    result_.journal.emplace().is_internal = true;
    if (journal_path_)
      result_.report.note(place_in_mdb(0, 0), "the journal lies in main.odb: the given path is not used");
    const std::uint64_t begin = std::uint64_t{layout.journal_first_block} * layout.block_size;
    std::uint64_t length = std::uint64_t{layout.journal_block_count} * layout.block_size;
    if (length == 0)
      length = file.size_bytes() - begin;
    length = std::min(length, layout.map_position() - begin);
    if (!fits_mapping(length, place_in_mdb(layout.journal_first_block, 0)))
      length = 0;
    result_.journal->length_bytes = length;
    return file.read(begin, length);
  }

  Bytes read_external_journal(const MdbLayout& layout) {
    const ExternalJournal journal = open_external_journal(layout);
    Bytes bytes;
    if (!journal.file || !fits_mapping(journal.file->size_bytes(), {DatabaseFile::journal, {}, 0}))
      return bytes;
    guarded(journal.path, [&] {
      bytes = journal.file->read(0, journal.file->size_bytes());
      result_.journal.emplace().path = journal.path;
      result_.journal->length_bytes = bytes.size();
    });
    return bytes;
  }

  struct ExternalJournal {
    std::string path;
    std::optional<SourceFile> file;
  };

  // Beside the databases when it is there, so that a pair that was moved finds its own.
  ExternalJournal open_external_journal(const MdbLayout& layout) {
    if (journal_path_)
      return {*journal_path_, open(*journal_path_, *journal_path_)};
    const std::string beside = path_in(directory_, DatabaseFile::journal);
    const bool is_there = platform::system().is_directory(beside).ok();
    if (is_there)
      return {beside, open(beside, name_of(DatabaseFile::journal))};
    ExternalJournal elsewhere = {layout.journal_path, open(layout.journal_path, layout.journal_path)};
    if (elsewhere.file)
      result_.report.note(place_in_mdb(0, mdb::format::header::path),
                          "the journal is not in the directory: that at ", layout.journal_path, " was taken");
    return elsewhere;
  }

  bool fits_mapping(std::uint64_t length, const Place& place) {
    constexpr std::uint64_t longest = std::numeric_limits<std::uint32_t>::max();
    if (length <= longest)
      return true;
    result_.report.damage(place, "length of the journal: found ", length, " bytes, expected ", longest,
                          " at most");
    return false;
  }

  std::string directory_;
  std::optional<std::string> journal_path_;
  Wanted wanted_;
  Inspection result_;
};

}  // namespace

Verdict Inspection::verdict() const {
  if (report.damage_count() > 0)
    return Verdict::damaged;
  return unavailable.empty() ? Verdict::sound : Verdict::not_a_pair;
}

Inspection inspect_pair(const std::string& directory, const std::optional<std::string>& journal_path,
                        const Wanted& wanted) {
  return PairInspection(directory, journal_path, wanted).run();
}

}  // namespace inspect
