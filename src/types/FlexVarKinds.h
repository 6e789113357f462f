// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The sixteen kinds of a `FlexVar`, described once: number, slot member, name.
///
/// How a kind is copied, destroyed, hashed, compared, printed or parsed follows from the C++ type
/// of its value, by overloads that `visit` reaches.
#ifndef OSX_TYPES_FLEXVARKINDS_H
#define OSX_TYPES_FLEXVARKINDS_H

#include <tuple>
#include <type_traits>
#include <utility>

#include "base/moduleNames.h"
#include "types/FlexVar.h"

namespace osx {

/// @return the value that a kind without an object reads as.
template <class Value>
OSX_HIDDEN const Value& emptyValue() noexcept;

}  // namespace osx

struct FlexVar::Kinds {
    template <Type kNumber, auto kMember>
    struct Kind {
        using Member = std::remove_reference_t<decltype(std::declval<Slot&>().*kMember)>;
        using Value = std::remove_pointer_t<Member>;

        static constexpr Type kType = kNumber;
        static constexpr bool kIsObject = std::is_pointer_v<Member>;
        static constexpr bool kIsNumeric =
            std::is_arithmetic_v<Value> && !std::is_same_v<Value, bool>;

        const char* name;
        /// What the line of a getter calls the default that it returns; null if it does not say.
        const char* fallback;

        static Member& member(Slot& aSlot) noexcept { return aSlot.*kMember; }
        static const Member& member(const Slot& aSlot) noexcept { return aSlot.*kMember; }

        static const Value& value(const Slot& aSlot) noexcept {
            if constexpr (!kIsObject) {
                return member(aSlot);
            } else if (member(aSlot) == nullptr) {
                return osx::emptyValue<Value>();
            } else {
                return *member(aSlot);
            }
        }
    };

    using Bool = Kind<FlexVar_Bool, &Slot::mBool>;
    using Char = Kind<FlexVar_Char, &Slot::mChar>;
    using UChar = Kind<FlexVar_UChar, &Slot::mUChar>;
    using Short = Kind<FlexVar_Short, &Slot::mShort>;
    using UShort = Kind<FlexVar_UShort, &Slot::mUShort>;
    using Int = Kind<FlexVar_Int, &Slot::mInt>;
    using UInt = Kind<FlexVar_UInt, &Slot::mUInt>;
    using Long = Kind<FlexVar_Long, &Slot::mLong>;
    using ULong = Kind<FlexVar_ULong, &Slot::mULong>;
    using Float = Kind<FlexVar_Float, &Slot::mFloat>;
    using Double = Kind<FlexVar_Double, &Slot::mDouble>;
    using CString = Kind<FlexVar_CString, &Slot::mCString>;
    using WString = Kind<FlexVar_WString, &Slot::mWString>;
    using DateTime = Kind<FlexVar_DateTime, &Slot::mDateTime>;
    using BlobKind = Kind<FlexVar_Blob, &Slot::mBlob>;
    using ObjectIDKind = Kind<FlexVar_ObjectID, &Slot::mObjectID>;

    static constexpr auto all() noexcept {
        return std::make_tuple(
            Bool{"FlexVar_Bool", "false"}, Char{"FlexVar_Char", "0"}, UChar{"FlexVar_UChar", "0"},
            Short{"FlexVar_Short", "0"}, UShort{"FlexVar_UShort", "0"}, Int{"FlexVar_Int", "0"},
            UInt{"FlexVar_UInt", "0"}, Long{"FlexVar_Long", "0"}, ULong{"FlexVar_ULong", "0"},
            Float{"FlexVar_Float", "0"}, Double{"FlexVar_Double", "0"},
            CString{"FlexVar_CString", "EmptyCString"}, WString{"FlexVar_WString", "EmptyWString"},
            DateTime{"FlexVar_DateTime", "EmptyACE_Date_Time"}, BlobKind{"FlexVar_Blob", nullptr},
            ObjectIDKind{"FlexVar_ObjectID", nullptr});
    }

    /// Calls the visitor with the kind of that number.
    /// @return its result; `aNone` for type none and any number above 16.
    template <class Result, class Visitor>
    static Result visit(Type aType, Result aNone, Visitor&& aVisitor) noexcept {
        std::apply(
            [&](const auto&... aKind) {
                static_cast<void>(
                    ((aKind.kType == aType && (aNone = aVisitor(aKind), true)) || ...));
            },
            all());
        return aNone;
    }

    /// The same for a visitor without a result.
    template <class Visitor>
    static void visit(Type aType, Visitor&& aVisitor) noexcept {
        std::apply(
            [&](const auto&... aKind) {
                static_cast<void>(((aKind.kType == aType && (aVisitor(aKind), true)) || ...));
            },
            all());
    }

    /// @return the enumerator's name; "No FlexVar type" for type none and any number above 16.
    static const char* name(Type aType) noexcept;
};

#endif
