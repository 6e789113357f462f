// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// A message queue beside a list that does the same in the simplest way, for some thousand random
// steps of the library's calls and of ACE's operations.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <deque>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "ace/Message_Block.h"
#include "ace/Message_Queue.h"
#include "ace/Time_Value.h"
#include "osx/QueueUnderTest.h"

using test::Queue;
using test::Received;

namespace {

constexpr std::size_t kCapacity = 50000;

/// What stands in the model for a message or a block.
struct Entry {
    std::string text;
    std::string continuation;
    unsigned long priority = 0;
    /// Null for a message, which becomes a block of its own when ACE's operations ask for it.
    ACE_Message_Block* block = nullptr;

    std::size_t size() const { return text.size() + continuation.size(); }
};

class Model {
public:
    explicit Model(unsigned int aSeed) : mRandom(aSeed) {}
    ~Model() { EXPECT_EQ(static_cast<int>(mEntries.size()), mQueue.ace().flush()); }
    Model(const Model&) = delete;
    Model& operator=(const Model&) = delete;

    void step() {
        const std::vector<std::function<void()>> lSteps{
            [this] { send(); },
            [this] { send(); },
            [this] { receive(); },
            [this] { receive(); },
            [this] { enqueueTail(); },
            [this] { enqueueHead(); },
            [this] { enqueueByPriority(); },
            [this] { enqueueByDeadline(); },
            [this] { dequeue(&AceQueue::dequeue_head, mEntries.begin()); },
            [this] { dequeue(&AceQueue::dequeue, mEntries.begin()); },
            [this] { dequeue(&AceQueue::dequeue_deadline, mEntries.begin()); },
            [this] { dequeue(&AceQueue::dequeue_tail, last()); },
            [this] { dequeue(&AceQueue::dequeue_prio, lowest()); },
            [this] { peek(); },
            [this] { seldom([this] { flush(); }); },
            [this] { seldom([this] { close(); }); },
            [this] { seldom([this] { deactivate(); }); },
        };
        lSteps[upTo(lSteps.size() - 1)]();
        compareCounts();
    }

private:
    using AceQueue = test::AceQueue;
    using Place = std::deque<Entry>::iterator;
    using Dequeue = int (AceQueue::*)(ACE_Message_Block*&, ACE_Time_Value*);
    using Enqueue = int (AceQueue::*)(ACE_Message_Block*, ACE_Time_Value*);

    std::size_t upTo(std::size_t aLargest) {
        return std::uniform_int_distribution<std::size_t>(0, aLargest)(mRandom);
    }

    void seldom(const std::function<void()>& aStep) {
        if (upTo(20) == 0) {
            aStep();
        }
    }

    std::string text() {
        static constexpr std::size_t kLargest[] = {0, 20, 20, 600, 5000, 20000};
        return std::string(upTo(kLargest[upTo(5)]), static_cast<char>('a' + upTo(25)));
    }

    std::size_t bytes() const {
        std::size_t lBytes = 0;
        for (const Entry& lEntry : mEntries) {
            lBytes += lEntry.size();
        }
        return lBytes;
    }

    bool isFull() const { return bytes() >= kCapacity; }

    Place last() { return mEntries.empty() ? mEntries.end() : mEntries.end() - 1; }

    Place lowest() {
        return std::min_element(
            mEntries.begin(), mEntries.end(),
            [](const Entry& aOne, const Entry& aOther) { return aOne.priority < aOther.priority; });
    }

    /// @return where ACE puts a block: behind the last one that is as urgent.
    Place placeFor(unsigned long aPriority) {
        const auto lBehind =
            std::find_if(mEntries.rbegin(), mEntries.rend(),
                         [=](const Entry& aEntry) { return aEntry.priority >= aPriority; });
        return lBehind.base();
    }

    Entry entry() {
        Entry lEntry;
        lEntry.text = text();
        lEntry.priority = upTo(2);
        lEntry.block = new ACE_Message_Block(lEntry.text.size());
        lEntry.block->copy(lEntry.text.data(), lEntry.text.size());
        lEntry.block->msg_priority(lEntry.priority);
        if (upTo(3) == 0) {
            lEntry.continuation = text();
            lEntry.block->cont(new ACE_Message_Block(lEntry.continuation.size()));
            lEntry.block->cont()->copy(lEntry.continuation.data(), lEntry.continuation.size());
        }
        return lEntry;
    }

    std::vector<Entry> chain() {
        std::vector<Entry> lChain{entry()};
        while (upTo(3) == 0) {
            lChain.push_back(entry());
            lChain[lChain.size() - 2].block->next(lChain.back().block);
        }
        return lChain;
    }

    void send() {
        if (!isFull()) {
            Entry lEntry;
            lEntry.text = text();
            mEntries.push_back(lEntry);
            EXPECT_EQ(static_cast<long>(mEntries.size()), mQueue.send(lEntry.text));
        }
    }

    void receive() {
        const std::size_t lRoom = upTo(6000);
        const Received lReceived =
            mEntries.empty() ? Received{} : mQueue.receive(lRoom, upTo(1) == 0 ? 0 : 3600000);
        if (!mEntries.empty()) {
            EXPECT_EQ(OSX_OK, lReceived.status);
            EXPECT_TRUE(mEntries.front().text.substr(0, lRoom) == lReceived.text);
            mEntries.pop_front();
        }
    }

    /// Puts some blocks in, unless there is no room by the deadline, which has passed.
    void enqueue(Enqueue aOperation, const std::vector<Entry>& aBlocks, const Place& aPlace) {
        ACE_Time_Value lPassed(1);
        const int lCount = (mQueue.ace().*aOperation)(aBlocks.front().block, &lPassed);
        if (isFull()) {
            EXPECT_EQ(-1, lCount);
            EXPECT_EQ(EWOULDBLOCK, errno);
            for (const Entry& lEntry : aBlocks) {
                lEntry.block->release();
            }
            return;
        }
        mEntries.insert(aPlace, aBlocks.begin(), aBlocks.end());
        EXPECT_EQ(static_cast<int>(mEntries.size()), lCount);
    }

    void enqueueTail() { enqueue(&AceQueue::enqueue_tail, chain(), mEntries.end()); }
    void enqueueHead() { enqueue(&AceQueue::enqueue_head, chain(), mEntries.begin()); }
    void enqueueByDeadline() { enqueue(&AceQueue::enqueue_deadline, {entry()}, mEntries.end()); }
    void enqueueByPriority() {
        const Entry lEntry = entry();
        enqueue(upTo(1) == 0 ? &AceQueue::enqueue : &AceQueue::enqueue_prio, {lEntry},
                placeFor(lEntry.priority));
    }

    void dequeue(Dequeue aOperation, const Place& aPlace) {
        ACE_Message_Block* lBlock = nullptr;
        ACE_Time_Value lPassed(1);
        const int lCount = (mQueue.ace().*aOperation)(lBlock, &lPassed);
        if (mEntries.empty()) {
            EXPECT_EQ(-1, lCount);
            EXPECT_EQ(EWOULDBLOCK, errno);
            return;
        }
        EXPECT_EQ(static_cast<int>(mEntries.size()) - 1, lCount);
        compare(*aPlace, *lBlock);
        mEntries.erase(aPlace);
        lBlock->release();
    }

    void peek() {
        if (!mEntries.empty()) {
            ACE_Message_Block* lBlock = nullptr;
            EXPECT_EQ(static_cast<int>(mEntries.size()), mQueue.ace().peek_dequeue_head(lBlock));
            compare(mEntries.front(), *lBlock);
            mEntries.front().block = lBlock;
        }
    }

    static void compare(const Entry& aEntry, const ACE_Message_Block& aBlock) {
        EXPECT_TRUE(aEntry.block == nullptr || aEntry.block == &aBlock);
        EXPECT_TRUE(aEntry.text == std::string(aBlock.rd_ptr(), aBlock.length()));
        EXPECT_EQ(aEntry.priority, aBlock.msg_priority());
        EXPECT_EQ(aEntry.size(), aBlock.total_length());
    }

    void flush() {
        EXPECT_EQ(static_cast<int>(mEntries.size()), mQueue.ace().flush());
        mEntries.clear();
    }

    void close() {
        EXPECT_EQ(static_cast<int>(mEntries.size()), mQueue.ace().close());
        mEntries.clear();
        EXPECT_EQ(ACE_Message_Queue_Base::DEACTIVATED, mQueue.ace().activate());
    }

    void deactivate() {
        mQueue.ace().deactivate();
        EXPECT_EQ(0, mQueue.send("lost"));
        EXPECT_EQ(OSX_ERR_QUEUE_RECV, mQueue.receiveStatus(0));
        mQueue.ace().activate();
    }

    void compareCounts() {
        EXPECT_EQ(mEntries.size(), mQueue.ace().message_count());
        EXPECT_EQ(bytes(), mQueue.ace().message_bytes());
        EXPECT_EQ(bytes(), mQueue.ace().message_length());
        EXPECT_EQ(mEntries.empty(), mQueue.ace().is_empty());
        EXPECT_EQ(isFull(), mQueue.ace().is_full());
    }

    std::minstd_rand mRandom;
    Queue mQueue{kCapacity};
    std::deque<Entry> mEntries;
};

}  // namespace

class MessageQueueModel : public testing::TestWithParam<unsigned int> {};

TEST_P(MessageQueueModel, AgreesAfterEveryRandomStep) {
    constexpr int kSteps = 5000;
    Model lModel(GetParam());
    for (int lStep = 0; lStep < kSteps && !HasFailure(); ++lStep) {
        lModel.step();
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, MessageQueueModel, testing::Range(1U, 9U));
