#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>

#include "sysinfo/procFiles.h"

namespace {

constexpr int kMostFigures = 50;

void require(bool aCondition) {
    if (!aCondition) {
        std::abort();
    }
}

void read(const std::string& aText, osx::ProcLayout aLayout) {
    std::istringstream lStream(aText);
    int lFigures = 0;
    osx::readMemInfo(lStream, aLayout, [&](const char* aName, std::int32_t) {
        require(aName[0] != '\0' && std::strlen(aName) <= 255);
        ++lFigures;
    });
    require(lFigures <= kMostFigures);
}

}  // namespace

// Whatever the file holds, a bounded number of figures with proper names comes out.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* aData, std::size_t aSize) {
    const std::string lText(reinterpret_cast<const char*>(aData), aSize);
    read(lText, osx::ProcLayout::kTarget);
    read(lText, osx::ProcLayout::kCurrent);
    return 0;
}
