// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Takes options out of a command line. The walk over the arguments and their moving to the front
// are ACE_Arg_Shifter's.
#include "logging/commandLine.h"

#include <strings.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <new>

#include "ace/Arg_Shifter.h"

namespace osx {

namespace {

using ArgShifter = ACE_Arg_Shifter_T<char>;

const CommandLineOption* findOption(const char* aArgument, const CommandLineOption* aOptions,
                                    std::size_t aNumberOfOptions) {
    const CommandLineOption* const lEnd = aOptions + aNumberOfOptions;
    const CommandLineOption* const lFound =
        std::find_if(aOptions, lEnd, [aArgument](const CommandLineOption& aOption) {
            return aArgument != nullptr && ::strcasecmp(aArgument, aOption.mName) == 0;
        });
    return lFound == lEnd ? nullptr : lFound;
}

void applyNext(ArgShifter& aShifter, const CommandLineOption& aOption) {
    aShifter.consume_arg();
    if (!aOption.mTakesValue) {
        aOption.mApply(nullptr);
        return;
    }
    const char* const lNext = aShifter.get_current();
    aOption.mApply(lNext != nullptr && *lNext != '-' ? lNext : nullptr);
    if (aShifter.is_anything_left() != 0) {
        aShifter.consume_arg();
    }
}

}  // namespace

void applyOptions(int& aNumber, char** aArguments, const CommandLineOption* aOptions,
                  std::size_t aNumberOfOptions) {
    if (aNumber <= 0 || aArguments == nullptr) {
        return;
    }
    // Made here, as the shifter itself would crash if it could not allocate it.
    std::unique_ptr<char*[]> lCopy(new (std::nothrow) char*[static_cast<std::size_t>(aNumber)]);
    if (lCopy == nullptr) {
        errno = ENOMEM;
        return;
    }
    ArgShifter lShifter(aNumber, aArguments, lCopy.release());
    while (lShifter.is_anything_left() != 0) {
        const auto* const lOption = findOption(lShifter.get_current(), aOptions, aNumberOfOptions);
        if (lOption == nullptr) {
            lShifter.ignore_arg();
        } else {
            applyNext(lShifter, *lOption);
        }
    }
}

}  // namespace osx
