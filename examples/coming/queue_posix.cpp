// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <pthread.h>

#include <cstdio>
#include <ctime>
#include <deque>
#include <string>

struct Queue {
    std::size_t capacity = 0;
    std::size_t bytes = 0;
    std::deque<std::string> messages;
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t room = PTHREAD_COND_INITIALIZER;
    pthread_cond_t message = PTHREAD_COND_INITIALIZER;
};

static void initialise(Queue& aQueue, std::size_t aCapacity) {
    aQueue.capacity = aCapacity;
    // Otherwise a step of the wall clock ends or lengthens a receiver's wait.
    pthread_condattr_t lAttributes;
    pthread_condattr_init(&lAttributes);
    pthread_condattr_setclock(&lAttributes, CLOCK_MONOTONIC);
    pthread_cond_init(&aQueue.message, &lAttributes);
    pthread_condattr_destroy(&lAttributes);
}

static void send(Queue& aQueue, const std::string& aText) {
    pthread_mutex_lock(&aQueue.mutex);
    while (aQueue.bytes >= aQueue.capacity) {
        pthread_cond_wait(&aQueue.room, &aQueue.mutex);
    }
    aQueue.messages.push_back(aText);
    aQueue.bytes += aText.size();
    pthread_cond_signal(&aQueue.message);
    pthread_mutex_unlock(&aQueue.mutex);
}

static bool receive(Queue& aQueue, std::string& aText, int aSeconds) {
    timespec lEnd{};
    clock_gettime(CLOCK_MONOTONIC, &lEnd);
    lEnd.tv_sec += aSeconds;
    pthread_mutex_lock(&aQueue.mutex);
    int lStatus = 0;
    while (aQueue.messages.empty() && lStatus == 0) {
        lStatus = pthread_cond_timedwait(&aQueue.message, &aQueue.mutex, &lEnd);
    }
    const bool lIsThere = !aQueue.messages.empty();
    if (lIsThere) {
        aText = aQueue.messages.front();
        aQueue.messages.pop_front();
        aQueue.bytes -= aText.size();
        pthread_cond_signal(&aQueue.room);
    }
    pthread_mutex_unlock(&aQueue.mutex);
    return lIsThere;
}

struct Sender {
    Queue queue;
    char** texts = nullptr;
};

static void* sendAll(void* aSender) {
    auto& lSender = *static_cast<Sender*>(aSender);
    for (char** lText = lSender.texts; *lText != nullptr; ++lText) {
        send(lSender.queue, *lText);
    }
    return nullptr;
}

int main(int aCount, char** aArguments) {
    Sender lSender;
    initialise(lSender.queue, 4096);
    lSender.texts = aArguments + 1;
    pthread_t lThread{};
    if (pthread_create(&lThread, nullptr, sendAll, &lSender) != 0) {
        return 1;
    }
    std::string lText;
    for (int lMessage = 1; lMessage < aCount && receive(lSender.queue, lText, 10); ++lMessage) {
        std::printf("%s\n", lText.c_str());
    }
    pthread_join(lThread, nullptr);
    return 0;
}
