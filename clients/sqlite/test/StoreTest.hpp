// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "../src/checksums.hpp"
#include "storing.hpp"

#include <SQLiteCpp/SQLiteCpp.h>
#include <storage/cloudprovider/CloudException.hpp>

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <boost/filesystem.hpp>

#include <fstream>
#include <functional>
#include <iterator>
#include <string>

namespace storage::cloudprovider::test {

struct TemporaryFolder {
    TemporaryFolder() { boost::filesystem::create_directories(path); }
    ~TemporaryFolder() { boost::filesystem::remove_all(path); }
    const boost::filesystem::path path =
        boost::filesystem::temp_directory_path() / boost::filesystem::unique_path("sqlite-%%%%%%%%");
};

/// Code and text of the CloudException that an action throws; empty when it throws none.
inline std::string failureOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const CloudException& error) {
        return std::to_string(static_cast<int>(error.getErrorCode())) + ' ' + error.what();
    }
    return {};
}

inline std::string readFile(const std::string& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

/// The SQL function row_sum(TABLE, VALUE...): the checksum that a row of these values has.
inline void sumValues(sqlite3_context* context, int count, sqlite3_value** values) {
    sqlite::RowImage image;
    for (int at = 1; at < count; ++at) {
        if (sqlite3_value_type(values[at]) == SQLITE_INTEGER) {
            image.add(std::int64_t{sqlite3_value_int64(values[at])});
        } else {
            const auto* const bytes = static_cast<const char*>(sqlite3_value_blob(values[at]));
            image.add(std::string_view(bytes, static_cast<std::size_t>(sqlite3_value_bytes(values[at]))));
        }
    }
    sqlite3_result_int64(context, image.sum(static_cast<sqlite::Table>(sqlite3_value_int64(values[0]))));
}

/// A store's file, seen from outside.
class StoreTest : public ::testing::Test {
protected:
    std::int64_t number(const std::string& sql) {
        return SQLite::Database(m_file, SQLite::OPEN_READONLY, 10'000).execAndGet(sql).getInt64();
    }
    void open(const std::string& suffix = {}) { const SqliteClient client(m_file + suffix); }
    void execute(const std::string& sql) {
        SQLite::Database database(m_file, SQLite::OPEN_READWRITE, 10'000);
        sqlite3_db_config(database.getHandle(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
        sqlite3_create_function(database.getHandle(), "row_sum", -1, SQLITE_UTF8, nullptr, sumValues, nullptr, nullptr);
        database.exec(sql);
    }
    /// Make a store of format 1, and fill it.
    void makeOldStore(const std::string& sql) {
        SQLite::Database database(m_file, SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE);
        database.exec(readFile(FORMAT_1));
        database.exec("BEGIN;" + sql + ";COMMIT");
    }

    TemporaryFolder m_folder;
    std::string m_file = (m_folder.path / "store").string();
    std::string m_bytes = std::string(1'500'000, 'x') + std::string(1'500'000, 'y');  // of several chunks
};

}  // namespace storage::cloudprovider::test
