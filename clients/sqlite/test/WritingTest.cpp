// SPDX-License-Identifier: Apache-2.0
#include "StoreTest.hpp"

#include <storage/cloudprovider/sqlite/storeMaintenance.hpp>

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <future>
#include <map>
#include <mutex>
#include <thread>

namespace storage::cloudprovider::test {

namespace {

using ::testing::IsSubstring;

// What is left of files after a loss of power: what they held when somebody last waited for the disk, if the system
// wrote nothing of its own accord. Noted while this lives, which must be longer than anybody has the files open.
class Disk {
public:
    Disk() { s_isWatched = true; }
    ~Disk() { s_isWatched = false; }

    static void write(int file) {
        ++s_waits;
        if (!s_isWatched) {
            return;
        }
        const std::string name = boost::filesystem::read_symlink("/proc/self/fd/" + std::to_string(file)).string();
        if (boost::filesystem::is_directory(name)) {
            return;
        }
        std::string bytes(boost::filesystem::file_size(name), '\0');
        std::ifstream(name, std::ios::binary).read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        const std::lock_guard lock(s_mutex);
        s_files[name] = std::move(bytes);
    }
    static int waits() { return s_waits; }
    /// Make a store as it would be after a loss of power.
    static void restore(const std::string& store, const std::string& copy) {
        const std::lock_guard lock(s_mutex);
        for (const std::string suffix : {"", "-wal"}) {
            std::ofstream(copy + suffix, std::ios::binary) << s_files[store + suffix];
        }
        boost::filesystem::remove(copy + "-shm");
    }

private:
    static inline std::mutex s_mutex;
    static inline std::map<std::string, std::string> s_files;
    static inline std::atomic<bool> s_isWatched;
    static inline std::atomic<int> s_waits;
};

// Looks at what the transactions of all connections remove that are opened while this lives, and may refuse them.
struct WatchedTransactions {
    static inline std::atomic<int> removed;      // chunks, by the transaction under way
    static inline std::atomic<int> mostRemoved;  // by one transaction
    static inline std::atomic<int> allowed;      // that remove any
    explicit WatchedTransactions(int count) {
        removed = mostRemoved = 0;
        allowed = count;
        sqlite3_auto_extension(reinterpret_cast<void (*)()>(watch));
    }
    ~WatchedTransactions() { sqlite3_reset_auto_extension(); }
    static void countRow(void*, int change, const char*, const char* table, sqlite3_int64) {
        removed += change == SQLITE_DELETE && table == std::string("chunks") ? 1 : 0;
    }
    static int judge(void*) {
        const int count = removed.exchange(0);
        mostRemoved = std::max<int>(mostRemoved, count);
        return count > 0 && allowed-- <= 0 ? 1 : 0;
    }
    static int watch(sqlite3* database, char**, const sqlite3_api_routines*) {
        sqlite3_update_hook(database, countRow, nullptr);
        sqlite3_commit_hook(database, judge, nullptr);
        return SQLITE_OK;
    }
};

// A stream of bytes that runs an action before it gives the first one.
class Data : public std::istream {
public:
    Data(std::string bytes, std::function<void()> action) : std::istream(nullptr), m_buffer(std::move(bytes)) {
        m_buffer.action = std::move(action);
        rdbuf(&m_buffer);
    }

private:
    struct Buffer : std::stringbuf {
        using std::stringbuf::stringbuf;
        std::function<void()> action;
        std::streamsize xsgetn(char* bytes, std::streamsize count) override {
            action();
            return std::stringbuf::xsgetn(bytes, count);
        }
    } m_buffer;
};

class WritingTest : public StoreTest {
protected:
    // All objects with their bytes.
    static std::map<std::string, std::string> contentsOf(const std::string& file) {
        SqliteClient client(file);
        std::map<std::string, std::string> contents;
        std::string token;
        for (const ObjectInfo& object : client.listObjects("", token, {})) {
            contents[object.Key] = get(client, object.Key);
        }
        return contents;
    }
    void expectNothingIsLost() {
        const std::string copy = m_file + "-copy";
        Disk::restore(m_file, copy);
        EXPECT_TRUE(contentsOf(copy) == contentsOf(m_file));
    }
    // An upload of "k" with many small parts, and one part that is as many chunks.
    std::string sendManyParts(SqliteClient& client) {
        constexpr int kCount = 100;
        const auto sendAll = [&](const std::string& id, std::vector<PartInfo> parts) {
            for (int i = 0; i < kCount; ++i) {
                send(client, id, parts, "x");
            }
            return parts;
        };
        const std::string first = client.startMultipartUpload("k", {});
        client.completeMultipartUpload("k", first, sendAll(first, {}));
        std::string id = client.startMultipartUpload("k", {});
        std::vector<PartInfo> parts;
        copy(client, id, parts, 0, kCount);
        sendAll(id, parts);
        client.deleteObject("k");
        EXPECT_EQ(number("SELECT count(*) FROM chunks"), 2 * kCount);
        return id;
    }
    void expectNothingIsLeft() {
        for (const std::string table : {"slices", "chunks", "uploads", "sent_parts"}) {
            EXPECT_EQ(number("SELECT count(*) FROM " + table), 0) << table;
        }
    }
};

}  // namespace

TEST_F(WritingTest, WhatIsAcknowledgedSurvivesALossOfPowerAndPartsDoNotWaitForTheDisk) {
    const Disk disk;
    SqliteClient client(m_file);
    put(client, "k", m_bytes);
    expectNothingIsLost();
    const std::string id = client.startMultipartUpload("k", {});
    const int before = Disk::waits();
    std::vector<PartInfo> parts;
    for (char letter = 'a'; letter < 'i'; ++letter) {
        copy(client, id, parts, 1'000'000, 1'500'000);
        send(client, id, parts, std::string(1'000'000, letter));
    }
    EXPECT_EQ(Disk::waits(), before);
    expectNothingIsLost();
    client.completeMultipartUpload("k", id, parts);
    expectNothingIsLost();
    // So much that the log is moved into the file meanwhile.
    const std::string large = client.startMultipartUpload("large", {});
    parts = {{0, 0, 20'000'000, {}}, {1, 0, 3, {}}};
    for (PartInfo& part : parts) {
        std::istringstream data(std::string(part.Size, 'l'));
        part.Tag = client.uploadPart("large", large, part, data);
    }
    EXPECT_GT(Disk::waits(), before + 1);
    client.completeMultipartUpload("large", large, parts);
    expectNothingIsLost();
    client.deleteObject("k");
    expectNothingIsLost();
}

TEST_F(WritingTest, WhoeverPutsAtTheSameTimeSharesACommitAndFailsAlone) {
    const Disk disk;
    constexpr int kCount = 16;
    SqliteClient client(m_file);
    put(client, "there", "old");
    put(client, "torn", "old");
    execute("UPDATE objects SET size = size + 1 WHERE key = CAST('torn' AS BLOB)");
    SQLite::Database other(m_file, SQLite::OPEN_READWRITE);
    auto holder = std::make_unique<SQLite::Transaction>(other, SQLite::TransactionBehavior::IMMEDIATE);
    std::atomic<int> readers{0};
    const auto store = [&](const std::string& key, const ExpectedObject& expected) {
        return std::async(std::launch::async, [&, key, expected] {
            Data data(key, [&] { ++readers; });
            return failureOf([&] { client.putObjectOver(key, data, key.size(), expected); });
        });
    };
    auto refused = store("there", ExpectedObject::absent());
    auto damaged = store("torn", ExpectedObject::anything());
    std::vector<std::future<std::string>> stored;
    for (char letter = 'a'; letter < 'a' + kCount; ++letter) {
        stored.push_back(store({'k', letter}, ExpectedObject::absent()));
    }
    while (readers < kCount + 2) {
        std::this_thread::yield();
    }
    const int before = Disk::waits();
    holder.reset();
    for (auto& result : stored) {
        EXPECT_EQ(result.get(), "");
    }
    EXPECT_PRED_FORMAT2(IsSubstring, "it was created meanwhile", refused.get());
    EXPECT_PRED_FORMAT2(IsSubstring, "cannot put \"torn\"", damaged.get());
    EXPECT_LT(Disk::waits() - before, kCount / 2);
    EXPECT_EQ(number("SELECT count(*) FROM objects WHERE size = 2 AND key BETWEEN x'6B' AND x'6C'"), kCount);
    EXPECT_EQ(number("SELECT count(*) FROM chunks"), kCount + 2) << "nothing is left of what failed";
    client.deleteObject("ka");
    const std::string copy = m_file + "-copy";
    Disk::restore(m_file, copy);
    EXPECT_EQ(get(*std::make_unique<SqliteClient>(copy), "kb"), "kb");
}

TEST_F(WritingTest, AWriterWaitsForOthersOfItsClientAsLongAsForThoseOfOtherClients) {
    SqliteClient client(m_file, {std::chrono::milliseconds(50)});
    std::string failure;
    Data data(std::string(1'000'000, 'x'), [&] { failure = failureOf([&] { put(client, "other", "y"); }); });
    client.putObject("k", data, 1'000'000);
    EXPECT_PRED_FORMAT2(IsSubstring, "6 cannot put \"other\"", failure);
    put(client, "other", "y");
    EXPECT_EQ(get(client, "other"), "y");
}

TEST_F(WritingTest, UploadsAreDroppedInSmallTransactions) {
    const WatchedTransactions watched(1000);
    for (const bool isAbort : {true, false}) {
        SqliteClient client(m_file);
        const std::string id = sendManyParts(client);
        if (isAbort) {
            client.abortMultipartUpload("k", id);
        } else {
            execute("UPDATE uploads SET touched = 1, sum = row_sum(4, id, key, 1)");
            open();
        }
        expectNothingIsLeft();
    }
    EXPECT_GT(WatchedTransactions::mostRemoved, 0);
    EXPECT_LE(WatchedTransactions::mostRemoved, 64);
}

TEST_F(WritingTest, AnUploadThatIsDroppedInPartIsOfNoUseAndGoesWithTheNext) {
    std::string id;
    {
        const WatchedTransactions watched(1);
        SqliteClient client(m_file);
        id = sendManyParts(client);
        client.abortMultipartUpload("k", id);
    }
    {
        SQLite::Database other(m_file, SQLite::OPEN_READWRITE);
        const SQLite::Transaction holder(other, SQLite::TransactionBehavior::IMMEDIATE);
        SqliteClient client(m_file, {std::chrono::milliseconds(0)});
        std::string token;
        EXPECT_EQ(client.listUploads({}, token).size(), 0U);
        EXPECT_GT(number("SELECT count(*) FROM chunks"), 100);
        EXPECT_EQ(verifySqliteStore(m_file, {}, {}).Damages, 0U);
    }
    {
        const WatchedTransactions watched(0);
        SqliteClient client(m_file);
        EXPECT_PRED_FORMAT2(IsSubstring, "there is no upload",
                            failureOf([&] { client.completeMultipartUpload("k", id, {}); }));
    }
    open();
    expectNothingIsLeft();
}

TEST_F(WritingTest, ALargeObjectGoesAtOnceAndItsBytesInSmallTransactions) {
    const auto storeLarge = [&](SqliteClient& client) {
        const std::string id = client.startMultipartUpload("k", {});
        std::vector<PartInfo> parts;
        for (int i = 0; i < 150; ++i) {
            send(client, id, parts, "x");
        }
        client.completeMultipartUpload("k", id, parts);
    };
    const std::pair<const char*, std::function<void(SqliteClient&)>> ways[] = {
        {"removed", [&](SqliteClient& client) { client.deleteObject("k"); }},
        {"put over", [&](SqliteClient& client) { put(client, "k", "new"); }},
        {"put over, as a large one", [&](SqliteClient& client) { put(client, "k", std::string(300'000, 'n')); }},
        {"uploaded over", [&](SqliteClient& client) { storeLarge(client); }},
        {"copied over", [&](SqliteClient& client) {
             put(client, "other", "new");
             client.copyObject("other", "", "k", ExpectedObject::anything());
             client.deleteObject("other");
         }}};
    for (const auto& [name, change] : ways) {
        SCOPED_TRACE(name);
        {
            const WatchedTransactions watched(1000);
            SqliteClient client(m_file);
            storeLarge(client);
            change(client);
            EXPECT_EQ(number("SELECT count(*) FROM uploads"), 0) << "it waits for its bytes to go";
            EXPECT_GT(WatchedTransactions::mostRemoved, 0);
            EXPECT_LE(WatchedTransactions::mostRemoved, 64);
        }
        auto client = std::make_unique<SqliteClient>(m_file);
        if (client->getObjectInfo("k")) {
            client->deleteObject("k");
        }
        expectNothingIsLeft();
    }
    {
        const WatchedTransactions watched(1);  // as if it was killed then
        SqliteClient client(m_file);
        storeLarge(client);
        client.deleteObject("k");
        EXPECT_FALSE(client.getObjectInfo("k"));
    }
    EXPECT_EQ(number("SELECT count(*) FROM uploads"), 1);
    EXPECT_EQ(verifySqliteStore(m_file, {}, {}).Damages, 0U);
    open();
    expectNothingIsLeft();
}

}  // namespace storage::cloudprovider::test

// In place of the system's, for the libraries of this program, too.
extern "C" __attribute__((visibility("default"))) int fdatasync(int fildes) {
    storage::cloudprovider::test::Disk::write(fildes);
    return static_cast<int>(::syscall(SYS_fdatasync, fildes));
}
