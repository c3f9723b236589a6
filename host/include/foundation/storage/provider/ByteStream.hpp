// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/provider/Exception.hpp>

#include <boost/iostreams/categories.hpp>
#include <boost/iostreams/positioning.hpp>

#include <cstdint>
#include <ios>
#include <iosfwd>
#include <memory>

namespace foundation::storage::provider {

/// A stream of bytes with a position, as a provider opens it on a file.
///
/// Counts and offsets are in bytes. One thread at a time per stream; several streams, also of one file, may
/// be used by different threads. The public operations are the boundary to the host: besides the stream
/// failures named below only Exception and Boost's numeric-cast errors leave them. Whatever else an
/// implementation throws arrives as the operation's failure, with the code it carries (else Unknown) and its text.
class FOUNDATION_HOST_EXPORT ByteStream {
public:
    ByteStream(const ByteStream&) = delete;
    ByteStream& operator=(const ByteStream&) = delete;
    virtual ~ByteStream();

    /// Read up to count bytes at the position into buffer, which the caller keeps, and move the position past them.
    ///
    /// Result   the bytes read, fewer than count only at the end; -1 at the end.
    /// Errors   ByteStreamReadFailure; numeric-cast error when count is negative.
    std::int64_t read(char* buffer, std::int64_t count);

    /// Write count bytes at the position and move it past them. data is copied.
    ///
    /// Result   the bytes taken; -1 when nothing was.
    /// Errors   ByteStreamWriteFailure; numeric-cast error when count is negative.
    std::int64_t write(const char* data, std::int64_t count);

    /// Move the position to offset bytes from the beginning, the current position or the end.
    ///
    /// Result   the new position; one before the beginning becomes 0, one past the end is allowed.
    /// Errors   ByteStreamSeekFailure; numeric-cast error when the position cannot be represented.
    std::streampos seek(std::int64_t offset, std::ios_base::seekdir way);

    /// Finish with the stream; what was written may reach the store only now. Closing again does nothing; any
    /// other use afterwards is its failure. The destructor closes, too, but throws nothing: without this call nobody
    /// learns that nothing was stored.
    ///
    /// Errors   ByteStreamCloseFailure.
    void close();

protected:
    ByteStream() = default;

private:
    virtual std::int64_t doRead(char* buffer, std::int64_t count) = 0;
    virtual std::int64_t doWrite(const char* data, std::int64_t count) = 0;
    virtual std::streampos doSeek(std::int64_t offset, std::ios_base::seekdir way) = 0;
    virtual void doClose() = 0;
};

/// How to open a file for writing. The defaults discard what it held; see IProvider::openStream for how to keep that.
struct ByteStreamOpenOptions {
    /// What the stream may be used for.
    enum class Access : std::uint32_t { WriteOnly = 0, ReadWrite = 1 };
    /// Preserve keeps what the file holds; Discard starts from an empty file.
    enum class ExistingContent : std::uint32_t { Discard = 0, Preserve = 1 };
    /// Required fails when the file does not exist; Optional makes it.
    enum class Presence : std::uint32_t { Optional = 0, Required = 1 };
    /// Append writes at the end wherever the position is; Positioned writes at the position.
    enum class WriteMode : std::uint32_t { Append = 0, Positioned = 1 };

    Access access = Access::WriteOnly;                           ///< what the stream may be used for
    ExistingContent existingContent = ExistingContent::Discard;  ///< what becomes of the content
    Presence presence = Presence::Optional;                      ///< whether the file has to exist
    WriteMode writeMode = WriteMode::Append;                     ///< where writing goes to

    /// Write the four values, such as {WriteOnly,Discard,Optional,Append}.
    friend FOUNDATION_HOST_EXPORT std::ostream& operator<<(std::ostream& stream, const ByteStreamOpenOptions& options);
};

/// A Boost.Iostreams device over a shared ByteStream; copies share the stream and its position.
///
/// A boost::iostreams::stream over it closes it when it is destroyed, and swallows what that throws: call the stream's
/// own close() first, which throws it, or a failure to store what was written is lost.
class FOUNDATION_HOST_EXPORT GenericByteStreamDevice {
public:
    using char_type = char;  ///< what Boost.Iostreams asks of a device
    /// What Boost.Iostreams may do with it: read, write, seek and close.
    struct category : boost::iostreams::seekable_device_tag, boost::iostreams::closable_tag {};

    /// stream must not be empty.
    explicit GenericByteStreamDevice(std::shared_ptr<ByteStream> stream);

    /// As ByteStream::read.
    std::streamsize read(char* buffer, std::streamsize count);
    /// As ByteStream::write.
    std::streamsize write(const char* data, std::streamsize count);
    /// As ByteStream::seek.
    std::streampos seek(boost::iostreams::stream_offset offset, std::ios_base::seekdir way);

    /// Close the stream, for all copies; closing again does nothing.
    void close();

private:
    std::shared_ptr<ByteStream> m_stream;
};

/// A GenericByteStreamDevice that takes the stream over from its only owner.
class FOUNDATION_HOST_EXPORT ByteStreamDevice : public GenericByteStreamDevice {
public:
    /// stream must not be empty.
    explicit ByteStreamDevice(std::unique_ptr<ByteStream> stream);
};

}  // namespace foundation::storage::provider
