// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// A scripted serial driver: answers what a pseudo terminal's driver refuses or forgets.
#ifndef OSX_TESTS_COMMIF_SERIALDRIVERMODEL_H
#define OSX_TESTS_COMMIF_SERIALDRIVERMODEL_H

#include <linux/serial.h>
#include <termios.h>

#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <set>
#include <vector>

namespace test {

/// One request that reached the driver.
struct DriverRequest {
    unsigned long request;
    std::uintptr_t argument;  ///< As passed.
    int value;                ///< What the argument pointed to, for requests that set something.
};

/// While one lives, this process's requests to serial drivers go to it, and it remembers the
/// character size and the parity that were set, as a UART does and a pseudo terminal does not.
class SerialDriverModel {
public:
    static constexpr unsigned long kHalfDuplexRequest = 0x5461;

    SerialDriverModel();
    ~SerialDriverModel();
    SerialDriverModel(const SerialDriverModel&) = delete;
    SerialDriverModel& operator=(const SerialDriverModel&) = delete;

    /// Makes the driver refuse a request (ENOTTY) from now on.
    void refuse(unsigned long aRequest);
    /// From now on what is not modelled does nothing and results in this.
    void answerOthers(int aResult);
    void setCounters(const serial_icounter_struct& aCounters);
    void setModemLines(int aLines);
    int modemLines() const;
    /// What successive looks at the transmitter show; the last one stays. At first it is empty.
    void setLineStatus(std::deque<int> aStatus);

    /// @return what came so far.
    std::vector<DriverRequest> requests() const;
    /// @return the values of all requests of this kind.
    std::vector<int> values(unsigned long aRequest) const;
    /// @return how many requests of this kind came.
    std::size_t count(unsigned long aRequest) const { return values(aRequest).size(); }
    /// @return the settings made last.
    termios settings() const;

    /// @return whether the request is one of those modelled; if so, what it results in.
    bool answer(unsigned long aRequest, void* aArgument, int& aResult);
    void keepSettings(const termios& aSettings);
    void restoreKept(termios& aSettings) const;

private:
    int perform(unsigned long aRequest, void* aArgument);

    mutable std::mutex mMutex;
    std::set<unsigned long> mRefused;
    std::optional<int> mOthersResult;
    serial_icounter_struct mCounters{};
    int mModemLines = 0;
    std::deque<int> mLineStatus;
    std::vector<DriverRequest> mRequests;
    termios mSettings{};
    bool mHasSettings = false;
};

}  // namespace test

#endif
