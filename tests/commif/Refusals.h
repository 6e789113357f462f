// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Circumstances in which the system refuses files, made without touching the machine.
#ifndef OSX_TESTS_COMMIF_REFUSALS_H
#define OSX_TESTS_COMMIF_REFUSALS_H

#include <sys/resource.h>

#include <csignal>
#include <functional>
#include <string>

namespace test {

/// Runs a check in a process of its own that has no privileges.
/// @return 0 if the check held.
int asOrdinaryUser(const std::function<bool()>& aCheck);

/// Runs a check in a process of its own in which a directory is on a read-only file system or,
/// where mounting is not permitted, belongs to a user who may not write there.
/// @return 0 if the check held.
int withReadOnlyDirectory(const std::string& aDirectory, const std::function<bool()>& aCheck);

/// Runs a check in a process of its own in which a directory is on a file system of 64 KiB or,
/// where mounting is not permitted, no file grows beyond that.
/// @return 0 if the check held.
int withSmallDisc(const std::string& aDirectory, const std::function<bool()>& aCheck);

/// While one lives, no file of the process grows beyond a size: a write that reaches it is short,
/// and one beyond it fails, as on a full disc.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t aBytes);
    ~FileSizeLimit();
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit mFormer{};
    void (*mFormerHandler)(int);
};

}  // namespace test

#endif
