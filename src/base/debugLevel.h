// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The process-wide debug level, which decides what trace lines the library writes.
///
/// A failure line is written whatever the level. A trace line of level N, from 1 to 9, is written
/// only while the debug level is at least N and ACE's own debug switch, `ACE::debug()`, is on.
///
/// Any thread may call, at any time. Other threads see a new level soon, without a lock.
#ifndef OSX_BASE_DEBUGLEVEL_H
#define OSX_BASE_DEBUGLEVEL_H

#include <atomic>

#include "base/osxExport.h"

namespace osx {
/// Internal: stands here so that a line that is switched off costs no call.
extern OSX_EXPORT std::atomic<unsigned int> gLogLevel;
}  // namespace osx

/// @defgroup debug_level Debug level
/// @{

/// Sets the debug level.
/// @param aLevel 0 for no trace lines, 9 (or anything above) for all of them.
OSX_EXPORT void setLogLevel(unsigned int aLevel) noexcept;

/// Tells the debug level.
/// @return the level; 0 until `setLogLevel` is called.
OSX_EXPORT inline unsigned int getLogLevel() noexcept {
    return osx::gLogLevel.load(std::memory_order_relaxed);
}
/// @}

#endif
