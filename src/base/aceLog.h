// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// What ACE's logging keeps and does not show. Internal.
#ifndef OSX_BASE_ACELOG_H
#define OSX_BASE_ACELOG_H

#include <cstddef>

#include "ace/Log_Msg.h"

namespace osx {

/// The flags of ACE's logging. ACE changes them under its log lock, which another thread may hold
/// for ever, if its output is stalled.
u_long& logFlags();

/// @param aLog null on a thread for whose log there is no memory: such a log would begin with ACE's
///        mask for new ones.
/// @return whether lines of a priority are written, by the masks of the process and the thread.
bool isEnabled(ACE_Log_Msg* aLog, ACE_Log_Priority aPriority);

/// Where a text is put, with its end.
struct TextRoom {
    char* begin;
    std::size_t size;

    void skip(std::size_t aLength) noexcept {
        begin += aLength;
        size -= aLength;
    }
};

/// Where the next line of a thread is put together, which is what `msg` shows of its log. That is
/// behind another line if that one calls a function for its text ("%r").
/// @return null if there was no memory for it.
TextRoom roomForLine(const ACE_Log_Msg& aLog);

/// What stands before each line of a thread.
enum class Timestamp { kNone, kTime, kDateAndTime };
Timestamp timestampOf(const ACE_Log_Msg& aLog);

}  // namespace osx

#endif
