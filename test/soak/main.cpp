// SPDX-License-Identifier: Apache-2.0
// Works on an embedded store for as long as one likes, and looks whether everything stays as it should be.
//
// Time is divided into laps. In each, threads of this process and of a second one do random operations, beside models
// of what must be there, through providers with small caches and threads that transfer, while calls of the client fail;
// some second processes are killed. After each lap nothing may be left: no upload, no temporary file, no descriptor, no
// thread, no memory, no damage in the store. The first lap is to get warm: it is what the others are compared with.
#include "Footprint.hpp"
#include "Lap.hpp"
#include "Mischief.hpp"
#include "Peer.hpp"
#include "SharedFiles.hpp"
#include "soaking.hpp"

#include <foundation/services/Files.hpp>
#include <storage/cloudprovider/sqlite/SqliteClient.hpp>
#include <storage/cloudprovider/sqlite/storeMaintenance.hpp>

#include <boost/filesystem/operations.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <iomanip>
#include <iostream>
#include <optional>
#include <random>
#include <string>

namespace {

using soak::Dice;
using soak::Finding;
using soak::Footprint;
using soak::Lap;
using soak::LapCounts;
using soak::Mischief;
using soak::Peer;
using soak::SharedFiles;
using storage::cloudprovider::SqliteClient;
using Clock = std::chrono::steady_clock;

constexpr int kInterrupted = 128 + SIGINT;
constexpr std::uint64_t kMostEmptyStore = std::uint64_t{1} << 20;  // bytes of a store in which nothing is
constexpr double kMiB = 1 << 20;

std::atomic<bool> isInterrupted = false;
class Interrupted {};

struct Settings {
    double minutes = 10;
    double lapSeconds = 20;
    std::uint64_t seed = std::random_device()();
    std::string mischief;
};

// A folder of its own, with the store and the temporary files; kept when something was found, to be looked at.
class Workplace {
public:
    Workplace() : m_folder(foundation::temporaryFolder() / boost::filesystem::unique_path("soak-%%%%%%%%")) {
        boost::filesystem::create_directories(temporaryFolder());
        ::setenv("TMPDIR", temporaryFolder().c_str(), 1);
    }
    Workplace(const Workplace&) = delete;
    Workplace& operator=(const Workplace&) = delete;
    ~Workplace() {
        boost::system::error_code ignored;
        if (!m_isKept) {
            boost::filesystem::remove_all(m_folder, ignored);
        }
    }

    void keep() { m_isKept = true; }
    std::string store() const { return (m_folder / "store.db").native(); }
    std::string temporaryFolder() const { return (m_folder / "tmp").native(); }

private:
    const boost::filesystem::path m_folder;
    bool m_isKept = false;
};

void checkUploads(SqliteClient& store, bool areExpected) {
    std::string token;
    do {
        for (const auto& upload : store.listUploads("", token)) {
            if (!areExpected) {
                throw Finding("an upload of " + upload.Key + " is left unfinished in the store");
            }
            store.abortMultipartUpload(upload.Key, upload.UploadId);
        }
    } while (!token.empty());
}

void checkForDamage(const std::string& file) {
    storage::cloudprovider::VerificationObserver observer;
    observer.OnDamage = [](const std::string& key, const std::string& cause) {
        throw Finding("the store is damaged: " + key + ": " + cause);
    };
    verifySqliteStore(file, "", observer);
}

void removeObjects(SqliteClient& store, const Lap& first, const Lap& second) {
    std::string token;
    do {
        for (const auto& object : store.listObjects("", token, {})) {
            const auto isBelow = [&](const std::string& folder) { return object.Key.rfind(folder, 0) == 0; };
            if (!isBelow(first.sharedFolder) && !isBelow(first.ownFolder) && !isBelow(second.ownFolder)) {
                throw Finding("the store has an object that nobody stored: " + object.Key);
            }
            store.deleteObject(object.Key);
        }
    } while (!token.empty());
}

void compare(const Footprint& now, const Footprint& before) {
    const auto require = [](const char* what, std::uint64_t is, std::uint64_t was, std::uint64_t most) {
        if (is > was + most) {
            throw Finding(std::string(what) + " were left: " + std::to_string(is) + ", and " + std::to_string(was) +
                          " after the first lap");
        }
    };
    require("descriptors", now.descriptors, before.descriptors, 0);
    require("threads", now.threads, before.threads, 0);
    require("bytes of memory", now.residentBytes, before.residentBytes, Footprint::kMostGrowth);
}

class Soak {
public:
    Soak(const Settings& settings, const Workplace& place)
        : m_lapDuration(static_cast<std::int64_t>(settings.lapSeconds * 1000)),
          m_end(Clock::now() + std::chrono::milliseconds(static_cast<std::int64_t>(settings.minutes * 60'000))),
          m_mischief(settings.mischief),
          m_place(place),
          m_dice(settings.seed) {}

    void run() {
        while (m_laps < 2 || Clock::now() < m_end) {
            ++m_laps;
            runLap();
        }
        storage::cloudprovider::compactSqliteStore(m_place.store(), {});
        if (const auto size = boost::filesystem::file_size(m_place.store()); size > kMostEmptyStore) {
            throw Finding("the store takes " + std::to_string(size) + " bytes when nothing is left in it");
        }
        std::cout << "soak: " << m_total.operations << " operations, " << m_total.faults
                  << " injected faults, everything is as it should be" << std::endl;
    }

    std::uint64_t laps() const { return m_laps; }

private:
    Lap makeLap(const std::string& process) {
        Lap lap;
        lap.store = m_place.store();
        lap.sharedFolder = "shared" + std::to_string(m_laps) + "/";
        lap.ownFolder = process + std::to_string(m_laps) + "/";
        lap.seed = m_dice.pick(0, ~0ULL);
        lap.duration = m_lapDuration;
        return lap;
    }

    void runLap() {
        const auto begin = Clock::now();
        auto first = makeLap("first");
        const auto second = makeLap("second");
        {
            SqliteClient store(m_place.store());
            SharedFiles::begin(first.sharedFolder, store);
        }
        Peer peer(second);
        const bool isKilled = m_laps % 3 == 0;
        const auto killed = begin + m_lapDuration * m_dice.pick(10, 90) / 100;
        first.onTick = [&] {
            if (isInterrupted) {
                throw Interrupted();
            }
            if (isKilled && Clock::now() > killed) {
                peer.kill();
            }
            if (m_laps > 1 && Clock::now() > begin + m_lapDuration / 2) {
                m_mischief.happen(first);
            }
        };
        const auto counts = soak::run(first);
        peer.wait();
        checkWhatIsLeft(first, second, peer.wasKilled());
        m_total.operations += counts.operations;
        m_total.faults += counts.faults;
        tell(counts, peer.wasKilled(), Clock::now() - begin);
    }

    void checkWhatIsLeft(const Lap& first, const Lap& second, bool wasKilled) {
        checkForDamage(m_place.store());
        {
            SqliteClient store(m_place.store());
            checkUploads(store, wasKilled);
            removeObjects(store, first, second);
        }
        // What a killed process leaves goes with the next lap.
        if (const auto files = soak::countFiles(m_place.temporaryFolder()); files > 0 && !wasKilled) {
            throw Finding(std::to_string(files) + " temporary files were left");
        }
        m_footprint = Footprint::measure();
        if (m_laps == 1) {
            m_firstFootprint = m_footprint;
        }
        compare(m_footprint, m_firstFootprint);
    }

    void tell(const LapCounts& counts, bool wasKilled, Clock::duration duration) const {
        std::cout << "lap " << m_laps << ": " << std::fixed << std::setprecision(0)
                  << std::chrono::duration<double>(duration).count() << " s, " << counts.operations << " operations, "
                  << counts.faults << " injected faults, " << static_cast<double>(m_footprint.residentBytes) / kMiB
                  << " MiB, " << m_footprint.descriptors << " descriptors, " << m_footprint.threads << " threads"
                  << (wasKilled ? ", the second process was killed" : "") << std::endl;
    }

    // Set by the constructor, never changed.
    const std::chrono::milliseconds m_lapDuration;
    const Clock::time_point m_end;
    const Mischief m_mischief;
    const Workplace& m_place;

    Dice m_dice;
    std::uint64_t m_laps = 0;
    LapCounts m_total;
    Footprint m_footprint;
    Footprint m_firstFootprint;
};

int tellUsage() {
    std::cerr << "usage: soak [MINUTES] [--seed N] [--lap SECONDS] [--mischief KIND]\n"
                 "KIND: something to be noticed, done on purpose:";
    for (const auto& kind : Mischief::kinds()) {
        std::cerr << ' ' << kind;
    }
    std::cerr << std::endl;
    return 2;
}

std::optional<Settings> readArguments(int count, char** arguments) {
    Settings settings;
    for (int index = 1; index < count; ++index) {
        const std::string word = arguments[index];
        if (word.rfind("--", 0) != 0) {
            settings.minutes = std::stod(word);
            continue;
        }
        if (++index == count) {
            return std::nullopt;
        }
        const std::string value = arguments[index];
        if (word == "--seed") {
            settings.seed = std::stoull(value);
        } else if (word == "--lap") {
            settings.lapSeconds = std::stod(value);
        } else if (word == "--mischief") {
            settings.mischief = value;
        } else {
            return std::nullopt;
        }
    }
    return settings;
}

int soakWith(const Settings& settings) {
    Workplace place;
    Soak soak(settings, place);
    std::cout << "soak: seed " << settings.seed << ", " << settings.minutes << " minutes" << std::endl;
    try {
        soak.run();
        return EXIT_SUCCESS;
    } catch (const Interrupted&) {
        return kInterrupted;
    } catch (const std::exception& failure) {
        place.keep();
        std::cerr << "soak: in lap " << soak.laps() << " of seed " << settings.seed << ": " << failure.what()
                  << "\nsoak: kept for a look: " << place.store() << std::endl;
        return EXIT_FAILURE;
    }
}

}  // namespace

int main(int count, char** arguments) {
    testing::InitGoogleTest();  // the model of streams tells differences by it
    if (Peer::isMeant(count, arguments)) {
        return Peer::runAs(arguments);
    }
    std::signal(SIGINT, [](int) { isInterrupted = true; });
    try {
        const auto settings = readArguments(count, arguments);
        return settings ? soakWith(*settings) : tellUsage();
    } catch (const std::logic_error&) {  // no number, or no such mischief
        return tellUsage();
    }
}
