// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// What the library does for a program, each thing small enough to say whether it still works.
#ifndef OSX_ENDURANCE_SERVICE_H
#define OSX_ENDURANCE_SERVICE_H

#include <initializer_list>
#include <memory>
#include <vector>

namespace memory {

/// One service. It takes no memory of its own while memory is short.
class Service {
public:
    Service() = default;
    virtual ~Service() = default;
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    virtual const char* name() const = 0;

    /// Begins, and uses it once, while memory is short.
    /// @return whether all calls succeeded, by their results.
    virtual bool start() = 0;

    /// There is memory again. @return whether it does what it is for.
    virtual bool works() = 0;

    /// Ends, also what has begun only half; memory may be short.
    virtual void stop() = 0;

    /// @return what the library's line contains if the service was lost where there is no result.
    virtual const char* line() const { return nullptr; }

    /// It does not come back. @return what of the C library it needs and does not work either, nor
    ///         will; null if nothing.
    virtual const char* foreign() const { return nullptr; }

    /// @return whether something went wrong in `start` of which only a line can tell.
    virtual bool needsLine() const { return false; }
};

using Services = std::vector<std::unique_ptr<Service>>;

/// @return the services of a scenario; none for an unknown one.
Services servicesOf(const char* aScenario);

Services coreServices();
Services networkServices();
Services loggingServices();
Services deviceServices();
Services valueServices();

/// @return a number of TCP ports that only this process uses.
unsigned short ownPort(int aWhich);

/// @return a path in a folder of this process alone; valid until the next call.
const char* ownPath(const char* aName);

/// @return where the serial port of the devices is; it outlives a process that crashes.
const char* serialPath();

/// @return whether a line with this text has been written.
bool isLogged(const char* aText);

/// @return the first of these texts that is in a line; the last one if none is.
const char* loggedOf(std::initializer_list<const char*> aTexts);

/// A pause of a millisecond.
void rest();

/// How long is waited while memory is short: what comes later is late, not lost.
constexpr int kShortMs = 300;
/// How long is waited when there is memory again.
constexpr int kLongMs = 10000;

/// @return milliseconds of the monotonic clock.
long now();

/// Waits until something holds. @return whether it came in time.
template <class Condition>
bool awaits(Condition aCondition, int aLimitMs = kLongMs) {
    const long lEnd = now() + aLimitMs;
    while (!aCondition() && now() < lEnd) {
        rest();
    }
    return aCondition();
}

/// Waits until a descriptor can be read. @return whether it can.
bool awaitsInput(int aDescriptor, int aLimitMs = kLongMs);

/// What a client of one of the ports met.
enum class Met { service, silence, end };

/// @return a connection to a port of this machine, -1 if there is none.
int connectTo(unsigned short aPort);

/// @return whether what is sent comes back, or the connection has ended.
Met echo(int aSocket, int aLimitMs = kLongMs);

/// Starts the event loop.
std::unique_ptr<Service> makeLoop();

/// @return whether a loop thread runs.
bool loopRuns();

}  // namespace memory

#endif
