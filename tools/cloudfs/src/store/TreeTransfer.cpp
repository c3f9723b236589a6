// SPDX-License-Identifier: Apache-2.0
#include "store/TreeTransfer.hpp"

#include "terminal/ProgressBar.hpp"
#include "terminal/failures.hpp"

#include <foundation/services/InterruptState.hpp>
#include <foundation/storage/provider/ReplacementPolicy.hpp>
#include <storage/cloudprovider/CloudException.hpp>
#include <storage/cloudprovider/utils.hpp>

#include <algorithm>
#include <set>
#include <sstream>
#include <utility>

// What is removed is exactly what was copied:
//
//   list --> for each file: note its version, copy it --> for each: remove it, if it still has that version
//
// (1) The version is noted before the copy is made. A file that is replaced in between, or later, no longer has it, so
//     it is not removed: the version that is removed is the one that was copied.
// (2) Nothing is removed before everything is stored.
// (3) Markers go last, and only those of folders in which nothing stays.

namespace cloudfs {

using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::ReplacementPolicy;
using storage::cloudprovider::CloudException;
using storage::cloudprovider::ExpectedObject;
using storage::cloudprovider::ExtendedCloudClient;
using storage::cloudprovider::ListOptions;
using storage::cloudprovider::ResourceInUseException;
using storage::cloudprovider::ResourceNotFoundException;
namespace utils = storage::cloudprovider::utils;

namespace {

template <typename Action>
auto naming(const StorePath& path, const Action& action) {
    try {
        return action();
    } catch (const CloudException& failure) {
        throw Failure(failure.getErrorCode(), path.text(), causeOf(failure.getErrorCode(), failure.what()));
    }
}

std::string prefixOf(const StorePath& folder) {
    return utils::ensureTrailingSlash(folder.key());
}

bool beginsWith(const std::string& text, const std::string& beginning) {
    return text.compare(0, beginning.size(), beginning) == 0;
}

// Other programs may make keys that no path leads to, such as those with two "/" in a row.
void failUnlessPath(const std::string& key, std::uint64_t size) {
    const bool isMarker = utils::hasTrailingSlash(key);
    const auto path = isMarker ? key.substr(0, key.size() - 1) : key;
    const bool isReached =
        StorePath::displayText(foundation::storage::provider::StorageIRI(utils::keyToPath(path))) == '/' + path;
    if (!isReached || (isMarker && size > 0)) {
        throw Failure(ErrorCode::InvalidLocation, '/' + key, "is no path of a file or folder");
    }
}

}  // namespace

TreeTransfer::TreeTransfer(std::shared_ptr<ExtendedCloudClient> client, const IProvider& provider, StorePath from,
                           StorePath to)
    : m_client(std::move(client)),
      m_provider(provider),
      m_from(std::move(from)),
      m_to(std::move(to)),
      m_objects(list(m_from)) {
    for (const auto& object : m_objects) {
        failUnlessPath(prefixOf(m_from) + object.name, object.size);
        m_size += object.size;
    }
}

std::vector<TreeTransfer::Object> TreeTransfer::list(const StorePath& folder) const {
    const auto prefix = prefixOf(folder);
    std::vector<Object> objects;
    std::string token;
    do {
        foundation::utInterruptState::ThrowIfInterruptPending();
        const auto page = naming(folder, [&] { return m_client->listObjects(prefix, token, ListOptions()); });
        for (const auto& info : page) {
            // A store that answers with other keys must not make us touch them.
            if (!beginsWith(info.Key, prefix)) {
                throw Failure(ErrorCode::Unknown, folder.text(), "the store lists what is not in the folder");
            }
            objects.push_back({info.Key.substr(prefix.size()), info.Size, {}});
        }
    } while (!token.empty());
    return objects;
}

void TreeTransfer::failIfTaken() const {
    std::set<std::string> taken;
    for (auto& object : list(m_to)) {
        taken.insert(std::move(object.name));
    }
    for (const auto& object : m_objects) {
        if (!object.isMarker() && taken.count(object.name) > 0) {
            throw Failure(ErrorCode::AlreadyExists, m_to.child(object.name).text(),
                          "exists already; --replace replaces it");
        }
    }
}

void TreeTransfer::copy(bool mayReplace, ProgressBar& progress) {
    for (auto& object : m_objects) {
        foundation::utInterruptState::ThrowIfInterruptPending();
        if (object.isMarker()) {
            copyMarker(object);
        } else {
            copyFile(object, mayReplace);
        }
        progress.advance(object.size);
    }
}

std::string TreeTransfer::describeVersion(const StorePath& path, const std::string& key) const {
    return naming(path, [&] {
        auto description = m_client->describeObject(key);
        if (!description) {
            throw ResourceNotFoundException();
        }
        return std::move(description->Version);
    });
}

void TreeTransfer::copyFile(Object& file, bool mayReplace) const {
    const auto path = m_from.child(file.name);
    const auto place = m_to.child(file.name);
    file.version = describeVersion(path, path.key());
    namingPath(place.text(), [&] {
        m_provider.copyFile(path.iri(), place.iri(), mayReplace ? ReplacementPolicy::Replace : ReplacementPolicy::Fail);
    });
}

// One that is there already is as good.
void TreeTransfer::copyMarker(Object& marker) const {
    marker.version = describeVersion(m_from, prefixOf(m_from) + marker.name);
    const auto key = prefixOf(m_to) + marker.name;
    naming(m_to, [&] {
        if (!key.empty() && !m_client->getObjectInfo(key)) {
            std::stringstream nothing;
            m_client->putObjectOver(key, nothing, 0, ExpectedObject::anything());
        }
    });
}

void TreeTransfer::removeSource(ProgressBar& progress) {
    progress.announceRemoval();
    for (const auto& object : m_objects) {
        foundation::utInterruptState::ThrowIfInterruptPending();
        if (!object.isMarker()) {
            isRemoved(object);  // what is not shows in the listing
        }
    }
    std::vector<std::string> left;
    for (auto& object : list(m_from)) {
        left.push_back(std::move(object.name));
    }
    removeMarkers(left);
    if (left.empty()) {
        return;
    }
    std::string paths;
    for (const auto& name : left) {
        paths += (paths.empty() ? "" : ", ") + m_from.child(name).text();
    }
    throw Failure(ErrorCode::InUse, m_from.text(),
                  "all is at " + m_to.text() + ", but what was changed or added meanwhile stays: " + paths);
}

// Whether it has gone, now or before; false when it has another version.
bool TreeTransfer::isRemoved(const Object& object) const {
    try {
        m_client->removeObject(prefixOf(m_from) + object.name, object.version);
        return true;
    } catch (const ResourceNotFoundException&) {
        return true;
    } catch (const ResourceInUseException&) {
        return false;
    } catch (const CloudException& failure) {
        throw Failure(failure.getErrorCode(), m_from.child(object.name).text(),
                      "all is at " + m_to.text() + ", but removing this failed: " + failure.what());
    }
}

// left: what is in the folder. Our markers are taken from it, those of folders in which something stays, too: that is
// said by what stays.
void TreeTransfer::removeMarkers(std::vector<std::string>& left) const {
    for (auto marker = m_objects.rbegin(); marker != m_objects.rend(); ++marker) {
        foundation::utInterruptState::ThrowIfInterruptPending();
        const auto found = std::find(left.begin(), left.end(), marker->name);
        if (!marker->isMarker() || found == left.end()) {
            continue;
        }
        const bool isNeeded = std::any_of(left.begin(), left.end(), [&](const std::string& name) {
            return name != marker->name && beginsWith(name, marker->name);
        });
        if (isNeeded || isRemoved(*marker)) {
            left.erase(found);
        }
    }
}

}  // namespace cloudfs
