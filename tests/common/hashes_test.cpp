#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "common/crc32.h"
#include "common/md5.h"
#include "crc32_variants.h"

namespace {

using security::crc32_variants::Update;

// The definition, a bit at a time.
std::uint32_t update_bitwise(std::uint32_t value, std::span<const std::byte> data) {
  for (const std::byte byte : data) {
    value ^= std::to_integer<std::uint32_t>(byte);
    for (int bit = 0; bit < 8; ++bit)
      value = value >> 1 ^ ((value & 1) != 0 ? 0xEDB88320U : 0U);
  }
  return value;
}

TEST(Crc32, IsTheDefinitionByTablesAndByMultiplication) {
  const Update updates[] = {
      security::crc32_variants::update_by_tables, security::crc32_variants::multiplying_update(),
      security::crc32_variants::two_lane_update(), security::crc32_variants::four_lane_update()};
  std::mt19937 random(1);
  std::vector<std::byte> bytes(100'000);
  for (std::byte& byte : bytes)
    byte = static_cast<std::byte>(random());
  for (const Update update : updates) {
    if (update == nullptr)
      continue;  // this processor lacks the instructions
    const auto expect_same = [&](std::size_t offset, std::size_t length) {
      const auto start = static_cast<std::uint32_t>(random());
      const auto data = std::span(bytes).subspan(offset, length);
      ASSERT_EQ(update(start, data), update_bitwise(start, data))
          << "offset " << offset << " length " << length << " register " << start;
    };
    for (std::size_t offset = 0; offset < 16; ++offset) {
      for (std::size_t length = 0; length <= 700; ++length)
        expect_same(offset, length);
    }
    for (int run = 0; run < 20; ++run)
      expect_same(random() % 64, random() % 99'000);
  }
}

TEST(Crc32, WritesTheCheckValueBigEndianAndGoesOnAfterItIsRead) {
  security::Crc32 crc;
  crc.update(std::byte{'1'});
  EXPECT_EQ(crc.value(), 0x83DCEFB7u);
  crc.update(8, "23456789");
  std::vector<std::byte> digest(crc.digest_size());
  crc.final(digest.data());
  EXPECT_EQ(digest, (std::vector{std::byte{0xCB}, std::byte{0xF4}, std::byte{0x39}, std::byte{0x26}}));
  crc.reset();
  crc.update(9, "123456789");
  EXPECT_EQ(crc.value(), security::crc32(std::as_bytes(std::span("123456789", 9))));
}

// Some of RFC 1321, appendix A.5, and the lengths at which the padding needs another block.
TEST(Md5, HasThePublishedDigestsAndPadsEveryLength) {
  const std::pair<std::string, const char*> cases[] = {
      {"", "d41d8cd98f00b204e9800998ecf8427e"},
      {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789", "d174ab98d277d9f5a5611c2c9f419d9f"},
      {std::string(55, 'x'), "04364420e25c512fd958a70738aa8f72"},
      {std::string(56, 'x'), "668a72d5ba17f08e62dabcafad6db14b"},
      {std::string(64, 'x'), "c1bb4f81d892b2d57947682aeb252456"},
      {std::string(1000, 'x'), "398533d48111e9f664b1f64cb10c4b63"}};
  for (const auto& [text, digest] : cases)
    EXPECT_EQ(security::md5_hex(text), digest) << text;
}

}  // namespace
