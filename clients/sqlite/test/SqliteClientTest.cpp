// SPDX-License-Identifier: Apache-2.0
#include "StoreTest.hpp"

#include <storage/cloudprovider/sqlite/storeMaintenance.hpp>
#include <storage/cloudprovider/testing/ClientConformance.hpp>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <random>
#include <thread>

namespace storage::cloudprovider::test {

namespace {

using ::testing::IsSubstring;

using SqliteClientTest = StoreTest;

std::shared_ptr<CloudClient> makeClientOfEmptyStore() {
    const auto folder = std::make_shared<TemporaryFolder>();
    return {new SqliteClient((folder->path / "store").string()), [folder](SqliteClient* client) { delete client; }};
}

// Every connection that is opened while this lives holds no value much larger than a chunk, and counts its
// steps, and itself until it is told to wait for the disk.
struct WatchedConnections {
    static inline std::atomic<std::int64_t> steps;
    static inline std::atomic<int> unsynchronized;
    WatchedConnections() { sqlite3_auto_extension(reinterpret_cast<void (*)()>(watch)); }
    ~WatchedConnections() { sqlite3_reset_auto_extension(); }
    static int countStep(void*) { return ++steps, 0; }
    static int countPragma(void*, int action, const char* name, const char* value, const char*, const char*) {
        unsynchronized -= action == SQLITE_PRAGMA && name == std::string("synchronous") && value == std::string("FULL");
        return SQLITE_OK;
    }
    static int watch(sqlite3* database, char**, const sqlite3_api_routines*) {
        sqlite3_limit(database, SQLITE_LIMIT_LENGTH, 1024 * 1024 + 1000);
        sqlite3_progress_handler(database, 1, countStep, nullptr);
        sqlite3_set_authorizer(database, countPragma, nullptr);
        ++unsynchronized;
        return SQLITE_OK;
    }
};

const ClientUnderTest kSqlite{.name = "Sqlite",
                              .make = makeClientOfEmptyStore,
                              .refusesReplacedParts = true,
                              .tellsVersions = true,
                              .copiesInStore = true};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Sqlite, ClientConformance, ::testing::Values(kSqlite), clientName);

TEST_F(SqliteClientTest, ThreadsAndClientsMakeAndFillAStoreAtOnce) {
    std::vector<std::thread> threads;
    for (char name = 'a'; name < 'e'; ++name) {
        threads.emplace_back([this, name] {
            SqliteClient client(m_file);
            for (int round = 0; round < 25; ++round) {
                put(client, "kept/" + std::to_string(round) + name, {name});
                put(client, {name}, "x");
                client.deleteObject({name});
                put(client, "shared", std::string(100'000, name));
                const std::string shared = get(client, "shared");
                EXPECT_EQ(shared, std::string(100'000, shared.front()));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(number("SELECT count(*) FROM objects"), 102);
    EXPECT_EQ(number("SELECT count(*) FROM chunks"), 101);
}

TEST_F(SqliteClientTest, NothingIsLostWhenWritersExpectWhatTheyHaveRead) {
    put(*std::make_unique<SqliteClient>(m_file), "k", "-");
    std::vector<std::thread> threads;
    for (char name = 'a'; name < 'e'; ++name) {
        threads.emplace_back([this, name] {
            SqliteClient client(m_file);
            for (int stored = 0; stored < 25;) {
                const auto object = *client.describeObject("k");
                const auto expected = ExpectedObject::version(object.Version);
                const auto size = object.Parts.back().Offset + object.Parts.back().Size;
                try {
                    std::ostringstream sink;
                    client.getRange("k", object.Version, {0, size, true}, sink);
                    std::istringstream data(sink.str() + name);
                    client.putObjectOver("k", data, size + 1, expected);
                    ++stored;
                } catch (const ResourceInUseException&) {  // somebody else was first
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    SqliteClient client(m_file);
    const auto bytes = get(client, "k");
    EXPECT_EQ(bytes.size(), 101U);
    EXPECT_EQ(std::count(bytes.begin(), bytes.end(), 'c'), 25) << bytes;
}

TEST_F(SqliteClientTest, ARefusalSaysWhatBecameOfTheObject) {
    SqliteClient client(m_file);
    std::ostringstream sink;
    const auto putOver = [&](const ExpectedObject& expected) {
        std::istringstream data("new");
        return failureOf([&] { client.putObjectOver("k", data, 3, expected); });
    };
    const std::string start = "6 cannot put \"k\" in the store " + m_file + ": it was ";
    put(client, "k", "old");
    const auto version = client.describeObject("k")->Version;
    EXPECT_EQ(putOver(ExpectedObject::absent()), start + "created meanwhile");
    put(client, "k", "old");
    EXPECT_EQ(putOver(ExpectedObject::version(version)), start + "replaced meanwhile");
    client.deleteObject("k");
    EXPECT_EQ(putOver(ExpectedObject::version(version)), start + "removed meanwhile");
    EXPECT_THROW(client.getRange("k", {}, {0, 1, true}, sink), ResourceNotFoundException);
    put(client, "k", "abc");
    put(client, "to", "");
    EXPECT_EQ(failureOf([&] { client.copyObject("k", {}, "to", ExpectedObject::absent()); }),
              "6 cannot copy \"k\" in the store " + m_file + ": \"to\" was created meanwhile");
    EXPECT_EQ(failureOf([&] { client.copyObject("k", version, "to", ExpectedObject::anything()); }),
              "6 cannot copy \"k\" in the store " + m_file + ": it was replaced meanwhile");
    for (const auto& [first, size] : {std::pair<std::uint64_t, std::uint64_t>{0, 4}, {3, 1}, {1, UINT64_MAX}}) {
        EXPECT_THROW(client.getRange("k", {}, {first, size, false}, sink), UnknownErrorException) << first;
    }
}

TEST_F(SqliteClientTest, CopiedPartsShareBytesThatGoWithTheLastReference) {
    const WatchedConnections watched;
    SqliteClient client(m_file);
    put(client, "k", m_bytes);
    // Over a chunk's border, within a chunk, nothing, everything, the last byte, a range again.
    const std::vector<std::pair<unsigned, unsigned>> ranges = {{1'048'570, 1'500'000}, {7, 100},       {500, 0},
                                                               {0, 3'000'000},         {2'999'999, 1}, {7, 100}};
    const std::int64_t pages = number("PRAGMA page_count");
    std::string expected = m_bytes;
    for (int round = 0; round < 2; ++round) {
        const std::string id = client.startMultipartUpload("k", {});
        std::vector<PartInfo> parts;
        const std::string before = std::exchange(expected, {});
        for (const auto& [offset, size] : ranges) {
            copy(client, id, parts, offset, size);
            expected += before.substr(offset, size);
        }
        client.completeMultipartUpload("k", id, parts);
        SqliteClient other(m_file);
        EXPECT_TRUE(get(other, "k") == expected);
        EXPECT_EQ(get(other, "k", 1'499'990, 1'500'150), expected.substr(1'499'990, 161));
        EXPECT_EQ(other.getObjectParts("k").at(4).Tag, parts[4].Tag);
        client.copyObject("k", {}, "copy", ExpectedObject::anything());
        EXPECT_TRUE(get(other, "copy") == expected);
        EXPECT_EQ(other.getObjectParts("copy").at(4).Tag, parts[4].Tag);
        EXPECT_EQ(number("SELECT count(*) FROM chunks"), 3);
        EXPECT_LE(number("PRAGMA page_count"), pages + 3);
    }
    const std::string id = client.startMultipartUpload("k", {});
    std::vector<PartInfo> parts;
    copy(client, id, parts, 0, 3'000'000);
    client.deleteObject("copy");
    client.deleteObject("k");
    EXPECT_EQ(number("SELECT count(*) FROM chunks"), 3) << "the upload still refers to them";
    std::vector<PartInfo> resent;
    send(client, id, resent, "resent");
    EXPECT_EQ(number("SELECT count(*) FROM chunks"), 1);
    EXPECT_THROW(client.completeMultipartUpload("k", id, parts), UnknownErrorException);
    client.abortMultipartUpload("k", id);
    for (const std::string table : {"slices", "chunks", "parts", "uploads", "sent_parts"}) {
        EXPECT_EQ(number("SELECT count(*) FROM " + table), 0) << table;
    }
}

TEST_F(SqliteClientTest, AbandonedUploadsAreDroppedAfterADay) {
    SqliteClient client(m_file);
    for (const bool isOpening : {true, false}) {
        const std::vector<std::string> ids{client.startMultipartUpload("k", {}), client.startMultipartUpload("k", {})};
        for (const std::string& id : ids) {
            std::vector<PartInfo> parts;
            send(client, id, parts, "abc");
        }
        const std::string touched = "touched - 86390000000 - 10000000 * (id = " + ids[1] + ")";
        execute("UPDATE uploads SET touched = " + touched + ", sum = row_sum(4, id, key, " + touched + ")");
        isOpening ? open() : client.abortMultipartUpload("x", client.startMultipartUpload("x", {}));
        EXPECT_EQ(number("SELECT count(*) FROM chunks"), 1);
        EXPECT_THROW(client.abortMultipartUpload("k", ids[1]), UnknownErrorException);
        client.abortMultipartUpload("k", ids[0]);
    }
}

TEST_F(SqliteClientTest, AllConnectionsWaitForTheDiskAndGoToTheFileThatWasOpened) {
    const WatchedConnections watched;
    watched.unsynchronized = 0;
    boost::filesystem::current_path(m_folder.path);
    SqliteClient client("store");
    boost::filesystem::current_path("/");
    put(client, "k", "x");
    struct : std::streambuf {
        std::function<void()> action;
        std::streamsize xsputn(const char*, std::streamsize count) override { return action(), count; }
    } sink;
    sink.action = [&] { EXPECT_EQ(get(client, "k"), "x"); };
    std::ostream stream(&sink);
    client.getObject("k", stream, 0, 0);
    EXPECT_EQ(watched.unsynchronized, 0);
}

TEST_F(SqliteClientTest, AnObjectPutWholeHasPartsOf8MiB) {
    SqliteClient client(m_file);
    for (const std::size_t surplus : {0U, 1U}) {
        put(client, "k", std::string(8'388'608 + surplus, 'x'));
        EXPECT_EQ(client.getObjectParts("k").size(), 2 * surplus);
    }
    EXPECT_EQ(client.getObjectParts("k")[1].Offset, 8'388'608U);
    EXPECT_NE(client.getObjectParts("k")[0].Tag, client.getObjectParts("k")[1].Tag);
    const std::vector<PartInfo> parts = client.getObjectParts("k");
    const std::string id = client.startMultipartUpload("k", {});
    client.copyPart("k", id, parts[0]);
    EXPECT_THROW(client.copyPart("k", id, {0, 0, 1, parts[0].Tag}), UnknownErrorException);
    put(*std::make_unique<SqliteClient>(m_file), "k", std::string(parts[1].Offset + 1, 'y'));
    EXPECT_PRED_FORMAT2(IsSubstring, "replaced meanwhile", failureOf([&] { client.copyPart("k", id, parts[1]); }));
}

TEST_F(SqliteClientTest, ListingCostsWhatItReturnsAndKnowsItsLastPage) {
    const WatchedConnections watched;
    std::vector<std::int64_t> costs;
    for (const std::string count : {"1", "1000"}) {
        m_file += count;
        makeOldStore("WITH RECURSIVE n(i) AS (VALUES(1) UNION ALL SELECT i + 1 FROM n LIMIT " + count +
                     ") INSERT INTO object SELECT CAST('a/' || i AS BLOB), 0, 0, 0 FROM n;"
                     "INSERT INTO object VALUES(CAST('z' AS BLOB), 0, 0, 0)");
        upgradeSqliteStore(m_file);
        SqliteClient client(m_file);
        std::string token;
        const std::int64_t before = watched.steps;
        EXPECT_EQ(client.listObjects("", token, {"/", -1}).size(), 2U);
        costs.push_back(watched.steps - before);
        EXPECT_EQ(client.listObjects("a/", token, {"/", -1}).size(), std::stoul(count));
        EXPECT_EQ(token, "");
    }
    EXPECT_GT(costs[0], 0);
    EXPECT_EQ(costs[0], costs[1]);
    SqliteClient client(m_file);
    std::string token;
    EXPECT_EQ(client.listObjects("", token, {}).size(), 1000U);
    EXPECT_THROW(client.listObjects("b", token, {}), UnknownErrorException);
    client.deleteObject("a/999");  // the page's last entry
    EXPECT_EQ(client.listObjects("", token, {}).front().Key, "z");
}

TEST_F(SqliteClientTest, WhatIsNotAStoreIsRefusedAndLeftAlone) {
    const std::vector<std::pair<std::function<void()>, std::string>> rows = {
        {[&] { std::ofstream(m_file) << std::string(5000, 'x'); }, "file is not a database"},
        {[&] { std::ofstream(m_file) << 'x'; }, "file is not a database"},
        {[&] { execute("PRAGMA application_id=0"); }, "another program's database"},
        {[&] { execute("PRAGMA user_version=3"); }, "format 3"}};
    for (const auto& [spoil, words] : rows) {
        boost::filesystem::remove(m_file);
        open();
        spoil();
        const std::string before = readFile(m_file);
        const std::string failure = failureOf([&] { open(); });
        EXPECT_PRED_FORMAT2(IsSubstring, "9 cannot open the store " + m_file, failure);
        EXPECT_PRED_FORMAT2(IsSubstring, words, failure);
        EXPECT_EQ(readFile(m_file), before) << words;
    }
    EXPECT_PRED_FORMAT2(IsSubstring, "unable to open", failureOf([&] { open("/x"); }));
}

TEST_F(SqliteClientTest, AReadOnlyStoreIsReadAndNotChanged) {
    put(*std::make_unique<SqliteClient>(m_file), "k", "x");
    EXPECT_EQ(boost::filesystem::file_size(m_file + "-wal"), 0U);
    EXPECT_TRUE(boost::filesystem::exists(m_file + "-shm"));
    ::chmod(m_file.c_str(), 0444);
    // Permissions do not bind root, so root is nobody for a moment.
    const bool isRoot = ::geteuid() == 0;
    ASSERT_TRUE(!isRoot || ::seteuid(65534) == 0);
    {
        SqliteClient client(m_file);
        EXPECT_EQ(get(client, "k"), "x");
        EXPECT_EQ(verifySqliteStore(m_file, {}, {}).Damages, 0U);
        const std::string denied = " in the store " + m_file + ": attempt to write a readonly database";
        EXPECT_EQ(failureOf([&] { put(client, "k", "y"); }), "2 cannot put \"k\"" + denied);
        EXPECT_EQ(failureOf([&] { client.deleteObject("k"); }), "2 cannot delete \"k\"" + denied);
        EXPECT_THROW(client.startMultipartUpload("k", {}), PermissionDeniedException);
        EXPECT_THROW(upgradeSqliteStore(m_file), PermissionDeniedException);
    }
    ASSERT_TRUE(!isRoot || ::seteuid(0) == 0);
}

TEST_F(SqliteClientTest, WhatFailsChangesNothing) {
    SqliteClient client(m_file, {std::chrono::milliseconds(0)});
    put(client, "k", "old");
    std::istringstream data("ab");
    EXPECT_THROW(client.putObject("k", data, 3), UnknownErrorException);
    EXPECT_THROW(put(client, "", "x"), InvalidLocationException);
    EXPECT_THROW(client.startMultipartUpload("", {}), InvalidLocationException);
    EXPECT_THROW(client.copyObject("k", {}, "", ExpectedObject::anything()), InvalidLocationException);
    EXPECT_THROW(client.checkObjectName(std::string("a\0b", 3)), InvalidLocationException);
    EXPECT_FALSE(client.getObjectInfo(""));
    for (const auto& [first, last] : {std::pair{0U, 3U}, {3U, 3U}, {2U, 1U}}) {
        EXPECT_THROW(get(client, "k", first, last), UnknownErrorException) << first << '-' << last;
    }
    std::ostream badSink(nullptr);
    EXPECT_THROW(client.getObject("k", badSink, 0, 0), UnknownErrorException);
    const auto id = client.startMultipartUpload("k", {});
    EXPECT_THROW(client.copyRun("k", id, {{0, 0, 3, {}}, {1, 3, 1, {}}}, {}), UnknownErrorException);
    EXPECT_EQ(number("SELECT count(*) FROM sent_parts"), 0) << "a run is taken as a whole";
    client.abortMultipartUpload("k", id);
    execute("INSERT INTO uploads VALUES(99, x'00', 0, row_sum(4, 99, x'00', 0))");
    SQLite::Database other(m_file, SQLite::OPEN_READWRITE);
    const SQLite::Transaction transaction(other, SQLite::TransactionBehavior::IMMEDIATE);
    EXPECT_THROW(put(client, "k", "new"), ResourceInUseException);
    EXPECT_NO_THROW(open()) << "there is an abandoned upload";
    EXPECT_EQ(get(client, "k"), "old");
    EXPECT_EQ(number("SELECT count(*) FROM chunks"), 1);
}

TEST_F(SqliteClientTest, EveryObjectIsWholeAfterAKillAtAnyMoment) {
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::minstd_rand random(seed);
    int putVersion = 0;
    int uploadVersion = 0;
    // What was told to be stored is there, or the next version, if the kill came before it was told.
    const auto check = [this](const std::string& key, int& version, bool hasCopy) {
        SqliteClient client(m_file);
        const std::string bytes = client.getObjectInfo(key) ? get(client, key) : makeVersion(0);
        version += bytes[0] == static_cast<char>(version + 1) ? 1 : 0;
        EXPECT_TRUE(bytes == makeVersion(version) + (hasCopy && version > 1 ? makeVersion(version - 1) : ""));
    };
    for (int round = 0; round < 25; ++round) {
        std::array<int, 2> ends{};
        ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
        const std::string stored = std::to_string(putVersion) + ' ' + std::to_string(uploadVersion);
        const pid_t writer = ::fork();
        if (writer == 0) {
            ::dup2(ends[1], STDOUT_FILENO);
            ::execl(ENDLESS_WRITER, "writer", m_file.c_str(), stored.c_str(), nullptr);
            ::_exit(1);
        }
        ::close(ends[1]);
        const auto listen = [&] {
            char word = 0;
            const bool isTold = ::read(ends[0], &word, 1) == 1;
            (word == 'p' ? putVersion : uploadVersion) += isTold ? 1 : 0;
            return isTold;
        };
        for (auto words = random() % 4; words > 0; --words) {
            listen();
        }
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 10'000));
        ::kill(writer, SIGKILL);
        while (listen()) {
        }
        ::close(ends[0]);
        ASSERT_EQ(::waitpid(writer, nullptr, 0), writer);
        check("put", putVersion, false);
        check("k", uploadVersion, true);
        EXPECT_EQ(SQLite::Database(m_file).execAndGet("PRAGMA integrity_check").getString(), "ok");
        EXPECT_EQ(number("SELECT count(*) FROM chunks WHERE id NOT IN (SELECT chunk FROM slices)"), 0);
        ASSERT_FALSE(HasFailure()) << "round " << round;
    }
    EXPECT_GT(uploadVersion, 0);
}

}  // namespace storage::cloudprovider::test
