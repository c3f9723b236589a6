// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ObjectHead.hpp"

#include <foundation/threads/Mutex.hpp>
#include <storage/cloudprovider/ExtendedCloudClient.hpp>

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <cstddef>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace storage::cloudprovider::s3 {

/// A map that forgets what was put in first when there is too much.
template <class Value>
class BoundedMap {
public:
    explicit BoundedMap(std::size_t most) : m_most(most) {}

    void put(const std::string& key, Value value) {
        if (m_values.insert_or_assign(key, std::move(value)).second) {
            m_order.push_back(key);
        }
        while (m_values.size() > m_most || m_order.size() > 2 * m_most) {
            m_values.erase(m_order.front());
            m_order.pop_front();
        }
    }
    std::optional<Value> find(const std::string& key) const {
        const auto found = m_values.find(key);
        return found == m_values.end() ? std::nullopt : std::optional(found->second);
    }
    void erase(const std::string& key) { m_values.erase(key); }

private:
    std::size_t m_most;
    std::map<std::string, Value> m_values;
    std::deque<std::string> m_order;  // may name what was erased
};

/// What a client remembers of objects, so that it needs not ask for it again. All of it may be forgotten at any time at
/// the price of a request - but for completions that nobody knows the outcome of, which count as failed then. Threads:
/// any.
class ObjectMemory {
public:
    /// What was last seen of an object, or stored.
    struct Seen {
        std::string Version;
        ObjectAttributes Attributes;
        bool IsOurs = false;  ///< stored by this client
    };
    /// A completion whose answer is not known yet.
    struct Completion {
        std::string WriteId;
        std::vector<PartInfo> Records;
    };

    void see(const std::string& key, Seen seen);
    std::optional<Seen> lastSeen(const std::string& key) const;
    void forget(const std::string& key);

    /// What the object will have that an upload makes.
    struct Upload {
        ObjectAttributes Attributes;
        Tags ObjectTags;
        /// When an answer to its beginning was lost, so that there may be another one that nobody knows; by the store's
        /// clock.
        std::optional<boost::posix_time::time_period> LostBeginning{};
    };
    void beginUpload(const std::string& writeId, Upload upload);
    std::optional<Upload> endUpload(const std::string& writeId);

    void beginCompletion(const std::string& key, Completion completion);
    void settleCompletion(const std::string& key);
    std::optional<Completion> unsettledCompletion(const std::string& key) const;

private:
    static constexpr std::size_t kMost = 1024;

    mutable foundation::Mutex m_mutex;
    BoundedMap<Seen> m_seen CLOUDPROVIDER_GUARDED_BY(m_mutex){kMost};
    BoundedMap<Upload> m_uploads CLOUDPROVIDER_GUARDED_BY(m_mutex){kMost};
    BoundedMap<Completion> m_completions CLOUDPROVIDER_GUARDED_BY(m_mutex){kMost};
};

}  // namespace storage::cloudprovider::s3
