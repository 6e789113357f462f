// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// A table that translates identifiers.
#ifndef OSX_TYPES_OBJECTIDMAP_H
#define OSX_TYPES_OBJECTIDMAP_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

#include "ace/Hash_Map_Manager_T.h"
#include "ace/Malloc_Allocator.h"
#include "ace/Thread_Mutex.h"
#include "base/osxExport.h"
#include "base/threadAnnotations.h"
#include "types/ObjectID.h"

/// Pairs of a key identifier and the value identifier that it stands for.
///
/// Any number of threads may use one table at once: each call holds the table's own mutex while it
/// works on the table. No mutex is held while a line is written, so a log back end may use the same
/// table. A look-up takes as long among millions of pairs as among a few; now and then an addition
/// takes longer, because it makes room for twice as many. Memory for pairs that were removed is
/// kept for further ones until `clear`.
///
/// Nothing throws.
class OSX_EXPORT ObjectIDMap {
public:
    /// Makes an empty table of 2999 buckets. If there is no memory for it, ACE says
    /// "ACE_Hash_Map_Manager_Ex" at LM_ERROR and the table stays empty for ever.
    ObjectIDMap();
    /// Destroys all pairs. No other thread may use the table any more.
    virtual ~ObjectIDMap();
    ObjectIDMap(const ObjectIDMap&) = delete;
    ObjectIDMap& operator=(const ObjectIDMap&) = delete;

    /// Enters a pair, or gives the pair with that key another value. When memory for a new pair is
    /// short nothing is entered, and only `errno`, ENOMEM, tells.
    /// @param aKey the identifier to translate; an empty one is entered, but never looked up.
    /// @param aValue the identifier that it stands for.
    void add(const ObjectID& aKey, const ObjectID& aValue);

    /// Removes a pair.
    /// @param aKey the pair's key; if there is no such pair nothing happens, and `errno` is ENOENT.
    void unregisterObjectID(const ObjectID& aKey);

    /// Replaces an identifier by the one that it stands for.
    /// @param[in,out] aObjectID the key, then the value. An empty one stays empty, whatever the
    ///        table holds; one that is not in the table stays as it is, and a line at LM_ERROR says
    ///        so with the number of pairs.
    void translate(ObjectID& aObjectID) const;

    /// Removes all pairs and gives their memory back; the buckets stay allocated.
    void clear();

private:
    /// The identifier alone: an `ObjectID` also holds its text, which would double a pair's size.
    struct OSX_HIDDEN Words {
        Words() noexcept = default;
        explicit Words(const ObjectID& aObjectID) noexcept {
            std::memcpy(words, aObjectID.mWords, sizeof words);
        }
        void copyTo(ObjectID& aObjectID) const noexcept {
            std::memcpy(aObjectID.mWords, words, sizeof words);
            aObjectID.mTextStale = true;
        }
        bool areThoseOf(const ObjectID& aObjectID) const noexcept {
            return std::memcmp(words, aObjectID.mWords, sizeof words) == 0;
        }
        // ACE's map asks for it, although the library never lets it search.
        bool operator==(const Words& aOther) const noexcept {
            return std::memcmp(words, aOther.words, sizeof words) == 0;
        }
        std::uint32_t hash() const noexcept { return words[0]; }

        std::uint32_t words[4] = {0, 0, 0, 0};
    };
    using Map = ACE_Hash_Map_Manager_Ex<Words, Words, ACE_Hash<Words>, ACE_Equal_To<Words>,
                                        ACE_Thread_Mutex>;

    /// Memory for pairs, all of one size: pieces of pages that hold many. Guarded by the table's
    /// lock.
    class OSX_HIDDEN Pool : public ACE_New_Allocator {
    public:
        Pool() = default;
        Pool(const Pool&) = delete;
        Pool& operator=(const Pool&) = delete;
        ~Pool() override { releaseAll(); }

        /// @param aSize the same in all calls.
        void* malloc(std::size_t aSize) override;
        void free(void* aPiece) override;
        /// Gives all pages back, whether their pieces are free or not.
        void releaseAll() noexcept;

    private:
        /// Stands at the front of each page, and in each free piece.
        struct Link {
            Link* next;
        };
        void addToFree(void* aPiece) noexcept;
        void addPage(std::size_t aSize) noexcept;

        Link* mFree = nullptr;   ///< The free pieces of all pages.
        Link* mPages = nullptr;  ///< All pages; the list owns them.
    };

    class OSX_CAPABILITY("mutex") Table;  // locked by its own mutex, of ACE; see `Lock`
    /// ACE's map, which owns the pairs, and an index that finds them.
    ///
    /// ACE's buckets are not searched: they are as large as pairs, and their number is fixed. They
    /// are mere lists, in which pairs that share a place of the index stand side by side:
    ///
    ///     place 0 ----------+     +---------- place 2         place 1: null, no pair
    ///                       v     v
    ///     bucket <-> pair <-> pair <-> pair <-> bucket
    ///
    /// So a pair needs no link of the index's own: its followers in the list are of its place until
    /// one is not.
    class OSX_HIDDEN Table : public Map {
    public:
        using Map::Map;

        /// @return the pair of a key; null if there is none.
        ENTRY* find(const ObjectID& aKey) noexcept OSX_REQUIRES(this);
        /// Without memory `errno` is ENOMEM, of ACE.
        void addOrReplace(const ObjectID& aKey, const ObjectID& aValue) noexcept OSX_REQUIRES(this);
        /// @return whether there was such a pair.
        bool remove(const ObjectID& aKey) noexcept OSX_REQUIRES(this);
        void removeAll() noexcept OSX_REQUIRES(this);

    private:
        std::size_t places() const noexcept { return std::size_t(1) << (kHashBits - mShift); }
        ENTRY*& placeOf(const ENTRY& aEntry) noexcept { return placeOf(aEntry.ext_id_.hash()); }
        ENTRY*& placeOf(std::uint32_t aHash) noexcept;
        ENTRY* findBehind(const ENTRY& aFirst, const ObjectID& aKey) noexcept;
        ENTRY* nextOfPlace(const ENTRY& aEntry) noexcept;
        bool addNew(const ObjectID& aKey, const ObjectID& aValue) noexcept;
        void linkIn(ENTRY& aEntry, ENTRY& aBucket) noexcept;
        void grow() noexcept;
        void linkAllInAgain() noexcept;

        static constexpr unsigned int kHashBits = 32;
        static constexpr unsigned int kFewestBits = 1;
        ENTRY* mFewPlaces[1U << kFewestBits] = {};  ///< The index as long as no other got memory.
        std::unique_ptr<ENTRY*[]> mManyPlaces;      ///< The index from then on.
        ENTRY** mPlaces = mFewPlaces;  ///< The index: the first pair of each place, or null.
        unsigned int mShift = kHashBits - kFewestBits;  ///< Leaves the number of a key's place.
    };
    class Lock;

    Pool mPool;
    mutable Table mMap;
};

#endif
