// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// The version of the library that a program is compiled against, for the preprocessor. The running
/// library's is told by `getInfo`.
///
///     #if OSX_VERSION >= 10100  // 1.1.0 or later
///
/// The build takes the version from here, so it stands nowhere else.
#ifndef OSX_OSX_VERSION_H
#define OSX_OSX_VERSION_H

/// Raised by what breaks programs, compiled or in source.
#define OSX_VERSION_MAJOR 1
/// Raised by what is added.
#define OSX_VERSION_MINOR 1
/// Raised by what is repaired.
#define OSX_VERSION_PATCH 0

/// One number to compare: 10203 is version 1.2.3.
#define OSX_VERSION (OSX_VERSION_MAJOR * 10000 + OSX_VERSION_MINOR * 100 + OSX_VERSION_PATCH)

/// @cond
#define OSX_VERSION_JOIN(aMajor, aMinor, aPatch) #aMajor "." #aMinor "." #aPatch
#define OSX_VERSION_TEXT_OF(aMajor, aMinor, aPatch) OSX_VERSION_JOIN(aMajor, aMinor, aPatch)
/// @endcond

/// The same as a text, `"1.2.3"`.
#define OSX_VERSION_TEXT \
    OSX_VERSION_TEXT_OF(OSX_VERSION_MAJOR, OSX_VERSION_MINOR, OSX_VERSION_PATCH)

#endif
