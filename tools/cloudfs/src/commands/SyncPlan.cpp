// SPDX-License-Identifier: Apache-2.0
#include "commands/SyncPlan.hpp"

#include "commands/FileTransfers.hpp"
#include "terminal/failures.hpp"

#include <algorithm>
#include <numeric>
#include <utility>

namespace cloudfs::commands {

using foundation::storage::provider::ErrorCode;

namespace {

bool isAtOrBelow(const std::string& name, const std::string& place) {
    return name == place || name.starts_with(place + "/");
}

bool isAtOrBelowAny(const std::string& name, const std::vector<std::string>& places) {
    return std::any_of(places.begin(), places.end(),
                       [&](const std::string& place) { return isAtOrBelow(name, place); });
}

}  // namespace

SyncPlan::SyncPlan(SyncListing from, SyncListing to, bool comparesBytes)
    : m_from(std::move(from)), m_to(std::move(to)) {
    findChanges(comparesBytes);
    findSurplus();
}

void SyncPlan::findChanges(bool comparesBytes) {
    for (const auto& [name, entry] : m_from.entries) {
        const auto there = m_to.entries.find(name);
        const bool isThere = there != m_to.entries.end() && there->second.isFolder == entry.isFolder;
        if (entry.isFolder) {
            if (!isThere) {
                m_folders.push_back(name);
            }
            continue;
        }
        const bool isOfOtherSize = !isThere || there->second.size != entry.size;
        if (isOfOtherSize || (!comparesBytes && there->second.time < entry.time)) {
            m_files.push_back(name);
        } else if (comparesBytes) {
            m_candidates.push_back(name);
        }
    }
}

// What the source has but does not show may have come from there once: it stays.
void SyncPlan::findSurplus() {
    for (auto entry = m_to.entries.rbegin(); entry != m_to.entries.rend(); ++entry) {
        const auto& name = entry->first;
        if (m_from.entries.count(name) == 0 && !isAtOrBelowAny(name, m_from.leftOut)) {
            (entry->second.isFolder ? m_surplusFolders : m_surplusFiles).push_back(name);
        }
    }
}

void SyncPlan::refuse(const std::function<const char*(const std::string& name)>& why, const SyncSide& source,
                      FileTransfers& transfers) {
    const auto note = [&](const std::string& name, const char* cause) {
        transfers.addFailure(std::make_exception_ptr(Failure(ErrorCode::InvalidLocation, source.textOf(name), cause)));
    };
    for (const auto& name : m_from.hidden) {
        note(name, "a folder has the same name");
    }
    std::vector<std::string> refused;
    for (const auto& [name, entry] : m_from.entries) {
        if (const char* const cause = why(name)) {
            refused.push_back(name);
            note(name, cause);
        }
    }
    for (auto* const names : {&m_files, &m_candidates, &m_folders}) {
        std::erase_if(
            *names, [&](const std::string& name) { return std::binary_search(refused.begin(), refused.end(), name); });
    }
}

std::vector<std::string> SyncPlan::takeCandidates() {
    return std::exchange(m_candidates, {});
}

void SyncPlan::dropBelow(const std::vector<std::string>& folders) {
    std::erase_if(m_files, [&](const std::string& name) { return isAtOrBelowAny(name, folders); });
}

std::uint64_t SyncPlan::size(const std::vector<std::string>& names) const {
    return std::accumulate(names.begin(), names.end(), std::uint64_t{0},
                           [&](std::uint64_t sum, const std::string& name) { return sum + sourceOf(name).size; });
}

}  // namespace cloudfs::commands
