// Memory for the bytes of a block.

#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <utility>

namespace mdb {

// A buffer of one block that its holder owns; empty when moved from or never filled.
class BlockBuffer {
 public:
  BlockBuffer() = default;
  // The bytes are not initialised.
  explicit BlockBuffer(std::size_t size)
      : data_(std::make_unique_for_overwrite<std::byte[]>(size)), size_(size) {}
  BlockBuffer(BlockBuffer&& other) noexcept
      : data_(std::move(other.data_)), size_(std::exchange(other.size_, 0)) {}
  BlockBuffer& operator=(BlockBuffer&& other) noexcept {
    data_ = std::move(other.data_);
    size_ = std::exchange(other.size_, 0);
    return *this;
  }

  bool empty() const { return size_ == 0; }
  std::size_t size() const { return size_; }
  std::span<std::byte> bytes() { return {data_.get(), size_}; }
  std::span<const std::byte> bytes() const { return {data_.get(), size_}; }

 private:
  std::unique_ptr<std::byte[]> data_;
  std::size_t size_ = 0;
};

}  // namespace mdb
