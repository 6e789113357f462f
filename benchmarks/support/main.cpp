#include "support/bench.h"

int main(int aCount, char** aArguments) {
    bench::enterSubjects();
    benchmark::Initialize(&aCount, aArguments);
    if (benchmark::ReportUnrecognizedArguments(aCount, aArguments)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
