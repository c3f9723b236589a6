// SPDX-License-Identifier: Apache-2.0
#include "MemoryClient.hpp"

#include <storage/cloudprovider/CloudException.hpp>

#include <algorithm>
#include <istream>
#include <ostream>
#include <utility>

namespace bench {

using foundation::storage::provider::ExceptionContext;
using storage::cloudprovider::ListOptions;
using storage::cloudprovider::ObjectInfo;
using storage::cloudprovider::PartInfo;
using storage::cloudprovider::ResourceNotFoundException;
using storage::cloudprovider::UnknownErrorException;

namespace {

void refuseUnless(bool condition, const char* text) {
    if (!condition) {
        throw UnknownErrorException(ExceptionContext(text));
    }
}

}  // namespace

MemoryClient::MemoryClient(const Arena& arena, std::uint64_t slabSize, Keep keep)
    : m_slabSize(slabSize), m_keep(keep), m_freeSlabs(std::make_shared<std::vector<char*>>()) {
    // The last one is taken first: objects lie in the arena from its beginning on.
    for (std::uint64_t end = arena.size() / slabSize * slabSize; end != 0; end -= slabSize) {
        m_freeSlabs->push_back(arena.data() + (end - slabSize));
    }
}

void MemoryClient::makeObject(const std::string& key, std::uint64_t size) {
    const std::lock_guard lock(m_mutex);
    Object object;
    for (std::uint64_t offset = 0; offset < size; offset += m_slabSize) {
        object.push_back({takeSlab(), std::min(m_slabSize, size - offset)});
    }
    m_objects[key] = std::move(object);
}

MemoryClient::Counts MemoryClient::takeCounts() {
    const std::lock_guard lock(m_mutex);
    return std::exchange(m_counts, {});
}

boost::optional<ObjectInfo> MemoryClient::getObjectInfo(const std::string& key) {
    const std::lock_guard lock(m_mutex);
    const auto object = m_objects.find(key);
    if (object == m_objects.end()) {
        return boost::none;
    }
    std::uint64_t size = 0;
    for (const auto& piece : object->second) {
        size += piece.size;
    }
    return ObjectInfo{key, size, {}};
}

void MemoryClient::checkObjectName(const std::string& /*name*/) {}

std::vector<ObjectInfo> MemoryClient::listObjects(const std::string& /*prefix*/, std::string& token,
                                                  const ListOptions& /*options*/) {
    token.clear();
    return {};
}

void MemoryClient::deleteObject(const std::string& key) {
    const std::lock_guard lock(m_mutex);
    m_objects.erase(key);
}

void MemoryClient::getObject(const std::string& key, std::ostream& sink, std::uint64_t first, std::uint64_t last) {
    const std::lock_guard lock(m_mutex);
    const bool isWhole = first == 0 && last == 0;
    std::uint64_t offset = 0;
    for (const auto& piece : findObject(key)) {
        const auto begin = isWhole ? offset : std::max(offset, first);
        const auto end = isWhole ? offset + piece.size : std::min(offset + piece.size, last + 1);
        if (begin < end) {
            sink.write(piece.bytes.get() + (begin - offset), static_cast<std::streamsize>(end - begin));
            m_counts.bytesDown += end - begin;
        }
        offset += piece.size;
    }
    ++m_counts.downloads;
}

void MemoryClient::putObject(const std::string& key, std::istream& data, std::uint64_t size) {
    const std::lock_guard lock(m_mutex);
    Object object;
    for (std::uint64_t offset = 0; offset < size; offset += m_slabSize) {
        object.push_back(receive(data, std::min(m_slabSize, size - offset)));
    }
    m_objects[key] = std::move(object);
    ++m_counts.puts;
}

std::vector<PartInfo> MemoryClient::getObjectParts(const std::string& key) {
    const std::lock_guard lock(m_mutex);
    std::vector<PartInfo> parts;
    const auto object = m_objects.find(key);
    if (object == m_objects.end() || object->second.size() < 2) {
        return parts;
    }
    std::uint64_t offset = 0;
    for (const auto& piece : object->second) {
        parts.push_back({parts.size(), offset, piece.size, "stored"});
        offset += piece.size;
    }
    return parts;
}

std::string MemoryClient::startMultipartUpload(const std::string& /*key*/, const std::string& /*lastTag*/) {
    const std::lock_guard lock(m_mutex);
    auto id = std::to_string(++m_lastUpload);
    m_uploads[id];
    return id;
}

std::string MemoryClient::uploadPart(const std::string& /*key*/, const std::string& uploadId, const PartInfo& part,
                                     std::istream& data) {
    const std::lock_guard lock(m_mutex);
    m_uploads.at(uploadId)[part.Index] = receive(data, part.Size);
    ++m_counts.uploads;
    return "sent";
}

std::string MemoryClient::copyPart(const std::string& key, const std::string& uploadId, const PartInfo& part) {
    const std::lock_guard lock(m_mutex);
    const auto& object = findObject(key);
    refuseUnless(
        part.Index < object.size() && part.Offset == part.Index * m_slabSize && part.Size == object[part.Index].size,
        "only whole pieces can be copied");
    m_uploads.at(uploadId)[part.Index] = object[part.Index];
    ++m_counts.copies;
    return "copied";
}

void MemoryClient::abortMultipartUpload(const std::string& /*key*/, const std::string& uploadId) {
    const std::lock_guard lock(m_mutex);
    m_uploads.erase(uploadId);
}

void MemoryClient::completeMultipartUpload(const std::string& key, const std::string& uploadId,
                                           const std::vector<PartInfo>& parts) {
    const std::lock_guard lock(m_mutex);
    auto& sent = m_uploads.at(uploadId);
    Object object;
    for (const auto& part : parts) {
        object.push_back(sent.at(part.Index));
        refuseUnless(object.back().size == part.Size, "a part is not as it was sent");
    }
    m_objects[key] = std::move(object);
    m_uploads.erase(uploadId);
}

std::shared_ptr<char> MemoryClient::takeSlab() {
    refuseUnless(!m_freeSlabs->empty(), "the store is full");
    char* const slab = m_freeSlabs->back();
    if (m_keep == Keep::Layout) {
        return {slab, [](char*) {}};
    }
    m_freeSlabs->pop_back();
    return {slab, [freeSlabs = m_freeSlabs](char* bytes) { freeSlabs->push_back(bytes); }};
}

MemoryClient::Piece MemoryClient::receive(std::istream& data, std::uint64_t size) {
    refuseUnless(size <= m_slabSize, "the part is too large");
    Piece piece{takeSlab(), size};
    data.read(piece.bytes.get(), static_cast<std::streamsize>(size));
    refuseUnless(static_cast<std::uint64_t>(data.gcount()) == size, "the data ends early");
    m_counts.bytesUp += size;
    return piece;
}

const MemoryClient::Object& MemoryClient::findObject(const std::string& key) const {
    const auto object = m_objects.find(key);
    if (object == m_objects.end()) {
        throw ResourceNotFoundException();
    }
    return object->second;
}

}  // namespace bench
