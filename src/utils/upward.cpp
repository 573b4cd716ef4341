#include "utils/upward.h"

#include <system_error>

namespace quarry {

std::vector<std::filesystem::path> directories_upward(const std::filesystem::path& start) {
  std::error_code ec;
  std::filesystem::path dir = std::filesystem::absolute(start, ec).lexically_normal();
  if (ec) return {};
  if (!dir.has_filename() && dir.has_relative_path()) dir = dir.parent_path();
  std::vector<std::filesystem::path> dirs{dir};
  while (dirs.back() != dirs.back().parent_path())
    dirs.push_back(dirs.back().parent_path());
  return dirs;
}

}  // namespace quarry
