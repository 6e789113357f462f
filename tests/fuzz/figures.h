/// @file
/// What holds for every reader of figures, whatever the file holds.
#ifndef OSX_TESTS_FUZZ_FIGURES_H
#define OSX_TESTS_FUZZ_FIGURES_H

#include <cstdint>
#include <cstring>
#include <sstream>
#include <string>

#include "fuzz/require.h"
#include "sysinfo/procFiles.h"

using FigureReader = void (*)(std::istream&, osx::ProcLayout, const osx::FigureSink&);

/// Reads a file by both layouts: a bounded number of figures with proper names has to come out.
inline void requireFigures(FigureReader aReader, int aMost, const std::uint8_t* aData,
                           std::size_t aSize) {
    for (const osx::ProcLayout lLayout : {osx::ProcLayout::kTarget, osx::ProcLayout::kCurrent}) {
        std::istringstream lStream(std::string(reinterpret_cast<const char*>(aData), aSize));
        int lFigures = 0;
        aReader(lStream, lLayout, [&](const char* aName, std::int32_t) {
            require(aName[0] != '\0' && std::strlen(aName) <= 255);
            ++lFigures;
        });
        require(lFigures <= aMost);
    }
}

#endif
