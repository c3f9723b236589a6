// SPDX-License-Identifier: Apache-2.0
#include "StoreTest.hpp"

#include <storage/cloudprovider/sqlite/storeMaintenance.hpp>

#include <boost/date_time/posix_time/posix_time.hpp>

#include <algorithm>
#include <map>
#include <random>

namespace storage::cloudprovider::test {

namespace {

using ::testing::IsSubstring;

const char* const kDamaged = "the store is damaged";

// What a client tells of a store and its objects, to be compared with what it tells when the file is damaged. An
// answer is text, so that it is compared as a whole; a question that fails has none.
using Answers = std::map<std::string, std::string>;

std::string toText(const std::vector<ObjectInfo>& entries) {
    std::ostringstream text;
    for (const ObjectInfo& entry : entries) {
        text << entry.Key << ' ' << entry.Size << ' ' << entry.LastModified << '\n';
    }
    return text.str();
}

std::string describe(SqliteClient& client, const std::string& key) {
    const auto object = client.describeObject(key);
    std::ostringstream text;
    text << (object ? object->Version : "none");
    for (const PartInfo& part : object ? object->Parts : std::vector<PartInfo>()) {
        text << ' ' << part.Index << ' ' << part.Offset << ' ' << part.Size << ' ' << part.Tag;
    }
    return text.str();
}

Answers ask(SqliteClient& client, const std::vector<std::string>& keys) {
    Answers answers;
    const auto add = [&](const std::string& question, const std::function<std::string()>& answer) {
        try {
            answers[question] = answer();
        } catch (const CloudException&) {  // no answer is never a wrong one
        }
    };
    for (const auto& [prefix, delimiter] : {std::pair{"", ""}, {"", "/"}, {"many/", "/"}, {"k", ""}}) {
        add(std::string("list ") + prefix + delimiter, [&, prefix = prefix, delimiter = delimiter] {
            std::string token;
            std::string text;
            do {
                text += toText(client.listObjects(prefix, token, {delimiter, 70}));
            } while (!token.empty());
            return text;
        });
    }
    for (const std::string& key : keys) {
        add("info " + key, [&] {
            const auto info = client.getObjectInfo(key);
            return info ? toText({*info}) : std::string("none");
        });
        add("parts " + key, [&] { return describe(client, key); });
        add("bytes " + key, [&] { return get(client, key); });
        add("range " + key, [&] { return get(client, key, 1, 7); });
    }
    return answers;
}

// Keys that are there, and keys that are not, between them.
const std::vector<std::string> kKeys = {"a",        "copy",      "empty", "k", "large", "many/000", "many/150",
                                        "many/199", "many/150x", "b",     "0", "zz",    "many/"};

void list(SqliteClient& client) {
    std::string token;
    client.listObjects("", token, {});
}

std::size_t listUploads(SqliteClient& client) {
    std::string token;
    return client.listUploads({}, token).size();
}

class DamageTest : public StoreTest {
protected:
    void fill() {
        SqliteClient client(m_file);
        put(client, "a", "the bytes of a");
        put(client, "empty", "");
        put(client, "large", m_bytes);
        for (int i = 0; i < 200; ++i) {
            const std::string name = std::to_string(i);
            put(client, "many/" + std::string(3 - name.size(), '0') + name, name + " of many");
        }
        std::vector<PartInfo> parts;
        put(client, "k", "what comes before");
        const std::string id = client.startMultipartUpload("k", {});
        copy(client, id, parts, 5, 10);
        send(client, id, parts, "between");
        copy(client, id, parts, 0, 9);
        client.completeMultipartUpload("k", id, parts);
        client.copyObject("k", {}, "copy", ExpectedObject::anything());
        const std::string open = client.startMultipartUpload("k", {});
        send(client, open, parts, "sent");
        put(client, "gone", std::string(100'000, 'g'));
        client.deleteObject("gone");
    }
    void restore(const std::string& store) { std::ofstream(m_file, std::ios::binary) << store; }
};

}  // namespace

TEST_F(DamageTest, FlippedBytesAreNeverTakenForTrue) {
    fill();
    const std::string store = readFile(m_file);
    const Answers truth = ask(*std::make_unique<SqliteClient>(m_file), kKeys);
    ASSERT_EQ(truth.at("info b"), "none");
    const auto pageSize = static_cast<std::size_t>(number("PRAGMA page_size"));
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::minstd_rand random(seed);
    const auto below = [&](std::size_t limit) {
        return std::uniform_int_distribution<std::size_t>(0, limit - 1)(random);
    };
    int noticed = 0;
    std::size_t runs = 0;
    for (std::size_t page = 0; page * pageSize < store.size(); ++page) {
        // The pages that hold nothing but bytes of large chunks are many, and all alike.
        const auto begin = store.begin() + static_cast<std::ptrdiff_t>(page * pageSize);
        const bool isOfBytes = std::count(begin, begin + 2000, begin[1000]) > 1900 && begin[1000] != 0;
        for (std::size_t run = 0; run < (isOfBytes ? below(20) / 19 : 6); ++run, ++runs) {
            std::string damaged = store;
            std::ostringstream flips;
            for (std::size_t flip = 0; flip <= run % 3; ++flip) {
                // Most of a page is empty: headers and what is not zero are hit more often.
                std::size_t at = page * pageSize + (run % 2 == 0 ? below(100) : below(pageSize));
                while (run % 4 != 0 && damaged[at] == 0 && (at + 1) % pageSize != 0) {
                    ++at;
                }
                damaged[at] = static_cast<char>(damaged[at] ^ static_cast<char>(1 + below(255)));
                flips << ' ' << at;
            }
            SCOPED_TRACE("flipped:" + flips.str());
            boost::filesystem::remove(m_file + "-wal");
            restore(damaged);
            Answers answers;
            failureOf([&] {
                SqliteClient client(m_file);
                answers = ask(client, kKeys);
                // Whatever else is changed now, nothing becomes wrong by it.
                failureOf([&] { put(client, "a", "new"); });
                failureOf([&] { client.deleteObject("many/150"); });
                failureOf([&] { put(client, "many/150", "150 of many"); });
                for (const auto& [question, answer] : ask(client, {"k", "copy", "large", "many/199"})) {
                    if (question.compare(0, 4, "list") != 0) {  // those changed
                        EXPECT_EQ(answer, truth.at(question)) << question << " after changes";
                    }
                }
            });
            for (const auto& [question, answer] : answers) {
                EXPECT_TRUE(answer == truth.at(question)) << question << ":\n" << answer.substr(0, 2000);
            }
            noticed += answers.size() < truth.size() ? 1 : 0;
            ASSERT_FALSE(HasFailure());
        }
    }
    EXPECT_GT(runs, 60U);
    EXPECT_GT(noticed, 15);
}

TEST_F(DamageTest, RowsThatAreLostOrChangedAreNamed) {
    fill();
    const std::string store = readFile(m_file);
    const std::vector<std::tuple<std::string, std::string, std::function<void(SqliteClient&)>>> rows = {
        {"UPDATE objects SET size = 15 WHERE key = x'61'", "\"a\"", [](auto& client) { get(client, "a"); }},
        {"UPDATE objects SET modified = modified + 1 WHERE key = x'61'", "\"a\"",
         [](auto& client) { client.getObjectInfo("a"); }},
        {"UPDATE objects SET content = 1 WHERE key = CAST('large' AS BLOB)", "\"large\"",
         [](auto& client) { get(client, "large"); }},
        {"UPDATE objects SET key = x'62' WHERE key = x'61'", "the row of \"b\"", [](auto& client) { list(client); }},
        {"DELETE FROM objects WHERE key = x'61'", "another row belongs",
         [](auto& client) { client.getObjectInfo("a"); }},
        {"DELETE FROM objects WHERE key > CAST('large' AS BLOB)", "another row belongs behind the row of \"large\"",
         [](auto& client) { list(client); }},
        {"DELETE FROM objects WHERE key = x''", "no beginning", [](auto& client) { put(client, "0", ""); }},
        {"DELETE FROM objects", "no beginning", [](auto& client) { client.getObjectInfo("a"); }},
        {"UPDATE slices SET size = size - 1 WHERE position = 2097152", "lacks its byte 2097152",
         [](auto& client) { get(client, "large"); }},
        {"DELETE FROM slices WHERE position = 1048576", "lacks its byte 1048576",
         [](auto& client) { get(client, "large"); }},
        {"DELETE FROM slices WHERE position = 2097152", "lacks its byte 2097152",
         [](auto& client) { client.copyObject("large", {}, "z", ExpectedObject::anything()); }},
        {"DELETE FROM chunks WHERE id = (SELECT chunk FROM slices WHERE position = 1048576)", "is missing",
         [](auto& client) { get(client, "large", 1'500'000, 1'500'001); }},
        {"UPDATE chunks SET bytes = CAST('The bytes of a' AS BLOB) WHERE id = 1", "chunk 1 is not as it was",
         [](auto& client) { get(client, "a", 5, 6); }},
        {"UPDATE chunks SET bytes = (SELECT bytes FROM chunks WHERE id = 3) WHERE id = 2", "chunk 2 is not",
         [](auto& client) { get(client, "large"); }},
        {"DELETE FROM parts WHERE number = 2", "2 of 3 parts", [](auto& client) { client.describeObject("k"); }},
        {"UPDATE parts SET tag = x'00'", "part 0", [](auto& client) { client.describeObject("copy"); }},
        {"DELETE FROM parts WHERE number = 0", "no part begins at 0",
         [](auto& client) { client.copyObject("k", {}, "z", ExpectedObject::anything()); }},
        {"UPDATE uploads SET key = x'6B6B'", "the row of the upload", [](auto& client) { listUploads(client); }},
        {"UPDATE sent_parts SET size = 3", "part 3 of the upload", [](auto& client) { listUploads(client); }},
        {"UPDATE numbers SET last = 1", "its counter", [](auto& client) { put(client, "z", ""); }},
        {"DELETE FROM numbers", "its counter", [](auto& client) { put(client, "z", ""); }},
        {"ALTER TABLE slices RENAME COLUMN start TO begin", "its tables", [](auto&) {}},
        {"DROP INDEX slices_chunk", "its tables", [](auto&) {}},
    };
    for (const auto& [damage, words, action] : rows) {
        SCOPED_TRACE(damage);
        boost::filesystem::remove(m_file + "-wal");
        restore(store);
        execute(damage);
        const std::string failure = failureOf([&, &use = action] {
            SqliteClient client(m_file);
            use(client);
        });
        EXPECT_EQ(failure.substr(0, 9), "9 cannot ") << failure;
        EXPECT_PRED_FORMAT2(IsSubstring, kDamaged, failure);
        EXPECT_PRED_FORMAT2(IsSubstring, words, failure);
    }
    boost::filesystem::remove(m_file + "-wal");
    restore(store.substr(0, store.size() / 2));
    EXPECT_PRED_FORMAT2(IsSubstring, "malformed",
                        failureOf([&] { get(*std::make_unique<SqliteClient>(m_file), "a"); }));
}

TEST_F(DamageTest, VerifyingFindsAllDamageAndReadsOn) {
    fill();
    const std::string store = readFile(m_file);
    const std::string chunkOf = "(SELECT chunk FROM slices JOIN objects USING(content) WHERE key = CAST('";
    const std::vector<std::tuple<std::string, std::string, std::vector<std::string>>> rows = {
        {"SELECT 1", "", {}},
        {"UPDATE chunks SET bytes = x'00' WHERE id = " + chunkOf + "many/020' AS BLOB))", "", {"many/020"}},
        {"UPDATE objects SET size = size + 1 WHERE key IN (x'61', CAST('many/100' AS BLOB))", "", {"a", "many/100"}},
        {"DELETE FROM objects WHERE key = CAST('many/100' AS BLOB)", "", {""}},
        {"DELETE FROM parts", "", {"copy", "k"}},
        {"DELETE FROM objects WHERE key = x''", "", {""}},
        {"UPDATE sent_parts SET content = content + 1", "", {""}},
        {"UPDATE uploads SET touched = 1", "", {""}},
        {"UPDATE numbers SET last = 1", "", {""}},
        {"INSERT INTO chunks(bytes) VALUES(x'00')", "", {""}},
        {"INSERT INTO slices SELECT 9999, 0, size, chunk, 0, chunk_sum, row_sum(2, 9999, 0, size, chunk, 0, chunk_sum)"
         " FROM slices WHERE position = 1048576",
         "",
         {""}},
        {"UPDATE chunks SET bytes = x'00' WHERE id = " + chunkOf + "many/020' AS BLOB))", "many", {"many/020"}},
        {"UPDATE chunks SET bytes = x'00' WHERE id = " + chunkOf + "many/020' AS BLOB))", "many/020", {"many/020"}},
        {"UPDATE chunks SET bytes = x'00' WHERE id = " + chunkOf + "many/020' AS BLOB))", "many/02", {}},
    };
    for (const auto& [damage, key, damaged] : rows) {
        SCOPED_TRACE(damage + ", " + key);
        boost::filesystem::remove(m_file + "-wal");
        restore(store);
        execute(damage);
        std::vector<std::string> found;
        std::uint64_t bytes = 0;
        const auto result = verifySqliteStore(m_file, key,
                                              {[&](std::uint64_t count) { bytes += count; },
                                               [&](const std::string& name, const std::string& cause) {
                                                   EXPECT_PRED_FORMAT2(IsSubstring, kDamaged, cause);
                                                   found.push_back(name);
                                               }});
        EXPECT_EQ(found, damaged);
        EXPECT_EQ(result.Damages, damaged.size());
        EXPECT_TRUE(!key.empty() || (bytes > m_bytes.size() && result.Objects >= 204)) << result.Objects;
    }
    // A page of the list that cannot be read at all.
    const auto pageSize = static_cast<std::size_t>(number("PRAGMA page_size"));
    const auto page = store.find("many/050") / pageSize * pageSize;
    restore(std::string(store).replace(page, 100, 100, '\xA5'));
    std::string causes;
    const auto result = verifySqliteStore(
        m_file, {}, {{}, [&](const std::string&, const std::string& cause) { causes += cause + '\n'; }});
    EXPECT_PRED_FORMAT2(IsSubstring, "the list of objects", causes);
    EXPECT_GT(result.Damages, 0U);
    const VerificationObserver impatient{[](std::uint64_t) { throw std::domain_error("enough"); }, {}};
    restore(store);
    EXPECT_THROW(verifySqliteStore(m_file, {}, impatient), std::domain_error);
}

TEST_F(DamageTest, WhatIsDamagedCanBeRemovedAndReplaced) {
    fill();
    execute("UPDATE chunks SET bytes = zeroblob(1048576) WHERE id = 2");
    execute("UPDATE slices SET chunk = 1 WHERE position = 1048576");
    SqliteClient client(m_file);
    EXPECT_THROW(get(client, "large"), UnknownErrorException);
    put(client, "large", "again");
    EXPECT_EQ(get(client, "large"), "again");
    EXPECT_EQ(get(client, "a"), "the bytes of a") << "a chunk that a damaged row names is left alone";
    execute("UPDATE sent_parts SET size = 3");
    EXPECT_THROW(listUploads(client), UnknownErrorException);
    execute("UPDATE uploads SET touched = 0, sum = row_sum(4, id, key, 0)");
    open();
    EXPECT_EQ(listUploads(client), 0U) << "abandoned";
}

}  // namespace storage::cloudprovider::test
