// Arithmetic: integers wrap, also where the language leaves an overflow undefined.
#include <cstdint>
#include <type_traits>

#include "types/FlexVar.h"
#include "types/FlexVarKinds.h"

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
    template <class Number>
    Number operator()(Number aLeft, Number aRight) const noexcept {
        return static_cast<Number>(wrapping(aLeft) * wrapping(aRight));
    }
};

struct DividedBy {
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
            constexpr bool lIsSmall = sizeof(typename Kind::Value) < sizeof(int);
            using ResultKind = std::conditional_t<lIsSmall, Kinds::Int, Kind>;
            const auto lLeft = +Kind::value(mValue);  // promotes, as the language does
            const auto lRight = +Kind::value(aOther.mValue);
            if (aOperation.isDefined(lRight)) {
                lResult.mType = ResultKind::kType;
                ResultKind::member(lResult.mValue) = aOperation(lLeft, lRight);
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
                Kind::member(mValue) = aOperation(Kind::value(mValue), Kind::value(aOther.mValue));
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
            Kind::member(mValue) = aOperation(Kind::value(mValue), lOne);
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
