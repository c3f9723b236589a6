// SPDX-License-Identifier: Apache-2.0
#include <foundation/services/Text.hpp>
#include <foundation/storage/provider/StorageIRI.hpp>

#include <ostream>
#include <stdexcept>
#include <tuple>
#include <utility>

namespace foundation::storage::provider {

namespace {

constexpr std::u16string_view kAuthorityMark = u"://";

// Length of the path without the slashes that end it.
std::size_t trimmedLength(std::u16string_view path) {
    const auto last = path.find_last_not_of(u'/');
    return last == std::u16string_view::npos ? 0 : last + 1;
}

// Where the authority ends and the path begins; 0 for a text without a scheme.
std::size_t authorityLength(std::u16string_view text) {
    const auto mark = text.find(kAuthorityMark);
    if (mark == std::u16string_view::npos || mark == 0 || text.find(u'/') < mark) {
        return 0;
    }
    const auto slash = text.find(u'/', mark + kAuthorityMark.size());
    return slash == std::u16string_view::npos ? text.size() : slash;
}

}  // namespace

StorageIRI::StorageIRI(std::u16string text) {
    const auto length = authorityLength(text);
    m_authority = text.substr(0, length);
    m_path = std::move(text.erase(0, length));
}

StorageIRI StorageIRI::fromUtf8(std::string_view text) {
    return StorageIRI(toUtf16(text));
}

StorageIRI StorageIRI::withPath(std::u16string path) const {
    StorageIRI result;
    result.m_authority = m_authority;
    result.m_path = std::move(path);
    return result;
}

std::u16string StorageIRI::getName() const {
    const auto path = std::u16string_view(m_path).substr(0, trimmedLength(m_path));
    const auto slash = path.rfind(u'/');
    return std::u16string(slash == std::u16string_view::npos ? path : path.substr(slash + 1));
}

bool StorageIRI::hasParent() const {
    return trimmedLength(m_path) != 0;
}

StorageIRI StorageIRI::getParent() const {
    if (!hasParent()) {
        throw std::logic_error("no parent: " + toDisplayText());
    }
    const auto path = std::u16string_view(m_path).substr(0, trimmedLength(m_path));
    const auto slash = path.rfind(u'/');
    const auto length = slash == std::u16string_view::npos ? 0 : trimmedLength(path.substr(0, slash));
    return withPath(length == 0 ? u"/" : std::u16string(path.substr(0, length)));
}

std::string StorageIRI::toDisplayText() const {
    return toUtf8Lossy(m_authority) + toUtf8Lossy(m_path);
}

bool operator<(const StorageIRI& left, const StorageIRI& right) {
    return std::tie(left.m_authority, left.m_path) < std::tie(right.m_authority, right.m_path);
}

bool operator==(const StorageIRI& left, const StorageIRI& right) {
    return std::tie(left.m_authority, left.m_path) == std::tie(right.m_authority, right.m_path);
}

std::ostream& operator<<(std::ostream& stream, const StorageIRI& iri) {
    return stream << iri.toDisplayText();
}

}  // namespace foundation::storage::provider
