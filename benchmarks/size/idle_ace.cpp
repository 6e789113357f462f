// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "ace/Reactor.h"

int main() {
    return ACE_Reactor::instance()->run_reactor_event_loop();
}
