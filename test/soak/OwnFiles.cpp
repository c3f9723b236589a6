// SPDX-License-Identifier: Apache-2.0
#include "OwnFiles.hpp"

#include <foundation/services/Text.hpp>
#include <storage/cloudprovider/abandonStream.hpp>
#include <storage/cloudprovider/openSequentialWriter.hpp>
#include <storage/cloudprovider/resizeStream.hpp>
#include <storage/cloudprovider/storeStream.hpp>
#include <storage/cloudprovider/testing/stored.hpp>

#include <algorithm>
#include <utility>

namespace soak {

using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::ReplacementPolicy;
using foundation::storage::provider::StorageIRI;

namespace {

constexpr std::uint64_t kFiles = 5;
constexpr std::uint64_t kMostParts = 9;  // of a file

std::string describe(const std::optional<std::string>& content) {
    return content ? std::to_string(content->size()) + " bytes" : "no file";
}

void putInto(std::string& bytes, std::uint64_t position, const std::string& piece) {
    bytes.resize(std::max(bytes.size(), position + piece.size()));
    bytes.replace(position, piece.size(), piece);
}

}  // namespace

OwnFiles::OwnFiles(std::uint64_t seed, std::string folder, std::uint64_t partSize,
                   const foundation::storage::provider::IProvider& provider, storage::cloudprovider::CloudClient& store)
    : m_folder(std::move(folder)), m_partSize(partSize), m_provider(provider), m_store(store), m_dice(seed) {}

void OwnFiles::step() {
    using Operation = void (OwnFiles::*)();
    struct Row {
        std::uint64_t share;  // in percent
        Operation operation;
    };
    static constexpr Row kRows[] = {
        {15, &OwnFiles::replace},
        {35, &OwnFiles::edit},
        {8, &OwnFiles::append},
        {16, &OwnFiles::read},
        {5, &OwnFiles::writeSequentially},
        {5, &OwnFiles::copy},
        {5, &OwnFiles::move},
        {4, &OwnFiles::remove},
        {2, &OwnFiles::create},
        {5, &OwnFiles::list},
    };
    auto choice = m_dice.pick(0, 99);
    for (const auto& row : kRows) {
        if (choice < row.share) {
            return (this->*row.operation)();
        }
        choice -= row.share;
    }
}

void OwnFiles::finish() {
    for (std::uint64_t index = 0; index < kFiles; ++index) {
        const auto name = std::to_string(index);
        settle(name, {content(name)}, "everything");
    }
}

StorageIRI OwnFiles::iri(const std::string& name) const {
    return StorageIRI::fromUtf8("/" + key(name));
}

std::string OwnFiles::pickName() {
    return std::to_string(m_dice.pick(0, kFiles - 1));
}

OwnFiles::Content OwnFiles::content(const std::string& name) const {
    const auto found = m_files.find(name);
    return found == m_files.end() ? Content() : Content(found->second);
}

void OwnFiles::remember(const std::string& name, const Content& content) {
    if (content) {
        m_files[name] = *content;
    } else {
        m_files.erase(name);
    }
}

void OwnFiles::settle(const std::string& name, const std::vector<Content>& allowed, const std::string& after) {
    const auto found = storage::cloudprovider::test::contentOf(m_store, key(name));
    if (std::find(allowed.begin(), allowed.end(), found) == allowed.end()) {
        std::string text = "after " + after + " the store has " + describe(found) + " of " + key(name) +
                           ", and not what must be there:";
        for (const auto& content : allowed) {
            text += " " + describe(content);
            if (content && found) {
                const auto differs = std::mismatch(content->begin(), content->end(), found->begin(), found->end());
                text += " (they differ from byte " + std::to_string(differs.first - content->begin()) + " on)";
            }
        }
        throw Finding(text);
    }
    remember(name, found);
}

void OwnFiles::close(const Stream& stream, const std::string& name, std::vector<Content> allowed,
                     const Content& written) {
    if (succeeds([&] { stream->close(); })) {
        return settle(name, {written}, "closing a stream");
    }
    allowed.push_back(written);
    settle(name, allowed, "a close that failed");
}

void OwnFiles::abandon(const Stream& stream, const std::string& name, const std::vector<Content>& allowed) {
    if (!storage::cloudprovider::abandonStream(*stream)) {
        throw Finding("the only stream of " + key(name) + " could not be abandoned");
    }
    settle(name, allowed, "abandoning a stream");
}

void OwnFiles::replace() {
    const auto name = pickName();
    const auto stream = insist([&] { return m_provider.openStream(iri(name), toReplace()); });
    const auto bytes = m_dice.bytes(m_dice.pick(0, kMostParts * m_partSize));
    for (std::uint64_t at = 0; at < bytes.size();) {
        const auto piece = bytes.substr(at, m_dice.pick(1, 2 * m_partSize));
        writeAt(*stream, at, piece);
        at += piece.size();
    }
    if (m_dice.oneIn(10)) {
        abandon(stream, name, {content(name)});
    } else {
        close(stream, name, {content(name)}, bytes);
    }
}

void OwnFiles::edit() {
    const auto name = pickName();
    const auto stream = insist([&] { return m_provider.openStream(iri(name), toUpdate()); });
    std::vector<Content> stored{content(name)};  // what may be in the store
    std::string bytes = content(name).value_or("");
    bool isThere = content(name).has_value();  // a file that was absent is made by the first change
    for (auto left = m_dice.pick(1, 8); left > 0; --left) {
        const auto choice = m_dice.pick(0, 9);
        const auto position = m_dice.pick(0, bytes.size());
        if (choice < 4) {
            const auto piece = m_dice.bytes(m_dice.pick(1, 2 * m_partSize));
            writeAt(*stream, position, piece);
            putInto(bytes, position, piece);
            isThere = true;
        } else if (choice < 7) {
            const auto count = m_dice.pick(1, 3 * m_partSize);
            if (readAt(*stream, position, count) != bytes.substr(position, count)) {
                throw Finding("a stream of " + key(name) + " reads what was not written, from byte " +
                              std::to_string(position) + " on, " + std::to_string(count) + " bytes");
            }
        } else if (choice < 8) {
            const auto size = m_dice.pick(0, kMostParts * m_partSize);
            insist([&] { storage::cloudprovider::resizeStream(*stream, size); });
            isThere = isThere || size != bytes.size();
            bytes.resize(size);
        } else {
            const auto written = isThere ? Content(bytes) : Content();
            if (succeeds([&] { storage::cloudprovider::storeStream(*stream); })) {
                stored.clear();
            }
            stored.push_back(written);
        }
    }
    if (m_dice.oneIn(8)) {
        abandon(stream, name, stored);
    } else {
        close(stream, name, stored, isThere ? Content(bytes) : Content());
    }
}

// Of an append that failed some bytes may be in the file, so it is given up rather than tried again.
void OwnFiles::append() {
    const auto name = pickName();
    auto options = toUpdate();
    options.writeMode = OpenOptions::WriteMode::Append;
    const auto stream = insist([&] { return m_provider.openStream(iri(name), options); });
    const auto piece = m_dice.bytes(m_dice.pick(1, 2 * m_partSize));
    if (succeeds([&] { stream->write(piece.data(), static_cast<std::int64_t>(piece.size())); })) {
        close(stream, name, {content(name)}, content(name).value_or("") + piece);
    } else {
        abandon(stream, name, {content(name)});
    }
}

void OwnFiles::read() {
    const auto name = pickName();
    Stream stream;
    const auto open = [&] { stream = insist([&] { return m_provider.openReadOnlyStream(iri(name)); }); };
    const auto expected = content(name);
    if (succeedsUnless(ErrorCode::NotFound, open) != expected.has_value()) {
        throw Finding(key(name) + " has " + describe(expected) + ", which whoever opens it does not find");
    }
    if (expected) {
        const bool isWhole = m_dice.oneIn(2);  // part by part, which has the next ones fetched ahead
        std::uint64_t position = isWhole ? 0 : m_dice.pick(0, expected->size());
        do {
            const auto count = m_dice.pick(1, 2 * m_partSize);
            if (readAt(*stream, position, count) != expected->substr(position, count)) {
                throw Finding(key(name) + " is not read as it is stored, from byte " + std::to_string(position) +
                              " on, " + std::to_string(count) + " bytes");
            }
            position += count;
        } while (isWhole && position <= expected->size());
        insist([&] { stream->close(); });
    }
}

void OwnFiles::writeSequentially() {
    const auto name = pickName();
    const auto stream = insist([&] { return storage::cloudprovider::openSequentialWriter(m_provider, iri(name)); });
    const auto bytes = m_dice.bytes(m_dice.pick(0, 2 * kMostParts * m_partSize));
    const bool isWritten = succeeds([&] {
        for (std::uint64_t at = 0; at < bytes.size();) {
            const auto count = std::min<std::uint64_t>(bytes.size() - at, m_partSize);
            const auto taken = stream->write(bytes.data() + at, static_cast<std::int64_t>(count));
            at += taken < 0 ? 0 : static_cast<std::uint64_t>(taken);
        }
    });
    if (isWritten) {
        close(stream, name, {content(name)}, bytes);
    } else {
        abandon(stream, name, {content(name)});
    }
}

void OwnFiles::copy() {
    const auto from = pickName();
    const auto to = pickName();
    if (from == to || !content(from)) {
        return;
    }
    const bool isDone = succeeds([&] { m_provider.copyFile(iri(from), iri(to), ReplacementPolicy::Replace); });
    settle(from, {content(from)}, "being copied");
    settle(to, isDone ? std::vector<Content>{content(from)} : std::vector<Content>{content(to), content(from)},
           isDone ? "a copy" : "a copy that failed");
}

// Providers here store the destination first, so a failure leaves the file at one of the two places at least.
void OwnFiles::move() {
    const auto from = pickName();
    const auto to = pickName();
    const auto moved = content(from);
    if (from == to || !moved) {
        return;
    }
    if (succeeds([&] { m_provider.moveFile(iri(from), iri(to), ReplacementPolicy::Replace); })) {
        settle(from, {Content()}, "being moved");
        return settle(to, {moved}, "a move");
    }
    settle(from, {moved, Content()}, "a move that failed");
    settle(to, content(from) ? std::vector<Content>{content(to), moved} : std::vector<Content>{moved},
           "a move that failed");
}

void OwnFiles::remove() {
    const auto name = pickName();
    const auto before = content(name);
    bool isMet = false;
    const bool isDone =
        succeedsUnless(ErrorCode::NotFound, [&] { isMet = !succeeds([&] { m_provider.removeFile(iri(name)); }); });
    if (isMet) {
        return settle(name, {before, Content()}, "a removal that failed");
    }
    if (isDone != before.has_value()) {
        throw Finding(key(name) + " had " + describe(before) + ", which its removal did not find");
    }
    settle(name, {Content()}, "a removal");
}

void OwnFiles::create() {
    const auto name = pickName();
    const auto before = content(name);
    bool isMet = false;
    const bool isDone =
        succeedsUnless(ErrorCode::AlreadyExists, [&] { isMet = !succeeds([&] { m_provider.createFile(iri(name)); }); });
    if (!isMet && isDone == before.has_value()) {
        throw Finding(key(name) + " had " + describe(before) + ", which its creation did not find");
    }
    settle(name,
           before  ? std::vector<Content>{before}
           : isMet ? std::vector<Content>{Content(), ""}
                   : std::vector<Content>{""},
           "a creation");
}

void OwnFiles::list() {
    std::map<std::string, std::uint64_t> expected;
    for (const auto& [name, bytes] : m_files) {
        expected[name] = bytes.size();
    }
    std::map<std::string, std::uint64_t> listed;
    succeedsUnless(ErrorCode::NotFound, [&] {
        insist([&] {
            listed.clear();
            const auto entries = m_provider.listFiles(StorageIRI::fromUtf8("/" + m_folder));
            while (entries->hasNext()) {
                entries->next();
                const auto name = foundation::toUtf8(entries->get().getName());
                listed[name] = entries->get().getFileAttributes().getSize().value();
            }
        });
    });
    if (listed != expected) {
        throw Finding("the listing of " + m_folder + " has " + std::to_string(listed.size()) + " files, not the " +
                      std::to_string(expected.size()) + " that are there, or other sizes");
    }
}

}  // namespace soak
