// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Log back ends of tests: taking lines, and being in use for a time.
#ifndef OSX_TESTS_SUPPORT_INSTALLEDBACKEND_H
#define OSX_TESTS_SUPPORT_INSTALLEDBACKEND_H

#include "ace/Log_Msg.h"
#include "ace/Log_Msg_Backend.h"

namespace test {

/// A back end that does nothing but take lines.
class LineBackend : public ACE_Log_Msg_Backend {
public:
    int open(const ACE_TCHAR*) override { return 0; }
    int reset() override { return 0; }
    int close() override { return 0; }
};

/// While one lives, ACE's lines go to a back end instead of standard error and of the back end that
/// was in use before. A back end that has one as its last member is whole whenever a line comes.
class InstalledBackend {
public:
    explicit InstalledBackend(ACE_Log_Msg_Backend& aBackend)
        : mFormerFlags(ACE_Log_Msg::instance()->flags()),
          mFormerBackend(ACE_Log_Msg::msg_backend(&aBackend)) {
        ACE_Log_Msg::instance()->clr_flags(ACE_Log_Msg::STDERR);
        ACE_Log_Msg::instance()->set_flags(ACE_Log_Msg::CUSTOM);
    }
    ~InstalledBackend() {
        ACE_Log_Msg::instance()->clr_flags(ACE_Log_Msg::instance()->flags());
        ACE_Log_Msg::instance()->set_flags(mFormerFlags);
        ACE_Log_Msg::msg_backend(mFormerBackend);
    }
    InstalledBackend(const InstalledBackend&) = delete;
    InstalledBackend& operator=(const InstalledBackend&) = delete;

private:
    unsigned long mFormerFlags;
    ACE_Log_Msg_Backend* mFormerBackend;
};

}  // namespace test

#endif
