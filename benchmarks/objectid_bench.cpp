// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Identifiers. The library's are of version 1 (time and node), as are libuuid's and POCO's here;
// libuuid asks a server, or locks a file, so that POCO alone does the same. Boost and Qt have only
// random ones, which are shown. What else differs: the library keeps an identifier's text with it
// and hands out a reference, the others build a text a call; so each call here gets another
// identifier. libuuid and POCO have no hash.
#include <Poco/UUID.h>
#include <Poco/UUIDGenerator.h>
#include <uuid/uuid.h>

#include <QHash>
#include <QUuid>
#include <array>
#include <boost/functional/hash.hpp>
#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/string_generator.hpp>
#include <boost/uuid/uuid_hash.hpp>
#include <boost/uuid/uuid_io.hpp>
#include <cstring>
#include <string>

#include "support/bench.h"
#include "types/ObjectID.h"

namespace {

struct Osx {
    using Id = ObjectID;
    using Text = ACE_CString;
    static Id generate() {
        Id lId;
        lId.generateObjectID();
        return lId;
    }
    static void print(Id& aId) { benchmark::DoNotOptimize(aId.toString().c_str()); }
    static void parse(const Text& aText, Id& aId) { aId.setFromString(aText); }
    static bool equal(const Id& aLeft, const Id& aRight) { return aLeft == aRight; }
    static std::size_t hash(const Id& aId) { return aId.hash(); }
};

struct LibUuid {
    struct Id {
        uuid_t bytes;
    };
    using Text = std::string;
    static Id generate() {
        Id lId;
        uuid_generate_time(lId.bytes);
        return lId;
    }
    static void print(Id& aId) {
        std::array<char, UUID_STR_LEN> lText{};
        uuid_unparse_lower(aId.bytes, lText.data());
        benchmark::DoNotOptimize(lText);
    }
    static void parse(const Text& aText, Id& aId) { uuid_parse(aText.c_str(), aId.bytes); }
    static bool equal(const Id& aLeft, const Id& aRight) {
        return uuid_compare(aLeft.bytes, aRight.bytes) == 0;
    }
};

struct Boost {
    using Id = boost::uuids::uuid;
    using Text = std::string;
    static Id generate() {
        static boost::uuids::random_generator lGenerator;
        return lGenerator();
    }
    static void print(Id& aId) { benchmark::DoNotOptimize(boost::uuids::to_string(aId)); }
    static void parse(const Text& aText, Id& aId) { aId = boost::uuids::string_generator()(aText); }
    static bool equal(const Id& aLeft, const Id& aRight) { return aLeft == aRight; }
    static std::size_t hash(const Id& aId) { return boost::uuids::hash_value(aId); }
};

struct PocoUuid {
    using Id = Poco::UUID;
    using Text = std::string;
    static Id generate() { return Poco::UUIDGenerator::defaultGenerator().create(); }
    static void print(Id& aId) { benchmark::DoNotOptimize(aId.toString()); }
    static void parse(const Text& aText, Id& aId) { aId.parse(aText); }
    static bool equal(const Id& aLeft, const Id& aRight) { return aLeft == aRight; }
};

struct QtUuid {
    using Id = QUuid;
    using Text = QString;
    static Id generate() { return QUuid::createUuid(); }
    static void print(Id& aId) {
        benchmark::DoNotOptimize(aId.toString(QUuid::WithoutBraces).constData());
    }
    static void parse(const Text& aText, Id& aId) { aId = QUuid::fromString(aText); }
    static bool equal(const Id& aLeft, const Id& aRight) { return aLeft == aRight; }
    static std::size_t hash(const Id& aId) { return qHash(aId); }
};

template <class Subject>
void generate(benchmark::State& aState) {
    for (auto lOnce : aState) {
        auto lId = Subject::generate();
        benchmark::DoNotOptimize(lId);
    }
}

template <class Subject>
void print(benchmark::State& aState) {
    const std::array<typename Subject::Id, 2> lIds{Subject::generate(), Subject::generate()};
    typename Subject::Id lId{};
    std::size_t lNext = 0;
    for (auto lOnce : aState) {
        lId = lIds[++lNext % 2];
        Subject::print(lId);
    }
}

template <class Subject>
void parse(benchmark::State& aState) {
    const typename Subject::Text lText("6ba7b810-9dad-11d1-80b4-00c04fd430c8");
    typename Subject::Id lId{};
    for (auto lOnce : aState) {
        Subject::parse(lText, lId);
        benchmark::DoNotOptimize(lId);
    }
}

template <class Subject>
void compare(benchmark::State& aState) {
    auto lLeft = Subject::generate();
    auto lRight = lLeft;
    for (auto lOnce : aState) {
        benchmark::DoNotOptimize(lLeft);
        benchmark::DoNotOptimize(lRight);
        benchmark::DoNotOptimize(Subject::equal(lLeft, lRight));
    }
}

template <class Subject>
void hash(benchmark::State& aState) {
    auto lId = Subject::generate();
    for (auto lOnce : aState) {
        benchmark::DoNotOptimize(lId);
        benchmark::DoNotOptimize(Subject::hash(lId));
    }
}

template <class Subject>
void enter(const char* aRole, const char* aSubject, const char* aGeneratorsRole) {
    bench::add("generate", aGeneratorsRole, aSubject, generate<Subject>);
    bench::add("to text", aRole, aSubject, print<Subject>);
    bench::add("from text", aRole, aSubject, parse<Subject>);
    bench::add("compare", aRole, aSubject, compare<Subject>);
}

/// For the chart alone: threads that generate at once meet at the generator's lock.
template <class Subject>
void enterThreads(const char* aRole, const char* aSubject, int aThreads) {
    const std::string lRow = "generate at once, " + std::to_string(aThreads);
    bench::add(lRow + (aThreads == 1 ? " thread" : " threads"), aRole, aSubject, generate<Subject>)
        .byThreads(aThreads);
}

}  // namespace

void bench::enterSubjects() {
    enter<Osx>(kOsx, "osx", kOsx);
    enter<LibUuid>(kPeer, "libuuid", kPeer);
    enter<Boost>(kPeer, "Boost", kOther);
    enter<PocoUuid>(kPeer, "POCO", kPeer);
    enter<QtUuid>(kPeer, "Qt", kOther);
    for (const int lThreads : {1, 2, 4}) {
        enterThreads<Osx>(kOsx, "osx", lThreads);
        enterThreads<PocoUuid>(kPeer, "POCO", lThreads);
    }
    add("hash", kOsx, "osx", hash<Osx>);
    add("hash", kPeer, "Boost", hash<Boost>);
    add("hash", kPeer, "Qt", hash<QtUuid>);
}
