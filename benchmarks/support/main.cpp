// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Runs the subjects of each row in turns, slice by slice.
//
// Usage: PROGRAM SLICES MILLISECONDS [ROWS]
// Takes so many slices of each subject; when its share of the row has used the milliseconds, no
// more than the fewest that tell anything. ROWS is a regular expression of the rows to measure.
// Prints an object of JSON a line: row, role, subject, and its slices with the time of an operation
// in ns.
#include <alloca.h>
#include <malloc.h>
#include <sched.h>
#include <time.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <regex>
#include <utility>
#include <vector>

#include "support/bench.h"

namespace {

using bench::Subject;

constexpr double kSlice = 0.001;
constexpr double kSliceOfThreads = 0.01;
constexpr int kFewestSlices = 5;

/// What one run of a subject found.
class Slice : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context&) override { return true; }
    void ReportRuns(const std::vector<Run>& aRuns) override { mRun = aRuns.front(); }

    /// @return the processor time, as that of the clock tells who else was at work.
    double seconds() const { return mRun.cpu_accumulated_time; }
    bool isDone() const { return mRun.real_accumulated_time > 0; }

    void print(const Subject& aSubject) const {
        const double lOperations = static_cast<double>(mRun.iterations) * counter("operations", 1);
        const double lReal = mRun.real_accumulated_time * 1e9 / lOperations;
        const double lProcessor = mRun.cpu_accumulated_time * 1e9 / lOperations;
        const double lTime = aSubject.measuresItself ? lReal : lProcessor;
        std::printf("{\"value\": %.9g", counter("median", lTime));
        if (aSubject.measuresProcess || aSubject.threads > 1) {
            std::printf(", \"elapsed\": %.9g", lReal);
        }
        for (const char* const lName : {"allocations", "p99"}) {
            if (mRun.counters.count(lName) != 0) {
                std::printf(", \"%s\": %.9g", lName, counter(lName, 0));
            }
        }
        std::printf("}");
    }

private:
    double counter(const char* aName, double aDefault) const {
        const auto lFound = mRun.counters.find(aName);
        return lFound == mRun.counters.end() ? aDefault : static_cast<double>(lFound->second);
    }

    Run mRun;
};

std::vector<Subject>& subjects() {
    static std::vector<Subject> lSubjects;
    return lSubjects;
}

/// Runs the work elsewhere on the stack and on the heap than the time before: some places collide
/// in the processor, so that a process that met one for good would differ from the next.
void runMoved(const Subject& aSubject, benchmark::State& aState) {
    constexpr std::size_t kAlignment = 16;
    constexpr std::size_t kPlaces = 4096 / kAlignment;
    static thread_local std::minstd_rand lRandom;
    const auto lBytes = [] { return (lRandom() % kPlaces + 1) * kAlignment; };
    const std::vector<char> lOnHeap(lBytes());
    void* lOnStack = alloca(lBytes());
    benchmark::DoNotOptimize(lOnStack);
    aSubject.work(aState);
}

Slice run(const Subject& aSubject, benchmark::IterationCount aIterations) {
    benchmark::ClearRegisteredBenchmarks();
    auto* const lBenchmark = benchmark::RegisterBenchmark(
        aSubject.name.c_str(), [&](benchmark::State& aState) { runMoved(aSubject, aState); });
    lBenchmark->Iterations(aIterations)->Threads(aSubject.threads);
    if (aSubject.measuresProcess) {
        lBenchmark->MeasureProcessCPUTime();
    }
    if (aSubject.measuresItself) {
        lBenchmark->UseManualTime();
    } else {
        lBenchmark->UseRealTime();
    }
    Slice lSlice;
    benchmark::RunSpecifiedBenchmarks(&lSlice, "all");
    return lSlice;
}

/// A subject whose slices are being taken.
class Measured {
public:
    explicit Measured(const Subject& aSubject)
        : mSubject(aSubject),
          mIterations(std::max<benchmark::IterationCount>(1, mSubject.iterations)) {}

    /// Finds how much fills a slice. All that runs here warms up, and is forgotten.
    void prepare() {
        const double lWanted = mSubject.isAlone ? kSlice : kSliceOfThreads;
        Slice lSlice = run(mSubject, mIterations);
        while (mSubject.iterations == 0 && lSlice.isDone() && lSlice.seconds() < lWanted) {
            const double lMore = std::min(10.0, 1.2 * lWanted / lSlice.seconds());
            mIterations = static_cast<benchmark::IterationCount>(
                static_cast<double>(mIterations) * lMore + 1);
            lSlice = run(mSubject, mIterations);
        }
    }

    void takeSlice() {
        const Slice lSlice = run(mSubject, mIterations);
        if (lSlice.isDone()) {
            mSlices.push_back(lSlice);
        }
    }

    void print() const {
        std::printf("{\"row\": \"%s\", \"role\": \"%s\", \"subject\": \"%s\", \"slices\": [",
                    mSubject.row.c_str(), mSubject.role.c_str(), mSubject.name.c_str());
        for (const Slice& lSlice : mSlices) {
            std::printf(&lSlice == mSlices.data() ? "" : ", ");
            lSlice.print(mSubject);
        }
        std::printf("]}\n");
    }

private:
    const Subject& mSubject;
    benchmark::IterationCount mIterations;
    std::vector<Slice> mSlices;
};

/// Keeps the thread on a processor while one thread alone is measured: the one that it is on.
class Place {
public:
    explicit Place(bool aIsAlone) {
        ::sched_getaffinity(0, sizeof mBefore, &mBefore);
        if (aIsAlone) {
            cpu_set_t lOne;
            CPU_ZERO(&lOne);
            CPU_SET(static_cast<std::size_t>(::sched_getcpu()), &lOne);
            ::sched_setaffinity(0, sizeof lOne, &lOne);
        }
    }
    ~Place() { ::sched_setaffinity(0, sizeof mBefore, &mBefore); }
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;

private:
    cpu_set_t mBefore{};
};

bool areAlone(const std::vector<const Subject*>& aRow) {
    return std::all_of(aRow.begin(), aRow.end(),
                       [](const Subject* aSubject) { return aSubject->isAlone; });
}

double secondsBy(clockid_t aClock) {
    timespec lTime{};
    ::clock_gettime(aClock, &lTime);
    return static_cast<double>(lTime.tv_sec) + static_cast<double>(lTime.tv_nsec) * 1e-9;
}

/// The time of a row. On one processor what it uses, within reason, whatever else is at work there.
class Allowance {
public:
    Allowance(bool aIsAlone, double aSeconds)
        : mClock(aIsAlone ? CLOCK_PROCESS_CPUTIME_ID : CLOCK_MONOTONIC),
          mEnd(secondsBy(mClock) + aSeconds),
          mLimit(secondsBy(CLOCK_MONOTONIC) + kPatience * aSeconds) {}
    bool isUsed() const { return secondsBy(mClock) > mEnd || secondsBy(CLOCK_MONOTONIC) > mLimit; }

private:
    static constexpr double kPatience = 8;
    clockid_t mClock;
    double mEnd;
    double mLimit;
};

/// In each turn the subjects come in another order, so that none always follows the same one.
void takeTurns(std::vector<Measured>& aRow, bool aIsAlone, int aSlices, double aSeconds) {
    std::mt19937 lRandom(1);
    std::vector<Measured*> lOrder;
    for (Measured& lMeasured : aRow) {
        lOrder.push_back(&lMeasured);
    }
    const Allowance lTime(aIsAlone, aSeconds * static_cast<double>(aRow.size()));
    for (int lTurn = 0; lTurn < aSlices && (lTurn < kFewestSlices || !lTime.isUsed()); ++lTurn) {
        std::shuffle(lOrder.begin(), lOrder.end(), lRandom);
        for (Measured* const lMeasured : lOrder) {
            lMeasured->takeSlice();
        }
    }
}

void measure(const std::vector<const Subject*>& aRow, int aSlices, double aSeconds) {
    const bool lIsAlone = areAlone(aRow);
    const Place lPlace(lIsAlone);
    std::vector<Measured> lRow;
    for (const Subject* const lSubject : aRow) {
        lRow.emplace_back(*lSubject).prepare();
    }
    takeTurns(lRow, lIsAlone, aSlices, aSeconds);
    for (const Measured& lMeasured : lRow) {
        lMeasured.print();
    }
    std::fflush(stdout);
}

/// @return the rows in the order in which they were first entered.
std::vector<std::vector<const Subject*>> rows(const std::regex& aWanted) {
    std::vector<std::vector<const Subject*>> lRows;
    for (const Subject& lSubject : subjects()) {
        const auto lFound = std::find_if(lRows.begin(), lRows.end(), [&](const auto& aRow) {
            return aRow.front()->row == lSubject.row;
        });
        if (lFound != lRows.end()) {
            lFound->push_back(&lSubject);
        } else if (std::regex_search(lSubject.row, aWanted)) {
            lRows.push_back({&lSubject});
        }
    }
    return lRows;
}

/// Has the C library keep what is freed, and take no memory from the system that it gives back: who
/// pays for the same pages again and again is otherwise a matter of what ran before.
void keepMemory() {
    constexpr int kLargest = 32 * 1024 * 1024;
    ::mallopt(M_MMAP_THRESHOLD, kLargest);
    ::mallopt(M_TRIM_THRESHOLD, INT_MAX);
}

}  // namespace

namespace bench {

Subject& Subject::byThreads(int aThreads) {
    threads = aThreads;
    return besideOthers();
}

Subject& Subject::besideOthers() {
    isAlone = false;
    return *this;
}

Subject& Subject::withItsThreads() {
    measuresProcess = true;
    return besideOthers();
}

Subject& Subject::measuringItself() {
    measuresItself = true;
    return *this;
}

Subject& Subject::slicesOf(int aIterations) {
    iterations = aIterations;
    return *this;
}

Subject& add(const std::string& aRow, const char* aRole, const std::string& aName, Work aWork) {
    subjects().push_back({aRow, aRole, aName, std::move(aWork)});
    return subjects().back();
}

}  // namespace bench

int main(int aCount, char** aArguments) {
    if (aCount < 3) {
        std::fprintf(stderr, "usage: %s SLICES MILLISECONDS [ROWS]\n", aArguments[0]);
        return 2;
    }
    keepMemory();
    bench::enterSubjects();
    const std::regex lWanted(aCount > 3 ? aArguments[3] : ".");
    for (const auto& lRow : rows(lWanted)) {
        measure(lRow, std::atoi(aArguments[1]), std::atof(aArguments[2]) / 1000);
    }
    return 0;
}
