// SPDX-License-Identifier: Apache-2.0
#include "Mischief.hpp"

#include "Footprint.hpp"

#include <foundation/services/Files.hpp>
#include <storage/cloudprovider/sqlite/SqliteClient.hpp>
#include <storage/cloudprovider/testing/stored.hpp>

#include <fcntl.h>

#include <algorithm>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>

namespace soak {

namespace {

using storage::cloudprovider::SqliteClient;
using storage::cloudprovider::test::contentOf;
using storage::cloudprovider::test::storeObject;

void changeLastByte(const Lap& lap, const std::string& key) {
    SqliteClient store(lap.store);
    if (auto bytes = contentOf(store, key).value_or(""); !bytes.empty()) {
        bytes.back() = static_cast<char>(bytes.back() ^ 1);
        storeObject(store, key, bytes);
    }
}

void changeOwnFiles(const Lap& lap) {
    for (const auto* const name : {"0/0", "0/1", "0/2", "1/3", "1/4"}) {
        changeLastByte(lap, lap.ownFolder + name);
    }
}

void changeSharedFiles(const Lap& lap) {
    for (const auto* const name : {"0", "1", "2"}) {
        changeLastByte(lap, lap.sharedFolder + name);
    }
}

void changeRegions(const Lap& lap) {
    changeLastByte(lap, lap.ownFolder + "regions");
}

void loseRecords(const Lap& lap) {
    SqliteClient store(lap.store);
    storeObject(store, lap.sharedFolder + "log", "");
}

void leaveObject(const Lap& lap) {
    SqliteClient store(lap.store);
    storeObject(store, "left", "behind");
}

void leaveUpload(const Lap& lap) {
    SqliteClient store(lap.store);
    store.startMultipartUpload("left", "");
}

void leaveTemporaryFile(const Lap& /*lap*/) {
    foundation::createTemporaryFile(foundation::temporaryFolder(), "left.");
}

void leaveDescriptor(const Lap& /*lap*/) {
    ::open("/dev/null", O_RDONLY | O_CLOEXEC);
}

void leaveMemory(const Lap& /*lap*/) {
    static std::vector<std::string> left;
    if (left.size() < 3) {
        left.emplace_back(Footprint::kMostGrowth / 2, 'x');
    }
}

void leaveThread(const Lap& /*lap*/) {
    struct Sleepers {
        std::mutex mutex;
        std::condition_variable changed;
        bool isOver = false;
        std::vector<std::thread> threads;
        ~Sleepers() {
            {
                const std::lock_guard lock(mutex);
                isOver = true;
                changed.notify_all();
            }
            for (auto& thread : threads) {
                thread.join();
            }
        }
    };
    static Sleepers sleepers;
    sleepers.threads.emplace_back([] {
        std::unique_lock lock(sleepers.mutex);
        sleepers.changed.wait(lock, [] { return sleepers.isOver; });
    });
}

const std::map<std::string, void (*)(const Lap&)>& all() {
    static const std::map<std::string, void (*)(const Lap&)> rows = {
        {"bytes", changeOwnFiles},         {"versions", changeSharedFiles},  {"regions", changeRegions},
        {"records", loseRecords},          {"objects", leaveObject},         {"uploads", leaveUpload},
        {"temporary", leaveTemporaryFile}, {"descriptors", leaveDescriptor}, {"memory", leaveMemory},
        {"threads", leaveThread},
    };
    return rows;
}

}  // namespace

Mischief::Mischief(std::string kind) : m_kind(std::move(kind)) {
    if (!m_kind.empty() && all().count(m_kind) == 0) {
        throw std::invalid_argument("no such mischief: " + m_kind);
    }
}

std::vector<std::string> Mischief::kinds() {
    std::vector<std::string> kinds;
    for (const auto& row : all()) {
        kinds.push_back(row.first);
    }
    return kinds;
}

void Mischief::happen(const Lap& lap) const {
    if (!m_kind.empty()) {
        all().at(m_kind)(lap);
    }
}

}  // namespace soak
