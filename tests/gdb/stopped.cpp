// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// A program with known values, which a debugger stops at `stopHere`.
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstring>
#include <string>

#include "ace/Date_Time.h"
#include "ace/FILE_IO.h"
#include "ace/Message_Block.h"
#include "ace/SOCK_Stream.h"
#include "ace/TTY_IO.h"
#include "commif/commif.h"
#include "commif/osxComPort.h"
#include "osx/ThreadACE.h"
#include "osx/osx.h"
#include "osx/osxTimeoutHandler.h"
#include "queues/MessageQueue.h"
#include "reactor/TimerQueue.h"
#include "support/sleeps.h"
#include "support/waitUntil.h"
#include "types/FlexVar.h"

// What the debugger is asked for by name. Some of it is here for its type alone: this program has
// the debugging information, whatever the library was built with.
extern "C" {
[[gnu::noinline]] void stopHere();
void whenDue(const void* aArgument);
}

std::array<FlexVar, 17> gValues;
FlexVar gNullText;
FlexVar gLongText;
FlexVar gForeignText;
Blob gBlob;
Blob gLentBlob;
ObjectID gIdentifier;
FlexVar& gReference = gValues[6];
osx::MessageQueue* gQueue = nullptr;
ACE_Message_Queue<ACE_MT_SYNCH>* gQueueOfAce = nullptr;
osx::MessageQueue* gLongQueue = nullptr;
osx::MessageQueue* gEmptyQueue = nullptr;
osx::MessageQueue* gInbox = nullptr;
osxTimeoutHandler* gTimer = nullptr;
osx::TimerQueue* gTimerQueue = nullptr;
ThreadACE* gTask = nullptr;

namespace {

constexpr unsigned long kTen = 10;

std::atomic<pid_t> gReceiver{0};
void receive(void*) {
    std::array<char, kTen> lBuffer{};
    unsigned long lReceived = 0;
    gReceiver = ::gettid();
    osxMsgRecv(gInbox, lBuffer.data(), lBuffer.size(), &lReceived, OSX_INFINITE_TIMEOUT);
}

FlexVar dateValue() {
    return FlexVar(ACE_Date_Time(6, 2, 2019, 13, 14, 15, 16, 3));
}

FlexVar identifierValue() {
    gIdentifier.setFromString(ACE_CString("01234567-89ab-cdef-0123-456789abcdef"));
    return FlexVar(gIdentifier);
}

FlexVar blobValue() {
    static std::array<unsigned char, 3> gBytes{0x00, 0x01, 0xFF};
    gLentBlob.setData(gBytes.data(), gBytes.size(), false);
    gBlob = gLentBlob;
    return FlexVar(gBlob);
}

void setValues() {
    gValues = {FlexVar(),
               FlexVar(true),
               FlexVar('A'),
               FlexVar(static_cast<unsigned char>(200)),
               FlexVar(static_cast<short>(-5)),
               FlexVar(static_cast<unsigned short>(65535)),
               FlexVar(-123456),
               FlexVar(4000000000U),
               FlexVar(-7L),
               FlexVar(7UL),
               FlexVar(1.5F),
               FlexVar(-0.25),
               FlexVar(ACE_CString("a \"text\"\n")),
               FlexVar(ACE_WString(L"wide \u20ac", 6)),
               dateValue(),
               blobValue(),
               identifierValue()};
    gNullText.setCString(static_cast<ACE_CString*>(nullptr));
    gLongText.setCString(ACE_CString(std::string(300, 'x').c_str()));
    gForeignText.setCString(ACE_CString("gr\u00fcn \x01\x80"));
}

void send(void* aQueue, const std::string& aText) {
    std::string lText = aText;
    osxMsgSend(aQueue, lText.data(), lText.size(), nullptr);
}

osx::MessageQueue* makeQueue(unsigned long aSize, const char* aName) {
    void* lQueue = nullptr;
    osxMsgQueueInit(aSize, 0, &lQueue, aName);
    return static_cast<osx::MessageQueue*>(lQueue);
}

void makeQueues() {
    gQueue = makeQueue(10000, "letters");
    send(gQueue, "alpha");
    send(gQueue, std::string("\x00\x01\xff", 3));
    send(gQueue, std::string(5000, 'y'));
    auto* const lBlock = new ACE_Message_Block(kTen);
    lBlock->copy("a block", 7);
    gQueue->enqueue_head(lBlock);
    gQueueOfAce = gQueue;
    gLongQueue = makeQueue(1000000, "");
    for (int lIndex = 0; lIndex < 150; ++lIndex) {
        send(gLongQueue, "message " + std::to_string(lIndex) + std::string(400, '.'));
    }
    std::array<char, kTen> lBuffer{};
    unsigned long lReceived = 0;
    for (int lIndex = 0; lIndex < 50; ++lIndex) {
        osxMsgRecv(gLongQueue, lBuffer.data(), lBuffer.size(), &lReceived, 0);
    }
    gEmptyQueue = makeQueue(kTen, "");
    gEmptyQueue->deactivate();
    gInbox = makeQueue(kTen, "Inbox");
}

/// As a port on the device would be: no machine of the tests has one.
void enterSerialPort() {
    auto* const lDevice = new ACE_TTY_IO;
    lDevice->set_handle(::dup(STDERR_FILENO));
    commIfDesc_t& lEntry = commIfDesc[202];
    lEntry.info.serial.portNr = 2;
    lEntry.info.serial.baudRate = 9600;
    lEntry.info.serial.readTimeout = 250;
    lEntry.info.serial.comPort = new osxComPort(lDevice);
    lEntry.info.devType = eSERIAL;
    lEntry.used = 1;
}

void openDescriptors() {
    int lDesc = -1;
    commIfDevParams_t lParams{};
    lParams.devType = eVGA;
    commIfOpen(&lDesc, &lParams, nullptr);
    lParams.devType = eFILE;
    std::strcpy(lParams.file.fileName, "/dev/null");
    commIfOpen(&lDesc, &lParams, nullptr);
    lParams = {};
    lParams.devType = eMSG;
    lParams.msg.size = kTen;
    lParams.msg.readTimeout = 100;
    commIfOpen(&lDesc, &lParams, "behind a descriptor");
    static ACE_SOCK_Stream gStream(::dup(STDERR_FILENO));
    lParams = {};
    lParams.devType = eNET;
    lParams.net = {COMMIF_NET_TCP, &gStream, 0, 1};
    commIfOpen(&lDesc, &lParams, nullptr);
    commIfDesc[7].used = 1;
    commIfDesc[7].info.devType = 99;
    enterSerialPort();
}

/// @return whether it has come to where it waits.
bool startTask() {
    void* lTask = nullptr;
    osxBeginTask(receive, 0, 0, nullptr, &lTask, "receiving task");
    gTask = static_cast<ThreadACE*>(lTask);
    return test::waitUntil([] { return gReceiver != 0 && test::sleeps(gReceiver); });
}

}  // namespace

void stopHere() {
    asm volatile("");
}

void whenDue(const void*) {}

int main() {
    setValues();
    makeQueues();
    openDescriptors();
    const bool lStarted = startTask();
    void* lSemaphore = nullptr;
    osxCreateSemaphore(0, 1, &lSemaphore, "traffic light");
    void* lHourly = osxCreateTimer(whenDue, nullptr, 3600000, 1);
    void* lLater = osxCreateTimer(nullptr, nullptr, 7200000, 0);
    gTimer = static_cast<osxTimeoutHandler*>(lHourly);
    stopHere();
    osxDestroyTimer(lHourly);
    osxDestroyTimer(lLater);
    send(gInbox, "end");
    osxEndOtherTask(gTask);
    return lStarted ? 0 : 1;
}
