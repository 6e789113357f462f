#include "types/ObjectIDMap.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <new>

#include "ace/OS_Errno.h"
#include "base/allocate.h"
#include "base/diagnosticLine.h"

namespace {

constexpr char kModule[] = "ObjectIDMap.cpp";
constexpr std::size_t kBuckets = 2999;
constexpr std::size_t kPairsOfAPage = 63;
constexpr unsigned int kUsualBits = 12;  // of a place's number, in an index that was allocated

/// Holds the table's mutex. The way through ACE to the same calls took a third of a look-up.
class Lock {
public:
    explicit Lock(ACE_Thread_Mutex& aMutex) noexcept
        : mMutex(aMutex.lock()), mIsHeld(pthread_mutex_lock(&mMutex) == 0) {}
    ~Lock() {
        if (mIsHeld) {
            pthread_mutex_unlock(&mMutex);
        }
    }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;
    bool isHeld() const noexcept { return mIsHeld; }

private:
    ACE_thread_mutex_t& mMutex;
    const bool mIsHeld;
};

/// Apart, lest a look-up that succeeds keep registers for it.
[[gnu::noinline, gnu::cold]] void reportUnknown(const ObjectID& aObjectID, std::size_t aCount) {
    osx::DiagnosticLine(kModule).failure(LM_ERROR,
                                         "ObjectIDMap::translate: failed, aObjectID[%s] size[%d]\n",
                                         aObjectID.toString().c_str(), aCount);
}

}  // namespace

// The memory of the pairs.

void* ObjectIDMap::Pool::malloc(std::size_t aSize) {
    if (mFree == nullptr) {
        addPage(aSize);
    }
    Link* const lPiece = mFree;
    if (lPiece != nullptr) {
        mFree = lPiece->next;
    }
    return lPiece;
}

void ObjectIDMap::Pool::free(void* aPiece) {
    link(aPiece);
}

void ObjectIDMap::Pool::link(void* aPiece) noexcept {
    mFree = new (aPiece) Link{mFree};
}

void ObjectIDMap::Pool::addPage(std::size_t aSize) noexcept {
    char* const lPage = osx::allocateBytes((kPairsOfAPage + 1) * aSize).release();
    if (lPage == nullptr) {
        return;
    }
    mPages = new (lPage) Link{mPages};
    for (std::size_t lPiece = kPairsOfAPage; lPiece > 0; --lPiece) {
        link(lPage + lPiece * aSize);
    }
}

void ObjectIDMap::Pool::releaseAll() noexcept {
    while (mPages != nullptr) {
        char* const lPage = reinterpret_cast<char*>(mPages);
        mPages = mPages->next;
        delete[] lPage;
    }
    mFree = nullptr;
}

// The table.

ObjectIDMap::Table::~Table() {
    releasePlaces();
}

/// Identifiers that were generated one after the other differ by multiples of few numbers; the
/// factor, the golden ratio's, spreads those well.
inline ObjectIDMap::Map::ENTRY*& ObjectIDMap::Table::placeOf(std::uint32_t aHash) noexcept {
    constexpr std::uint32_t kSpread = 0x9E3779B9;
    return mPlaces[aHash * kSpread >> mShift];
}

/// @return the next pair of the same place; null after the last.
ObjectIDMap::Map::ENTRY* ObjectIDMap::Table::nextOf(const ENTRY& aEntry) noexcept {
    ENTRY* const lNext = aEntry.next_;
    const bool lIsPair = lNext < table() || lNext >= table() + total_size();
    return lIsPair && &placeOf(*lNext) == &placeOf(aEntry) ? lNext : nullptr;
}

/// Most pairs are the first of their place.
inline ObjectIDMap::Map::ENTRY* ObjectIDMap::Table::find(const ObjectID& aKey) noexcept {
    ENTRY* const lFirst = placeOf(aKey.hash());
    return lFirst == nullptr || lFirst->ext_id_.areOf(aKey) ? lFirst : findBehind(*lFirst, aKey);
}

ObjectIDMap::Map::ENTRY* ObjectIDMap::Table::findBehind(const ENTRY& aFirst,
                                                        const ObjectID& aKey) noexcept {
    ENTRY* lEntry = nextOf(aFirst);
    while (lEntry != nullptr && !lEntry->ext_id_.areOf(aKey)) {
        lEntry = nextOf(*lEntry);
    }
    return lEntry;
}

void ObjectIDMap::Table::enter(const ObjectID& aKey, const ObjectID& aValue) noexcept {
    if (ENTRY* const lEntry = find(aKey)) {
        lEntry->int_id_ = Words(aValue);
    } else if (bind(aKey, aValue) && current_size() > places()) {
        grow();
    }
}

/// ACE would search its bucket for the key: it gets the bucket empty.
bool ObjectIDMap::Table::bind(const ObjectID& aKey, const ObjectID& aValue) noexcept {
    if (total_size() == 0) {  // ACE enters a pair even into a table without buckets.
        return false;
    }
    ENTRY& lBucket = table()[aKey.hash() % total_size()];
    ENTRY* const lFirst = lBucket.next_;
    ENTRY* const lLast = lBucket.prev_;
    lBucket.next_ = lBucket.prev_ = &lBucket;
    ENTRY* lEntry = nullptr;
    const bool lIsBound = bind_i(Words(aKey), Words(aValue), lEntry) == 0;
    lBucket.next_ = lFirst;
    lBucket.prev_ = lLast;
    if (lIsBound) {
        insert(*lEntry, lBucket);
    }
    return lIsBound;
}

/// Puts a pair behind the first one of its place; into the bucket if there is none.
void ObjectIDMap::Table::insert(ENTRY& aEntry, ENTRY& aBucket) noexcept {
    ENTRY*& lFirst = placeOf(aEntry);
    ENTRY& lBefore = lFirst == nullptr ? aBucket : *lFirst;
    aEntry.next_ = lBefore.next_;
    aEntry.prev_ = &lBefore;
    aEntry.next_->prev_ = &aEntry;
    lBefore.next_ = &aEntry;
    if (lFirst == nullptr) {
        lFirst = &aEntry;
    }
}

void ObjectIDMap::Table::remove(const ObjectID& aKey) noexcept {
    ENTRY* const lEntry = find(aKey);
    if (lEntry == nullptr) {
        errno = ENOENT;
        return;
    }
    ENTRY*& lFirst = placeOf(aKey.hash());
    if (lFirst == lEntry) {
        lFirst = nextOf(*lEntry);
    }
    unbind_i(lEntry);
}

void ObjectIDMap::Table::removeAll() noexcept {
    unbind_all_i();
    std::fill_n(mPlaces, places(), nullptr);
}

/// Without memory for more places the pairs share those that there are.
void ObjectIDMap::Table::grow() noexcept {
    const ACE_Errno_Guard lKept(errno);  // the pair that is to be added is in
    const unsigned int lBits = std::max(kUsualBits, kHashBits - mShift + 1);
    ENTRY** const lPlaces = new (std::nothrow) ENTRY*[std::size_t(1) << lBits]();
    if (lPlaces != nullptr) {
        releasePlaces();
        mPlaces = lPlaces;
        mShift = kHashBits - lBits;
        insertAllAgain();
    }
}

void ObjectIDMap::Table::insertAllAgain() noexcept {
    for (ENTRY* lBucket = table(); lBucket != table() + total_size(); ++lBucket) {
        ENTRY* lEntry = lBucket->next_;
        lBucket->next_ = lBucket->prev_ = lBucket;
        while (lEntry != lBucket) {
            ENTRY& lMoved = *lEntry;
            lEntry = lEntry->next_;
            insert(lMoved, *lBucket);
        }
    }
}

void ObjectIDMap::Table::releasePlaces() noexcept {
    if (mPlaces != mFewPlaces) {
        delete[] mPlaces;
    }
}

// The map.

ObjectIDMap::ObjectIDMap() : mMap(kBuckets, nullptr, &mPool) {}

ObjectIDMap::~ObjectIDMap() {
    mMap.close();
}

void ObjectIDMap::add(const ObjectID& aKey, const ObjectID& aValue) {
    const Lock lLock(mMap.mutex());
    if (lLock.isHeld()) {
        mMap.enter(aKey, aValue);
    }
}

void ObjectIDMap::unregisterObjectID(const ObjectID& aKey) {
    const Lock lLock(mMap.mutex());
    if (lLock.isHeld()) {
        mMap.remove(aKey);
    }
}

void ObjectIDMap::translate(ObjectID& aObjectID) const {
    if (aObjectID.isEmpty()) {
        return;
    }
    std::size_t lCount = 0;
    {
        const Lock lLock(mMap.mutex());
        if (const Map::ENTRY* const lEntry = lLock.isHeld() ? mMap.find(aObjectID) : nullptr) {
            lEntry->int_id_.copyTo(aObjectID);
            return;
        }
        lCount = mMap.current_size();
    }
    // A log back end may come back to this table, so its lock is free again.
    reportUnknown(aObjectID, lCount);
}

void ObjectIDMap::clear() {
    const Lock lLock(mMap.mutex());
    if (lLock.isHeld()) {
        mMap.removeAll();
        mPool.releaseAll();
    }
}
