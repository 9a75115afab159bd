// What the opening makes of journals put together by hand.

#include "storage_fixture.h"

namespace {

// A journal of 4096 bytes put together by hand: entries are appended at a position that the test moves.
class JournalImage {
 public:
  JournalImage() { at(0).text("JHDR").u32(1).pointer(0, 0, 0).pointer(1, 0, 0).at(48); }

  JournalImage& pointer(unsigned half, std::uint64_t serial, std::uint32_t jpos, bool is_spoilt = false) {
    mdb::format::store_index_pointer(bytes_, half, {serial, jpos});
    bytes_[16 + 16 * half + 12] ^= is_spoilt ? std::byte{0xFF} : std::byte{0};
    return *this;
  }
  JournalImage& at(std::size_t position) {
    position_ = position;
    return *this;
  }
  JournalImage& text(std::string_view text) {
    std::ranges::copy(bytes_of(text), bytes_.begin() + static_cast<std::ptrdiff_t>(position_));
    return at(position_ + text.size());
  }
  JournalImage& u32(std::uint32_t value) {
    bytes::store_u32(bytes_, position_, value);
    return at(position_ + 4);
  }
  JournalImage& u64(std::uint64_t value) {
    bytes::store_u64(bytes_, position_, value);
    return at(position_ + 8);
  }
  JournalImage& begin(std::uint64_t serial) {
    begin_ = position_;
    return text("TBEG").u32(0).u64(serial);
  }
  JournalImage& update(std::string_view data, std::uint64_t target) {
    text("TUPD").u32(static_cast<std::uint32_t>(data.size())).u64(target).u32(0).text(data);
    return at((position_ + 7) / 8 * 8);
  }
  JournalImage& end(std::uint32_t spoil = 0) {
    return text("TEND").u32(security::crc32(std::span(bytes_).subspan(begin_, position_ - 4 - begin_)) ^
                            spoil);
  }
  JournalImage& transaction(std::uint64_t serial, std::string_view data, std::uint64_t target) {
    return begin(serial).update(data, target).end();
  }
  JournalImage& redirection(std::uint32_t jpos) { return text("TRED").u32(jpos); }
  const Bytes& bytes() const { return bytes_; }

 private:
  Bytes bytes_ = Bytes(4096);
  std::size_t position_ = 48;
  std::size_t begin_ = 48;
};

// One transaction in the first half.
JournalImage one(std::uint64_t serial) {
  return JournalImage().pointer(0, serial, 48).transaction(serial, "one", 0);
}

// The same, and the pointer of the second half, which the journal had moved to, is unreadable.
JournalImage torn_pointer(std::uint64_t serial) {
  return one(serial).pointer(1, serial + 1, 2048, true);
}

// Two more updates in a transaction behind the first one.
JournalImage two_updates(std::uint64_t target) {
  return one(1).begin(1).update("two", 0).update("far", target).end();
}

class RecoveryTest : public StorageTest {
 protected:
  // Opens a store of 8192 zeros, in which 10240 bytes are addressable, with the journal; returns what the
  // opening throws.
  std::string recover(const JournalImage& image) {
    forget();
    sim_.add_file(store_path, Bytes(8192));
    sim_.add_file(journal_path, image.bytes());
    support::LogCapture::take();
    map();
    mdb::set_address_limit(10'240);
    return thrown_by([] { mdb::journal_validate(); });
  }

  std::string text_at(std::uint64_t offset) const { return in_file(offset, 10).c_str(); }
};

TEST_F(RecoveryTest, AppliesCompleteTransactionsInTheirOrderUpToTheFirstOther) {
  const std::string no_begin = "End of valid transaction-begin entries in journal.";
  const std::string bad_crc = "Invalid CRC in transaction - no more valid entries.";
  const JournalImage tie = one(7).at(2048).transaction(7, "other", 0).pointer(1, 7, 2048);
  struct Case {
    const char* name;
    JournalImage image;
    std::string at_0, at_100;
    std::uint64_t next_serial;
    std::string line;
  };
  const Case cases[] = {
      {"a tie", tie, "one", "", 8, no_begin},
      {"a tie with a pointer never written", JournalImage(tie).pointer(0, 7, 0), "other", "", 8, no_begin},
      {"torn", one(1).begin(1).update("torn", 0).at(200).transaction(1, "after", 100), "one", "", 2,
       "End of valid transaction end entries in journal."},
      {"spoilt", one(1).begin(1).update("spoilt", 0).end(1).transaction(1, "after", 100), "one", "", 2,
       bad_crc},
      {"stale", one(1).transaction(3, "stale", 0), "one", "", 2,
       "Found stale transaction in journal - end of replay."},
      {"redirected twice", one(4).redirection(2048).at(2048).transaction(5, "two", 100).redirection(48),
       "one", "two", 6, "Encountered second redirection entry - end of replay."},
      {"redirected out of the journal", one(4).redirection(4089), "one", "", 5,
       "Encountered bad index in redirection entry - replay end."},
      {"redirected to its last entry", one(4).redirection(4088), "one", "", 6, no_begin},
      {"a half that was left has been applied, whatever its remains look like",
       torn_pointer(4).begin(4).update("lost", 0).end(1).at(2048).transaction(5, "two", 100), "one", "two", 6,
       bad_crc},
      {"the other half is older", torn_pointer(4).at(2048).transaction(6, "alien", 100), "one", "", 5,
       no_begin},
      {"up to the last addressable byte", two_updates(10'237), "two", "", 2, no_begin},
      {"past it, none of the transaction counts", two_updates(10'238), "one", "", 2, bad_crc},
      {"past all addresses", two_updates(~std::uint64_t{0}), "one", "", 2, bad_crc},
      {"an entry cut off by the journal's end", JournalImage().pointer(0, 1, 4088).at(4088).text("TBEG"), "",
       "", 2, no_begin},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(recover(c.image), "nothing");
    EXPECT_EQ(text_at(0), c.at_0);
    EXPECT_EQ(text_at(100), c.at_100);
    EXPECT_TRUE(logged(c.line)) << c.line;
    const auto serial_of = [](unsigned half) {
      return mdb::format::load_index_pointer(mdb::journal_bytes(), half).serial;
    };
    EXPECT_EQ(std::max(serial_of(0), serial_of(1)), c.next_serial);
  }
  for (const std::uint32_t length : {~0U, ~0U - 20, 4096U, 0x8000'0000U}) {
    EXPECT_EQ(recover(two_updates(0).at(48 + 48 + 16 + 4).u32(length)), "nothing");
    EXPECT_EQ(text_at(0), "one") << "an update of " << length << " bytes";
  }
}

TEST_F(RecoveryTest, JournalsThatCannotBeReadAreRefused) {
  EXPECT_EQ(recover(one(7).pointer(0, 7, 48, true).pointer(1, 0, 0, true)),
            "need_repair: Both index pointers were invalid");
  EXPECT_TRUE(logged("POSSIBLE DATA LOSS: REPLAY IMPOSSIBLE"));
  for (const std::uint32_t jpos : {4096U, ~0U}) {
    EXPECT_EQ(recover(JournalImage().pointer(0, 1, jpos)), "range: Access beyond end of journal attempted");
  }
  EXPECT_EQ(recover(JournalImage().at(0).u32(0)), "fubar: Journal does not start with a journal header");
  EXPECT_EQ(recover(JournalImage().at(4).u32(2)),
            "unsupported: Journal version 2 is unsupported - please upgrade Quenor first");
}

}  // namespace
