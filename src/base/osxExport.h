// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// What the shared library shows to its users: everything else is hidden.
#ifndef OSX_BASE_OSXEXPORT_H
#define OSX_BASE_OSXEXPORT_H

/// Marks a function, object or class as part of the library's interface.
#define OSX_EXPORT __attribute__((visibility("default")))

/// Marks a part of an exported class that only the library itself calls.
#define OSX_HIDDEN __attribute__((visibility("hidden")))

#endif
