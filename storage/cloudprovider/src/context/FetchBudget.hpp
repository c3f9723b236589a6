// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/threads/Mutex.hpp>

#include <cstddef>
#include <memory>
#include <utility>

namespace storage::cloudprovider {

/// How many ranges the sequential readers of a provider may together hold ahead in memory. Threads: any.
class FetchBudget : public std::enable_shared_from_this<FetchBudget> {
public:
    /// One range of the budget, which goes back to it in the end, or none.
    class Share {
    public:
        Share() = default;
        explicit Share(std::shared_ptr<FetchBudget> budget) noexcept : m_budget(std::move(budget)) {}
        Share(Share&&) noexcept = default;
        Share& operator=(Share&& other) noexcept {
            m_budget.swap(other.m_budget);
            return *this;
        }
        Share(const Share&) = delete;
        Share& operator=(const Share&) = delete;
        ~Share() {
            if (m_budget) {
                const foundation::MutexLock lock(m_budget->m_mutex);
                ++m_budget->m_left;
            }
        }

        explicit operator bool() const noexcept { return m_budget != nullptr; }

    private:
        std::shared_ptr<FetchBudget> m_budget;
    };

    explicit FetchBudget(std::size_t ranges) : m_left(ranges) {}

    /// A share, or none when none is left.
    Share take() {
        const foundation::MutexLock lock(m_mutex);
        if (m_left == 0) {
            return {};
        }
        --m_left;
        return Share(shared_from_this());
    }

private:
    foundation::Mutex m_mutex;  // a leaf
    std::size_t m_left CLOUDPROVIDER_GUARDED_BY(m_mutex);
};

}  // namespace storage::cloudprovider
