// SPDX-License-Identifier: Apache-2.0
#include "Lap.hpp"

#include "FaultyClient.hpp"
#include "OwnFiles.hpp"
#include "RegionFile.hpp"
#include "SharedFiles.hpp"
#include "soaking.hpp"

#include <storage/cloudprovider/buildCloudProvider.hpp>
#include <storage/cloudprovider/sqlite/SqliteClient.hpp>
#include <storage/cloudprovider/testing/StreamModel.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

namespace soak {

using foundation::storage::provider::IProvider;
using foundation::storage::provider::StorageIRI;
using storage::cloudprovider::ProviderOptions;

namespace {

constexpr std::size_t kOwners = 2;   // threads with files of their own
constexpr std::size_t kRegions = 3;  // threads in one file
constexpr std::size_t kSharers = 2;  // threads with a provider each, on shared files
constexpr std::chrono::milliseconds kTick(20);
constexpr std::chrono::minutes kMostSilence(3);  // longer than the store waits for other writers

// Threads that step until they are told to finish, or one of them fails.
class Crew {
public:
    ~Crew() { join(); }

    void add(std::function<void()> step) {
        {
            const std::lock_guard lock(m_mutex);
            ++m_running;
        }
        m_threads.emplace_back([this, step = std::move(step)] {
            try {
                while (!m_isOver) {
                    step();
                    ++m_steps;
                }
            } catch (...) {
                const std::lock_guard lock(m_mutex);
                m_failure = m_failure ? m_failure : std::current_exception();
                m_isOver = true;
            }
            const std::lock_guard lock(m_mutex);
            --m_running;
            m_changed.notify_all();
        });
    }

    // For a tick at most; false when somebody failed.
    bool waitForFailure() {
        std::unique_lock lock(m_mutex);
        return !m_changed.wait_for(lock, kTick, [this] { return m_failure != nullptr; });
    }

    // For a tick at most; false when all have.
    bool waitForEnd() {
        m_isOver = true;
        std::unique_lock lock(m_mutex);
        return !m_changed.wait_for(lock, kTick, [this] { return m_running == 0; });
    }

    std::uint64_t steps() const { return m_steps; }

    void join() {
        m_isOver = true;
        for (auto& thread : m_threads) {
            thread.join();
        }
        m_threads.clear();
    }

    void rethrow() const {
        if (m_failure) {
            std::rethrow_exception(m_failure);
        }
    }

private:
    std::atomic<bool> m_isOver = false;
    std::atomic<std::uint64_t> m_steps = 0;
    std::mutex m_mutex;  // guards the next three
    std::condition_variable m_changed;
    std::size_t m_running = 0;
    std::exception_ptr m_failure;
    std::vector<std::thread> m_threads;
};

// Ends the process where it no longer gets on, which nothing else could.
class Watch {
public:
    void look(std::uint64_t steps) {
        const auto now = std::chrono::steady_clock::now();
        if (steps != m_steps) {
            m_steps = steps;
            m_since = now;
        } else if (now - m_since > kMostSilence) {
            std::cerr << "soak: nothing moves any more: no thread ended an operation for " << kMostSilence.count()
                      << " minutes, after " << steps << " operations" << std::endl;
            std::_Exit(EXIT_FAILURE);
        }
    }

private:
    std::uint64_t m_steps = 0;
    std::chrono::steady_clock::time_point m_since = std::chrono::steady_clock::now();
};

ProviderOptions pickOptions(Dice& dice, std::uint64_t partSize) {
    ProviderOptions options;
    options.transferThreads = static_cast<std::uint32_t>(dice.pick(0, 4));
    options.readAheadParts = static_cast<std::uint32_t>(dice.pick(0, 3));
    options.partSize = partSize;
    options.cacheSize = dice.pick(0, 4) * partSize;
    options.lightBuffers = dice.oneIn(2);
    options.copyInStore = dice.oneIn(2);
    options.moveOrder = storage::cloudprovider::MoveOrder::StoreDestinationFirst;
    return options;
}

std::shared_ptr<IProvider> makeProvider(const std::shared_ptr<storage::cloudprovider::CloudClient>& client,
                                        const ProviderOptions& options) {
    return buildCloudProvider(client, storage::cloudprovider::FolderPolicy::MarkerObjects, false, options);
}

// Some calls in a hundred fail, half of them once they have done their work.
void placeFaults(FaultyClient& client, Dice& dice) {
    using When = FaultyClient::When;
    client.clearFaults();
    client.clearCalls();
    for (auto count = dice.pick(0, 4); count > 0; --count) {
        client.failCall(dice.pick(1, 30), dice.oneIn(2) ? When::Before : When::After);
    }
}

// A stream model after the other, each of a file of its own.
class ModelledStreams {
public:
    ModelledStreams(std::uint64_t seed, std::string folder, const ProviderOptions& options,
                    const std::shared_ptr<storage::cloudprovider::CloudClient>& store)
        : m_folder(std::move(folder)),
          m_shape{.partSize = *options.partSize},
          m_store(store),
          m_provider(makeProvider(store, options)),
          m_seed(seed) {}

    void step() {
        if (m_left == 0) {
            m_left = 80;
            ++m_seed;
            const auto key = m_folder + std::to_string(m_seed);
            m_model.emplace(m_seed, m_shape, StorageIRI::fromUtf8("/" + key), key, *m_provider, *m_store);
        }
        m_model->step();
        if (--m_left == 0) {
            finish();
        }
        requireNoDifference();
    }

    void finish() {
        if (m_model) {
            m_model->finish();
            m_model.reset();
        }
        m_left = 0;
        requireNoDifference();
    }

private:
    void requireNoDifference() const {
        if (testing::Test::HasFailure()) {
            throw Finding("streams differ from the model of seed " + std::to_string(m_seed) + ", as told above");
        }
    }

    const std::string m_folder;
    const storage::cloudprovider::test::StreamModel::Shape m_shape;
    const std::shared_ptr<storage::cloudprovider::CloudClient> m_store;
    const std::shared_ptr<IProvider> m_provider;
    std::uint64_t m_seed;
    std::uint64_t m_left = 0;  // steps of the present one
    std::optional<storage::cloudprovider::test::StreamModel> m_model;
};

}  // namespace

LapCounts run(const Lap& lap) {
    Dice dice(lap.seed);
    const auto store = std::make_shared<storage::cloudprovider::SqliteClient>(lap.store);
    std::vector<std::shared_ptr<FaultyClient>> clients = {std::make_shared<FaultyClient>(store)};
    const auto partSize = dice.pick(1000, 20000);
    const auto provider = makeProvider(clients.front(), pickOptions(dice, partSize));

    std::vector<std::shared_ptr<IProvider>> providers;  // of the sharers
    std::vector<SharedFiles> shared;
    std::vector<OwnFiles> own;
    for (std::size_t index = 0; index < kSharers; ++index) {
        clients.push_back(std::make_shared<FaultyClient>(store));
        providers.push_back(makeProvider(clients.back(), pickOptions(dice, partSize)));
        const auto name = lap.ownFolder.substr(0, lap.ownFolder.size() - 1) + "." + std::to_string(index);
        shared.emplace_back(dice.pick(0, ~0ULL), name, lap.sharedFolder, partSize, *providers.back(), *store);
    }
    for (std::size_t index = 0; index < kOwners; ++index) {
        own.emplace_back(dice.pick(0, ~0ULL), lap.ownFolder + std::to_string(index) + "/", partSize, *provider, *store);
    }
    RegionFile regions(dice.pick(0, ~0ULL), lap.ownFolder + "regions", partSize, kRegions, *provider, *store);
    ModelledStreams models(dice.pick(0, ~0ULL >> 1), lap.ownFolder + "model/", pickOptions(dice, dice.pick(1, 3000)),
                           store);

    Crew crew;
    for (auto& files : shared) {
        crew.add([&files] { files.step(); });
    }
    for (auto& files : own) {
        crew.add([&files] { files.step(); });
    }
    for (std::size_t index = 0; index < kRegions; ++index) {
        crew.add([&regions, index] { regions.step(index); });
    }
    crew.add([&models] { models.step(); });

    Watch watch;
    const auto end = std::chrono::steady_clock::now() + lap.duration;
    while (crew.waitForFailure() && std::chrono::steady_clock::now() < end) {
        for (const auto& client : clients) {
            placeFaults(*client, dice);
        }
        watch.look(crew.steps());
        lap.onTick();
    }
    for (const auto& client : clients) {
        client->clearFaults();
    }
    while (crew.waitForEnd()) {
        watch.look(crew.steps());
    }
    crew.join();
    crew.rethrow();

    for (auto& files : shared) {
        files.finish();
    }
    for (auto& files : own) {
        files.finish();
    }
    regions.finish();
    models.finish();
    LapCounts counts{crew.steps(), 0};
    for (const auto& client : clients) {
        counts.faults += client->faultCount();
    }
    return counts;
}

}  // namespace soak
