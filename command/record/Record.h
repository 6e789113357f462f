// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// A folder of files with what devices said, bounded in size and number.
#ifndef OSX_COMMAND_RECORD_RECORD_H
#define OSX_COMMAND_RECORD_RECORD_H

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Descriptor.h"
#include "record/entry.h"

namespace command {

/// How much a record may hold.
struct RecordLimits {
    std::uint64_t fileBytes = 10UL * 1024 * 1024;  ///< Of a file, before the next one is begun.
    unsigned long files = 10;                      ///< Of the newest; older ones are removed.
};

/// Appends entries, as lines of JSON, to files "record-000001.jsonl" and so on. One program at a
/// time records to a folder.
class Record {
public:
    /// Makes the folder if need be. Fails if it cannot, or if another program records there.
    Record(const std::string& aFolder, const RecordLimits& aLimits);

    void add(const Entry& aEntry);

    /// Writes what was added. What a full disc does not take is left out, and a mark in its place
    /// says how much as soon as there is room.
    void flush();

    /// @return why entries are missing since the last call, once for each time that it begins;
    ///         empty otherwise.
    std::string takeComplaint();

private:
    bool openNext();
    std::uint64_t write(const std::string& aText);
    std::size_t append(std::string_view aText);
    bool writeGap();
    void miss();

    std::string mFolder;
    RecordLimits mLimits;
    osx::Descriptor mLock;
    osx::Descriptor mFile;
    std::uint64_t mSize = 0;  ///< Of the file.
    unsigned long mNumber = 0;
    bool mIsInLine = false;      ///< The file ends within a line.
    std::string mText;           ///< Not written yet,
    std::uint64_t mEntries = 0;  ///< so many entries.
    std::uint64_t mMissing = 0;
    int mCause = 0;
    std::string mComplaint;
};

/// @return the numbers of the files of a record, lowest first.
std::vector<unsigned long> recordFiles(const std::string& aFolder);

/// @return the path of one.
std::string recordFile(const std::string& aFolder, unsigned long aNumber);

/// Reads a record from its beginning, for as long as it is wanted. Fails as bad input if there is
/// no record in the folder.
/// @param aTake is called for each entry; whether to go on.
/// @return the number of lines that are none of a record's, as those that a power cut has cut.
std::uint64_t readRecord(const std::string& aFolder,
                         const std::function<bool(const Entry&)>& aTake);

}  // namespace command

#endif
