// SPDX-License-Identifier: Apache-2.0
#include "StoreTest.hpp"

#include <storage/cloudprovider/sqlite/storeMaintenance.hpp>

#include <boost/date_time/posix_time/conversion.hpp>

#include <list>

namespace storage::cloudprovider::test {

namespace {

using ::testing::IsSubstring;
using UpgradeTest = StoreTest;

// "ab" as two chunks, uploaded in two parts; "copy" shares the first of them; an empty object; an upload of "k".
const char* const kObjects = R"(
    INSERT INTO chunk VALUES(1, CAST('a' AS BLOB)), (2, CAST('b' AS BLOB)), (3, CAST('abc' AS BLOB));
    INSERT INTO slice VALUES(5, 0, 1, 1, 0), (5, 1, 1, 2, 0), (6, 0, 1, 1, 0), (9, 0, 2, 3, 1);
    INSERT INTO part VALUES(5, 0, 0, 1, CAST('3' AS BLOB)), (5, 1, 1, 1, CAST('4' AS BLOB));
    INSERT INTO object VALUES(CAST('ab' AS BLOB), 5, 2, 1500000000000000), (CAST('copy' AS BLOB), 6, 1, 7),
        (CAST('empty' AS BLOB), 7, 0, 8);
    INSERT INTO upload VALUES(8, CAST('k' AS BLOB), strftime('%s') * 1000000);
    INSERT INTO upload_part VALUES(8, 0, 9, 2);
    UPDATE counter SET last = 9;
)";

}  // namespace

TEST_F(UpgradeTest, ConvertsObjectsAndUploads) {
    makeOldStore(kObjects);
    const std::string before = readFile(m_file);
    EXPECT_PRED_FORMAT2(IsSubstring, "11 cannot open the store " + m_file, failureOf([&] { open(); }));
    EXPECT_PRED_FORMAT2(IsSubstring, "cloudfs upgrade", failureOf([&] { open(); }));
    EXPECT_EQ(readFile(m_file), before) << "what is refused is left as it is";
    EXPECT_TRUE(upgradeSqliteStore(m_file));
    EXPECT_FALSE(upgradeSqliteStore(m_file)) << "it is done";

    SqliteClient client(m_file);
    std::string token;
    const auto objects = client.listObjects("", token, {});
    ASSERT_EQ(objects.size(), 3U);
    EXPECT_EQ(objects[0].LastModified, boost::posix_time::from_time_t(1'500'000'000));
    EXPECT_EQ(get(client, "ab") + get(client, "copy"), "aba");
    EXPECT_EQ(client.getObjectInfo("empty")->Size, 0U);
    const auto described = *client.describeObject("ab");
    EXPECT_EQ(described.Version, "5");
    ASSERT_EQ(described.Parts.size(), 2U);
    EXPECT_EQ(described.Parts[1].Tag, "4");
    std::vector<PartInfo> parts{{0, 0, 2, "9"}};
    send(client, "8", parts, "d");
    client.completeMultipartUpload("k", "8", parts);
    EXPECT_EQ(get(client, "k"), "bcd");
    for (const std::string key : {"ab", "copy", "empty", "k"}) {
        client.deleteObject(key);
    }
    EXPECT_EQ(number("SELECT count(*) FROM chunks"), 0);
    EXPECT_FALSE(client.getObjectInfo("ab"));
}

TEST_F(UpgradeTest, AnOldProgramThatHasTheStoreOpenFailsRatherThanWrites) {
    makeOldStore(kObjects);
    SQLite::Database old(m_file, SQLite::OPEN_READWRITE);
    std::list<SQLite::Statement> statements;
    for (const char* const sql :
         {"SELECT content, size, modified FROM object WHERE key = x'6162'", "SELECT last FROM counter",
          "UPDATE counter SET last = last + 1 RETURNING last", "INSERT INTO chunk(bytes) VALUES(x'00')",
          "INSERT INTO slice(content, position, size, chunk, start) VALUES(10, 0, 1, 1, 0)",
          "INSERT OR REPLACE INTO object(key, content, size, modified) VALUES(x'78', 10, 1, 0)",
          "DELETE FROM object WHERE key = x'6162'", "DELETE FROM chunk WHERE id = 1", "DELETE FROM slice",
          "DELETE FROM part", "UPDATE upload SET touched = 0", "DELETE FROM upload_part"}) {
        statements.emplace_back(old, sql);
    }
    {
        const SQLite::Transaction writer(old, SQLite::TransactionBehavior::IMMEDIATE);
        EXPECT_THROW(upgradeSqliteStore(m_file, {std::chrono::milliseconds(0)}), ResourceInUseException);
    }
    EXPECT_TRUE(upgradeSqliteStore(m_file));
    for (SQLite::Statement& statement : statements) {
        EXPECT_THROW(statement.executeStep(), SQLite::Exception) << statement.getQuery();
    }
    SqliteClient client(m_file);
    EXPECT_EQ(get(client, "ab") + get(client, "copy"), "aba");
}

TEST_F(UpgradeTest, IsDoneAsAWholeOrNotAtAll) {
    makeOldStore(std::string(kObjects) + "UPDATE slice SET size = -1 WHERE content = 6");
    EXPECT_PRED_FORMAT2(IsSubstring, "9 cannot upgrade the store " + m_file + ": the store is damaged",
                        failureOf([&] { upgradeSqliteStore(m_file); }));
    EXPECT_EQ(number("PRAGMA user_version"), 1);
    EXPECT_EQ(number("SELECT count(*) FROM sqlite_schema WHERE name IN ('objects', 'chunks')"), 0);
    EXPECT_EQ(number("SELECT count(*) FROM object"), 3);
    EXPECT_THROW(upgradeSqliteStore(m_file + "-missing"), UnknownErrorException);
}

TEST_F(UpgradeTest, WhatWasLostBeforeIsStillMissed) {
    makeOldStore(std::string(kObjects) + "DELETE FROM chunk WHERE id = 2");
    EXPECT_TRUE(upgradeSqliteStore(m_file));
    SqliteClient client(m_file);
    EXPECT_PRED_FORMAT2(IsSubstring, "9 cannot get \"ab\"", failureOf([&] { get(client, "ab"); }));
    EXPECT_EQ(get(client, "copy"), "a");
}

}  // namespace storage::cloudprovider::test
