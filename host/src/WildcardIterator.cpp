// SPDX-License-Identifier: Apache-2.0
#include "WildcardIterator.hpp"

#include <stdexcept>
#include <utility>

namespace foundation::storage::provider {

namespace {

std::size_t characterLength(std::u16string_view text, std::size_t at) {
    const bool isPair = at + 1 < text.size() && (text[at] & 0xFC00) == 0xD800 && (text[at + 1] & 0xFC00) == 0xDC00;
    return isPair ? 2 : 1;
}

std::u16string_view lastComponent(std::u16string_view path) {
    const auto slash = path.rfind(u'/');
    return slash == std::u16string_view::npos ? path : path.substr(slash + 1);
}

}  // namespace

bool matchesWildcard(std::u16string_view name, std::u16string_view pattern) {
    constexpr auto kNone = std::u16string_view::npos;
    std::size_t at = 0;
    std::size_t wanted = 0;
    std::size_t star = kNone;   // the last "*" seen
    std::size_t retryFrom = 0;  // where the text after that "*" is tried next
    while (at < name.size()) {
        if (wanted < pattern.size() && pattern[wanted] == u'*') {
            star = wanted++;
            retryFrom = at;
        } else if (wanted < pattern.size() && pattern[wanted] == u'?') {
            at += characterLength(name, at);
            ++wanted;
        } else if (wanted < pattern.size() && pattern[wanted] == name[at]) {
            ++at;
            ++wanted;
        } else if (star != kNone) {
            retryFrom += characterLength(name, retryFrom);
            at = retryFrom;
            wanted = star + 1;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of(u'*', wanted) == kNone;
}

WildcardIterator::WildcardIterator(std::unique_ptr<IFolderEntryIterator> entries, std::u16string pattern)
    : m_entries(std::move(entries)), m_pattern(std::move(pattern)) {
    findAhead();
}

WildcardIterator::WildcardIterator(const WildcardIterator& other)
    : IClonableFolderEntryIterator(other),
      m_entries(other.m_entries->clone()),
      m_pattern(other.m_pattern),
      m_current(other.m_current),
      m_ahead(other.m_ahead) {}

FolderEntry WildcardIterator::get() const {
    if (!m_current) {
        throw std::logic_error("no current entry: call next first");
    }
    return *m_current;
}

bool WildcardIterator::hasNext() const {
    return m_ahead.has_value();
}

void WildcardIterator::next() {
    if (!m_ahead) {
        throw std::logic_error("the listing has no further entry");
    }
    m_current = std::move(m_ahead);
    findAhead();
}

// Looks one match ahead, so that hasNext is exact without doing I/O.
void WildcardIterator::findAhead() {
    m_ahead = boost::none;
    while (m_entries->hasNext()) {
        m_entries->next();
        FolderEntry entry = m_entries->get();
        if (matchesWildcard(lastComponent(entry.getName()), m_pattern)) {
            m_ahead = std::move(entry);
            return;
        }
    }
}

}  // namespace foundation::storage::provider
