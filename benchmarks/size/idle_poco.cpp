// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <Poco/Net/SocketReactor.h>
#include <Poco/Util/Timer.h>

int main() {
    const Poco::Util::Timer lTimer;  // its thread serves timers, as the others' loops do
    Poco::Net::SocketReactor lReactor;
    lReactor.run();
    return 0;
}
