// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Maps from identifier to identifier: looking one up, and adding one and taking it out, in maps of
// several sizes. Every subject has one lock, and a table that grows, and goes on in each slice with
// the keys after those of the slice before. What differs: the library's pairs are two objects of 40
// bytes, those of the others two arrays of 16. With several threads the time is that of the lock,
// which is pthread's in all: those rows are shown.
#include <Poco/HashMap.h>
#include <Poco/Mutex.h>
#include <glib.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <random>
#include <unordered_map>
#include <vector>

#include "support/bench.h"
#include "types/ObjectID.h"
#include "types/ObjectIDMap.h"

namespace {

using Bytes = std::array<unsigned char, 16>;

constexpr std::size_t kEntries[] = {100, 3000, 300000};
constexpr std::size_t kManyEntries = 10000000;  // for a full run alone: takes seconds to fill

std::uint32_t firstWord(const Bytes& aBytes) {
    std::uint32_t lWord = 0;
    std::memcpy(&lWord, aBytes.data(), sizeof lWord);
    return lWord;
}

struct HashBytes {
    std::size_t operator()(const Bytes& aBytes) const { return firstWord(aBytes); }
};

class OsxMap {
public:
    using Key = ObjectID;
    static Key key(const Bytes& aBytes) {
        Key lKey;
        lKey.setData(aBytes.data(), static_cast<long>(aBytes.size()));
        return lKey;
    }
    void add(const Key& aKey, const Key& aValue) { mMap.add(aKey, aValue); }
    void remove(const Key& aKey) { mMap.unregisterObjectID(aKey); }
    void translate(Key& aKey) { mMap.translate(aKey); }

private:
    ObjectIDMap mMap;
};

class StandardMap {
public:
    using Key = Bytes;
    static Key key(const Bytes& aBytes) { return aBytes; }
    void add(const Key& aKey, const Key& aValue) {
        const std::lock_guard<std::mutex> lGuard(mMutex);
        mMap[aKey] = aValue;
    }
    void remove(const Key& aKey) {
        const std::lock_guard<std::mutex> lGuard(mMutex);
        mMap.erase(aKey);
    }
    void translate(Key& aKey) {
        const std::lock_guard<std::mutex> lGuard(mMutex);
        if (const auto lFound = mMap.find(aKey); lFound != mMap.end()) {
            aKey = lFound->second;
        }
    }

private:
    std::mutex mMutex;
    std::unordered_map<Key, Key, HashBytes> mMap;
};

class PocoMap {
public:
    using Key = Bytes;
    static Key key(const Bytes& aBytes) { return aBytes; }
    void add(const Key& aKey, const Key& aValue) {
        const Poco::FastMutex::ScopedLock lGuard(mMutex);
        mMap[aKey] = aValue;
    }
    void remove(const Key& aKey) {
        const Poco::FastMutex::ScopedLock lGuard(mMutex);
        mMap.erase(aKey);
    }
    void translate(Key& aKey) {
        const Poco::FastMutex::ScopedLock lGuard(mMutex);
        if (const auto lFound = mMap.find(aKey); lFound != mMap.end()) {
            aKey = lFound->second;
        }
    }

private:
    Poco::FastMutex mMutex;
    Poco::HashMap<Key, Key, HashBytes> mMap;
};

class GlibMap {
public:
    using Key = Bytes;
    GlibMap() : mMap(g_hash_table_new_full(hash, equal, g_free, g_free)) { g_mutex_init(&mMutex); }
    ~GlibMap() { g_hash_table_unref(mMap); }
    GlibMap(const GlibMap&) = delete;
    GlibMap& operator=(const GlibMap&) = delete;
    static Key key(const Bytes& aBytes) { return aBytes; }
    void add(const Key& aKey, const Key& aValue) {
        g_mutex_lock(&mMutex);
        g_hash_table_replace(mMap, copy(aKey), copy(aValue));
        g_mutex_unlock(&mMutex);
    }
    void remove(const Key& aKey) {
        g_mutex_lock(&mMutex);
        g_hash_table_remove(mMap, aKey.data());
        g_mutex_unlock(&mMutex);
    }
    void translate(Key& aKey) {
        g_mutex_lock(&mMutex);
        if (const void* const lFound = g_hash_table_lookup(mMap, aKey.data())) {
            std::memcpy(aKey.data(), lFound, aKey.size());
        }
        g_mutex_unlock(&mMutex);
    }

private:
    static void* copy(const Key& aKey) { return g_memdup2(aKey.data(), aKey.size()); }
    static guint hash(const void* aKey) { return firstWord(*static_cast<const Bytes*>(aKey)); }
    static gboolean equal(const void* aLeft, const void* aRight) {
        return std::memcmp(aLeft, aRight, sizeof(Bytes)) == 0;
    }

    GMutex mMutex{};
    GHashTable* mMap;
};

/// A full map with keys to look up, made once for all threads and repetitions.
template <class Map>
struct Filled {
    explicit Filled(std::size_t aEntries) {
        std::mt19937_64 lRandom(1);
        mKeys.reserve(aEntries);
        for (std::size_t lEntry = 0; lEntry < aEntries; ++lEntry) {
            mKeys.push_back(Map::key(randomBytes(lRandom)));
            mMap.add(mKeys.back(), mKeys.front());
        }
    }
    static Bytes randomBytes(std::mt19937_64& aRandom) {
        const std::array<std::uint64_t, 2> lWords{aRandom(), aRandom()};
        Bytes lBytes{};
        std::memcpy(lBytes.data(), lWords.data(), lBytes.size());
        return lBytes;
    }
    Map mMap;
    std::vector<typename Map::Key> mKeys;
    std::atomic<std::size_t> mNext{0};  ///< key that the next slice begins with
};

template <class Map>
Filled<Map>& filled(std::size_t aEntries) {
    static std::mutex lMutex;
    static std::unordered_map<std::size_t, std::unique_ptr<Filled<Map>>> lMaps;
    const std::lock_guard<std::mutex> lGuard(lMutex);
    auto& lMap = lMaps[aEntries];
    if (lMap == nullptr) {
        lMap = std::make_unique<Filled<Map>>(aEntries);
    }
    return *lMap;
}

template <class Map>
void translate(benchmark::State& aState, std::size_t aEntries) {
    auto& lFilled = filled<Map>(aEntries);
    std::size_t lNext = lFilled.mNext + static_cast<std::size_t>(aState.thread_index()) * 7919;
    for (auto lOnce : aState) {
        lNext = (lNext + 104729) % aEntries;
        auto lKey = lFilled.mKeys[lNext];
        lFilled.mMap.translate(lKey);
        benchmark::DoNotOptimize(lKey);
    }
    lFilled.mNext = lNext;
}

template <class Map>
void addAndRemove(benchmark::State& aState, std::size_t aEntries) {
    auto& lFilled = filled<Map>(aEntries);
    std::mt19937_64 lRandom(static_cast<std::uint64_t>(aState.thread_index()) + 2);
    const auto lKey = Map::key(Filled<Map>::randomBytes(lRandom));
    for (auto lOnce : aState) {
        lFilled.mMap.add(lKey, lKey);
        lFilled.mMap.remove(lKey);
    }
}

template <class Work>
void enterWork(const std::string& aWhat, const char* aRole, const char* aSubject, Work aWork) {
    bench::add(aWhat + ", 1 thread", aRole, aSubject, aWork);
    bench::add(aWhat + ", 4 threads", aRole, aSubject, aWork).byThreads(4);
}

template <class Map>
void enter(const char* aRole, const char* aSubject) {
    for (const std::size_t lEntries : kEntries) {
        const std::string lSize = ", " + std::to_string(lEntries) + " entries";
        enterWork("translate" + lSize, aRole, aSubject,
                  [=](benchmark::State& aState) { translate<Map>(aState, lEntries); });
        enterWork("add and remove" + lSize, aRole, aSubject,
                  [=](benchmark::State& aState) { addAndRemove<Map>(aState, lEntries); });
    }
    bench::add("translate, " + std::to_string(kManyEntries) + " entries, 1 thread", aRole, aSubject,
               [](benchmark::State& aState) { translate<Map>(aState, kManyEntries); });
}

}  // namespace

void bench::enterSubjects() {
    enter<OsxMap>(kOsx, "osx");
    enter<StandardMap>(kPeer, "unordered_map");
    enter<PocoMap>(kPeer, "POCO");
    enter<GlibMap>(kPeer, "GLib");
}
