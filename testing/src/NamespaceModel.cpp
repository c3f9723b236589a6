// SPDX-License-Identifier: Apache-2.0
#include <storage/cloudprovider/testing/NamespaceModel.hpp>

#include <foundation/services/Text.hpp>
#include <storage/cloudprovider/testing/stored.hpp>

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <vector>

namespace storage::cloudprovider::test {

using foundation::storage::provider::ByteStreamOpenOptions;
using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::IFolderEntryIterator;
using foundation::storage::provider::ReplacementPolicy;
using foundation::storage::provider::StorageIRI;

namespace {

using Error = std::optional<ErrorCode>;

StorageIRI iriOf(const std::string& key) {
    return StorageIRI::fromUtf8("/" + key);
}

std::set<std::string> collect(std::unique_ptr<IFolderEntryIterator> entries) {
    std::set<std::string> paths;
    while (entries->hasNext()) {
        entries->next();
        const auto entry = entries->get();
        const auto path = foundation::toUtf8(entry.getName()) + (entry.isFolder() ? "/" : "");
        EXPECT_TRUE(paths.insert(path).second) << path << " is listed twice";
    }
    return paths;
}

}  // namespace

// What a provider makes of a store, told by a plain map of keys.
class NamespaceModel::Plain {
public:
    explicit Plain(const Traits& traits)
        : m_traits(traits), m_hasMarkers(traits.policy == FolderPolicy::MarkerObjects) {}

    const std::map<std::string, std::string>& objects() const { return m_objects; }
    bool fileExists(const std::string& key) const { return m_objects.count(key) != 0; }
    bool folderExists(const std::string& key) const { return key.empty() || !below(key).empty(); }

    Error write(const std::string& key, const std::string& bytes) {
        m_objects[key] = bytes;
        return {};
    }

    Error createFile(const std::string& key) {
        return fileExists(key) ? Error(ErrorCode::AlreadyExists) : write(key, "");
    }

    Error createFolder(const std::string& key) {
        if (!m_hasMarkers) {
            return ErrorCode::Unsupported;
        }
        const auto slash = key.rfind('/');
        if (!folderExists(slash == std::string::npos ? "" : key.substr(0, slash))) {
            return ErrorCode::NotFound;
        }
        return fileExists(key) || fileExists(key + "/") ? Error(ErrorCode::AlreadyExists) : write(key + "/", "");
    }

    Error removeFile(const std::string& key) {
        return m_objects.erase(key) == 0 && m_traits.missesRemoved ? Error(ErrorCode::NotFound) : Error();
    }

    Error removeFolder(const std::string& key) {
        const auto keys = below(key);
        if (keys.empty()) {
            return ErrorCode::NotFound;
        }
        const bool isEmptyFolder = m_hasMarkers && keys.size() == 1 && keys.front() == key + "/";
        return isEmptyFolder ? removeFile(key + "/") : ErrorCode::FolderNotEmpty;
    }

    Error removeFolderRecursively(const std::string& key) {
        const auto keys = below(key);
        for (const auto& each : keys) {
            m_objects.erase(each);
        }
        return keys.empty() ? Error(ErrorCode::NotFound) : Error();
    }

    Error move(const std::string& from, const std::string& to, ReplacementPolicy policy) {
        const auto error = transfer(from, to, policy, true);
        if (!error && from != to) {
            m_objects.erase(from);
        }
        return error;
    }

    Error copy(const std::string& from, const std::string& to, ReplacementPolicy policy) {
        return transfer(from, to, policy, m_traits.checkFolderOnCopy);
    }

    // Paths relative to the folder, folders with a trailing "/"; empty when there is nothing to list.
    std::set<std::string> list(const std::string& folder, bool isRecursive) const {
        std::set<std::string> paths;
        for (const auto& key : below(folder)) {
            const auto path = key.substr(folder.empty() ? 0 : folder.size() + 1);
            for (auto slash = path.find('/'); slash != std::string::npos; slash = path.find('/', slash + 1)) {
                paths.insert(path.substr(0, slash + 1));
                if (!isRecursive) {
                    break;
                }
            }
            if (isRecursive || path.find('/') == std::string::npos) {
                paths.insert(path);
            }
        }
        paths.erase("");
        return paths;
    }

private:
    std::vector<std::string> below(const std::string& folder) const {
        const auto prefix = folder.empty() ? folder : folder + "/";
        std::vector<std::string> keys;
        for (const auto& [key, bytes] : m_objects) {
            if (key.compare(0, prefix.size(), prefix) == 0) {
                keys.push_back(key);
            }
        }
        return keys;
    }

    Error transfer(const std::string& from, const std::string& to, ReplacementPolicy policy, bool checksFolder) {
        const bool isRefused = policy == ReplacementPolicy::Fail && fileExists(to);
        if (isRefused || (checksFolder && folderExists(to))) {
            return ErrorCode::AlreadyExists;
        }
        return fileExists(from) ? write(to, m_objects[from]) : ErrorCode::NotFound;
    }

    std::map<std::string, std::string> m_objects;
    const Traits m_traits;
    const bool m_hasMarkers;
};

NamespaceModel::NamespaceModel(std::uint64_t seed, const Traits& traits,
                               foundation::storage::provider::IProvider& provider, CloudClient& store)
    : m_provider(provider),
      m_store(store),
      m_mostBytes(traits.mostBytes),
      m_random(seed),
      m_plain(std::make_unique<Plain>(traits)) {}

NamespaceModel::~NamespaceModel() = default;

std::uint64_t NamespaceModel::pick(std::uint64_t least, std::uint64_t most) {
    return std::uniform_int_distribution<std::uint64_t>(least, most)(m_random);
}

std::string NamespaceModel::pickKey() {
    static const char* const names[] = {"a", "a.b", "a b"};
    std::string key = names[pick(0, 2)];
    for (auto depth = pick(0, 2); depth > 0; --depth) {
        key += std::string("/") + names[pick(0, 2)];
    }
    return key;
}

void NamespaceModel::step() {
    const auto key = pickKey();
    const auto other = pickKey();
    const auto policy = static_cast<ReplacementPolicy>(pick(0, 1));
    switch (pick(0, 8)) {
        case 0:
            return check(
                "createFile", [&] { m_provider.createFile(iriOf(key)); }, m_plain->createFile(key));
        case 1:
            return check(
                "createFolder", [&] { m_provider.createFolder(iriOf(key)); }, m_plain->createFolder(key));
        case 2:
            return check(
                "removeFile", [&] { m_provider.removeFile(iriOf(key)); }, m_plain->removeFile(key));
        case 3:
            return check(
                "removeFolder", [&] { m_provider.removeFolder(iriOf(key)); }, m_plain->removeFolder(key));
        case 4:
            return check(
                "removeFolderRecursively", [&] { m_provider.removeFolderRecursively(iriOf(key)); },
                m_plain->removeFolderRecursively(key));
        case 5:
            return check(
                "moveFile", [&] { m_provider.moveFile(iriOf(key), iriOf(other), policy); },
                m_plain->move(key, other, policy));
        case 6:
            return check(
                "copyFile", [&] { m_provider.copyFile(iriOf(key), iriOf(other), policy); },
                m_plain->copy(key, other, policy));
        default:
            const std::string bytes(pick(0, m_mostBytes), static_cast<char>(pick('A', 'Z')));
            return check(
                "write", [&] { write(key, bytes); }, m_plain->write(key, bytes));
    }
}

void NamespaceModel::compare() {
    ASSERT_EQ(contentsOf(m_store), m_plain->objects());
    const auto key = pick(0, 3) == 0 ? std::string() : pickKey();
    SCOPED_TRACE("folder " + key);
    EXPECT_EQ(m_provider.fileExists(iriOf(key)), m_plain->fileExists(key));
    EXPECT_EQ(m_provider.folderExists(iriOf(key)), m_plain->folderExists(key));
    for (const bool isRecursive : {false, true}) {
        std::set<std::string> listed;
        const auto error = errorCodeOf([&] {
            listed = collect(isRecursive ? m_provider.listAllRecursive(iriOf(key)) : m_provider.listAll(iriOf(key)));
        });
        EXPECT_EQ(listed, m_plain->list(key, isRecursive));
        const bool isThere = m_plain->folderExists(key) && !m_plain->objects().empty();
        EXPECT_EQ(error, isThere ? Error() : Error(ErrorCode::NotFound));
    }
}

void NamespaceModel::check(const char* operation, const std::function<void()>& action, const Error& expected) {
    std::string text;
    const auto error = errorCodeOf([&] {
        try {
            action();
        } catch (const std::exception& failure) {
            text = failure.what();
            throw;
        }
    });
    EXPECT_EQ(error, expected) << operation << ": " << text;
}

void NamespaceModel::write(const std::string& key, const std::string& bytes) {
    ByteStreamOpenOptions options;
    options.existingContent = ByteStreamOpenOptions::ExistingContent::Discard;
    const auto stream = m_provider.openStream(iriOf(key), options);
    if (!bytes.empty()) {
        const auto size = static_cast<std::int64_t>(bytes.size());
        EXPECT_EQ(stream->write(bytes.data(), size), size);
    }
    stream->close();
}

}  // namespace storage::cloudprovider::test
