/// @file
/// What all benchmarks share: how a subject is entered in a row.
///
/// A row is one piece of work; its subjects (the library, the floor, the peers) each do that work.
/// The command at the top of the tree runs the subjects of a row in turns, takes medians, and
/// compares them. What is compared is processor time, which a busy machine disturbs little: that of
/// the measuring thread, or of the whole process where a row asks for it by
/// `MeasureProcessCPUTime()` because its threads do the work together.
#ifndef OSX_BENCHMARKS_SUPPORT_BENCH_H
#define OSX_BENCHMARKS_SUPPORT_BENCH_H

#include <benchmark/benchmark.h>

#include <string>
#include <utility>

namespace bench {

constexpr char kOsx[] = "osx";
constexpr char kFloor[] = "floor";
constexpr char kPeer[] = "peer";
/// Shown, but not held against the library, because it does less.
constexpr char kOther[] = "other";

/// Enters a subject in a row.
/// @param aRole `kOsx`, `kFloor`, `kPeer` or `kOther`.
/// @param aSubject the subject's name in the table.
template <class Function>
benchmark::internal::Benchmark* add(const std::string& aRow, const char* aRole,
                                    const std::string& aSubject, Function&& aFunction) {
    const std::string lName = aRow + "|" + aRole + "|" + aSubject;
    return benchmark::RegisterBenchmark(lName.c_str(), std::forward<Function>(aFunction));
}

/// Has several threads do the work at the same time, long enough to meet each other; what is shown
/// is the processor time of all of them for each operation.
inline void byThreads(benchmark::internal::Benchmark* aBenchmark, int aThreads) {
    constexpr double kSeconds = 0.01;
    aBenchmark->Threads(aThreads)->MinTime(kSeconds)->UseRealTime();
}

/// Says that one iteration holds several operations; what is shown is the time of one.
inline void operationsPerIteration(benchmark::State& aState, double aNumber) {
    aState.counters["operations"] = benchmark::Counter(aNumber, benchmark::Counter::kAvgThreads);
}

/// Each program enters its subjects here.
void enterSubjects();

}  // namespace bench

#endif
