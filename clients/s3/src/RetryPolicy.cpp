// SPDX-License-Identifier: Apache-2.0
#include "RetryPolicy.hpp"

#include "interrupts.hpp"

#include <algorithm>
#include <random>
#include <thread>

namespace storage::cloudprovider::s3 {

namespace {

using Clock = std::chrono::steady_clock;

std::chrono::milliseconds drawUpTo(std::chrono::milliseconds bound) {
    thread_local std::minstd_rand random(std::random_device{}());
    return std::chrono::milliseconds(
        std::uniform_int_distribution<std::chrono::milliseconds::rep>(0, bound.count())(random));
}

}  // namespace

bool RetryPolicy::waitAfter(unsigned tries) const {
    if (tries >= MostTries) {
        return false;
    }
    const auto bound = std::min<std::chrono::milliseconds>(LongestWait, FirstBound * (1LL << std::min(tries - 1, 20U)));
    const auto end = Clock::now() + drawUpTo(bound);
    throwIfInterrupted();
    for (auto now = Clock::now(); now < end; now = Clock::now()) {
        std::this_thread::sleep_for(std::min<Clock::duration>(end - now, kInterruptInterval));
        throwIfInterrupted();
    }
    return true;
}

}  // namespace storage::cloudprovider::s3
