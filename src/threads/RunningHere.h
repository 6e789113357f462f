/// @file
/// Whose routine a thread runs. Internal.
#ifndef OSX_THREADS_RUNNINGHERE_H
#define OSX_THREADS_RUNNINGHERE_H

namespace osx {

/// Notes, for as long as it lives, that the calling thread runs the routine of an object, which so
/// knows a caller that would wait for itself. Not by the thread id: the system gives the id of a
/// joined thread to a new one. A routine may run another one within it.
class RunningHere {
public:
    explicit RunningHere(const void* aObject);
    ~RunningHere();
    RunningHere(const RunningHere&) = delete;
    RunningHere& operator=(const RunningHere&) = delete;

    /// @return whether the calling thread is in the routine of that object.
    static bool isCaller(const void* aObject);

private:
    const void* mObject;
    const RunningHere* mOuter;
};

}  // namespace osx

#endif
