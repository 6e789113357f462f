#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <vector>

#include "osx/loopThreads.h"
#include "osx/osx.h"
#include "osx/osxDataHandler.h"
#include "support/LogCapture.h"
#include "support/TcpPeer.h"

using std::chrono::milliseconds;
using test::TcpPeer;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr auto kFailed = static_cast<unsigned long>(-1);

/// A port whose callbacks write down what happened. Its address is the user datum.
class RecordingPort {
public:
    RecordingPort() : mNumber(test::freePort()) {
        EXPECT_EQ(0UL, osxRegisterPort(mPort, mNumber, &onNew, nullptr, &onData, &onClosed, this));
    }
    ~RecordingPort() {
        if (mPort != nullptr) {
            osxUnregisterPort(mPort);
        }
    }
    RecordingPort(const RecordingPort&) = delete;
    RecordingPort& operator=(const RecordingPort&) = delete;

    TcpPeer connect() const { return TcpPeer::connect(mNumber); }
    unsigned short number() const { return mNumber; }
    void*& handle() { return mPort; }

    bool waitForEvents(int aCount) const { return mCounter.waitFor(aCount); }
    std::vector<std::string> events() const {
        const std::lock_guard<std::mutex> lGuard(mMutex);
        return mEvents;
    }

    void note(const std::string& aEvent) {
        {
            const std::lock_guard<std::mutex> lGuard(mMutex);
            mEvents.push_back(aEvent);
        }
        mCounter.add();
    }

private:
    static void onNew(void*, void*& aPort) { static_cast<RecordingPort*>(aPort)->note("new"); }
    static void onData(void*, void*& aPort, unsigned char* aData, unsigned long aLength) {
        static_cast<RecordingPort*>(aPort)->note(
            std::string(reinterpret_cast<char*>(aData), aLength));
    }
    static void onClosed(void*, void*& aPort) {
        static_cast<RecordingPort*>(aPort)->note("closed");
    }

    unsigned short mNumber;
    void* mPort = nullptr;
    mutable std::mutex mMutex;
    std::vector<std::string> mEvents;
    test::Counter mCounter;
};

}  // namespace

TEST(Port, CallsBackForConnectionDataAndClose) {
    const test::LoopThreads lLoop;
    RecordingPort lPort;
    TcpPeer lPeer = lPort.connect();
    ASSERT_TRUE(lPort.waitForEvents(1));
    lPeer.send("hello");
    ASSERT_TRUE(lPort.waitForEvents(2));
    lPeer.close();
    ASSERT_TRUE(lPort.waitForEvents(3));
    EXPECT_THAT(lPort.events(), ElementsAre("new", "hello", "closed"));
}
