// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <fcntl.h>
#include <sys/select.h>
#include <syslog.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

static bool setUp(int aPort) {
    termios lSettings{};
    if (tcgetattr(aPort, &lSettings) == -1) {
        return false;
    }
    cfmakeraw(&lSettings);
    cfsetspeed(&lSettings, B9600);
    lSettings.c_cflag |= CLOCAL | CREAD;
    lSettings.c_cc[VMIN] = 1;
    lSettings.c_cc[VTIME] = 0;
    // It may have been opened without waiting for a carrier, but is read and written as usual.
    return tcsetattr(aPort, TCSANOW, &lSettings) == 0 &&
           fcntl(aPort, F_SETFL, fcntl(aPort, F_GETFL) & ~O_NONBLOCK) == 0;
}

static int openPort(const char* aDevice) {
    const int lPort = open(aDevice, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (lPort == -1 || !setUp(lPort)) {
        syslog(LOG_ERR, "cannot open %s: %s", aDevice, std::strerror(errno));
        close(lPort);
        return -1;
    }
    return lPort;
}

static bool waitForInput(int aPort) {
    fd_set lSet;
    FD_ZERO(&lSet);
    FD_SET(aPort, &lSet);  // undefined from descriptor 1024 on
    timeval lLimit{10, 0};
    return select(aPort + 1, &lSet, nullptr, nullptr, &lLimit) == 1;
}

static bool ask(int aPort, const std::string& aCommand, std::string& aAnswer) {
    const std::string lText = aCommand + "\r\n";
    if (write(aPort, lText.data(), lText.size()) != static_cast<ssize_t>(lText.size())) {
        return false;
    }
    char lByte = 0;
    while (lByte != '\n' && waitForInput(aPort) && read(aPort, &lByte, 1) == 1) {
        aAnswer += lByte;
    }
    return lByte == '\n';
}

int main(int aCount, char** aArguments) {
    const int lPort = aCount > 2 ? openPort(aArguments[1]) : -1;
    std::string lAnswer;
    if (lPort == -1 || !ask(lPort, aArguments[2], lAnswer)) {
        return 1;
    }
    std::fputs(lAnswer.c_str(), stdout);
    close(lPort);
    return 0;
}
