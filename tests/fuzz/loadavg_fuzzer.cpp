#include <cstdint>
#include <sstream>
#include <string>

#include "sysinfo/procFiles.h"

// Whatever the file holds, reading it ends without a fault.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* aData, std::size_t aSize) {
    std::istringstream lStream(std::string(reinterpret_cast<const char*>(aData), aSize));
    osx::readLoadAvg(lStream);
    return 0;
}
