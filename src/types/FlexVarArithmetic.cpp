// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Arithmetic: integers wrap, also where the language leaves an overflow undefined.
#include <cfloat>
#include <cstdint>
#include <type_traits>

#include "types/FlexVar.h"
#include "types/FlexVarKinds.h"

#if defined(__i386__) && FLT_EVAL_METHOD != 0
#include <fpu_control.h>
#define OSX_TYPES_HAS_X87 1
#endif

namespace {

/// @return an integer as a number that wraps; a floating number as it is.
template <class Number>
auto wrapping(Number aNumber) noexcept {
    if constexpr (std::is_integral_v<Number>) {
        return static_cast<std::uint32_t>(aNumber);
    } else {
        return aNumber;
    }
}

/// An operation that has a result for all operands.
struct Total {
    [[maybe_unused]] static constexpr bool kMayUnderflow = false;
    template <class Number>
    bool isDefined(Number) const noexcept {
        return true;
    }
};

struct Plus : Total {
    template <class Number>
    Number operator()(Number aLeft, Number aRight) const noexcept {
        return static_cast<Number>(wrapping(aLeft) + wrapping(aRight));
    }
};

struct Minus : Total {
    template <class Number>
    Number operator()(Number aLeft, Number aRight) const noexcept {
        return static_cast<Number>(wrapping(aLeft) - wrapping(aRight));
    }
};

struct Times : Total {
    [[maybe_unused]] static constexpr bool kMayUnderflow = true;
    template <class Number>
    Number operator()(Number aLeft, Number aRight) const noexcept {
        return static_cast<Number>(wrapping(aLeft) * wrapping(aRight));
    }
};

struct DividedBy {
    [[maybe_unused]] static constexpr bool kMayUnderflow = true;
    template <class Number>
    bool isDefined(Number aRight) const noexcept {
        return std::is_floating_point_v<Number> || aRight != 0;
    }
    template <class Number>
    Number operator()(Number aLeft, Number aRight) const noexcept {
        if constexpr (std::is_integral_v<Number> && std::is_signed_v<Number>) {
            // The processor faults on the one quotient that does not fit.
            if (aRight == -1) {
                return Minus()(Number(0), aLeft);
            }
        }
        return aLeft / aRight;
    }
};

template <class Operation, class Number>
Number result(Operation aOperation, Number aLeft, Number aRight) noexcept {
    return aOperation(aLeft, aRight);
}

#ifdef OSX_TYPES_HAS_X87

/// The x87 unit rounds to its own 64 binary digits, and again when the result is stored. While one
/// of these lives it rounds to those of a Double at once, as other processors do.
class RoundingToDouble {
public:
    RoundingToDouble() noexcept {
        _FPU_GETCW(mFormer);
        auto lWord = static_cast<fpu_control_t>((mFormer & ~_FPU_EXTENDED) | _FPU_DOUBLE);
        _FPU_SETCW(lWord);
    }
    ~RoundingToDouble() { _FPU_SETCW(mFormer); }
    RoundingToDouble(const RoundingToDouble&) = delete;
    RoundingToDouble& operator=(const RoundingToDouble&) = delete;

private:
    fpu_control_t mFormer = 0;
};

/// What underflows is computed where the unit's own range ends as well, so that the digits which a
/// small Double lacks are rounded away at once, too. What is volatile stays between the switches.
template <class Operation>
double result(Operation aOperation, double aLeft, double aRight) noexcept {
    constexpr long double kDown = Operation::kMayUnderflow ? 0x1p-15360L : 1.0L;
    constexpr long double kUp = Operation::kMayUnderflow ? 0x1p+15360L : 1.0L;
    const RoundingToDouble lRounding;
    const volatile long double lLeft = aLeft;
    const volatile long double lRight = aRight;
    const long double lScaled = aOperation(kDown * lLeft, static_cast<long double>(lRight));
    const volatile auto lResult = static_cast<double>(kUp * lScaled);
    return lResult;
}

#endif

}  // namespace

template <class Operation>
FlexVar FlexVar::combinedWith(const FlexVar& aOther, Operation aOperation) const noexcept {
    FlexVar lResult;
    if (mType != aOther.mType) {
        return lResult;
    }
    Kinds::visit(mType, [&](auto aKind) {
        using Kind = decltype(aKind);
        if constexpr (Kind::kIsNumeric) {
            constexpr bool kIsSmall = sizeof(typename Kind::Value) < sizeof(int);
            using ResultKind = std::conditional_t<kIsSmall, Kinds::Int, Kind>;
            const auto lLeft = +Kind::value(mValue);  // promotes, as the language does
            const auto lRight = +Kind::value(aOther.mValue);
            if (aOperation.isDefined(lRight)) {
                lResult.mType = ResultKind::kType;
                ResultKind::member(lResult.mValue) = result(aOperation, lLeft, lRight);
            }
        }
    });
    return lResult;
}

FlexVar FlexVar::sumWith(const FlexVar& aOther) const noexcept {
    return combinedWith(aOther, Plus());
}
FlexVar FlexVar::differenceWith(const FlexVar& aOther) const noexcept {
    return combinedWith(aOther, Minus());
}
FlexVar FlexVar::productWith(const FlexVar& aOther) const noexcept {
    return combinedWith(aOther, Times());
}
FlexVar FlexVar::operator/(const FlexVar& aOther) const noexcept {
    return combinedWith(aOther, DividedBy());
}

template <class Operation>
FlexVar& FlexVar::changeBy(const FlexVar& aOther, Operation aOperation) noexcept {
    if (mType == aOther.mType) {
        Kinds::visit(mType, [&](auto aKind) {
            using Kind = decltype(aKind);
            if constexpr (Kind::kIsNumeric) {
                Kind::member(mValue) =
                    result(aOperation, Kind::value(mValue), Kind::value(aOther.mValue));
            }
        });
    }
    return *this;
}

template <class Kind>
FlexVar& FlexVar::append(const typename Kind::Value& aText) noexcept {
    if (Kind::member(mValue) == nullptr) {
        setText(aText);
    } else {
        Kind::member(mValue)->append(aText.fast_rep(), aText.length());
    }
    return *this;
}

FlexVar& FlexVar::operator+=(const FlexVar& aOther) noexcept {
    if (mType == aOther.mType && mType == FlexVar_CString) {
        return append<Kinds::CString>(Kinds::CString::value(aOther.mValue));
    }
    if (mType == aOther.mType && mType == FlexVar_WString) {
        return append<Kinds::WString>(Kinds::WString::value(aOther.mValue));
    }
    return changeBy(aOther, Plus());
}

FlexVar& FlexVar::operator-=(const FlexVar& aOther) noexcept {
    return changeBy(aOther, Minus());
}

template <class Operation>
FlexVar& FlexVar::step(Operation aOperation) noexcept {
    Kinds::visit(mType, [&](auto aKind) {
        using Kind = decltype(aKind);
        if constexpr (Kind::kIsNumeric) {
            const typename Kind::Value lOne = 1;
            Kind::member(mValue) = result(aOperation, Kind::value(mValue), lOne);
        }
    });
    return *this;
}

FlexVar& FlexVar::operator++(int) noexcept {
    return step(Plus());
}

FlexVar& FlexVar::operator--(int) noexcept {
    return step(Minus());
}
