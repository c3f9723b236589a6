// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "listing/listingPages.hpp"
#include "support/host.hpp"
#include "support/translateException.hpp"

#include <foundation/services/Text.hpp>
#include <foundation/storage/provider/FolderEntry.hpp>
#include <foundation/storage/provider/StorageIRI.hpp>
#include <storage/cloudprovider/CloudClient.hpp>
#include <storage/cloudprovider/CloudException.hpp>
#include <storage/cloudprovider/utils.hpp>

#include <boost/optional.hpp>

#include <deque>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

namespace storage::cloudprovider {

/// Turns the pages of a listing into entries, a page at a time.
///
/// The first page is fetched on construction, so that a missing folder is reported at once; later pages when
/// the last entry of a page is handed out, so that hasNext is exact. One thread at a time.
template <typename Derived>
class AbstractCloudEntryIterator : public host::IClonableFolderEntryIterator<Derived> {
public:
    host::FolderEntry get() const override {
        if (!m_current) {
            throw std::logic_error("no current entry: call next first");
        }
        return *m_current;
    }

    bool hasNext() const override { return !m_entries.empty(); }

    void next() override {
        if (m_entries.empty()) {
            throw std::logic_error("the listing has no further entry");
        }
        m_current = std::move(m_entries.front());
        m_entries.pop_front();
        if (m_entries.empty()) {
            fetchEntries(false);
        }
    }

    virtual std::string getDelimiter() const = 0;

    /// Append what a listed object stands for; name is its path relative to the folder, not empty.
    virtual void addEntry(const std::string& name, const ObjectInfo& item) = 0;

protected:
    AbstractCloudEntryIterator(host::StorageIRI folder, std::shared_ptr<CloudClient> client)
        : m_folder(std::move(folder)), m_client(std::move(client)) {}

    /// Fetch pages until one brings an entry or there are no more. Throws the host's Exception for the
    /// folder; a page that fails leaves no entries behind.
    void fetchEntries(bool first) {
        try {
            fetchUntilEntries(first);
        } catch (...) {
            m_entries.clear();
            traceCaughtException();
            translateException(m_folder);
        }
    }

    void appendFile(const std::string& path, const ObjectInfo& item) {
        append(path, host::FileAttributes(item.Size, item.LastModified, true));
    }

    void appendFolder(const std::string& path, const boost::posix_time::ptime& lastModified) {
        append(path, host::FolderAttributes(lastModified, true));
    }

private:
    void fetchUntilEntries(bool first) {
        const auto prefix = utils::ensureTrailingSlash(utils::iriToKey(m_folder));
        const ListOptions options{getDelimiter(), -1};
        bool isKnownToExist = !first;
        while (m_entries.empty() && (first || !m_continuationToken.empty())) {
            const auto page = fetchPage(*m_client, prefix, m_continuationToken, options);
            failIfNotBelow(prefix, page);
            isKnownToExist = isKnownToExist || !page.empty();
            for (const auto& item : page) {
                const auto name = item.Key.substr(prefix.size());
                if (!name.empty()) {
                    addEntry(name, item);
                }
            }
            first = false;
        }
        if (!isKnownToExist && !m_client->getObjectInfo(prefix)) {
            throw ResourceNotFoundException();
        }
    }

    // Keys such as a//b have components without a name. Opened by such a path, they would be another object.
    static bool hasUnnamedComponent(const std::string& path) {
        return path.empty() || path.front() == utils::separator() || path.back() == utils::separator() ||
               path.find("//") != std::string::npos;
    }

    template <typename Attributes>
    void append(const std::string& path, const Attributes& attributes) {
        if (!hasUnnamedComponent(path)) {
            const auto name = foundation::toUtf16Lossy(path);
            m_entries.emplace_back(name, attributes);
        }
    }

    boost::optional<host::FolderEntry> m_current;
    std::deque<host::FolderEntry> m_entries;
    std::string m_continuationToken;
    host::StorageIRI m_folder;
    std::shared_ptr<CloudClient> m_client;
};

}  // namespace storage::cloudprovider
