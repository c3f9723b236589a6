// SPDX-License-Identifier: Apache-2.0
// S3's XML: whatever a server answers, and that what is written is read back.
#include "require.hpp"
#include "s3Xml.hpp"
#include "text.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace {

using fuzz::require;
using namespace storage::cloudprovider::s3;

// What a reader answers; nothing when it refuses the text, for which std::runtime_error is the only way.
template <typename Reader>
auto tryTo(Reader read, const std::string& xml) -> std::optional<decltype(read(xml))> {
    try {
        return read(xml);
    } catch (const std::runtime_error&) {
        return std::nullopt;
    }
}

void checkReading(const std::string& xml) {
    if (const auto page = tryTo(readListing, xml)) {
        require(std::is_sorted(page->Entries.begin(), page->Entries.end(),
                               [](const auto& left, const auto& right) { return left.Key < right.Key; }),
                "a page is in the order of its keys");
        const bool goesOn = xml.find("<IsTruncated>true<") != xml.npos;
        require(goesOn || page->Token.empty() || xml.find("IsTruncated") != xml.npos,
                "only a page that is not the last has a token");
    }
    // Taken for the last one, it would hide the others.
    const std::string cutOff = "<IsTruncated>true</IsTruncated>" + std::string(xml);
    if (const auto page =
            tryTo(readUploads, "<ListMultipartUploadsResult>" + cutOff + "</ListMultipartUploadsResult>")) {
        require(!page->KeyMarker.empty() || !page->IdMarker.empty(), "a page that is not the last says where to go on");
    }
    if (const auto page = tryTo(readParts, "<ListPartsResult>" + cutOff + "</ListPartsResult>")) {
        require(!page->Marker.empty(), "a page that is not the last says where to go on");
    }
    tryTo(readError, xml);
    tryTo(readUploads, xml);
    tryTo(readParts, xml);
    tryTo(readUndeleted, xml);
    tryTo(readTags, xml);
    tryTo([](std::string_view text) { return readElement(text, "ETag"); }, xml);
}

void checkWriting(const std::string& text) {
    require(percentDecode(percentEncode(text, Slash::Encode)) == text, "what is encoded is decoded again");
    require(percentDecode(percentEncode(text, Slash::Keep)) == text, "slashes are decoded as they are");
    if (!isXmlText(text)) {
        return;
    }
    const Tags tags = {{"name", text}, {text, "value"}};
    require(readTags(writeTags(tags)) == tags, "tags are read as they were written");
    require(readElement(writeDeletion({text, "other"}), "Quiet") == "true", "what deletes keys is XML");
    const auto undeleted = readUndeleted("<DeleteResult><Error>" + [&] {
        const auto xml = writeDeletion({text});
        const auto begin = xml.find("<Key>");
        return xml.substr(begin, xml.find("</Object>") - begin);
    }() + "</Error></DeleteResult>");
    require(undeleted.size() == 1 && undeleted.front().first == text, "a key is read as it was written");
    require(!readError(writeCompletion({{0, 0, 1, text}})), "what completes an upload is XML");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    checkReading(text);
    checkWriting(text);
    // Most texts are no XML: as the content of elements that count, and without them.
    checkReading("<ListBucketResult><Contents><Key>" + text + "</Key><Size>1</Size><LastModified>" + text +
                 "</LastModified></Contents></ListBucketResult>");
    const auto time = toTime(text);
    require(time.is_not_a_date_time() || !time.is_special(), "a time is one, or none");
    return 0;
}
