// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// What all benchmarks share: how a subject is entered in a row, and how rows are measured.
///
/// A row is one piece of work; its subjects (the library, the floor, the peers) each do that work,
/// in slices of a millisecond or so that take turns, so that a disturbance of the machine hits all
/// of them. What is compared is processor time, which a busy machine disturbs little: that of
/// the measuring thread, or of the whole process where its threads do the work together.
#ifndef OSX_BENCHMARKS_SUPPORT_BENCH_H
#define OSX_BENCHMARKS_SUPPORT_BENCH_H

#include <benchmark/benchmark.h>

#include <functional>
#include <string>

namespace bench {

constexpr char kOsx[] = "osx";
constexpr char kFloor[] = "floor";
constexpr char kPeer[] = "peer";
/// Shown, but not held against the library, because it does less.
constexpr char kOther[] = "other";

using Work = std::function<void(benchmark::State&)>;

/// Somebody who does the work of a row. Unless told otherwise it does so on one thread, which stays
/// on one processor.
struct Subject {
    std::string row;
    std::string role;
    std::string name;
    Work work;
    int threads = 1;
    bool isAlone = true;
    bool measuresProcess = false;
    bool measuresItself = false;
    benchmark::IterationCount iterations = 0;  ///< of a slice; 0: as many as fill it

    /// Has several threads do the work at the same time, long enough to meet each other; what is
    /// shown is the processor time of all of them for each operation.
    Subject& byThreads(int aThreads);
    /// Other threads work beside the measuring one, and are not measured.
    Subject& besideOthers();
    /// Has the work start threads of its own, the processor time of which counts.
    Subject& withItsThreads();
    /// Has the work say what an iteration took.
    Subject& measuringItself();
    Subject& slicesOf(int aIterations);
};

/// Enters a subject in a row.
/// @param aRole `kOsx`, `kFloor`, `kPeer` or `kOther`.
/// @param aName the subject's name in the table.
/// @return the subject, until the next one is entered.
Subject& add(const std::string& aRow, const char* aRole, const std::string& aName, Work aWork);

/// Says that one iteration holds several operations; what is shown is the time of one.
inline void operationsPerIteration(benchmark::State& aState, double aNumber) {
    aState.counters["operations"] = benchmark::Counter(aNumber, benchmark::Counter::kAvgThreads);
}

/// Each program enters its subjects here.
void enterSubjects();

}  // namespace bench

#endif
