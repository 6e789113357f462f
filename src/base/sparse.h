// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Where large tables stand. Internal.
#ifndef OSX_BASE_SPARSE_H
#define OSX_BASE_SPARSE_H

/// Marks a table of several pages of which most programs write few or none. The linker sets it
/// behind all small variables. These are then on pages of their own, of which a program writes as
/// few as possible. The table has to be all zero at first, and is initialised by no code.
#define OSX_SPARSE [[gnu::section(".bss.sparse")]]

#endif
