// SPDX-License-Identifier: Apache-2.0
#include "context/fetchRange.hpp"

#include "context/ObjectReplacedException.hpp"
#include "support/host.hpp"

#include <storage/cloudprovider/CloudException.hpp>

#include <boost/iostreams/device/array.hpp>
#include <boost/iostreams/stream.hpp>

#include <cstdint>
#include <ostream>
#include <string>

namespace storage::cloudprovider {

using host::ExceptionContext;

namespace {

namespace io = boost::iostreams;

void checkReceived(const OpenFileContext& context, std::uint64_t received, std::uint64_t expected) {
    if (received != expected) {
        throw UnknownErrorException(ExceptionContext("the store delivered " + std::to_string(received) + " of " +
                                                     std::to_string(expected) + " bytes of " + context.key));
    }
}

[[noreturn]] void throwGone(const OpenFileContext& context) {
    throw ResourceNotFoundException(ExceptionContext(
        '"' + context.key +
        "\" was removed or replaced while the file was open, and what it held was not fetched before"));
}

// Without a version the store cannot say whether the name still has what a file was opened from that has left it.
void throwIfUnknown(const OpenFileContext& context, const std::string& version) {
    if (version.empty() && context.version.isDetached()) {
        throwGone(context);
    }
}

void getRange(const OpenFileContext& context, const std::string& version, const ObjectRange& range,
              std::ostream& sink) {
    try {
        onVersion(context, version, [&] { context.client->getRange(context.key, version, range, sink); });
    } catch (const ObjectReplacedException&) {
        if (context.version.isDetached()) {
            throwGone(context);
        }
        throw;
    }
}

}  // namespace

void fetchRange(const OpenFileContext& context, const ObjectRange& range, char* data) {
    io::stream<io::array_sink> sink(data, static_cast<std::streamsize>(range.Size));
    fetchRange(context, range, sink);
}

void fetchRange(const OpenFileContext& context, const ObjectRange& range, std::ostream& sink) {
    const auto version = context.version.get();
    throwIfUnknown(context, version);
    getRange(context, version, range, sink);
    throwIfUnknown(context, version);  // it may have left its name meanwhile
    if (sink.bad()) {
        throw UnknownErrorException(ExceptionContext("the store delivered more than the " + std::to_string(range.Size) +
                                                     " bytes asked for of " + context.key));
    }
    sink.clear();
    checkReceived(context, static_cast<std::uint64_t>(sink.tellp()), range.Size);
}

}  // namespace storage::cloudprovider
