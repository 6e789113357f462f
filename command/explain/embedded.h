// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Files of this tree that the build puts into the program.
#ifndef OSX_COMMAND_EXPLAIN_EMBEDDED_H
#define OSX_COMMAND_EXPLAIN_EMBEDDED_H

#include <string_view>

namespace command {

extern const std::string_view kOsxHeader;      ///< osx/osx.h
extern const std::string_view kCommIfHeader;   ///< commif/commif.h
extern const std::string_view kLineCatalogue;  ///< docs/lines.yaml
extern const std::string_view kCodeCatalogue;  ///< docs/codes.yaml

}  // namespace command

#endif
