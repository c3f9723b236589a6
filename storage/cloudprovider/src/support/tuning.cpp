// SPDX-License-Identifier: Apache-2.0
#include "support/tuning.hpp"

#include "support/Trace.hpp"

#include <foundation/services/Environment.hpp>
#include <foundation/services/Text.hpp>

#include <stdexcept>
#include <string>

namespace storage::cloudprovider {

namespace {

std::uint64_t readFromEnvironment(const std::u16string& name, std::uint64_t defaultValue) {
    const auto value = foundation::getEnvironment(name);
    if (!value || value->empty()) {
        return defaultValue;
    }
    try {
        return std::stoull(foundation::toUtf8(*value));
    } catch (const std::invalid_argument&) {
        CLOUDPROVIDER_TRACE(trace::kCaughtException, "Exception caught: ", "invalid stoull argument");
    } catch (const std::out_of_range&) {
        CLOUDPROVIDER_TRACE(trace::kCaughtException, "Exception caught: ", "stoull argument out of range");
    }
    return defaultValue;
}

}  // namespace

std::uint64_t readPartSize() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    return readFromEnvironment(u"VX_CLOUD_PART_SIZE_OVERRIDE", kDefaultPartSize);
}

std::uint64_t readDownloadedPartCacheSize() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    return readFromEnvironment(u"VX_CLOUD_DOWNLOADED_PART_CACHE_OVERRIDE", kDefaultDownloadedPartCacheSize);
}

}  // namespace storage::cloudprovider
