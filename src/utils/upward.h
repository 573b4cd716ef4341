// Searching a directory and those above it, as git looks for `.git`.
#pragma once

#include <filesystem>
#include <vector>

namespace quarry {

// `start` made absolute and lexically normal (a trailing separator dropped), then each
// directory above it up to the root of the file system, nearest first. Empty when `start`
// cannot be made absolute. Never throws but std::bad_alloc.
std::vector<std::filesystem::path> directories_upward(const std::filesystem::path& start);

}  // namespace quarry
