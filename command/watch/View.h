// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Entries as a person or a program reads them.
#ifndef OSX_COMMAND_WATCH_VIEW_H
#define OSX_COMMAND_WATCH_VIEW_H

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "common/Moment.h"
#include "common/Pattern.h"
#include "record/entry.h"

namespace command {

/// What `watch` and `play` are told about what to show.
struct ViewOptions {
    std::string grep;   ///< Shows only lines in which it is found; empty for all.
    std::string since;  ///< Shows nothing older; empty for all.
    bool json = false;
};

class View {
public:
    /// Fails as bad input if the options are wrong.
    View(const ViewOptions& aOptions, bool aHasColours);

    /// Gives names one width, so that lines begin below each other.
    void expect(const std::string& aDevice);

    /// @return what to print, ends of lines included; empty for an entry that is not to be shown.
    std::string show(const Entry& aEntry);

    bool hasStart() const { return mSince.has_value(); }

private:
    struct Look {
        std::size_t colour;
        bool isLastShown;  ///< The latest line is, and so the mark that belongs to it.
    };

    Look& lookOf(const std::string& aDevice);
    bool isShown(const Entry& aEntry, Look& aLook) const;
    std::string forReader(const Entry& aEntry, const Look& aLook) const;

    std::unique_ptr<Pattern> mGrep;
    std::optional<Moment> mSince;
    bool mIsJson;
    bool mHasColours;
    std::size_t mWidth = 0;
    std::map<std::string, Look> mLooks;
};

}  // namespace command

#endif
