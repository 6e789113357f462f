#include "logging/decimalNumber.h"

#include <string_view>

#include "base/integerText.h"

namespace osx {

std::int32_t decimalNumber(const char* aText, std::size_t aLength) noexcept {
    return readInteger(std::string_view(aText, aLength), kDecimal).number;
}

}  // namespace osx
