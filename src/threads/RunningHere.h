// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Recognising a caller that would wait for itself. Internal.
#ifndef OSX_THREADS_RUNNINGHERE_H
#define OSX_THREADS_RUNNINGHERE_H

namespace osx {

/// Notes, for as long as it lives, that the calling thread runs the routine of an object. The
/// object so recognises its own thread when that asks to wait for it. The thread's id would not do:
/// the system gives the id of a joined thread to a new one.
///
/// A routine may run another object's within it, so the notes of a thread are a list, on its stack.
class RunningHere {
public:
    explicit RunningHere(const void* aObject);
    ~RunningHere();
    RunningHere(const RunningHere&) = delete;
    RunningHere& operator=(const RunningHere&) = delete;

    /// @return whether the calling thread is in the routine of that object.
    static bool isCaller(const void* aObject);

private:
    const void* mObject;        ///< Whose routine it is; only compared.
    const RunningHere* mOuter;  ///< The note of the routine that called this one; null if none did.
};

}  // namespace osx

#endif
