// SPDX-License-Identifier: Apache-2.0
// Listings: whatever keys and pages a client answers with, shown as entries, and removed.
#include "require.hpp"

#include <foundation/services/Text.hpp>
#include <foundation/storage/provider/Exception.hpp>
#include <foundation/storage/provider/FolderEntry.hpp>
#include <foundation/storage/provider/IProvider.hpp>
#include <storage/cloudprovider/CloudClient.hpp>
#include <storage/cloudprovider/CloudException.hpp>
#include <storage/cloudprovider/buildCloudProvider.hpp>

#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::IFolderEntryIterator;
using foundation::storage::provider::IProvider;
using foundation::storage::provider::StorageIRI;
using fuzz::require;
using storage::cloudprovider::ListOptions;
using storage::cloudprovider::ObjectInfo;
using storage::cloudprovider::PartInfo;
using Input = FuzzedDataProvider;

const std::string kFolder = "d/";

struct Page {
    std::vector<std::string> keys;
    std::string token;
    bool fails = false;
};

// Lists pages that somebody else thought of; removes what it is told to. Nothing else is asked of it.
class PagesClient final : public storage::cloudprovider::CloudClient {
public:
    explicit PagesClient(std::vector<Page> pages) : m_pages(std::move(pages)) {}

    void begin() { m_asked = 0; }
    bool wasAskedBeyondTheEnd() const { return m_wasAskedBeyondTheEnd; }

    boost::optional<ObjectInfo> getObjectInfo(const std::string& /*key*/) override { return boost::none; }
    void checkObjectName(const std::string& /*name*/) override {}
    std::vector<ObjectInfo> listObjects(const std::string& /*prefix*/, std::string& token,
                                        const ListOptions& /*options*/) override {
        if (m_asked == m_pages.size()) {
            m_wasAskedBeyondTheEnd = m_wasAskedBeyondTheEnd || (m_asked > 0 && m_pages.back().token.empty());
            token.clear();
            return {};
        }
        const auto& page = m_pages[m_asked++];
        if (page.fails) {
            throw storage::cloudprovider::PermissionDeniedException();
        }
        std::vector<ObjectInfo> items;
        for (const auto& key : page.keys) {
            items.push_back({key, key.size(), {}});
        }
        token = page.token;
        return items;
    }
    void deleteObject(const std::string& key) override {
        require(key.rfind(kFolder, 0) == 0, "nothing outside of the folder is removed");
    }
    void getObject(const std::string&, std::ostream&, std::uint64_t, std::uint64_t) override { std::abort(); }
    void putObject(const std::string&, std::istream&, std::uint64_t) override { std::abort(); }
    std::vector<PartInfo> getObjectParts(const std::string&) override { return {}; }
    std::string startMultipartUpload(const std::string&, const std::string&) override { std::abort(); }
    std::string uploadPart(const std::string&, const std::string&, const PartInfo&, std::istream&) override {
        std::abort();
    }
    std::string copyPart(const std::string&, const std::string&, const PartInfo&) override { std::abort(); }
    void abortMultipartUpload(const std::string&, const std::string&) override { std::abort(); }
    void completeMultipartUpload(const std::string&, const std::string&, const std::vector<PartInfo>&) override {
        std::abort();
    }

private:
    const std::vector<Page> m_pages;
    std::size_t m_asked = 0;
    bool m_wasAskedBeyondTheEnd = false;
};

std::string anyKey(Input& input) {
    static constexpr const char* kPieces[] = {"a", "b", "/", "//", ".", "..", "\xC3\xBC", "\xFF"};
    std::string key = input.ConsumeIntegralInRange<int>(0, 40) == 0 ? "" : kFolder;
    for (auto left = input.ConsumeIntegralInRange<int>(0, 6); left > 0; --left) {
        key += input.PickValueInArray(kPieces);
    }
    return key + input.ConsumeRandomLengthString(4);
}

std::vector<Page> anyPages(Input& input) {
    static constexpr const char* kTokens[] = {"", "1", "2", "3"};
    std::vector<Page> pages;
    do {
        Page page;
        for (auto left = input.ConsumeIntegralInRange<int>(0, 5); left > 0; --left) {
            page.keys.push_back(anyKey(input));
        }
        page.token = input.PickValueInArray(kTokens);
        page.fails = input.ConsumeIntegralInRange<int>(0, 20) == 0;
        pages.push_back(std::move(page));
    } while (!pages.back().token.empty() && input.remaining_bytes() > 0);
    return pages;
}

bool isShownPath(const std::u16string& name) {
    return !name.empty() && (u'/' + name + u'/').find(u"//") == std::u16string::npos;
}

// Each folder is told once, and before what it holds.
void checkOrder(const IFolderEntryIterator& entry, std::set<std::u16string>& folders) {
    const auto name = entry.get().getName();
    const auto slash = name.rfind(u'/');
    require(slash == std::u16string::npos || folders.count(name.substr(0, slash)) == 1,
            "a folder comes before what it holds");
    if (entry.get().isFolder()) {
        require(folders.insert(name).second || foundation::toUtf8(name).find("\xEF\xBF\xBD") != std::string::npos,
                "a folder comes once");
    }
}

using List = std::unique_ptr<IFolderEntryIterator> (IProvider::*)(const StorageIRI&) const;

void checkListing(const IProvider& provider, List list, bool isRecursive) {
    std::unique_ptr<IFolderEntryIterator> entries;
    std::set<std::u16string> folders;
    try {
        entries = (provider.*list)(StorageIRI::fromUtf8("/" + kFolder));
        while (entries->hasNext()) {
            entries->next();
            require(isShownPath(entries->get().getName()), "every component of an entry has a name");
            if (isRecursive) {
                checkOrder(*entries, folders);
            }
        }
    } catch (const foundation::storage::provider::Exception& failure) {
        require(failure.getErrorCode() != ErrorCode::NotFound || !entries, "a folder is missed at once or not at all");
        require(!entries || !entries->hasNext(), "a listing that failed is over");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const auto client = std::make_shared<PagesClient>(anyPages(input));
    const auto provider = buildCloudProvider(client, storage::cloudprovider::FolderPolicy::MarkerObjects, false);
    for (const List list : {&IProvider::listAll, &IProvider::listFiles, &IProvider::listFolders}) {
        client->begin();
        checkListing(*provider, list, false);
    }
    client->begin();
    checkListing(*provider, &IProvider::listAllRecursive, true);
    client->begin();
    try {
        provider->removeFolderRecursively(StorageIRI::fromUtf8("/" + kFolder));
    } catch (const foundation::storage::provider::Exception&) {  // which fails as listings do
    }
    require(!client->wasAskedBeyondTheEnd(), "a page without a token is the last one");
    return 0;
}
