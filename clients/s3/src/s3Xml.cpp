// SPDX-License-Identifier: Apache-2.0
#include "s3Xml.hpp"

#include "text.hpp"

#include <foundation/services/Text.hpp>

#include <pugixml.hpp>

#include <algorithm>
#include <sstream>
#include <stdexcept>

namespace storage::cloudprovider::s3 {

namespace {

// Without parse_ws_pcdata_single a key that is all white space would be lost.
pugi::xml_document parse(std::string_view xml) {
    if (xml.find("<!DOCTYPE") != xml.npos) {
        throw std::runtime_error("the answer has a document type");
    }
    pugi::xml_document document;
    const auto result = document.load_buffer(xml.data(), xml.size(), pugi::parse_default | pugi::parse_ws_pcdata_single,
                                             pugi::encoding_utf8);
    if (!result || !document.document_element()) {
        throw std::runtime_error(std::string("the answer is no XML: ") + result.description());
    }
    return document;
}

pugi::xml_node getRoot(const pugi::xml_document& document, std::string_view name) {
    const auto root = document.document_element();
    if (root.name() != name) {
        throw std::runtime_error("the answer is not a " + std::string(name));
    }
    return root;
}

std::uint64_t readNumber(const pugi::xml_node& node) {
    const auto number = toNumber(trim(node.child_value()));
    if (!number) {
        throw std::runtime_error(std::string("the answer has no number as its ") + node.name());
    }
    return *number;
}

// Whether there are more pages than this one of a listing.
bool goesOn(const pugi::xml_node& root) {
    return std::string_view(root.child_value("IsTruncated")) == "true";
}

// Without a place to go on from, the page would be taken for the last one.
void requirePlace(bool isTold) {
    if (!isTold) {
        throw std::runtime_error("the listing goes on, and the answer does not say where");
    }
}

std::string firstOf(const pugi::xml_node& node, std::initializer_list<const char*> names) {
    for (const auto* const name : names) {
        if (const std::string_view value = node.child_value(name); !value.empty()) {
            return std::string(value);
        }
    }
    return {};
}

FailureDetails toDetails(const pugi::xml_node& error) {
    FailureDetails details;
    details.Code = error.child_value("Code");
    details.Message = error.child_value("Message");
    details.RequestId = error.child_value("RequestId");
    details.Region = error.child_value("Region");
    return details;
}

// Reads keys of an answer, which are encoded unless the store did not know the encoding that was asked for.
class KeyReader {
public:
    explicit KeyReader(const pugi::xml_node& root) : m_isEncoded(isUrl(root.child_value("EncodingType"))) {}

    std::string operator()(const char* text) const { return m_isEncoded ? percentDecode(text) : std::string(text); }

private:
    static bool isUrl(std::string_view text) { return text == "url"; }

    bool m_isEncoded;
};

std::string escape(const std::string& text) {
    std::string escaped;
    for (const char byte : text) {
        switch (byte) {
            case '&':
                escaped += "&amp;";
                break;
            case '<':
                escaped += "&lt;";
                break;
            case '>':
                escaped += "&gt;";
                break;
            default:
                escaped += byte;
        }
    }
    return escaped;
}

}  // namespace

std::optional<FailureDetails> readError(std::string_view xml) {
    const auto document = parse(xml);
    const auto root = document.document_element();
    return std::string_view(root.name()) == "Error" ? std::optional(toDetails(root)) : std::nullopt;
}

ListingPage readListing(std::string_view xml) {
    const auto document = parse(xml);
    const auto root = getRoot(document, "ListBucketResult");
    const KeyReader readKey(root);
    ListingPage page;
    for (const auto& node : root.children("Contents")) {
        page.Entries.push_back({readKey(node.child_value("Key")), readNumber(node.child("Size")),
                                toTime(node.child_value("LastModified"))});
    }
    for (const auto& node : root.children("CommonPrefixes")) {
        page.Entries.push_back({readKey(node.child_value("Prefix")), 0, {}});
    }
    std::sort(page.Entries.begin(), page.Entries.end(),
              [](const ObjectInfo& left, const ObjectInfo& right) { return left.Key < right.Key; });
    if (goesOn(root)) {
        page.Token = root.child_value("NextContinuationToken");
        requirePlace(!page.Token.empty());
    }
    return page;
}

UploadsPage readUploads(std::string_view xml) {
    const auto document = parse(xml);
    const auto root = getRoot(document, "ListMultipartUploadsResult");
    const KeyReader readKey(root);
    UploadsPage page;
    for (const auto& node : root.children("Upload")) {
        page.Uploads.push_back(
            {readKey(node.child_value("Key")), node.child_value("UploadId"), toTime(node.child_value("Initiated")), 0});
    }
    if (goesOn(root)) {
        page.KeyMarker = readKey(root.child_value("NextKeyMarker"));
        page.IdMarker = root.child_value("NextUploadIdMarker");
        requirePlace(!page.KeyMarker.empty() || !page.IdMarker.empty());
    }
    return page;
}

PartsPage readParts(std::string_view xml) {
    const auto document = parse(xml);
    const auto root = getRoot(document, "ListPartsResult");
    PartsPage page;
    for (const auto& node : root.children("Part")) {
        page.Size += readNumber(node.child("Size"));
    }
    if (goesOn(root)) {
        page.Marker = root.child_value("NextPartNumberMarker");
        requirePlace(!page.Marker.empty());
    }
    return page;
}

std::vector<UndeletedKey> readUndeleted(std::string_view xml) {
    const auto document = parse(xml);
    const auto root = getRoot(document, "DeleteResult");
    std::vector<UndeletedKey> undeleted;
    for (const auto& node : root.children("Error")) {
        undeleted.emplace_back(node.child_value("Key"), toDetails(node));
    }
    return undeleted;
}

Tags readTags(std::string_view xml) {
    const auto document = parse(xml);
    Tags tags;
    for (const auto& node : getRoot(document, "Tagging").child("TagSet").children("Tag")) {
        tags.emplace_back(node.child_value("Key"), node.child_value("Value"));
    }
    return tags;
}

std::string readElement(std::string_view xml, const char* name) {
    return firstOf(parse(xml).document_element(), {name});
}

std::string writeCompletion(const std::vector<PartInfo>& parts) {
    std::ostringstream xml;
    xml << "<CompleteMultipartUpload xmlns=\"http://s3.amazonaws.com/doc/2006-03-01/\">";
    for (const auto& part : parts) {
        xml << "<Part><PartNumber>" << part.Index + 1 << "</PartNumber><ETag>\"" << escape(part.Tag)
            << "\"</ETag></Part>";
    }
    xml << "</CompleteMultipartUpload>";
    return xml.str();
}

std::string writeDeletion(const std::vector<std::string>& keys) {
    std::string xml = "<Delete xmlns=\"http://s3.amazonaws.com/doc/2006-03-01/\"><Quiet>true</Quiet>";
    for (const auto& key : keys) {
        xml += "<Object><Key>" + escape(key) + "</Key></Object>";
    }
    return xml + "</Delete>";
}

std::string writeTags(const Tags& tags) {
    std::string xml = "<Tagging xmlns=\"http://s3.amazonaws.com/doc/2006-03-01/\"><TagSet>";
    for (const auto& [name, value] : tags) {
        xml += "<Tag><Key>" + escape(name) + "</Key><Value>" + escape(value) + "</Value></Tag>";
    }
    return xml + "</TagSet></Tagging>";
}

bool isXmlText(std::string_view text) {
    std::u16string units;
    try {
        units = foundation::toUtf16(text);
    } catch (const foundation::InvalidTextError&) {
        return false;
    }
    // A reader takes U+0085 and U+2028 for line ends in XML 1.1, and white space alone for nothing.
    return text.find_first_not_of(' ') != text.npos && std::all_of(units.begin(), units.end(), [](char16_t unit) {
               return unit >= u' ' && unit != 0x7F && unit != 0x85 && unit != 0x2028 && unit < 0xFFFE;
           });
}

}  // namespace storage::cloudprovider::s3
