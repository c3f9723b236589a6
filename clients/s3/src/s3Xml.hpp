// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "s3Errors.hpp"

#include <storage/cloudprovider/ExtendedCloudClient.hpp>

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace storage::cloudprovider::s3 {

/// One page of objects and common prefixes, in the order of their bytes.
struct ListingPage {
    std::vector<ObjectInfo> Entries;
    std::string Token;  ///< of the next page; empty: there is none
};

/// One page of unfinished uploads; their sizes are not told.
struct UploadsPage {
    std::vector<UnfinishedUpload> Uploads;
    std::string KeyMarker;  ///< of the next page, with the other one; both empty: there is none
    std::string IdMarker;
};

/// One page of an upload's parts.
struct PartsPage {
    std::uint64_t Size = 0;  ///< of all of them, in bytes
    std::string Marker;      ///< of the next page; empty: there is none
};

/// A key that was not removed, and why.
using UndeletedKey = std::pair<std::string, FailureDetails>;
/// The name and value of a tag.
using Tags = std::vector<std::pair<std::string, std::string>>;

/// What an answer says of an error; nothing when it is none. All that is read here throws std::runtime_error when the
/// text is no XML, has a document type, or another root than it should, and when a page that is not the last does not
/// say where the next one begins.
std::optional<FailureDetails> readError(std::string_view xml);
ListingPage readListing(std::string_view xml);
UploadsPage readUploads(std::string_view xml);
PartsPage readParts(std::string_view xml);
std::vector<UndeletedKey> readUndeleted(std::string_view xml);
Tags readTags(std::string_view xml);
/// The text of an element right below the root; empty when there is none.
std::string readElement(std::string_view xml, const char* name);

/// The body that completes an upload. The parts' tags are their ETags, numbers are one more than their indices.
std::string writeCompletion(const std::vector<PartInfo>& parts);
/// The body that deletes keys. Only keys that isXmlText.
std::string writeDeletion(const std::vector<std::string>& keys);
/// The body that gives an object tags.
std::string writeTags(const Tags& tags);

/// Whether XML 1.0 can carry a text: valid UTF-8 without control characters, and without those that a reader would
/// take for line ends.
bool isXmlText(std::string_view text);

}  // namespace storage::cloudprovider::s3
