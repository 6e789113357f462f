/// @file
/// A table that translates identifiers.
#ifndef OSX_TYPES_OBJECTIDMAP_H
#define OSX_TYPES_OBJECTIDMAP_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "ace/Hash_Map_Manager_T.h"
#include "ace/Malloc_Allocator.h"
#include "ace/Thread_Mutex.h"
#include "base/osxExport.h"
#include "types/ObjectID.h"

/// Pairs of a key identifier and the value identifier that it stands for.
///
/// Any number of threads may use one table at once: each call holds the table's own mutex for as
/// long as it works on the table, and no longer, so that it may be used from a log back end too.
/// A look-up takes as long among millions of pairs as among a few; now and then an addition takes
/// longer, as it makes room for twice as many. Memory for pairs that were removed is kept for
/// further ones until `clear`.
///
/// Nothing throws. When memory for the table itself was short, ACE says "ACE_Hash_Map_Manager_Ex"
/// at LM_ERROR and the table stays empty.
class OSX_EXPORT ObjectIDMap {
public:
    /// An empty table of 2999 buckets.
    ObjectIDMap();
    /// Destroys all pairs. No other thread may use the table any more.
    virtual ~ObjectIDMap();
    ObjectIDMap(const ObjectIDMap&) = delete;
    ObjectIDMap& operator=(const ObjectIDMap&) = delete;

    /// Enters a pair; one with the same key is replaced. When memory is short nothing is entered,
    /// and only `errno`, ENOMEM, tells.
    void add(const ObjectID& aKey, const ObjectID& aValue);

    /// Removes the pair of a key. Without one nothing happens, and `errno` is ENOENT.
    void unregisterObjectID(const ObjectID& aKey);

    /// Replaces an identifier by the one that it stands for.
    /// @param[in,out] aObjectID the key, then the value. An empty one stays empty, whatever the
    ///        table holds; one that is not in the table stays as it is, and a line at LM_ERROR says
    ///        so with the number of pairs.
    void translate(ObjectID& aObjectID) const;

    /// Removes all pairs and gives their memory back; the buckets stay allocated.
    void clear();

private:
    /// What a pair holds of an identifier: not what its text takes, which is more than half of it.
    struct OSX_HIDDEN Words {
        Words() noexcept = default;
        explicit Words(const ObjectID& aObjectID) noexcept {
            std::memcpy(words, aObjectID.mWords, sizeof words);
        }
        void copyTo(ObjectID& aObjectID) const noexcept {
            std::memcpy(aObjectID.mWords, words, sizeof words);
            aObjectID.mTextStale = true;
        }
        bool areOf(const ObjectID& aObjectID) const noexcept {
            return std::memcmp(words, aObjectID.mWords, sizeof words) == 0;
        }
        // For ACE, which does not search, however.
        bool operator==(const Words& aOther) const noexcept {
            return std::memcmp(words, aOther.words, sizeof words) == 0;
        }
        std::uint32_t hash() const noexcept { return words[0]; }

        std::uint32_t words[4] = {0, 0, 0, 0};
    };
    using Map = ACE_Hash_Map_Manager_Ex<Words, Words, ACE_Hash<Words>, ACE_Equal_To<Words>,
                                        ACE_Thread_Mutex>;
    /// Memory for pairs, many at a time.
    class OSX_HIDDEN Pool : public ACE_New_Allocator {
    public:
        Pool() = default;
        Pool(const Pool&) = delete;
        Pool& operator=(const Pool&) = delete;
        ~Pool() override { releaseAll(); }

        /// @param aSize the same in all calls.
        void* malloc(std::size_t aSize) override;
        void free(void* aPiece) override;
        void releaseAll() noexcept;

    private:
        struct Link {
            Link* next;
        };
        void link(void* aPiece) noexcept;
        void addPage(std::size_t aSize) noexcept;

        Link* mFree = nullptr;
        Link* mPages = nullptr;
    };

    /// ACE's map, which owns the pairs, with an index of its own. To be used under the lock.
    ///
    /// ACE's buckets are as large as pairs, and their number is fixed. So they are not searched,
    /// but are mere lists; pairs that share a place of the index stand side by side in one of them.
    class OSX_HIDDEN Table : public Map {
    public:
        using Map::Map;
        Table(const Table&) = delete;
        Table& operator=(const Table&) = delete;
        ~Table();

        ENTRY* find(const ObjectID& aKey) noexcept;
        void enter(const ObjectID& aKey, const ObjectID& aValue) noexcept;
        void remove(const ObjectID& aKey) noexcept;
        void removeAll() noexcept;

    private:
        std::size_t places() const noexcept { return std::size_t(1) << (kHashBits - mShift); }
        ENTRY*& placeOf(const ENTRY& aEntry) noexcept { return placeOf(aEntry.ext_id_.hash()); }
        ENTRY*& placeOf(std::uint32_t aHash) noexcept;
        ENTRY* findBehind(const ENTRY& aFirst, const ObjectID& aKey) noexcept;
        ENTRY* nextOf(const ENTRY& aEntry) noexcept;
        bool bind(const ObjectID& aKey, const ObjectID& aValue) noexcept;
        void insert(ENTRY& aEntry, ENTRY& aBucket) noexcept;
        void grow() noexcept;
        void insertAllAgain() noexcept;
        void releasePlaces() noexcept;

        static constexpr unsigned int kHashBits = 32;
        static constexpr unsigned int kFewestBits = 1;
        ENTRY* mFewPlaces[1U << kFewestBits] = {};      // as long as there is no memory for more
        ENTRY** mPlaces = mFewPlaces;                   // the first pair of each, or null
        unsigned int mShift = kHashBits - kFewestBits;  // leaves the number of a key's place
    };

    Pool mPool;
    mutable Table mMap;
};

#endif
