// SPDX-License-Identifier: Apache-2.0
#include "SharedFiles.hpp"

#include <storage/cloudprovider/abandonStream.hpp>
#include <storage/cloudprovider/resizeStream.hpp>
#include <storage/cloudprovider/testing/stored.hpp>

#include <functional>
#include <sstream>
#include <utility>

namespace soak {

using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::StorageIRI;

namespace {

constexpr std::uint64_t kFiles = 3;
constexpr std::uint64_t kMostParts = 6;  // of a version

// A version tells by its first line, "NAME SIZE", what all of its bytes are.
std::string makeVersion(const std::string& name, std::uint64_t size) {
    std::string version = name + " " + std::to_string(size) + "\n";
    version += Dice(std::hash<std::string>()(name)).bytes(size);
    return version;
}

void requireVersion(const std::string& bytes, const std::string& file) {
    std::string name;
    std::uint64_t size = 0;
    std::istringstream first(bytes.substr(0, bytes.find('\n')));
    if (!(first >> name >> size) || bytes != makeVersion(name, size)) {
        throw Finding(file + " has " + std::to_string(bytes.size()) +
                      " bytes that are no version as a whole; they begin " + "like that of " + name);
    }
}

std::string makeRecord(const std::string& writer, std::uint64_t number) {
    return writer + " " + std::to_string(number) + "\n";
}

}  // namespace

SharedFiles::SharedFiles(std::uint64_t seed, std::string writer, std::string folder, std::uint64_t partSize,
                         const foundation::storage::provider::IProvider& provider,
                         storage::cloudprovider::CloudClient& store)
    : m_writer(std::move(writer)),
      m_folder(std::move(folder)),
      m_partSize(partSize),
      m_provider(provider),
      m_store(store),
      m_dice(seed) {}

void SharedFiles::begin(const std::string& folder, storage::cloudprovider::CloudClient& store) {
    for (std::uint64_t index = 0; index < kFiles; ++index) {
        storage::cloudprovider::test::storeObject(store, folder + std::to_string(index), makeVersion("first", index));
    }
    storage::cloudprovider::test::storeObject(store, folder + "log", "");
}

void SharedFiles::step() {
    const auto choice = m_dice.pick(0, 99);
    if (choice < 25) {
        replace();
    } else if (choice < 50) {
        edit();
    } else if (choice < 85) {
        read();
    } else {
        append();
    }
}

void SharedFiles::finish() {
    const auto log = storage::cloudprovider::test::contentOf(m_store, m_folder + "log").value_or("");
    std::vector<std::uint64_t> counts(m_records.size());
    std::istringstream lines(log);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream fields(line);
        std::string writer;
        std::uint64_t number = 0;
        if (!(fields >> writer >> number)) {
            throw Finding("the log has a torn record: " + line);
        }
        if (writer == m_writer && (number >= counts.size() || ++counts[number] > 1)) {
            throw Finding("the log has a record twice, or one that was never written: " + line);
        }
    }
    for (std::uint64_t number = 0; number < counts.size(); ++number) {
        if (m_records[number] && counts[number] == 0) {
            throw Finding("the log has lost a record that was stored: " + makeRecord(m_writer, number));
        }
    }
}

StorageIRI SharedFiles::pickFile() {
    return StorageIRI::fromUtf8("/" + m_folder + std::to_string(m_dice.pick(0, kFiles - 1)));
}

std::string SharedFiles::newVersion() {
    return makeVersion(m_writer + "." + std::to_string(++m_versions), m_dice.pick(0, kMostParts * m_partSize));
}

// Opened to be written anew, a file replaces whatever is there: a conflict is no excuse.
void SharedFiles::replace() {
    const auto stream = insist([&] { return m_provider.openStream(pickFile(), toReplace()); });
    const auto version = newVersion();
    const auto half = m_dice.pick(0, version.size());
    writeAt(*stream, 0, version.substr(0, half));
    writeAt(*stream, half, version.substr(half));
    succeeds([&] { stream->close(); });
}

// What is changed in place is written as a whole, too, but in the parts of the version that is there.
void SharedFiles::edit() {
    const auto stream = insist([&] { return m_provider.openStream(pickFile(), toUpdate()); });
    const auto version = newVersion();
    const bool isWritten = succeedsUnless(ErrorCode::InUse, [&] {
        const auto half = m_dice.pick(0, version.size());
        writeAt(*stream, half, version.substr(half));
        writeAt(*stream, 0, version.substr(0, half));
        storage::cloudprovider::resizeStream(*stream, version.size());
    });
    if (!isWritten) {
        storage::cloudprovider::abandonStream(*stream);
        return;
    }
    succeedsUnless(ErrorCode::InUse, [&] { stream->close(); });
}

void SharedFiles::read() {
    const auto file = pickFile();
    const auto stream = insist([&] { return m_provider.openReadOnlyStream(file); });
    std::string bytes;
    const bool isRead = succeedsUnless(ErrorCode::InUse, [&] {
        for (std::string piece = "first"; !piece.empty();) {
            piece = readAt(*stream, bytes.size(), m_partSize);
            bytes += piece;
        }
    });
    if (isRead) {
        requireVersion(bytes, file.toDisplayText());
    }
    succeeds([&] { stream->close(); });
}

// Like cloudfs append: begins again after a conflict. Of a close that failed nobody knows whether it stored.
void SharedFiles::append() {
    auto options = toUpdate();
    options.writeMode = OpenOptions::WriteMode::Append;
    const auto record = makeRecord(m_writer, m_records.size());
    for (bool isDone = false; !isDone;) {
        const auto stream =
            insist([&] { return m_provider.openStream(StorageIRI::fromUtf8("/" + m_folder + "log"), options); });
        const bool isWritten = succeedsUnless(
            ErrorCode::InUse, [&] { stream->write(record.data(), static_cast<std::int64_t>(record.size())); });
        if (!isWritten) {
            storage::cloudprovider::abandonStream(*stream);
            continue;
        }
        try {
            m_records.push_back(succeeds([&] { stream->close(); }));
            isDone = true;
        } catch (const foundation::storage::provider::ErrorCoded& failure) {
            if (failure.getErrorCode() != ErrorCode::InUse) {
                throw;
            }
        }
    }
}

}  // namespace soak
