#include "utils/rounding.h"

#include <array>
#include <charconv>
#include <cmath>
#include <stdexcept>
#include <string>
#include <system_error>

namespace quarry {

double round_decimal(double value, int places) {
  if (places < 0 || places > 17) {
    throw std::invalid_argument("decimal places must be 0 to 17, not " + std::to_string(places));
  }
  if (!std::isfinite(value)) return value;
  // A fixed-point conversion with a precision is correctly rounded from the exact binary
  // value, ties to even; scaling by a power of ten first would round twice. The largest
  // double has 309 integer digits.
  std::array<char, 330> text{};
  const auto written = std::to_chars(text.data(), text.data() + text.size(), value,
                                     std::chars_format::fixed, places);
  if (written.ec != std::errc()) throw std::invalid_argument("cannot round this value");
  double rounded = 0.0;
  std::from_chars(text.data(), written.ptr, rounded, std::chars_format::fixed);
  return rounded;
}

}  // namespace quarry
