/// @file
/// What the channels share with the descriptor table.
#ifndef OSX_COMMIF_CHANNELS_H
#define OSX_COMMIF_CHANNELS_H

#include <cstdint>

#include "base/moduleNames.h"
#include "commif/commif.h"

namespace osx {

/// @return the entry of a descriptor, whether taken or not; null for a number outside the table.
inline commIfDesc_t* descriptorEntry(int aDesc) noexcept {
    return static_cast<unsigned int>(aDesc) < static_cast<unsigned int>(COMMIF_MAX_DESC)
               ? &commIfDesc[aDesc]
               : nullptr;
}

/// Stores a count, or the -1 of a failed call, where the caller wants it.
template <class Count>
void storeCount(unsigned long* aRetCount, Count aCount) noexcept {
    if (aRetCount != nullptr) {
        *aRetCount = static_cast<unsigned long>(aCount);
    }
}

/// @name Read time-out
/// One thread may replace it while another is about to read.
/// @{
inline unsigned int loadReadTimeout(const unsigned int& aReadTimeout) noexcept {
    return __atomic_load_n(&aReadTimeout, __ATOMIC_RELAXED);
}

/// @param aData the pointer's low 32 bits are the number.
inline void storeReadTimeout(unsigned int& aReadTimeout, const void* aData) noexcept {
    const auto lNumber = static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(aData));
    __atomic_store_n(&aReadTimeout, lNumber, __ATOMIC_RELAXED);
}
/// @}

/// @name Closing in two steps
/// A descriptor is free before its channel is closed, and another thread may take it at once. So
/// closing first takes the object out of the entry, which then holds none, and then ends it without
/// looking at the entry again. A channel's close function is the two steps in a row.
/// @{
void* takeSerialObject(commIfDesc_t& aEntry) noexcept;
int closeSerialObject(int aDesc, void* aObject) noexcept;

void* takeFileObject(commIfDesc_t& aEntry) noexcept;
int closeFileObject(int aDesc, void* aObject) noexcept;

void* takeMsgObject(commIfDesc_t& aEntry) noexcept;
int closeMsgObject(int aDesc, void* aObject) noexcept;

/// Null for a channel of a kind that there is not.
void* takeNetObject(commIfDesc_t& aEntry) noexcept;
int closeNetObject(int aDesc, void* aObject) noexcept;

void* takeVgaObject(commIfDesc_t& aEntry) noexcept;
int closeVgaObject(int aDesc, void* aObject) noexcept;
/// @}

}  // namespace osx

#endif
