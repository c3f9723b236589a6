// SPDX-License-Identifier: Apache-2.0
#include "commands/describe.hpp"

#include "store/StorePath.hpp"
#include "terminal/escapeText.hpp"
#include "terminal/failures.hpp"

#include <foundation/storage/provider/Exception.hpp>

#include <string>
#include <system_error>

namespace cloudfs::commands {

using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::Exception;

std::string describe(const std::exception& failure) {
    if (dynamic_cast<const Failure*>(&failure) != nullptr || dynamic_cast<const UsageError*>(&failure) != nullptr ||
        dynamic_cast<const PartFailure*>(&failure) != nullptr) {
        return escapeText(failure.what());
    }
    if (const auto* ofProvider = dynamic_cast<const Exception*>(&failure)) {
        const auto code = ofProvider->getErrorCode();
        const Failure worded(code, StorePath::displayText(ofProvider->getIRI()),
                             causeOf(code, ofProvider->getContext().getMessage()));
        return escapeText(worded.what());
    }
    const auto* const ofSystem = dynamic_cast<const std::system_error*>(&failure);
    const auto code = ofSystem == nullptr ? ErrorCode::Unknown : toErrorCode(ofSystem->code().value());
    return escapeText(labelOf(code) + ": " + failure.what());
}

}  // namespace cloudfs::commands
