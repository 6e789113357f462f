// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// What the channels share with the descriptor table.
#ifndef OSX_COMMIF_CHANNELS_H
#define OSX_COMMIF_CHANNELS_H

#include <cstdint>

#include "base/moduleNames.h"
#include "commif/commif.h"

namespace osx {

/// Performs a call on the entry of a descriptor, whether that is taken or not.
/// @return the call's status; `COMMIF_ERR_BAD_DESCRIPTOR` for a number outside the table.
template <class Call>
int withEntry(int aDesc, Call aCall) {
    return static_cast<unsigned int>(aDesc) < static_cast<unsigned int>(COMMIF_MAX_DESC)
               ? aCall(commIfDesc[aDesc])
               : COMMIF_ERR_BAD_DESCRIPTOR;
}

/// The same for an open, which also needs its parameters.
/// @return `COMMIF_ERR_BAD_ARGUMENT` if these are missing.
template <class Parameters, class Call>
int withEntry(int aDesc, const Parameters* aParams, Call aCall) {
    return withEntry(aDesc, [&](commIfDesc_t& aEntry) {
        return aParams == nullptr ? COMMIF_ERR_BAD_ARGUMENT : aCall(aEntry, *aParams);
    });
}

/// Stores a count, or the -1 of a failed call, where the caller wants it.
template <class Count>
void storeCount(unsigned long* aRetCount, Count aCount) noexcept {
    if (aRetCount != nullptr) {
        *aRetCount = static_cast<unsigned long>(aCount);
    }
}

/// @name Read time-out
/// One thread may replace it, by an ioctl, while another is about to read. The word is a plain one
/// in the interface's table, so it is only touched atomically here.
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
/// `commIfClose` frees a descriptor before it closes the channel, and then another thread may take
/// the descriptor at once. So closing first takes the object out of the entry, which then holds
/// none, and then ends the object without looking at the entry again.
/// @{
void* takeSerialObject(commIfDesc_t& aEntry) noexcept;
int closeSerialObject(int aDesc, void* aObject) noexcept;

void* takeFileObject(commIfDesc_t& aEntry) noexcept;
int closeFileObject(int aDesc, void* aObject) noexcept;

void* takeMsgObject(commIfDesc_t& aEntry) noexcept;
int closeMsgObject(int aDesc, void* aObject) noexcept;

/// Null for a channel of an unknown kind.
void* takeNetObject(commIfDesc_t& aEntry) noexcept;
int closeNetObject(int aDesc, void* aObject) noexcept;

void* takeVgaObject(commIfDesc_t& aEntry) noexcept;
int closeVgaObject(int aDesc, void* aObject) noexcept;

/// Both steps, for a channel's own close function.
template <class TakeObject, class CloseObject>
int closeChannel(int aDesc, TakeObject aTakeObject, CloseObject aCloseObject) {
    return withEntry(
        aDesc, [&](commIfDesc_t& aEntry) { return aCloseObject(aDesc, aTakeObject(aEntry)); });
}
/// @}

}  // namespace osx

#endif
