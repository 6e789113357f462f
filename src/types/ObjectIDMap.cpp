#include "types/ObjectIDMap.h"

#include "ace/Guard_T.h"
#include "base/diagnosticLine.h"

namespace {

constexpr char kModule[] = "ObjectIDMap.cpp";
constexpr std::size_t kBuckets = 2999;

}  // namespace

ObjectIDMap::ObjectIDMap() : mMap(kBuckets) {}

ObjectIDMap::~ObjectIDMap() {
    mMap.close();
}

void ObjectIDMap::add(const ObjectID& aKey, const ObjectID& aValue) {
    // ACE enters a pair even into a table without buckets.
    if (mMap.total_size() > 0) {
        mMap.rebind(aKey, aValue);
    }
}

void ObjectIDMap::unregisterObjectID(const ObjectID& aKey) {
    mMap.unbind(aKey);
}

void ObjectIDMap::translate(ObjectID& aObjectID) const {
    std::size_t lCount = 0;
    if (aObjectID.isEmpty() || find(aObjectID, lCount)) {
        return;
    }
    // A log back end may come back to this table, so its lock is free again.
    osx::DiagnosticLine(kModule).failure(LM_ERROR,
                                         "ObjectIDMap::translate: failed, aObjectID[%s] size[%d]\n",
                                         aObjectID.toString().c_str(), lCount);
}

void ObjectIDMap::clear() {
    mMap.unbind_all();
}

bool ObjectIDMap::find(ObjectID& aObjectID, std::size_t& aCount) const {
    const ACE_Guard<ACE_Thread_Mutex> lGuard(mMap.mutex());
    aCount = mMap.current_size();
    Map::ENTRY* lEntry = nullptr;
    if (!lGuard.locked() || mMap.find_i(aObjectID, lEntry) != 0) {
        return false;
    }
    aObjectID = lEntry->item();
    return true;
}
