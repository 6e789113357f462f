/// @file
/// A table that translates identifiers.
#ifndef OSX_TYPES_OBJECTIDMAP_H
#define OSX_TYPES_OBJECTIDMAP_H

#include "ace/Hash_Map_Manager_T.h"
#include "ace/Thread_Mutex.h"
#include "base/osxExport.h"
#include "types/ObjectID.h"

/// Pairs of a key identifier and the value identifier that it stands for.
///
/// Any number of threads may use one table at once: each call holds the table's own mutex for as
/// long as it works on the table, and no longer, so that it may be used from a log back end too.
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

    /// Removes all pairs; the buckets stay allocated.
    void clear();

private:
    using Map = ACE_Hash_Map_Manager_Ex<ObjectID, ObjectID, ACE_Hash<ObjectID>,
                                        ACE_Equal_To<ObjectID>, ACE_Thread_Mutex>;
    /// ACE's map with its unlocked look-up within reach.
    struct Table : Map {
        using Map::find_i;
        using Map::Map;
    };

    bool find(ObjectID& aObjectID, std::size_t& aCount) const;

    mutable Table mMap;
};

#endif
