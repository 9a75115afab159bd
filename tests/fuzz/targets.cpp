#include "targets.h"

#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "common/bytes.h"
#include "common/crc32.h"
#include "inspect/command_line.h"
#include "metadb/storage/journal_format.h"
#include "metadb/storage/mdb_format.h"
#include "timeseries/format.h"
#include "tool_run.h"

namespace fuzz {
namespace {

// Both index pointers, and the end entry of whatever begins and ends like a transaction.
void fit_journal(std::span<std::byte> journal) {
  namespace format = mdb::format;
  if (journal.size() < format::journal_header_size)
    return;
  for (const unsigned half : {0U, 1U})
    format::store_index_pointer(journal, half, format::load_index_pointer(journal, half));
  std::size_t begin = 0;
  for (std::size_t at = format::journal_header_size; at + 8 <= journal.size();
       at += format::entry_alignment) {
    const std::uint32_t magic = bytes::load_u32(journal, at);
    if (magic == format::begin_entry::magic_word)
      begin = at;
    if (magic == format::end_entry::magic_word && begin != 0)
      bytes::store_u32(journal, at + format::end_entry::crc,
                       security::crc32(journal.subspan(begin, at - begin)));
  }
}

// The journal within the file, if its header claims one.
void fit_mdb(std::span<std::byte> file) {
  namespace header = mdb::format::header;
  if (file.size() < header::size || bytes::load_u32(file, header::journal_type) != header::type_internal)
    return;
  const std::uint64_t begin = std::uint64_t{bytes::load_u32(file, header::block_size)} *
                              bytes::load_u32(file, header::journal_first_block);
  if (begin < file.size())
    fit_journal(file.subspan(static_cast<std::size_t>(begin)));
}

// The lines of the chain table.
void fit_tsdb(std::span<std::byte> file) {
  namespace header = tsdb::format::header;
  namespace entry = tsdb::format::chain_entry;
  if (file.size() < header::chain_table)
    return;
  std::uint64_t lines = std::uint64_t{4} * bytes::load_u32(file, header::chain_set_count);
  for (auto rest = file.subspan(header::chain_table); lines > 0 && rest.size() >= entry::size; --lines) {
    bytes::store_u32(rest, entry::crc, security::crc32(rest.first(entry::crc)));
    rest = rest.subspan(entry::size);
  }
}

// ---- One file of a sound pair, and a byte that names it ----

constexpr struct {
  std::size_t shape;
  const char* path;
  void (*fit)(std::span<std::byte> file);
} fed_files[] = {{0, support::tsdb_path, fit_tsdb},        {0, mdb_test::mdb_path, fit_mdb},
                 {1, mdb_test::mdb_path, fit_mdb},         {2, mdb_test::mdb_path, fit_mdb},
                 {0, mdb_test::journal_path, fit_journal}, {2, mdb_test::journal_path, fit_journal}};

const auto& fed_file(std::byte name) {
  return fed_files[std::to_integer<std::size_t>(name) % std::size(fed_files)];
}

Files pair_with(const Bytes& input) {
  static const Files pairs[] = {make_files(shapes[0]), make_files(shapes[1]), make_files(shapes[2])};
  const auto& [shape, path, fit] = fed_file(input.back());
  Files files = pairs[shape];
  files[path] = Bytes(input.begin(), input.end() - 1);
  return files;
}

void fit_file(std::span<std::byte> input) {
  fed_file(input.back()).fit(input.first(input.size() - 1));
}

// Those from number `first` to number `last`.
template <std::size_t first, std::size_t last>
std::vector<Bytes> sound_files() {
  std::vector<Bytes> inputs;
  for (std::size_t number = first; number <= last; ++number) {
    const auto& [shape, path, fit] = fed_files[number];
    inputs.push_back(make_files(shapes[shape])[path]);
    inputs.back().push_back(static_cast<std::byte>(number));
  }
  return inputs;
}

void try_opening(const Bytes& input) {
  const Computer computer(pair_with(input));
  use_database();
}

std::string shown(const std::vector<const char*>& words) {
  std::ostringstream out;
  (void)inspect::run(words, out, out);
  return out.str();
}

void try_inspection(const Bytes& input) {
  const Computer computer(pair_with(input));
  shown({"--journal", "--check", "--nodes", "--chains", "--indexes", "/db"});
  shown({"--report", "-", "/db"});
  if (!nlohmann::json::accept(
          shown({"--journal", "--check", "--nodes", "--chains", "--indexes", "--json", "/db"})))
    std::abort();
}

// ---- What a user types: a line with the words of the command line, and the answers. A line that begins with
// ---- the word "dbinfo" is for that program. /db is an empty directory.

// A run that makes whole databases takes a thousand times as long as one that stops at a full disk, so only
// one input in five hundred gets the room. The checksum decides: what a mutant of such an input gets is open
// again.
bool gets_room(const Bytes& input) {
  return security::crc32(input) % 512 == 0;
}

void try_typing(const Bytes& input) {
  Computer computer;
  computer.sim.set_free_bytes(gets_room(input) ? 24 << 20 : 32 << 10);
  const std::string typed = support::text_of(input);
  const std::size_t line_end = std::min(typed.find('\n'), typed.size());
  std::istringstream line(typed.substr(0, line_end));
  const std::vector<std::string> words(std::istream_iterator<std::string>(line), {});
  if (words.empty() || words[0] != "dbinfo") {
    (void)support::run_tool(words, typed.substr(std::min(line_end + 1, typed.size())));
    return;
  }
  std::vector<const char*> rest;
  for (std::size_t i = 1; i < words.size(); ++i)
    rest.push_back(words[i].c_str());
  shown(rest);
}

constexpr const char* typed_inputs[] = {
    "-h\n",
    "dbinfo --check --nodes --json /db --journal /db/main.odbj\n",
    "dbinfo --node=0.1 --report page.html --journal-file=/j -- /db\n",
    "-d /db\nn\n",
    "-x /db\n",
    "-d /db -f -c\n",
    "-d /db -f -n\n",
    "-d /db\nyes\n",
    "-i -f\n/db i 4 /db 2 1024 1\n",
    "-i -d /db -c\n/nowhere /db x e /db +5 y /db 6 3 3000 4096 0 2 /db y\n",
    "-i\n/db e /db 3 129 4 n /db i 8 y /db 5 16384 4294967295 y\n",
};

// With a number behind each that nobody reads, so that it gets room for its databases.
std::vector<Bytes> some_typing() {
  std::vector<Bytes> inputs;
  for (const std::string typed : typed_inputs) {
    Bytes input;
    for (int number = 0; input.empty() || !gets_room(input); ++number) {
      const std::string text = typed + std::to_string(number);
      const auto characters = support::bytes_of(text);
      input.assign(characters.begin(), characters.end());
    }
    inputs.push_back(input);
  }
  return inputs;
}

}  // namespace

const Target targets[4] = {{"mdb", try_opening, fit_file, sound_files<1, 3>},
                           {"journal", try_opening, fit_file, sound_files<4, 5>},
                           {"inspect", try_inspection, fit_file, sound_files<0, 5>},
                           {"input", try_typing, nullptr, some_typing}};

}  // namespace fuzz
