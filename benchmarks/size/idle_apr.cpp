// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include <apr_general.h>
#include <apr_poll.h>
#include <apr_queue.h>

int main() {
    apr_initialize();
    apr_pool_t* lPool = nullptr;
    apr_pollset_t* lPollset = nullptr;
    apr_queue_t* lQueue = nullptr;
    apr_pool_create(&lPool, nullptr);
    apr_queue_create(&lQueue, 16, lPool);
    apr_pollset_create(&lPollset, 16, lPool, APR_POLLSET_WAKEABLE);
    apr_int32_t lReady = 0;
    const apr_pollfd_t* lDescriptors = nullptr;
    return apr_pollset_poll(lPollset, -1, &lReady, &lDescriptors);
}
