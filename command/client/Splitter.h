// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// What a device sends, cut into lines or blocks, whatever it sends.
#ifndef OSX_COMMAND_CLIENT_SPLITTER_H
#define OSX_COMMAND_CLIENT_SPLITTER_H

#include <functional>
#include <string>
#include <string_view>

#include "client/Event.h"

namespace command {

/// Takes bytes as they come, and keeps no more than one line or block.
class Splitter {
public:
    /// Called with kind, text and count.
    using Report = std::function<void(Kind, std::string_view, std::uint64_t)>;

    virtual ~Splitter() = default;

    /// @return whether the connection is of use from here on.
    virtual bool add(std::string_view aBytes, const Report& aReport) = 0;

    /// The connection has ended: reports what is left, and is ready for another one.
    virtual void end(const Report& aReport) = 0;
};

/// Lines, of which at most the first so many bytes are reported, at once; and the device's own
/// remarks about lines that it left out.
class LineSplitter : public Splitter {
public:
    explicit LineSplitter(std::size_t aLongest) : mLongest(aLongest) {}

    bool add(std::string_view aBytes, const Report& aReport) override;
    void end(const Report& aReport) override;

private:
    void keep(std::string_view aBytes, const Report& aReport);
    void finish(const Report& aReport);

    std::size_t mLongest;
    std::string mLine;
    std::uint64_t mCut = 0;    ///< Bytes of the line that are left out.
    bool mIsReported = false;  ///< The line's beginning is.
};

/// Blocks, each behind its length in 4 bytes, lowest first. One that is longer than the limit ends
/// the use of the connection.
class BlockSplitter : public Splitter {
public:
    explicit BlockSplitter(std::size_t aLongest) : mLongest(aLongest) {}

    bool add(std::string_view aBytes, const Report& aReport) override;
    void end(const Report& aReport) override;

private:
    static constexpr std::size_t kLengthBytes = 4;

    std::uint32_t length() const;

    std::size_t mLongest;
    std::string mBlock;  ///< Length and bytes, as far as they came.
};

}  // namespace command

#endif
