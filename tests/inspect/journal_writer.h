// Writes entries into the bytes of a journal, as the library would or as no library does.

#pragma once

#include "pair_fixture.h"

namespace inspect_test {

// Begins at the first entry of the half that is read first, with the serial that its pointer has.
class JournalWriter {
 public:
  explicit JournalWriter(FileBytes& bytes) : journal(bytes), half(serial_of(1) > serial_of(0) ? 1 : 0) {}

  std::uint64_t serial_of(std::uint64_t of_half) const { return bytes::load_u64(journal, 16 + 16 * of_half); }

  // Takes the steps that these words name, with numbers behind colons; see take().
  void write(const std::string& script) {
    std::istringstream words(script);
    for (std::string word; words >> word;) {
      std::istringstream parts(word);
      std::string name, number;
      std::getline(parts, name, ':');
      std::vector<std::uint64_t> numbers;
      while (std::getline(parts, number, ':'))
        numbers.push_back(std::stoull(number));
      take(name, numbers);
    }
  }

  FileBytes& journal;
  std::uint64_t half;
  std::uint64_t serial = serial_of(half);
  std::uint64_t position = start();

 private:
  std::uint64_t start() const {
    return mdb::format::JournalGeometry{journal.size()}.first_entry(static_cast<unsigned>(half));
  }
  struct Field {
    std::uint64_t value;
    unsigned size = 4;
  };
  void put(std::initializer_list<Field> fields) {
    for (const auto& [value, size] : fields) {
      write_all(journal, {{position, value, size}});
      position += size;
    }
  }

  void take(const std::string& name, const std::vector<std::uint64_t>& numbers = {}) {
    const auto number = [&](std::size_t index, std::uint64_t otherwise = 0) {
      return index < numbers.size() ? numbers[index] : otherwise;
    };
    if (name == "begin") {
      begin_ = position;
      put({{bytes::magic("TBEG")}, {0}, {serial, 8}});
    } else if (name == "update") {  // VALUE:TARGET:RESERVED:LENGTH
      put({{bytes::magic("TUPD")}, {number(3, 4)}, {number(1, some_data), 8}, {number(2)}, {number(0)}});
    } else if (name == "end") {
      const std::uint32_t crc = security::crc32(std::span(journal).subspan(begin_, position - begin_));
      put({{bytes::magic("TEND")}, {crc}});
    } else if (name == "transaction") {  // VALUE:TARGET
      take("begin");
      take("update", numbers);
      take("end");
    } else if (name == "tear") {  // the value of the only update of the transaction that was ended last
      journal[position - 12] ^= std::byte{1};
    } else if (name == "redirect") {
      put({{bytes::magic("TRED")}, {number(0)}});
    } else if (name == "serial") {
      serial = number(0);
    } else if (name == "enter") {  // HALF:SERIAL, whatever its pointer says
      half = number(0);
      serial = number(1);
      position = start();
    } else if (name == "pointer") {  // JPOS, or where the next entry would go
      position = number(0, position);
      mdb::format::store_index_pointer(journal, static_cast<unsigned>(half),
                                       {serial, static_cast<std::uint32_t>(position)});
    } else if (name == "lose") {
      journal[16 + 16 * number(0) + 12] ^= std::byte{1};
    } else if (name == "fill") {
      for (std::uint64_t value = 1; position < journal.size() / 2; ++value)
        take("transaction", {value});
    } else {
      throw std::runtime_error("no such step: " + name);
    }
  }

  std::uint64_t begin_ = 0;
};

}  // namespace inspect_test
