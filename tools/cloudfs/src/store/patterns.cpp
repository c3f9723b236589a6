// SPDX-License-Identifier: Apache-2.0
#include "store/patterns.hpp"

#include "store/operands.hpp"
#include "terminal/failures.hpp"

#include <foundation/services/InterruptState.hpp>
#include <foundation/services/Text.hpp>

#include <fnmatch.h>

#include <algorithm>
#include <iterator>

namespace cloudfs {

using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::Exception;

namespace {

std::vector<std::string> componentsOf(const StorePath& path) {
    std::vector<std::string> components;
    const auto& text = path.text();
    for (std::size_t at = 1; at < text.size();) {
        const auto end = std::min(text.find('/', at), text.size());
        components.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return components;
}

// The entries of a folder that fit; none where there is no such folder.
void addFitting(const IProvider& provider, const StorePath& folder, const std::string& pattern, bool onlyFolders,
                std::vector<StorePath>& found) {
    try {
        const auto listing = onlyFolders ? provider.listFolders(folder.iri()) : provider.listAll(folder.iri());
        while (listing->hasNext()) {
            foundation::utInterruptState::ThrowIfInterruptPending();
            listing->next();
            const auto name = foundation::toUtf8Lossy(listing->get().getName());
            const bool isNew = found.empty() || found.back().text() != folder.child(name).text();
            if (matches(pattern, name) && isNew) {
                found.push_back(folder.child(name));
            }
        }
    } catch (const Exception& failure) {
        if (failure.getErrorCode() != ErrorCode::NotFound) {
            throw;
        }
    }
}

std::vector<StorePath> expand(const IProvider& provider, const StorePath& path) {
    std::vector<StorePath> found{StorePath("/")};
    const auto components = componentsOf(path);
    for (std::size_t at = 0; at < components.size(); ++at) {
        const bool onlyFolders = at + 1 < components.size() || path.meansFolder();
        std::vector<StorePath> next;
        for (const auto& folder : found) {
            if (isPattern(components[at])) {
                addFitting(provider, folder, components[at], onlyFolders, next);
            } else {
                next.push_back(folder.child(components[at]));
            }
        }
        found = std::move(next);
    }
    const auto isGone = [&](const StorePath& candidate) {
        return !isPattern(components.back()) && !isFile(provider, candidate) && !provider.folderExists(candidate.iri());
    };
    found.erase(std::remove_if(found.begin(), found.end(), isGone), found.end());
    return found;
}

}  // namespace

std::vector<StorePath> toPaths(const std::vector<std::string>& texts) {
    std::vector<StorePath> paths;
    paths.reserve(texts.size());
    for (const auto& text : texts) {
        paths.emplace_back(text);
    }
    return paths;
}

bool isPattern(std::string_view text) {
    return text.find_first_of("*?[") != std::string_view::npos;
}

bool matches(const std::string& pattern, const std::string& name) {
    return ::fnmatch(pattern.c_str(), name.c_str(), FNM_PATHNAME) == 0;
}

std::vector<StorePath> expandPatterns(const IProvider& provider, const std::vector<StorePath>& paths,
                                      NothingFits nothing) {
    std::vector<StorePath> expanded;
    for (const auto& path : paths) {
        if (!isPattern(path.text()) || isFile(provider, path) || provider.folderExists(path.iri())) {
            expanded.push_back(path);
            continue;
        }
        auto found = expand(provider, path);
        if (found.empty() && nothing == NothingFits::Fail) {
            throw Failure(ErrorCode::NotFound, path.text(), "nothing fits the pattern");
        }
        std::move(found.begin(), found.end(), std::back_inserter(expanded));
    }
    return expanded;
}

}  // namespace cloudfs
