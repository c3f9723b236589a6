// SPDX-License-Identifier: Apache-2.0
//
// Measures listings of a store in one SQLite file that holds 10^4, 10^5 and 10^6 empty objects in a fixed
// number of folders; one of the folders has 1,000 children, the others share the rest:
//
//   flat       the folder of 1,000 children, directly: entries a second, growth of the heap
//   recursive  the whole store: entries a second, growth of the heap
//
// Growth counts every block that malloc and its kin give out, SQLite's page cache too, beyond what was held
// before the listing; the counting itself is in the times.

#include "HeapMeter.hpp"
#include "ScratchFolder.hpp"
#include "harness.hpp"
#include "workload.hpp"

#include <storage/cloudprovider/sqlite/SqliteClient.hpp>
#include <storage/cloudprovider/sqlite/storeMaintenance.hpp>

#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Transaction.h>
#include <benchmark/benchmark.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <utility>

namespace {

namespace provider = foundation::storage::provider;

constexpr std::uint64_t kFolderCount = 100;  // one of them with the counted children

// Put in one by one, a million objects would take a million durable transactions; so they are written in one,
// as rows that describe empty objects: of a store of format 1, which are no more than that.
void fill(const std::string& file, std::uint64_t childCount, std::uint64_t objectCount) {
    SQLite::Database database(file, SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE, 10000);
    std::ifstream tables(FORMAT_1);
    database.exec(std::string(std::istreambuf_iterator<char>(tables), {}));
    SQLite::Transaction transaction(database);
    const auto insert = [&](const std::string& folder, std::uint64_t first, std::uint64_t count) {
        database.exec("WITH RECURSIVE n(i) AS (SELECT " + std::to_string(first) +
                      " UNION ALL SELECT i + 1 FROM n LIMIT " + std::to_string(count) +
                      ") INSERT INTO object(key, content, size, modified)"
                      " SELECT CAST(printf('" +
                      folder + "/file-%07d.dat', i) AS BLOB), i, 0, 1700000000000000 + i FROM n");
    };
    insert("counted", 1, childCount);
    std::uint64_t made = childCount;
    for (std::uint64_t folder = 1; folder < kFolderCount; ++folder) {
        const auto end = childCount + (objectCount - childCount) * folder / (kFolderCount - 1);
        insert("rest-" + std::to_string(folder), made + 1, end - made);
        made = end;
    }
    database.exec("UPDATE counter SET last = " + std::to_string(objectCount));
    transaction.commit();
    storage::cloudprovider::upgradeSqliteStore(file);
}

std::uint64_t count(std::unique_ptr<provider::IFolderEntryIterator> entries) {
    std::uint64_t total = 0;
    while (entries->hasNext()) {
        entries->next();
        benchmark::DoNotOptimize(entries->get());
        ++total;
    }
    return total;
}

std::string showCount(std::uint64_t value) {
    const auto digits = std::to_string(value);
    std::string text;
    for (std::size_t i = 0; i < digits.size(); ++i) {
        if (i != 0 && (digits.size() - i) % 3 == 0) {
            text.push_back(',');
        }
        text.push_back(digits[i]);
    }
    return text;
}

// A store of so many objects, and the listings of it.
class Listings {
public:
    Listings(const std::string& file, std::uint64_t childCount, std::uint64_t objectCount)
        : m_file(file), m_childCount(childCount), m_objectCount(objectCount) {
        fill(file, childCount, objectCount);
    }

    void measureFlat() const {
        measure("flat listing of " + showCount(m_childCount) + ", store of " + showCount(m_objectCount), m_childCount,
                [](const provider::IProvider& store) { return store.listAll(iri("/counted")); });
    }

    void measureRecursive() const {
        measure("recursive listing of " + showCount(m_objectCount), m_objectCount + kFolderCount,
                [](const provider::IProvider& store) { return store.listAllRecursive(iri("/")); });
    }

private:
    static provider::StorageIRI iri(const char* path) { return provider::StorageIRI::fromUtf8(path); }

    // Each time with a client of its own, so that neither caches nor the heap remember the time before.
    template <typename List>
    void measure(const std::string& what, std::uint64_t expected, const List& list) const {
        const auto store = bench::makeProvider(std::make_shared<storage::cloudprovider::SqliteClient>(m_file));
        std::uint64_t seen = 0;
        double seconds = 0;
        const auto growth =
            bench::measureHeapGrowth([&] { seconds = bench::measureSeconds([&] { seen = count(list(*store)); }); });
        bench::require(seen == expected, what + " brought " + std::to_string(seen) + " entries");
        bench::noteFigure(what, "entries/s", static_cast<double>(seen) / seconds);
        bench::noteFigure(what + ", heap growth", "KiB", static_cast<double>(growth) / bench::kKiB);
    }

    const std::string m_file;
    const std::uint64_t m_childCount;
    const std::uint64_t m_objectCount;
};

}  // namespace

int main(int argc, char** argv) {
    bench::Program program(argc, argv);
    const bench::ScratchFolder folder;
    const std::uint64_t childCount = program.pick(1000, 100);
    for (const std::uint64_t fullCount : {10'000U, 100'000U, 1'000'000U}) {
        const auto objectCount = program.pick(fullCount, fullCount / 100 + childCount);
        const auto listings =
            std::make_shared<const Listings>(folder.file(std::to_string(objectCount) + ".db"), childCount, objectCount);
        const auto name = std::to_string(objectCount);
        bench::Program::add("flat/" + name, program.pick(21, 2), [=] { listings->measureFlat(); });
        bench::Program::add("recursive/" + name, program.pick(3, 2), [=] { listings->measureRecursive(); });
    }
    return program.run();
}
