// SPDX-License-Identifier: Apache-2.0
#include "listing.hpp"

#include "s3Xml.hpp"
#include "text.hpp"

#include <stdexcept>
#include <utility>

namespace storage::cloudprovider::s3 {

std::vector<ObjectInfo> listObjects(Bucket& bucket, const std::string& prefix, std::string& token,
                                    const ListOptions& options) {
    if (!isUtf8(prefix)) {
        token.clear();
        return {};  // keys are UTF-8, and gateways fail at anything else
    }
    ListingPage page;
    do {
        auto request = bucket.request("GET", {});
        request.Query = {{"list-type", "2"}, {"prefix", bucket.fullKey(prefix)}, {"encoding-type", "url"}};
        request.Expected = S3Request::Answer::Xml;
        if (!options.Delimiter.empty()) {
            request.Query.emplace_back("delimiter", options.Delimiter);
        }
        if (options.MaxKeys >= 0) {
            request.Query.emplace_back("max-keys", std::to_string(options.MaxKeys));
        }
        if (!token.empty()) {
            request.Query.emplace_back("continuation-token", token);
        }
        page = readListing(bucket.wire().send(std::move(request)).Http.Body);
        if (!page.Token.empty() && page.Token == token) {
            throw std::runtime_error("the listing does not get on");
        }
        token = page.Token;
    } while (page.Entries.empty() && !token.empty());
    for (auto& entry : page.Entries) {
        entry.Key = bucket.ownKey(entry.Key);
    }
    return std::move(page.Entries);
}

}  // namespace storage::cloudprovider::s3
