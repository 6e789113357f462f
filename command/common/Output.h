// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Standard output, which may be slow, stopped or gone.
#ifndef OSX_COMMAND_COMMON_OUTPUT_H
#define OSX_COMMAND_COMMON_OUTPUT_H

#include <string>
#include <string_view>

namespace command {

class Stop;

/// Gathers what is written, and passes it on in pieces that a pipe takes whole, so that the end can
/// be asked for while a reader takes nothing.
class Output {
public:
    /// @param aStop is asked for the end when the reader has gone; null for a command that ends by
    ///        itself.
    explicit Output(Stop* aStop = nullptr) : mStop(aStop) {}

    void write(std::string_view aText);

    /// Passes on all of it. It waits for a slow reader, but only for a second once the end has been
    /// asked for.
    void flush();

    /// Looks whether the reader has gone.
    void look();

    bool isTerminal() const { return mIsTerminal; }
    /// @return whether colours are wanted.
    bool hasColours() const { return mHasColours; }

private:
    bool waitForRoom() const;
    void lose();

    static bool findTerminal();
    static bool findColours();

    Stop* mStop;
    bool mIsTerminal = findTerminal();
    bool mHasColours = findColours();
    bool mIsLost = false;
    std::string mText;
};

}  // namespace command

#endif
