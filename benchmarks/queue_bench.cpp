// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Message queues: messages of several sizes from some threads to others. Each subject copies the
// bytes in and out, keeps the boundaries and frees what it allocated.
//
// What differs: the library's queue and plain ACE's are bounded by bytes, APR's by as many messages
// as come to the same, the POSIX one by the system's limit of 10, GLib's and POCO's not at all.
// Only messages of 64 KiB come to the bound: sixteen of them, so that they stay in the processor's
// cache. A sender that has to wait for room costs a switch of threads, and so the queues without a
// bound are only shown where threads pass on messages of 64 KiB. The POSIX queue lives in the
// kernel and takes no message above the system's limit of 8 KiB. Messages a second are by the
// clock.
#include <Poco/AutoPtr.h>
#include <Poco/Notification.h>
#include <Poco/NotificationQueue.h>
#include <apr_general.h>
#include <apr_queue.h>
#include <glib.h>
#include <mqueue.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <thread>
#include <vector>

#include "ace/Condition_Thread_Mutex.h"
#include "ace/Message_Block.h"
#include "ace/Message_Queue.h"
#include "ace/Synch_Traits.h"
#include "osx/osx.h"
#include "support/allocations.h"
#include "support/bench.h"

namespace {

constexpr std::size_t kLargestMessage = 65536;
// 1000 and 2048: the C library keeps small pieces of memory, of up to 1032 bytes, for each thread.
constexpr std::size_t kSizes[] = {16, 64, 1000, 2048, kLargestMessage};
constexpr std::size_t kBytesPerIteration = std::size_t{16} * 1024 * 1024;
constexpr std::size_t kMaxMessages = 8192;
constexpr std::size_t kMaxLargest = 16;

constexpr std::size_t maxMessages(std::size_t aSize) {
    return aSize == kLargestMessage ? kMaxLargest : kMaxMessages;
}

class OsxQueue {
public:
    OsxQueue(std::size_t aSize, std::size_t aMessages) {
        osxMsgQueueInit(aMessages * aSize, 0, &mHandle, nullptr);
    }
    ~OsxQueue() {
        osxNameTableUnRegister(mHandle);
        osxMsgQueueDelete(mHandle);
    }
    OsxQueue(const OsxQueue&) = delete;
    OsxQueue& operator=(const OsxQueue&) = delete;
    void send(char* aData, std::size_t aSize) {
        long lCount = 0;
        osxMsgSend(mHandle, aData, aSize, &lCount);
    }
    void receive(char* aBuffer) {
        unsigned long lSize = 0;
        osxMsgRecv(mHandle, aBuffer, kLargestMessage, &lSize, OSX_INFINITE_TIMEOUT);
    }

private:
    void* mHandle = nullptr;
};

class AceQueue {
public:
    AceQueue(std::size_t aSize, std::size_t aMessages)
        : mQueue(aMessages * aSize, aMessages * aSize) {}
    void send(char* aData, std::size_t aSize) {
        auto* lBlock = new ACE_Message_Block(aSize);
        lBlock->copy(aData, aSize);
        mQueue.enqueue_tail(lBlock);
    }
    void receive(char* aBuffer) {
        ACE_Message_Block* lBlock = nullptr;
        mQueue.dequeue_head(lBlock);
        std::memcpy(aBuffer, lBlock->rd_ptr(), lBlock->length());
        lBlock->release();
    }

private:
    ACE_Message_Queue<ACE_MT_SYNCH> mQueue;
};

/// A message for queues that carry a pointer.
struct Message {
    std::size_t size;
    static Message* create(const char* aData, std::size_t aSize) {
        auto* lMessage = static_cast<Message*>(std::malloc(sizeof(Message) + aSize));
        lMessage->size = aSize;
        std::memcpy(lMessage + 1, aData, aSize);
        return lMessage;
    }
    void takeTo(char* aBuffer) {
        std::memcpy(aBuffer, this + 1, size);
        std::free(this);
    }
};

class GlibQueue {
public:
    GlibQueue(std::size_t, std::size_t) : mQueue(g_async_queue_new()) {}
    ~GlibQueue() { g_async_queue_unref(mQueue); }
    GlibQueue(const GlibQueue&) = delete;
    GlibQueue& operator=(const GlibQueue&) = delete;
    void send(char* aData, std::size_t aSize) {
        g_async_queue_push(mQueue, Message::create(aData, aSize));
    }
    void receive(char* aBuffer) {
        static_cast<Message*>(g_async_queue_pop(mQueue))->takeTo(aBuffer);
    }

private:
    GAsyncQueue* mQueue;
};

class AprQueue {
public:
    AprQueue(std::size_t, std::size_t aMessages) {
        apr_initialize();
        apr_pool_create(&mPool, nullptr);
        apr_queue_create(&mQueue, static_cast<unsigned int>(aMessages), mPool);
    }
    ~AprQueue() { apr_pool_destroy(mPool); }
    AprQueue(const AprQueue&) = delete;
    AprQueue& operator=(const AprQueue&) = delete;
    void send(char* aData, std::size_t aSize) {
        Message* lMessage = Message::create(aData, aSize);
        while (apr_queue_push(mQueue, lMessage) == APR_EINTR) {  // woken, but it is full again
        }
    }
    void receive(char* aBuffer) {
        void* lMessage = nullptr;
        while (apr_queue_pop(mQueue, &lMessage) == APR_EINTR) {  // woken, but it is empty again
        }
        static_cast<Message*>(lMessage)->takeTo(aBuffer);
    }

private:
    apr_pool_t* mPool = nullptr;
    apr_queue_t* mQueue = nullptr;
};

class PocoQueue {
public:
    PocoQueue(std::size_t, std::size_t) {}
    void send(char* aData, std::size_t aSize) {
        mQueue.enqueueNotification(Poco::AutoPtr<Bytes>(new Bytes(aData, aSize)));
    }
    void receive(char* aBuffer) {
        const Poco::AutoPtr<Poco::Notification> lMessage(mQueue.waitDequeueNotification());
        const auto* lBytes = static_cast<const Bytes*>(lMessage.get());
        std::memcpy(aBuffer, lBytes->mBytes.data(), lBytes->mBytes.size());
    }

private:
    struct Bytes : Poco::Notification {
        Bytes(const char* aData, std::size_t aSize) : mBytes(aData, aData + aSize) {}
        std::vector<char> mBytes;
    };
    Poco::NotificationQueue mQueue;
};

class PosixQueue {
public:
    PosixQueue(std::size_t aSize, std::size_t) : mBuffer(aSize) {
        const std::string lName = "/osx-bench-" + std::to_string(::getpid());
        mq_attr lAttributes{};
        lAttributes.mq_maxmsg = 10;
        lAttributes.mq_msgsize = static_cast<long>(aSize);
        mQueue = mq_open(lName.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600, &lAttributes);
        mq_unlink(lName.c_str());
    }
    ~PosixQueue() { mq_close(mQueue); }
    PosixQueue(const PosixQueue&) = delete;
    PosixQueue& operator=(const PosixQueue&) = delete;
    void send(char* aData, std::size_t aSize) { mq_send(mQueue, aData, aSize, 0); }
    void receive(char* aBuffer) { mq_receive(mQueue, aBuffer, mBuffer, nullptr); }

private:
    std::size_t mBuffer;
    mqd_t mQueue;
};

// --- the work ---

template <class Queue>
double allocationsPerMessage(Queue& aQueue, std::vector<char>& aBytes, std::vector<char>& aBuffer) {
    constexpr int kMessages = 100;
    const std::size_t lBefore = bench::allocations();
    for (int lMessage = 0; lMessage < kMessages; ++lMessage) {
        aQueue.send(aBytes.data(), aBytes.size());
        aQueue.receive(aBuffer.data());
    }
    return static_cast<double>(bench::allocations() - lBefore) / kMessages;
}

/// One send and one receive by a thread alone: the cost without anybody to wake.
template <class Queue>
void sendAndReceive(benchmark::State& aState, std::size_t aSize) {
    Queue lQueue(aSize, maxMessages(aSize));
    std::vector<char> lBytes(aSize, 'x');
    std::vector<char> lBuffer(kLargestMessage);
    for (auto lOnce : aState) {
        lQueue.send(lBytes.data(), lBytes.size());
        lQueue.receive(lBuffer.data());
    }
    aState.counters["allocations"] = allocationsPerMessage(lQueue, lBytes, lBuffer);
}

/// The same beside messages that wait, each of which takes its turn.
template <class Queue>
void sendAndReceiveBeside(benchmark::State& aState, std::size_t aWaiting) {
    constexpr std::size_t kSize = 64;
    Queue lQueue(kSize, aWaiting + 1);
    std::vector<char> lBytes(kSize, 'x');
    for (std::size_t lMessage = 0; lMessage < aWaiting; ++lMessage) {
        lQueue.send(lBytes.data(), lBytes.size());
    }
    for (auto lOnce : aState) {
        lQueue.send(lBytes.data(), lBytes.size());
        lQueue.receive(lBytes.data());
    }
    for (std::size_t lMessage = 0; lMessage < aWaiting; ++lMessage) {
        lQueue.receive(lBytes.data());
    }
}

template <class Work>
void runThreads(int aThreads, Work aWork) {
    std::vector<std::thread> lThreads;
    lThreads.reserve(static_cast<std::size_t>(aThreads));
    for (int lThread = 0; lThread < aThreads; ++lThread) {
        lThreads.emplace_back(aWork);
    }
    for (auto& lThread : lThreads) {
        lThread.join();
    }
}

/// Repeats some work and adds what it allocated.
template <class Work>
void repeat(std::size_t aTimes, std::atomic<std::size_t>& aAllocations, Work aWork) {
    const std::size_t lBefore = bench::allocations();
    for (std::size_t i = 0; i < aTimes; ++i) {
        aWork();
    }
    aAllocations += bench::allocations() - lBefore;
}

/// Some thousand messages from threads to threads; their start and end, the same for every
/// subject, is part of the time.
template <class Queue>
void transfer(benchmark::State& aState, std::size_t aSize, int aSenders, int aReceivers) {
    const std::size_t lMessages = std::min(kMaxMessages, kBytesPerIteration / aSize);
    const auto lShare = [&](int aThreads) {
        return lMessages / static_cast<std::size_t>(aThreads);
    };
    Queue lQueue(aSize, maxMessages(aSize));
    std::atomic<std::size_t> lAllocations{0};
    for (auto lOnce : aState) {
        std::thread lReceiving([&] {
            runThreads(aReceivers, [&] {
                std::vector<char> lBuffer(kLargestMessage);
                repeat(lShare(aReceivers), lAllocations, [&] { lQueue.receive(lBuffer.data()); });
            });
        });
        runThreads(aSenders, [&] {
            std::vector<char> lBytes(aSize, 'x');
            repeat(lShare(aSenders), lAllocations,
                   [&] { lQueue.send(lBytes.data(), lBytes.size()); });
        });
        lReceiving.join();
    }
    bench::operationsPerIteration(aState, static_cast<double>(lMessages));
    aState.counters["allocations"] = static_cast<double>(lAllocations) /
                                     static_cast<double>(aState.iterations()) /
                                     static_cast<double>(lMessages);
}

enum class Bound { kYes, kNo };

template <class Queue>
void enter(const char* aRole, const char* aSubject, Bound aBound,
           std::size_t aLargest = kLargestMessage) {
    for (const std::size_t lSize : kSizes) {
        if (lSize > aLargest) {
            continue;
        }
        const bool lIsUnlike = aBound == Bound::kNo && lSize == kLargestMessage;
        const std::string lBytes = std::to_string(lSize) + " bytes, ";
        bench::add(lBytes + "1 thread alone", aRole, aSubject,
                   [=](benchmark::State& aState) { sendAndReceive<Queue>(aState, lSize); });
        for (const auto& [lSenders, lReceivers] : {std::pair(1, 1), {4, 1}, {4, 4}}) {
            const int lFrom = lSenders;
            const int lTo = lReceivers;
            bench::add(
                lBytes + std::to_string(lFrom) + " to " + std::to_string(lTo),
                lIsUnlike ? bench::kOther : aRole, aSubject,
                [=](benchmark::State& aState) { transfer<Queue>(aState, lSize, lFrom, lTo); })
                .withItsThreads();
        }
    }
}

/// Rows for the chart alone; those of the POSIX queue would not fit into it.
template <class Queue>
void enterWaiting(const char* aRole, const char* aSubject) {
    for (const std::size_t lWaiting : {10, 1000, 100000}) {
        bench::add(
            "send and receive while, " + std::to_string(lWaiting) + " wait", aRole, aSubject,
            [=](benchmark::State& aState) { sendAndReceiveBeside<Queue>(aState, lWaiting); });
    }
}

template <class Queue>
void enterAll(const char* aRole, const char* aSubject, Bound aBound = Bound::kYes) {
    enter<Queue>(aRole, aSubject, aBound);
    enterWaiting<Queue>(aRole, aSubject);
}

}  // namespace

void bench::enterSubjects() {
    enterAll<OsxQueue>(kOsx, "osx");
    enterAll<AceQueue>(kPeer, "plain ACE");
    enterAll<GlibQueue>(kPeer, "GLib", Bound::kNo);
    enterAll<PocoQueue>(kPeer, "POCO", Bound::kNo);
    enterAll<AprQueue>(kPeer, "APR");
    enter<PosixQueue>(kPeer, "POSIX mq", Bound::kYes, 2048);
}
