// SPDX-License-Identifier: Apache-2.0
#include "listing.hpp"

#include "errors.hpp"
#include "objectRows.hpp"
#include "objects.hpp"

#include <algorithm>
#include <optional>
#include <string_view>
#include <utility>

namespace storage::cloudprovider::sqlite {

namespace {

constexpr std::size_t kMaxPageSize = 1000;

// How a token begins, before the key of the page's last entry.
constexpr char kAfterObject = 'o';
constexpr char kAfterPrefix = 'p';

bool hasPrefix(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

// The first text after all that begin with prefix; none when there is no such text.
std::optional<std::string> behindPrefix(std::string prefix) {
    while (!prefix.empty() && prefix.back() == '\xFF') {
        prefix.pop_back();
    }
    if (prefix.empty()) {
        return std::nullopt;
    }
    prefix.back() = static_cast<char>(static_cast<unsigned char>(prefix.back()) + 1);
    return prefix;
}

// One page in the making.
class Page {
public:
    Page(const std::string& prefix, const ListOptions& options)
        : m_prefix(prefix),
          m_delimiter(options.Delimiter),
          m_limit(options.MaxKeys > 0 ? std::min<std::size_t>(static_cast<std::size_t>(options.MaxKeys), kMaxPageSize)
                                      : kMaxPageSize) {}

    // The first key to look at; none when the listing is at its end.
    std::optional<std::string> findStart(const std::string& token) const {
        if (token.empty()) {
            return m_prefix.empty() ? std::string(1, '\0') : m_prefix;  // the first key that is not empty
        }
        std::string last = token.substr(1);
        if (hasPrefix(last, m_prefix) && token.front() == kAfterObject) {
            last.push_back('\0');  // the key right after it
            return last;
        }
        if (hasPrefix(last, m_prefix) && token.front() == kAfterPrefix) {
            return behindPrefix(std::move(last));
        }
        throw StoreFailure("the token does not continue a listing of \"" + m_prefix + '"');
    }

    // Add objects from start on, up to and with the first common prefix.
    // Result  where to go on; none when the page is full or the listing is at its end.
    std::optional<std::string> add(Connection& connection, const std::string& start) {
        ObjectRow former = findRowBefore(connection, start);
        Query rows =
            connection.query("SELECT " CLOUDPROVIDER_OBJECT_COLUMNS " FROM objects WHERE key >= ? ORDER BY key", start);
        while (rows.next()) {
            ObjectRow row = getObjectRow(rows);
            requireNext(former, row.key);
            const std::string_view key = row.key;
            if (!hasPrefix(key, m_prefix)) {
                return std::nullopt;
            }
            if (m_entries.size() == m_limit) {
                m_hasMore = true;
                return std::nullopt;
            }
            const std::size_t end = findCommonPrefixEnd(key);
            m_isFolded = end != std::string_view::npos;
            if (m_isFolded) {
                const bool isMarker = end == key.size();
                m_entries.push_back(
                    {std::string(key.substr(0, end)), 0, isMarker ? toTime(row.modified) : boost::posix_time::ptime()});
                return behindPrefix(m_entries.back().Key);
            }
            m_entries.push_back({row.key, toSize(row.size), toTime(row.modified)});
            former = std::move(row);
        }
        requireNext(former, std::nullopt);
        return std::nullopt;
    }

    std::string makeToken() const {
        return m_hasMore ? (m_isFolded ? kAfterPrefix : kAfterObject) + m_entries.back().Key : std::string();
    }

    std::vector<ObjectInfo> takeEntries() { return std::move(m_entries); }

private:
    // Where the common prefix ends that a key is folded into; npos when it stands for itself.
    std::size_t findCommonPrefixEnd(std::string_view key) const {
        const std::size_t at = m_delimiter.empty() ? std::string_view::npos : key.find(m_delimiter, m_prefix.size());
        return at == std::string_view::npos ? at : at + m_delimiter.size();
    }

    const std::string& m_prefix;
    const std::string& m_delimiter;
    const std::size_t m_limit;
    std::vector<ObjectInfo> m_entries;
    bool m_isFolded = false;  // the last entry
    bool m_hasMore = false;
};

}  // namespace

std::vector<ObjectInfo> listPage(Connection& connection, const std::string& prefix, std::string& token,
                                 const ListOptions& options) {
    Page page(prefix, options);
    std::optional<std::string> start = page.findStart(token);
    while (start) {
        start = page.add(connection, *start);
    }
    token = page.makeToken();
    return page.takeEntries();
}

}  // namespace storage::cloudprovider::sqlite
