// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// A scoped lock of ACE's token. Internal.
#ifndef OSX_REACTOR_HELDTOKEN_H
#define OSX_REACTOR_HELDTOKEN_H

#include "ace/Select_Reactor_Base.h"
#include "ace/Select_Reactor_T.h"
#include "base/NoCancellation.h"

namespace osx {

/// Has the token for as long as it lives. The thread is not cancelled meanwhile: see
/// `UncancelledReactor`.
class HeldToken {
public:
    explicit HeldToken(ACE_Select_Reactor_Token& aToken) : mToken(aToken) { mToken.acquire(); }
    ~HeldToken() { mToken.release(); }
    HeldToken(const HeldToken&) = delete;
    HeldToken& operator=(const HeldToken&) = delete;

private:
    const NoCancellation mNoCancellation;
    ACE_Select_Reactor_Token& mToken;
};

}  // namespace osx

#endif
