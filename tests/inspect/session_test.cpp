// Texts that tell what is done to a pair, and what is said then:
//   @ 80 external           a new pair of so many nodes, its journal external or internal
//   = main.odb 3:24=7 ...   words written at BLOCK:OFFSET, "/1" or "/8" behind one of another size
//   ! main.odb 3:24=7 ...   the same; what --check says, the first lines and the last, and what the opening
//                           says; then all is as before
//   & begin update:7 end    entries written into the journal; what --check and --journal say and
//                           the opening does; then all is as before
//   - main.odb              the file is gone
//   + main.odb /copy/a.odb  it is copied
//   $ --check /db           a run, and its status

#include <iterator>
#include <memory>
#include <sstream>

#include "journal_writer.h"

namespace inspect_test {
namespace {

Writes writes_of(std::istream& words) {
  Writes writes;
  std::uint64_t block = 0, offset = 0, value = 0;
  for (char mark = 0; words >> block >> mark >> offset >> mark >> value;) {
    writes.push_back({block * block_size + offset, value});
    if (words.peek() == '/')
      words >> mark >> writes.back().size;
  }
  return writes;
}

// The first twelve lines behind the headline, and the last.
std::string shortened(const std::string& text) {
  std::istringstream lines(text);
  std::string shorter, last;
  std::getline(lines, last);
  for (int number = 0; std::getline(lines, last); ++number)
    shorter += number < 12 ? last + '\n' : lines.peek() == EOF ? "...\n" + last + '\n' : "";
  return shorter;
}

class Session {
 public:
  std::string play(const std::string& script) {
    std::istringstream lines(script);
    for (std::string line; std::getline(lines, line);) {
      if (line.size() < 2 || line[1] != ' ' ||
          std::string_view("#@=!&-+$").find(line[0]) == std::string::npos)
        continue;
      told_ += line + '\n';
      std::istringstream rest(line.substr(2));
      carry_out(line[0], rest);
    }
    return told_;
  }

 private:
  void carry_out(char command, std::istream& rest) {
    const auto word = [&rest] { return *std::istream_iterator<std::string>(rest); };
    switch (command) {
      case '@': {
        pair_.reset();
        const auto nodes = static_cast<std::uint32_t>(std::stoul(word()));
        pair_ = std::make_unique<Pair>(nodes, word() == "internal");
        return pair_->sim.add_directory("/copy");
      }
      case '=': {
        return pair_->change(word(), [&](FileBytes& file) { write_all(file, writes_of(rest)); });
      }
      case '!':
        return try_out(word(), false, [&](FileBytes& file) { write_all(file, writes_of(rest)); });
      case '&':
        return try_out("main.odbj", true, [&](FileBytes& file) {
          JournalWriter(file).write({std::istreambuf_iterator<char>(rest), {}});
        });
      case '-':
        return pair_->sim.remove_file("/db/" + word());
      case '+': {
        const FileBytes bytes = pair_->file(word());
        return pair_->sim.add_file(word(), bytes);
      }
      case '$': {
        const std::vector<std::string> words(std::istream_iterator<std::string>(rest), {});
        std::vector<const char*> arguments;
        for (const std::string& argument : words)
          arguments.push_back(argument.c_str());
        const Outcome outcome = run(arguments);
        told_ += text::concat(outcome.out, outcome.err, "[", outcome.status, "]\n");
        return;
      }
      default:
        return;
    }
  }

  // On a copy of the pair. Shows the journal as well when it is the entries that are tried.
  void try_out(const std::string& name, bool with_journal, const std::function<void(FileBytes&)>& change) {
    Pair pair(*pair_);
    pair.change(name, change);
    told_ += shortened(run({"--check", "/db"}).out);
    if (with_journal)
      told_ += shortened(run({"--journal", "/db"}).out);
    support::LogCapture::take();
    const std::string thrown = support::thrown_by(Pair::open_mdb);
    if (thrown != "nothing")
      told_ += "opening: " + thrown + '\n';
    for (const std::string& logged : support::LogCapture::take()) {
      if (logged.starts_with(severe) || (with_journal && logged.starts_with(replay)))
        told_ += "log: " + logged + '\n';
    }
    if (with_journal) {
      FileBytes journal = pair.file("main.odbj");
      told_ += text::concat("opening: leaves ", bytes::load_u32(pair.file("main.odb"), some_data),
                            ", goes on with serial ", JournalWriter(journal).serial, '\n');
    }
  }

  const std::string severe = text::concat(logging::severe, " ");
  const std::string replay = text::concat(logging::information, " ", logging::replay, " ");
  std::unique_ptr<Pair> pair_;
  std::string told_;
};

TEST(Sessions, GoAsTold) {
  for (const std::string name : {"damage", "journal", "program"}) {
    const std::string session = expected("sessions/" + name + ".txt");
    ASSERT_FALSE(session.empty()) << name;
    EXPECT_EQ(Session().play(session), session) << name;
  }
}

}  // namespace
}  // namespace inspect_test
