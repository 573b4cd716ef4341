// Decimal rounding of binary floating-point values.
#pragma once

namespace quarry {

// `value` rounded to `places` decimal places (0 to 17): the exact binary value of `value`
// goes to the nearest multiple of 10^-places, a value exactly halfway between two of them
// to the one whose last digit is even, and the result is the double nearest to that
// decimal number. So 0.0625 gives 0.062 and 0.1875 gives 0.188 at three places, and a
// double just below 0.3075 gives 0.307. Infinities and NaN are returned unchanged.
// Throws std::invalid_argument for `places` outside 0 to 17.
double round_decimal(double value, int places);

}  // namespace quarry
