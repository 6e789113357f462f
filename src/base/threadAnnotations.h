// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// What clang is told of locks, so that it can prove that what a lock guards is used with the lock
/// held (`-Wthread-safety`). Other compilers see nothing.
#ifndef OSX_BASE_THREADANNOTATIONS_H
#define OSX_BASE_THREADANNOTATIONS_H

#if defined(__clang__)
#define OSX_THREAD_ANNOTATION(aAttribute) __attribute__((aAttribute))
#else
#define OSX_THREAD_ANNOTATION(aAttribute)
#endif

/// @name On classes
/// @{
#define OSX_CAPABILITY(aKind) OSX_THREAD_ANNOTATION(capability(aKind))
#define OSX_SCOPED_CAPABILITY OSX_THREAD_ANNOTATION(scoped_lockable)
/// @}

/// @name On data
/// @{
/// To be read and written with this lock only.
#define OSX_GUARDED_BY(...) OSX_THREAD_ANNOTATION(guarded_by(__VA_ARGS__))
/// A pointer, to what is to be used with this lock only.
#define OSX_PT_GUARDED_BY(...) OSX_THREAD_ANNOTATION(pt_guarded_by(__VA_ARGS__))
/// @}

/// @name On functions
/// @{
/// The caller has the lock.
#define OSX_REQUIRES(...) OSX_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
/// The caller does not have it.
#define OSX_EXCLUDES(...) OSX_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define OSX_ACQUIRE(...) OSX_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define OSX_RELEASE(...) OSX_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define OSX_TRY_ACQUIRE(...) OSX_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define OSX_RETURN_CAPABILITY(aLock) OSX_THREAD_ANNOTATION(lock_returned(aLock))
/// Clang cannot follow what the function does with locks; a comment there says why.
#define OSX_NO_THREAD_SAFETY_ANALYSIS OSX_THREAD_ANNOTATION(no_thread_safety_analysis)
/// @}

#endif
