// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// How each device is.
#ifndef OSX_COMMAND_CONSOLE_DEVICEBOARD_H
#define OSX_COMMAND_CONSOLE_DEVICEBOARD_H

#include <array>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "client/Event.h"
#include "devices/DeviceList.h"
#include "sysinfo/sysinfo.h"

namespace command {

/// What a device did in an interval.
struct FigurePoint {
    std::int64_t at = 0;  ///< When the interval began, in ms since the epoch.
    std::string device;
    std::uint64_t lines = 0;
    std::uint64_t lost = 0;
    std::optional<Figures> figures;  ///< The latest that it reported in it.
};

constexpr std::int64_t kFigureStepMs = 10000;

/// Is told of each event, and asked from any thread.
class DeviceBoard {
public:
    DeviceBoard(const std::vector<Device>& aDevices, const DeviceList& aList);

    void take(const Event& aEvent);

    /// @return the points of the interval that has ended since the last call, if one has.
    std::vector<FigurePoint> takePoints(Moment aNow);

    /// @return a list of all devices, as JSON.
    std::string json(Moment aNow) const;

    /// @return its number; nothing if there is no such device.
    std::optional<std::size_t> find(const std::string& aName) const;
    const Device& device(std::size_t aNumber) const { return mStates[aNumber].device; }
    bool isConnected(std::size_t aNumber) const;

private:
    static constexpr std::size_t kRateSeconds = 5;

    struct Reported {
        std::int64_t at;
        Figures figures;
    };
    struct State {
        Device device;
        std::vector<std::string> groups;
        bool isConnected = false;
        std::int64_t since = 0;
        std::string why;
        std::uint64_t lines = 0;
        std::uint64_t lost = 0;
        std::optional<unsigned long> level;
        std::optional<Reported> reported;
        std::array<std::uint64_t, kRateSeconds + 1> linesInSecond{};  ///< By second, in turn.
        std::int64_t second = 0;                                      ///< The latest of them.
        FigurePoint point;
    };

    static void takeLine(State& aState, const Event& aEvent);
    static std::size_t placeOf(std::int64_t aSecond);
    static void advance(State& aState, std::int64_t aSecond);
    static std::string jsonOf(const State& aState, std::int64_t aSecond);

    mutable std::mutex mMutex;
    std::vector<State> mStates;
    std::int64_t mInterval;  ///< When the current one began.
};

}  // namespace command

#endif
