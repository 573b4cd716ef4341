// Where the models of parsed files keep their texts and lists: names, qualified names,
// signatures, chains of names and short lists of records, in blocks that never move. The
// models' records hold std::string_view and std::span into a store, so that a name used a
// thousand times is stored once and a record stays small and needs no allocation of its
// own.
#pragma once

#include <cstddef>
#include <cstring>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <unordered_set>
#include <vector>

namespace quarry::indexer {

// A dotted chain of names as a model keeps it (see Use::chain).
using Chain = std::span<const std::string_view>;

// Not thread-safe: one thread stores at a time. What is stored stays, unchanged and at its
// address, as long as the store lives.
class ModelStore {
 public:
  ModelStore() = default;
  ModelStore(const ModelStore&) = delete;
  ModelStore& operator=(const ModelStore&) = delete;

  // `text`, stored once: equal texts give the same view. An empty text is "", never a view
  // without data.
  std::string_view name(std::string_view text);

  // `text`, stored as it is: for a text unlikely to recur (a qualified name, a signature).
  std::string_view copy(std::string_view text);

  // The chain of `names`, each name stored once; equal chains give the same span.
  Chain chain(std::span<const std::string> names);
  Chain chain(std::span<const std::string_view> names);

  // `items`, copied.
  template <typename T>
  std::span<const T> copy(std::span<const T> items) {
    static_assert(std::is_trivially_copyable_v<T>);
    if (items.empty()) return {};
    void* at = allocate(items.size_bytes(), alignof(T));
    std::memcpy(at, items.data(), items.size_bytes());
    return {static_cast<const T*>(at), items.size()};
  }
  template <typename T>
  std::span<const T> copy(const std::vector<T>& items) {
    return copy(std::span<const T>(items));
  }

  // `items` with `item` after them, stored anew (`items` stays as it was).
  template <typename T>
  std::span<const T> append(std::span<const T> items, const T& item) {
    std::vector<T> longer(items.begin(), items.end());
    longer.push_back(item);
    return copy(std::span<const T>(longer));
  }

  // `item`, copied.
  template <typename T>
  const T* copy_one(const T& item) {
    return copy(std::span<const T>(&item, 1)).data();
  }

  // Frees what makes names and chains unique once nothing more is to be stored: all that
  // was stored stays.
  void seal();

 private:
  struct ChainHash {
    std::size_t operator()(Chain chain) const;
  };
  struct ChainEqual {
    bool operator()(Chain a, Chain b) const;
  };

  void* allocate(std::size_t bytes, std::size_t alignment);

  std::vector<std::unique_ptr<std::byte[]>> blocks_;
  std::byte* next_ = nullptr;
  std::size_t left_ = 0;
  std::size_t block_size_ = 0;
  std::unordered_set<std::string_view> names_;
  std::unordered_set<Chain, ChainHash, ChainEqual> chains_;
};

}  // namespace quarry::indexer
