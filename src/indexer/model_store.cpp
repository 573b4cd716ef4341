#include "indexer/model_store.h"

#include <algorithm>
#include <cstdint>

namespace quarry::indexer {

namespace {

// Blocks grow from the first size to the largest, doubling: a store that holds one small
// file takes little, one that holds a thousand files takes few blocks.
constexpr std::size_t FIRST_BLOCK = 16 * 1024;
constexpr std::size_t LARGEST_BLOCK = 1024 * 1024;

}  // namespace

std::string_view ModelStore::name(std::string_view text) {
  if (text.empty()) return "";
  auto found = names_.find(text);
  if (found != names_.end()) return *found;
  const std::string_view stored = copy(text);
  names_.insert(stored);
  return stored;
}

std::string_view ModelStore::copy(std::string_view text) {
  if (text.empty()) return "";
  auto* at = static_cast<char*>(allocate(text.size(), 1));
  std::memcpy(at, text.data(), text.size());
  return {at, text.size()};
}

Chain ModelStore::chain(std::span<const std::string> names) {
  std::vector<std::string_view> views;
  views.reserve(names.size());
  for (const std::string& name : names)
    views.push_back(name);
  return chain(std::span<const std::string_view>(views));
}

Chain ModelStore::chain(std::span<const std::string_view> names) {
  if (names.empty()) return {};
  auto found = chains_.find(names);
  if (found != chains_.end()) return *found;
  std::vector<std::string_view> stored;
  stored.reserve(names.size());
  for (std::string_view name : names)
    stored.push_back(this->name(name));
  const Chain chain = copy(std::span<const std::string_view>(stored));
  chains_.insert(chain);
  return chain;
}

void ModelStore::seal() {
  names_ = {};
  chains_ = {};
}

std::size_t ModelStore::ChainHash::operator()(Chain chain) const {
  std::size_t hash = chain.size();
  for (std::string_view name : chain)
    hash = hash * 31 + std::hash<std::string_view>()(name);
  return hash;
}

bool ModelStore::ChainEqual::operator()(Chain a, Chain b) const {
  return std::equal(a.begin(), a.end(), b.begin(), b.end());
}

void* ModelStore::allocate(std::size_t bytes, std::size_t alignment) {
  // A large item gets a block of its own; the current block stays in use.
  if (bytes > LARGEST_BLOCK / 4) {
    blocks_.push_back(std::make_unique_for_overwrite<std::byte[]>(bytes));
    return blocks_.back().get();
  }
  std::size_t padding =
      (alignment - reinterpret_cast<std::uintptr_t>(next_) % alignment) % alignment;
  if (padding + bytes > left_) {
    block_size_ = block_size_ == 0 ? FIRST_BLOCK : std::min(block_size_ * 2, LARGEST_BLOCK);
    if (block_size_ < bytes) block_size_ = LARGEST_BLOCK;
    blocks_.push_back(std::make_unique_for_overwrite<std::byte[]>(block_size_));
    next_ = blocks_.back().get();
    left_ = block_size_;
    padding = 0;  // a block is aligned for any item
  }
  next_ += padding;
  void* at = next_;
  next_ += bytes;
  left_ -= padding + bytes;
  return at;
}

}  // namespace quarry::indexer
