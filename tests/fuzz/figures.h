// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// What holds for every reader of figures, whatever the file holds.
#ifndef OSX_TESTS_FUZZ_FIGURES_H
#define OSX_TESTS_FUZZ_FIGURES_H

#include <cstdint>
#include <string_view>

#include "fuzz/require.h"
#include "sysinfo/procFiles.h"

using FigureReader = void (*)(std::string_view, osx::ProcLayout, const osx::FigureSink&);

/// Reads a file by both layouts: a bounded number of figures with proper names has to come out.
inline void requireFigures(FigureReader aReader, int aMost, const std::uint8_t* aData,
                           std::size_t aSize) {
    const std::string_view lText(reinterpret_cast<const char*>(aData), aSize);
    for (const osx::ProcLayout lLayout : {osx::ProcLayout::kTarget, osx::ProcLayout::kCurrent}) {
        int lFigures = 0;
        aReader(lText, lLayout, [&](std::string_view aName, std::int32_t) {
            require(!aName.empty() && aName.size() <= 255);
            require(aName.find('\0') == aName.npos);
            ++lFigures;
        });
        require(lFigures <= aMost);
    }
}

#endif
