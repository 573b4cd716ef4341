// The languages whose files are source code, as stored in `files.language`.
#pragma once

#include <array>
#include <string_view>

namespace quarry {

inline constexpr std::array<std::string_view, 14> SOURCE_LANGUAGES{
    "python", "javascript", "typescript", "java", "go",     "rust",  "c",
    "cpp",    "csharp",     "ruby",       "php",  "kotlin", "swift", "scala"};

}  // namespace quarry
