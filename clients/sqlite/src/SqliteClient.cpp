// SPDX-License-Identifier: Apache-2.0
#include <storage/cloudprovider/sqlite/SqliteClient.hpp>

#include "ConnectionPool.hpp"
#include "DiskReserve.hpp"
#include "WriteQueue.hpp"
#include "contents.hpp"
#include "errors.hpp"
#include "listing.hpp"
#include "objects.hpp"
#include "storeFile.hpp"
#include "uploads.hpp"
#include "vacuum.hpp"

#include <SQLiteCpp/Transaction.h>
#include <storage/cloudprovider/CloudException.hpp>

#include <algorithm>
#include <chrono>
#include <istream>
#include <optional>
#include <ostream>
#include <thread>
#include <type_traits>
#include <utility>

namespace storage::cloudprovider {

using foundation::storage::provider::ExceptionContext;
using sqlite::Connection;
using sqlite::ConnectionPool;
using sqlite::Durability;

namespace {

// An object that shares its commit with others is held in memory meanwhile; for a larger one the wait for the disk is
// little beside its bytes.
constexpr std::uint64_t kMostShared = std::uint64_t{256} * 1024;

constexpr std::chrono::milliseconds kLongestPause{100};

void requireKey(const std::string& key) {
    if (key.empty()) {
        throw InvalidLocationException(ExceptionContext("an object needs a key that is not empty"));
    }
}

}  // namespace

/// Runs each operation in a transaction on a connection of its own, and is the only place where what SQLite
/// reports becomes a CloudException.
class SqliteClient::Implementation {
public:
    Implementation(std::string file, const SqliteOptions& options)
        : m_file(std::move(file)),
          m_pool(options.BusyTimeout, open(options)),
          m_writers(m_pool, options.BusyTimeout),
          m_reserve(m_pool.isReadOnly() ? std::string() : m_pool.file()) {
        if (!m_pool.isReadOnly()) {
            tidy(options.BusyTimeout);
        }
        m_reserve.keep();
    }
    Implementation(const Implementation&) = delete;
    Implementation& operator=(const Implementation&) = delete;
    ~Implementation() { m_reserve.keep(); }

    /// Run an action on the store as it is now; later changes do not show.
    template <class Action>
    auto read(const char* step, const std::string& key, const Action& action) {
        return translate(step, key, [&] {
            const ConnectionPool::Lease connection = m_pool.lease();
            const SQLite::Transaction transaction(connection->database());
            return action(*connection);
        });
    }

    /// Run an action that changes the store, on the caller's thread; when it returns, its changes are durable, when it
    /// throws, there are none.
    template <class Action>
    auto write(const char* step, const std::string& key, const Action& action) {
        return translate(step, key, [&] { return change(action, {}); });
    }

    /// The same for an action of an upload: a loss of power may take its changes back until the upload is completed.
    template <class Action>
    auto prepare(const char* step, const std::string& key, const Action& action) {
        return translate(step, key, [&] { return change(action, {Durability::Later, std::nullopt}); });
    }

    /// As write, for an action that writes not much more than size bytes, and may run on any thread.
    template <class Action>
    auto writeShared(const char* step, const std::string& key, std::uint64_t size, const Action& action) {
        return translate(step, key, [&] { return change(action, {Durability::AtOnce, size}); });
    }

    /// As write, for an action that removes something. On a full disk it has the room that is kept for it; where room
    /// is short, what it leaves free is given back to the disk.
    template <class Action>
    void remove(const char* step, const std::string& key, const Action& action,
                Durability durability = Durability::AtOnce) {
        translate(step, key, [&] {
            try {
                change(action, {durability, std::nullopt});
            } catch (const SQLite::Exception& error) {
                if (!sqlite::isDiskFull(error)) {
                    throw;
                }
                m_reserve.giveUp();
                sqlite::moveLog(*m_pool.lease());
                try {
                    change(action, {durability, std::nullopt});
                } catch (...) {
                    m_reserve.restore();
                    throw;
                }
            }
        });
        if (m_reserve.isDiskShort()) {
            giveRoomBack();
        }
    }

    /// Remove the uploads without activity for a day, and those that were given up.
    void dropAbandonedUploads(const char* step, const std::string& key) {
        using Clock = std::chrono::steady_clock;
        bool isLeft = read(step, key, sqlite::hasAbandonedUploads);
        while (isLeft) {
            const auto start = Clock::now();
            remove(
                step, key, [&](Connection& connection) { isLeft = sqlite::dropAbandonedUpload(connection); },
                Durability::Later);
            if (isLeft) {
                // Processes that wait for their turn look now and then only (sqlite.org/c3ref/busy_timeout.html), so
                // none would come between if the store were not free for as long as it was not.
                std::this_thread::sleep_for(std::min<Clock::duration>(Clock::now() - start, kLongestPause));
            }
        }
    }

    /// The same where that is not what was asked for: whoever comes next goes on when it fails.
    void tryToDropAbandonedUploads(const char* step, const std::string& key) {
        try {
            dropAbandonedUploads(step, key);
        } catch (const ResourceInUseException&) {
        } catch (const UnknownErrorException&) {
            // Damage among the uploads is no reason not to read the objects.
        }
    }

    /// Remove what was too much for one transaction, if something is left.
    void dropRest(const char* step, const std::string& key, bool isLeft) {
        if (isLeft) {
            tryToDropAbandonedUploads(step, key);
        }
    }

    /// Read the bytes of an object that can be held in memory.
    std::string readBytes(const char* step, const std::string& key, std::istream& data, std::uint64_t size) {
        return translate(step, key, [&] { return sqlite::readBytes(data, size); });
    }

private:
    struct Terms {
        Durability durability = Durability::AtOnce;
        std::optional<std::uint64_t> shareableSize;
    };

    template <class Action>
    auto change(const Action& action, const Terms& terms) -> decltype(action(std::declval<Connection&>())) {
        using Result = decltype(action(std::declval<Connection&>()));
        if constexpr (std::is_void_v<Result>) {
            m_writers.run({action, terms.durability, terms.shareableSize});
        } else {
            std::optional<Result> result;
            m_writers.run(
                {[&](Connection& connection) { result = action(connection); }, terms.durability, terms.shareableSize});
            return std::move(*result);
        }
    }

    // The removal is done, so this neither fails nor waits for others; who removes next tries again.
    void giveRoomBack() noexcept {
        try {
            const ConnectionPool::Lease connection = m_pool.lease();
            const sqlite::Impatience impatience(*connection);
            sqlite::shrink(*connection, m_reserve, [] {});
        } catch (const std::exception&) {
        }
    }

    template <class Action>
    auto translate(const char* step, const std::string& key, const Action& action) -> decltype(action()) {
        return sqlite::translateErrors([&] { return describe(step, key); }, action);
    }

    std::string describe(const char* step, const std::string& key) const {
        return std::string("cannot ") + step + (key.empty() ? "" : " \"" + key + "\" in") + " the store " + m_file;
    }

    std::unique_ptr<Connection> open(const SqliteOptions& options) {
        return translate("open", {}, [&] { return sqlite::openStore(m_file, true, options.BusyTimeout); });
    }

    // Drop abandoned uploads if nobody else is writing: opening neither waits nor fails for them, since whoever
    // begins the next upload drops them, too.
    void tidy(std::chrono::milliseconds busyTimeout) {
        const auto setBusyTimeout = [this](std::chrono::milliseconds timeout) {
            translate("open", {}, [&] { m_pool.lease()->setBusyTimeout(timeout); });
        };
        setBusyTimeout(std::chrono::milliseconds(0));
        tryToDropAbandonedUploads("open", {});
        setBusyTimeout(busyTimeout);
    }

    const std::string m_file;
    ConnectionPool m_pool;
    sqlite::WriteQueue m_writers;
    const sqlite::DiskReserve m_reserve;
};

SqliteClient::SqliteClient(const std::string& file, const SqliteOptions& options)
    : m_implementation(std::make_unique<Implementation>(sqlite::toDatabaseName(file), options)) {}

SqliteClient::~SqliteClient() = default;

boost::optional<ObjectInfo> SqliteClient::getObjectInfo(const std::string& key) {
    return m_implementation->read("look up", key, [&](Connection& connection) {
        const auto object = sqlite::findObject(connection, key);
        return object ? boost::optional<ObjectInfo>({key, object->size, object->modified}) : boost::none;
    });
}

void SqliteClient::checkObjectName(const std::string& name) {
    if (name.empty() || name.find('\0') != std::string::npos) {
        throw InvalidLocationException(ExceptionContext("a name must not be empty or hold a NUL byte"));
    }
}

std::vector<ObjectInfo> SqliteClient::listObjects(const std::string& prefix, std::string& token,
                                                  const ListOptions& options) {
    return m_implementation->read(
        "list", prefix, [&](Connection& connection) { return sqlite::listPage(connection, prefix, token, options); });
}

void SqliteClient::deleteObject(const std::string& key) {
    removeObject(key, {});
}

void SqliteClient::getObject(const std::string& key, std::ostream& sink, std::uint64_t first, std::uint64_t last) {
    m_implementation->read("get", key, [&](Connection& connection) {
        const sqlite::StoredObject object = sqlite::getExistingObject(connection, key);
        const bool isWhole = first == 0 && last == 0;
        if (!isWhole && (first > last || last >= object.size)) {
            throw sqlite::StoreFailure("it has only " + std::to_string(object.size) + " bytes, not those from " +
                                       std::to_string(first) + " to " + std::to_string(last));
        }
        const std::uint64_t count = isWhole ? object.size : last - first + 1;
        sqlite::readContent(connection, object.content, first, count, sink);
    });
}

void SqliteClient::putObject(const std::string& key, std::istream& data, std::uint64_t size) {
    putObjectOver(key, data, size, ExpectedObject::anything());
}

std::vector<PartInfo> SqliteClient::getObjectParts(const std::string& key) {
    auto object = describeObject(key);
    return object && object->Parts.size() > 1 ? std::move(object->Parts) : std::vector<PartInfo>();
}

std::string SqliteClient::startMultipartUpload(const std::string& key, const std::string& /*lastTag*/) {
    requireKey(key);
    m_implementation->dropAbandonedUploads("start an upload of", key);
    return m_implementation->prepare("start an upload of", key,
                                     [&](Connection& connection) { return sqlite::startUpload(connection, key); });
}

std::string SqliteClient::uploadPart(const std::string& key, const std::string& uploadId, const PartInfo& part,
                                     std::istream& data) {
    return m_implementation->prepare("upload a part of", key, [&](Connection& connection) {
        return sqlite::sendPart(connection, key, uploadId, part, data);
    });
}

std::string SqliteClient::copyPart(const std::string& key, const std::string& uploadId, const PartInfo& part) {
    return copyRange(key, uploadId, part, {});
}

void SqliteClient::abortMultipartUpload(const std::string& key, const std::string& uploadId) {
    constexpr const char* kStep = "abort an upload of";
    bool isLeft = false;
    m_implementation->remove(kStep, key,
                             [&](Connection& connection) { isLeft = sqlite::abortUpload(connection, key, uploadId); });
    m_implementation->dropRest(kStep, key, isLeft);
}

void SqliteClient::completeMultipartUpload(const std::string& key, const std::string& uploadId,
                                           const std::vector<PartInfo>& parts) {
    completeUploadOver(key, uploadId, parts, ExpectedObject::anything());
}

std::optional<ObjectDescription> SqliteClient::describeObject(const std::string& key) {
    return m_implementation->read("look up the parts of", key,
                                  [&](Connection& connection) { return sqlite::describeObject(connection, key); });
}

void SqliteClient::getRange(const std::string& key, const std::string& version, const ObjectRange& range,
                            std::ostream& sink) {
    m_implementation->read("get", key, [&](Connection& connection) {
        const sqlite::StoredObject object = sqlite::getExistingObject(connection, key, version);
        sqlite::requireRange(object, range.First, range.Size);
        sqlite::readContent(connection, object.content, range.First, range.Size, sink);
    });
}

std::string SqliteClient::copyRange(const std::string& key, const std::string& uploadId, const PartInfo& part,
                                    const std::string& version) {
    return copyRun(key, uploadId, {part}, version).front().Tag;
}

std::vector<PartInfo> SqliteClient::copyRun(const std::string& key, const std::string& uploadId,
                                            const std::vector<PartInfo>& run, const std::string& version) {
    return m_implementation->prepare("copy a part of", key, [&](Connection& connection) {
        return sqlite::copyStoredParts(connection, key, uploadId, run, version);
    });
}

std::string SqliteClient::putObjectOver(const std::string& key, std::istream& data, std::uint64_t size,
                                        const ExpectedObject& expected) {
    requireKey(key);
    constexpr const char* kStep = "put";
    bool isLeft = false;
    const auto store = [&](Connection& connection, const auto& writeContent) {
        sqlite::requireExpected(connection, key, expected);
        const std::int64_t content = writeContent();
        isLeft = sqlite::replaceObject(connection, key, content, size, 0);
        return sqlite::makeVersion(content);
    };
    const auto put = [&] {
        if (size > kMostShared) {
            return m_implementation->write(kStep, key, [&](Connection& connection) {
                return store(connection, [&] { return sqlite::writeContent(connection, data, size); });
            });
        }
        // Read before it waits with others, who are not to wait for data, nor to have it read on another thread.
        const std::string bytes = m_implementation->readBytes(kStep, key, data, size);
        return m_implementation->writeShared(kStep, key, size, [&](Connection& connection) {
            return store(connection, [&] { return sqlite::writeContent(connection, bytes); });
        });
    };
    std::string version = put();
    m_implementation->dropRest(kStep, key, isLeft);
    return version;
}

std::string SqliteClient::completeUploadOver(const std::string& key, const std::string& uploadId,
                                             const std::vector<PartInfo>& parts, const ExpectedObject& expected) {
    constexpr const char* kStep = "complete an upload of";
    const auto completed = m_implementation->write(kStep, key, [&](Connection& connection) {
        return sqlite::completeUpload(connection, key, uploadId, parts, expected);
    });
    m_implementation->dropRest(kStep, key, completed.isSomethingLeft);
    return sqlite::makeVersion(completed.content);
}

bool SqliteClient::copyObject(const std::string& from, const std::string& fromVersion, const std::string& to,
                              const ExpectedObject& expected) {
    requireKey(to);
    constexpr const char* kStep = "copy";
    const bool isLeft = m_implementation->write(kStep, from, [&](Connection& connection) {
        return sqlite::copyObject(connection, from, fromVersion, to, expected);
    });
    m_implementation->dropRest(kStep, from, isLeft);
    return true;
}

void SqliteClient::removeObject(const std::string& key, const std::string& version) {
    constexpr const char* kStep = "delete";
    bool isLeft = false;
    m_implementation->remove(kStep, key,
                             [&](Connection& connection) { isLeft = sqlite::removeObject(connection, key, version); });
    m_implementation->dropRest(kStep, key, isLeft);
}

std::vector<UnfinishedUpload> SqliteClient::listUploads(const std::string& prefix, std::string& token) {
    return m_implementation->read("list uploads of", prefix, [&](Connection& connection) {
        return sqlite::listUploads(connection, prefix, token);
    });
}

StoreLimits SqliteClient::limits() const {
    return {.UsefulUploads = 1};
}

}  // namespace storage::cloudprovider
