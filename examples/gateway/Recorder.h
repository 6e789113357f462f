// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Keeps the sentences in a file.
#ifndef EXAMPLES_GATEWAY_RECORDER_H
#define EXAMPLES_GATEWAY_RECORDER_H

#include <chrono>
#include <string>

namespace gateway {

/// Appends records to a file, each a line of its own, and says what is missing:
///
///     # records missing here: 12 (No space left on device)
///     # lines above that may be missing: 3 (Input/output error)
///     # the line above was cut
///
/// The first stands where a disc took nothing for a time, the second behind a sync that failed, the
/// third behind what the end of the process or of the power has left of a record. A record that a
/// full disc has cut is completed before anything else is written.
///
/// A record is on the disc at most a sync interval after it was written, and the time that the sync
/// takes. For one thread at a time.
class Recorder {
public:
    /// @param aFileName what to append to; empty to keep nothing. While it cannot be opened,
    /// records are missing; it is tried again at each interval.
    /// @param aSyncInterval how long a record may be in memory alone.
    Recorder(std::string aFileName, std::chrono::milliseconds aSyncInterval);
    /// Writes what is still to be said, and syncs.
    ~Recorder();

    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    /// @param aLine without its line end.
    void write(const std::string& aLine);

    /// Syncs when it is time. To be called some times within the interval, also when nothing comes.
    void tend();

private:
    using Clock = std::chrono::steady_clock;

    /// Lines that are lost, or may be, and why.
    struct Gap {
        unsigned long count = 0;
        int cause = 0;
    };

    bool open();
    void settle();
    void sync();
    bool isSettled() const;
    bool finish();
    bool append(const std::string& aText);
    bool tellGaps();
    bool tell(Gap& aGap, const char* aWhat);
    void countMissing();

    std::string mFileName;
    std::chrono::milliseconds mSyncInterval;
    int mDescriptor = -1;  ///< Negative while the file is not open.
    int mOpenError = 0;
    std::string mRest;  ///< Of the line that has been begun.
    Gap mMissing;       ///< Records that were not written.
    Gap mDoubtful;      ///< Lines before a sync that failed.
    unsigned long mUnsynced = 0;
    bool mCanSync = true;  ///< A pipe cannot.
    Clock::time_point mSettled{};
};

}  // namespace gateway

#endif
