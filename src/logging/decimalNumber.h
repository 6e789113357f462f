/// @file
/// Decimal numbers in texts that need not be terminated.
#ifndef OSX_LOGGING_DECIMALNUMBER_H
#define OSX_LOGGING_DECIMALNUMBER_H

#include <cstddef>
#include <cstdint>

namespace osx {

/// Reads a number as `strtol` does where a `long` has 32 bits: blanks, a sign, digits; reading
/// stops at the first other character.
/// @return the number; the nearest one if it does not fit; 0 if there are no digits.
std::int32_t decimalNumber(const char* aText, std::size_t aLength) noexcept;

}  // namespace osx

#endif
