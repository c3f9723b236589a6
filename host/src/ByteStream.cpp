// SPDX-License-Identifier: Apache-2.0
#include <foundation/storage/provider/ByteStream.hpp>

#include <boost/numeric/conversion/cast.hpp>

#include <exception>
#include <ostream>
#include <string>
#include <utility>

namespace foundation::storage::provider {

namespace {

// Call only while an exception is being handled.
template <typename Failure>
[[noreturn]] void rethrowAs() {
    try {
        throw;
    } catch (const Exception&) {
        throw;
    } catch (const ByteStreamFailure&) {
        throw;
    } catch (const boost::numeric::bad_numeric_cast&) {
        throw;
    } catch (const std::exception_ptr& recorded) {
        try {
            if (recorded) {
                std::rethrow_exception(recorded);
            }
        } catch (...) {
            rethrowAs<Failure>();
        }
        throw Failure(ErrorCode::Unknown);
    } catch (const std::exception& cause) {
        const auto* coded = dynamic_cast<const ErrorCoded*>(&cause);
        throw Failure(coded != nullptr ? coded->getErrorCode() : ErrorCode::Unknown, ExceptionContext(cause.what()));
    } catch (...) {
        throw Failure(ErrorCode::Unknown);
    }
}

template <typename Failure, typename Call>
auto translating(Call call) {
    try {
        return call();
    } catch (...) {
        rethrowAs<Failure>();
    }
}

const char* toString(ByteStreamOpenOptions::Access value) {
    return value == ByteStreamOpenOptions::Access::WriteOnly ? "WriteOnly" : "ReadWrite";
}

const char* toString(ByteStreamOpenOptions::ExistingContent value) {
    return value == ByteStreamOpenOptions::ExistingContent::Preserve ? "Preserve" : "Discard";
}

const char* toString(ByteStreamOpenOptions::Presence value) {
    return value == ByteStreamOpenOptions::Presence::Required ? "Required" : "Optional";
}

const char* toString(ByteStreamOpenOptions::WriteMode value) {
    return value == ByteStreamOpenOptions::WriteMode::Append ? "Append" : "Positioned";
}

}  // namespace

ByteStream::~ByteStream() = default;

std::int64_t ByteStream::read(char* buffer, std::int64_t count) {
    return translating<ByteStreamReadFailure>([&] { return doRead(buffer, count); });
}

std::int64_t ByteStream::write(const char* data, std::int64_t count) {
    return translating<ByteStreamWriteFailure>([&] { return doWrite(data, count); });
}

std::streampos ByteStream::seek(std::int64_t offset, std::ios_base::seekdir way) {
    return translating<ByteStreamSeekFailure>([&] { return doSeek(offset, way); });
}

void ByteStream::close() {
    translating<ByteStreamCloseFailure>([&] { doClose(); });
}

std::ostream& operator<<(std::ostream& stream, const ByteStreamOpenOptions& options) {
    return stream << '{' << toString(options.access) << ',' << toString(options.existingContent) << ','
                  << toString(options.presence) << ',' << toString(options.writeMode) << '}';
}

GenericByteStreamDevice::GenericByteStreamDevice(std::shared_ptr<ByteStream> stream) : m_stream(std::move(stream)) {}

std::streamsize GenericByteStreamDevice::read(char* buffer, std::streamsize count) {
    return m_stream->read(buffer, count);
}

std::streamsize GenericByteStreamDevice::write(const char* data, std::streamsize count) {
    return m_stream->write(data, count);
}

std::streampos GenericByteStreamDevice::seek(boost::iostreams::stream_offset offset, std::ios_base::seekdir way) {
    return m_stream->seek(offset, way);
}

void GenericByteStreamDevice::close() {
    m_stream->close();
}

ByteStreamDevice::ByteStreamDevice(std::unique_ptr<ByteStream> stream) : GenericByteStreamDevice(std::move(stream)) {}

}  // namespace foundation::storage::provider
