// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Variants: one operation on a value of each of four kinds, strings of 12 and of 900 characters
// among them, which are below what the C library's fast path for memory ends at; 100000 characters
// show how the cost grows. The standard variant is inline as a whole and holds short strings within
// itself, so that it is the floor, and shown: to get a number is one load there. Held are variants
// that look at the kind, as the library's do, and whose strings have memory of their own.
//
// What else differs: Qt's strings and bytes and GLib's bytes are shared between copies, so that
// they are shown but not held against the others, which copy; GLib has neither addition nor hashing
// nor comparison of its values, and Qt and POCO have not all of them, so that the held values are
// taken out and combined, which is what a user would write. To get is to have the number in a
// register, or where the characters or the bytes are. Strings are added by appending to a copy. A
// string is hashed by ACE::hash_pjw, as the interface promises, and printed as a string of ACE's,
// which takes memory however short it is: these rows are held against ACE doing just that. Blobs
// are not compared, hashed, added or parsed by the library, and only their first bytes are printed,
// so that nothing of it is comparable.
#include <Poco/Dynamic/Var.h>
#include <glib-object.h>

#include <QByteArray>
#include <QHash>
#include <QString>
#include <QVariant>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "ace/ACE.h"
#include "support/bench.h"
#include "types/FlexVar.h"

namespace {

using bench::kPeer;
using Bytes = std::vector<char>;

constexpr std::size_t kLengths[] = {12, 900, 100000};

template <class T>
constexpr bool kIsNumber = std::is_arithmetic_v<T>;
template <class T>
constexpr bool kIsText = std::is_same_v<T, std::string>;

// Each subject says how its value is made of one of the four types (int, double, std::string,
// Bytes; `native` is made of it outside of the time), read, set and so on.

struct Osx {
    using Value = FlexVar;
    static int native(int aValue) { return aValue; }
    static double native(double aValue) { return aValue; }
    static ACE_CString native(const std::string& aValue) { return aValue.c_str(); }
    static Blob native(const Bytes& aValue) {
        Blob lBorrowed(reinterpret_cast<unsigned char*>(const_cast<char*>(aValue.data())),
                       static_cast<long>(aValue.size()), false);
        return Blob(lBorrowed);
    }
    template <class Native>
    static Value make(const Native& aNative) {
        return Value(aNative);
    }
    static void set(Value& aValue, int aNative) { aValue.setInt(aNative); }
    static void set(Value& aValue, double aNative) { aValue.setDouble(aNative); }
    static void set(Value& aValue, const ACE_CString& aNative) { aValue.setCString(aNative); }
    static void set(Value& aValue, const Blob& aNative) { aValue.setBlob(aNative); }
    template <class T>
    static auto get(const Value& aValue) {
        if constexpr (std::is_same_v<T, int>) {
            return aValue.getInt();
        } else if constexpr (std::is_same_v<T, double>) {
            return aValue.getDouble();
        } else if constexpr (kIsText<T>) {
            return aValue.getCString().c_str();
        } else {
            return aValue.getBlob()->getData();
        }
    }
    template <class T>
    static Value add(const Value& aLeft, const Value& aRight) {
        if constexpr (kIsText<T>) {
            Value lSum(aLeft);
            lSum += aRight;
            return lSum;
        } else {
            return aLeft + aRight;
        }
    }
    template <class T>
    static bool equal(const Value& aLeft, const Value& aRight) {
        return aLeft == aRight;
    }
    template <class T>
    static std::size_t hash(const Value& aValue) {
        return aValue.hash();
    }
    template <class T>
    static auto print(const Value& aValue) {
        return aValue.getValueAsString();
    }
    using Text = ACE_CString;
    template <class T>
    static void parse(Value& aValue, const Text& aText) {
        aValue.setValueFromString(aText);
    }
};

struct Standard {
    using Value = std::variant<std::monostate, bool, int, double, std::string, Bytes>;
    template <class T>
    static const T& native(const T& aValue) {
        return aValue;
    }
    template <class T>
    static Value make(const T& aNative) {
        return Value(aNative);
    }
    template <class T>
    static void set(Value& aValue, const T& aNative) {
        aValue = aNative;
    }
    template <class T>
    static decltype(auto) get(const Value& aValue) {
        return std::get<T>(aValue);
    }
    template <class T>
    static Value add(const Value& aLeft, const Value& aRight) {
        return std::get<T>(aLeft) + std::get<T>(aRight);
    }
    template <class T>
    static bool equal(const Value& aLeft, const Value& aRight) {
        return aLeft == aRight;
    }
    template <class T>
    static std::size_t hash(const Value& aValue) {
        return std::hash<T>()(std::get<T>(aValue));
    }
    template <class T>
    static std::string print(const Value& aValue) {
        if constexpr (kIsText<T>) {
            return std::get<T>(aValue);
        } else {
            return std::to_string(std::get<T>(aValue));
        }
    }
    using Text = std::string;
    template <class T>
    static void parse(Value& aValue, const Text& aText) {
        if constexpr (std::is_same_v<T, int>) {
            aValue = static_cast<int>(std::strtol(aText.c_str(), nullptr, 0));
        } else if constexpr (kIsText<T>) {
            aValue = aText;
        } else {
            aValue = std::strtod(aText.c_str(), nullptr);
        }
    }
};

struct QtVariant {
    using Value = QVariant;
    static int native(int aValue) { return aValue; }
    static double native(double aValue) { return aValue; }
    static QString native(const std::string& aValue) { return QString::fromStdString(aValue); }
    static QByteArray native(const Bytes& aValue) {
        return QByteArray(aValue.data(), static_cast<qsizetype>(aValue.size()));
    }
    template <class Native>
    static Value make(const Native& aNative) {
        return Value(aNative);
    }
    template <class Native>
    static void set(Value& aValue, const Native& aNative) {
        aValue.setValue(aNative);
    }
    template <class T>
    static auto get(const Value& aValue) {
        return aValue.value<std::decay_t<decltype(native(std::declval<T>()))>>();
    }
    template <class T>
    static Value add(const Value& aLeft, const Value& aRight) {
        return get<T>(aLeft) + get<T>(aRight);
    }
    template <class T>
    static bool equal(const Value& aLeft, const Value& aRight) {
        return aLeft == aRight;
    }
    template <class T>
    static std::size_t hash(const Value& aValue) {
        return qHash(get<T>(aValue));
    }
    template <class T>
    static QString print(const Value& aValue) {
        return aValue.toString();
    }
    using Text = QString;
    template <class T>
    static void parse(Value& aValue, const Text& aText) {
        if constexpr (std::is_same_v<T, int>) {
            aValue = aText.toInt(nullptr, 0);
        } else if constexpr (kIsText<T>) {
            aValue = aText;
        } else {
            aValue = aText.toDouble();
        }
    }
};

struct PocoVar {
    using Value = Poco::Dynamic::Var;
    template <class T>
    static const T& native(const T& aValue) {
        return aValue;
    }
    template <class T>
    static Value make(const T& aNative) {
        return Value(aNative);
    }
    template <class T>
    static void set(Value& aValue, const T& aNative) {
        aValue = aNative;
    }
    template <class T>
    static const T& get(const Value& aValue) {
        return aValue.extract<T>();
    }
    template <class T>
    static Value add(const Value& aLeft, const Value& aRight) {
        return aLeft + aRight;
    }
    template <class T>
    static bool equal(const Value& aLeft, const Value& aRight) {
        return get<T>(aLeft) == get<T>(aRight);
    }
    template <class T>
    static std::size_t hash(const Value& aValue) {
        return std::hash<T>()(get<T>(aValue));
    }
    template <class T>
    static std::string print(const Value& aValue) {
        return aValue.toString();
    }
    using Text = Poco::Dynamic::Var;
    template <class T>
    static void parse(Value& aValue, const Text& aText) {
        aValue = aText.convert<T>();
    }
};

/// GLib's value, released as a C++ one is.
class GlibValue {
public:
    GlibValue() = default;
    explicit GlibValue(GType aType) { g_value_init(&mValue, aType); }
    GlibValue(const GlibValue& aOther) : GlibValue(G_VALUE_TYPE(&aOther.mValue)) {
        g_value_copy(&aOther.mValue, &mValue);
    }
    GlibValue(GlibValue&& aOther) noexcept : mValue(aOther.mValue) { aOther.mValue = {}; }
    GlibValue& operator=(const GlibValue& aOther) {
        if (this != &aOther) {
            g_value_copy(&aOther.mValue, &mValue);
        }
        return *this;
    }
    ~GlibValue() {
        if (G_IS_VALUE(&mValue)) {
            g_value_unset(&mValue);
        }
    }
    GValue* operator()() const { return &mValue; }

private:
    mutable GValue mValue{};
};

struct Glib {
    using Value = GlibValue;
    using Shared = GBytes*;
    static int native(int aValue) { return aValue; }
    static double native(double aValue) { return aValue; }
    static const std::string& native(const std::string& aValue) { return aValue; }
    static Shared native(const Bytes& aValue) { return g_bytes_new(aValue.data(), aValue.size()); }
    template <class Native>
    static GType type() {
        return std::is_same_v<Native, int>      ? G_TYPE_INT
               : std::is_same_v<Native, double> ? G_TYPE_DOUBLE
               : kIsText<Native>                ? G_TYPE_STRING
                                                : G_TYPE_BYTES;
    }
    template <class Native>
    static Value make(const Native& aNative) {
        Value lValue(type<Native>());
        set(lValue, aNative);
        return lValue;
    }
    static void set(Value& aValue, int aNative) { g_value_set_int(aValue(), aNative); }
    static void set(Value& aValue, double aNative) { g_value_set_double(aValue(), aNative); }
    static void set(Value& aValue, const std::string& aNative) {
        g_value_set_string(aValue(), aNative.c_str());
    }
    static void set(Value& aValue, Shared aNative) { g_value_set_boxed(aValue(), aNative); }
    template <class T>
    static auto get(const Value& aValue) {
        if constexpr (std::is_same_v<T, int>) {
            return g_value_get_int(aValue());
        } else if constexpr (std::is_same_v<T, double>) {
            return g_value_get_double(aValue());
        } else if constexpr (kIsText<T>) {
            return g_value_get_string(aValue());
        } else {
            return g_value_get_boxed(aValue());
        }
    }
    template <class T>
    static Value add(const Value& aLeft, const Value& aRight) {
        return make(T(get<T>(aLeft)) + get<T>(aRight));
    }
    template <class T>
    static bool equal(const Value& aLeft, const Value& aRight) {
        if constexpr (kIsText<T>) {
            return std::strcmp(get<T>(aLeft), get<T>(aRight)) == 0;
        } else {
            return get<T>(aLeft) == get<T>(aRight);
        }
    }
    template <class T>
    static std::size_t hash(const Value& aValue) {
        if constexpr (kIsText<T>) {
            return g_str_hash(get<T>(aValue));
        } else {
            return std::hash<T>()(get<T>(aValue));
        }
    }
    template <class T>
    static Value print(const Value& aValue) {
        Value lText(G_TYPE_STRING);
        g_value_transform(aValue(), lText());
        return lText;
    }
    using Text = std::string;
    template <class T>
    static void parse(Value& aValue, const Text& aText) {
        if constexpr (std::is_same_v<T, int>) {
            g_value_set_int(aValue(), static_cast<int>(std::strtol(aText.c_str(), nullptr, 0)));
        } else if constexpr (kIsText<T>) {
            g_value_set_string(aValue(), aText.c_str());
        } else {
            g_value_set_double(aValue(), g_ascii_strtod(aText.c_str(), nullptr));
        }
    }
};

// --- the work ---

/// @return a number itself, and where characters and bytes are: what all have in common.
template <class Got>
auto whereabouts(const Got& aGot) {
    if constexpr (std::is_arithmetic_v<Got> || std::is_pointer_v<Got>) {
        return aGot;
    } else {
        return aGot.data();
    }
}

template <class Subject, class T>
class Rows {
public:
    Rows(std::string aKind, const char* aRole, const char* aSubject, const T& aExample)
        : mKind(std::move(aKind)), mRole(aRole), mSubject(aSubject), mExample(aExample) {}

    void enter() const {
        lifetime();
        access();
        if constexpr (kIsNumber<T> || kIsText<T>) {
            combination();
            text();
        }
    }

private:
    using Value = typename Subject::Value;

    /// Enters a row whose work is one call of a function on two equal values.
    template <class Work>
    void row(const char* aOperation, Work aWork) const {
        const T lExample = mExample;
        bench::add(std::string(aOperation) + ", " + mKind, mRole, mSubject,
                   [lExample, aWork](benchmark::State& aState) {
                       const auto lNative = Subject::native(lExample);
                       Value lLeft = Subject::make(lNative);
                       Value lRight = Subject::make(lNative);
                       for (auto lOnce : aState) {
                           benchmark::DoNotOptimize(lLeft);
                           benchmark::DoNotOptimize(lRight);
                           aWork(lNative, lLeft, lRight);
                       }
                   });
    }

    void lifetime() const {
        row("construct", [](const auto& aNative, Value&, Value&) {
            Value lValue = Subject::make(aNative);
            benchmark::DoNotOptimize(lValue);
        });
        row("copy", [](const auto&, Value& aLeft, Value&) {
            Value lValue(aLeft);
            benchmark::DoNotOptimize(lValue);
        });
        row("move there and back", [](const auto&, Value& aLeft, Value&) {
            Value lValue(std::move(aLeft));
            benchmark::DoNotOptimize(lValue);
            aLeft.~Value();
            new (&aLeft) Value(std::move(lValue));
        });
    }

    void access() const {
        row("set", [](const auto& aNative, Value& aLeft, Value&) { Subject::set(aLeft, aNative); });
        get();
    }

    /// From many values, as one alone is done in the time of the loop around it.
    void get() const {
        const T lExample = mExample;
        bench::add("get, " + mKind, mRole, mSubject, [lExample](benchmark::State& aState) {
            constexpr std::size_t kValues = 64;
            const auto lNative = Subject::native(lExample);
            std::vector<Value> lValues;
            for (std::size_t i = 0; i < kValues; ++i) {
                lValues.push_back(Subject::make(lNative));
            }
            for (auto lOnce : aState) {
                for (const Value& lValue : lValues) {
                    benchmark::DoNotOptimize(whereabouts(Subject::template get<T>(lValue)));
                }
                benchmark::ClobberMemory();
            }
            bench::operationsPerIteration(aState, kValues);
        });
    }

    void combination() const {
        row("add", [](const auto&, Value& aLeft, Value& aRight) {
            Value lSum = Subject::template add<T>(aLeft, aRight);
            benchmark::DoNotOptimize(lSum);
        });
        row("compare", [](const auto&, Value& aLeft, Value& aRight) {
            benchmark::DoNotOptimize(Subject::template equal<T>(aLeft, aRight));
        });
        row("hash", [](const auto&, Value& aLeft, Value&) {
            benchmark::DoNotOptimize(Subject::template hash<T>(aLeft));
        });
    }

    void text() const {
        row("print", [](const auto&, Value& aLeft, Value&) {
            auto lText = Subject::template print<T>(aLeft);
            benchmark::DoNotOptimize(lText);
        });
        const typename Subject::Text lText(parsedText().c_str());
        row("parse", [lText](const auto&, Value& aLeft, Value&) {
            Subject::template parse<T>(aLeft, lText);
        });
    }

    std::string parsedText() const {
        if constexpr (kIsText<T>) {
            return mExample;
        } else {
            return "12345";
        }
    }

    std::string mKind;
    const char* mRole;
    const char* mSubject;
    T mExample;
};

std::string textOf(std::size_t aLength) {
    return std::string(aLength, 'x');
}

std::string kindOf(std::size_t aLength) {
    return "CString of " + std::to_string(aLength);
}

/// @param aTextRole the role with strings, @param aBytesRole with Blobs: what shares them between
///        copies does less.
template <class Subject>
void enter(const char* aSubject, const char* aRole, const char* aTextRole, const char* aBytesRole) {
    Rows<Subject, int>("Int", aRole, aSubject, 12345).enter();
    Rows<Subject, double>("Double", aRole, aSubject, 123.45).enter();
    for (const std::size_t lLength : kLengths) {
        Rows<Subject, std::string>(kindOf(lLength), aTextRole, aSubject, textOf(lLength)).enter();
    }
    Rows<Subject, Bytes>("Blob", aBytesRole, aSubject, Bytes(900, 'x')).enter();
}

/// What ACE takes for what the interface says of a string's hash and its text.
void enterAce(std::size_t aLength) {
    const ACE_CString lText(textOf(aLength).c_str());
    bench::add(
        "hash, " + kindOf(aLength), kPeer, "ACE::hash_pjw", [lText](benchmark::State& aState) {
            const ACE_CString* lHashed = &lText;
            for (auto lOnce : aState) {
                benchmark::DoNotOptimize(lHashed);
                benchmark::DoNotOptimize(ACE::hash_pjw(lHashed->fast_rep(), lHashed->length()));
            }
        });
    bench::add("print, " + kindOf(aLength), kPeer, "copy of an ACE_CString",
               [lText](benchmark::State& aState) {
                   for (auto lOnce : aState) {
                       ACE_CString lCopy(lText);
                       benchmark::DoNotOptimize(lCopy);
                   }
               });
}

}  // namespace

void bench::enterSubjects() {
    enter<Osx>("osx", kOsx, kOsx, kOsx);
    enter<Standard>("std::variant", kFloor, kFloor, kFloor);
    enter<QtVariant>("QVariant", kPeer, kOther, kOther);
    enter<PocoVar>("POCO Var", kPeer, kPeer, kPeer);
    enter<Glib>("GValue", kPeer, kPeer, kOther);
    for (const std::size_t lLength : kLengths) {
        enterAce(lLength);
    }
}
