// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "openfile/OpenPartDevice.hpp"
#include "openfile/OpenPartManager.hpp"
#include "openfile/ProviderStream.hpp"
#include "support/host.hpp"

#include <foundation/storage/provider/ByteStream.hpp>

#include <cstdint>
#include <ios>
#include <memory>
#include <optional>

namespace storage::cloudprovider {

/// A position in an open object; reads and writes one part at a time.
///
/// The position is this stream's alone, the bytes are those of all streams of the object. The object is
/// written back when its last stream closes. Threads: one at a time per stream; streams of one object may be
/// used by different threads.
class OpenFileByteStream : public host::ByteStream, public ProviderStream {
public:
    using WriteMode = host::ByteStreamOpenOptions::WriteMode;

    /// A closed stream, which attach opens: so that nothing can fail between being counted and being handed out.
    explicit OpenFileByteStream(WriteMode writeMode);

    /// Closes the stream; a failure is traced.
    ~OpenFileByteStream() override;

    /// Open the stream on a manager that has counted it. change: its opening changed the file.
    void attach(std::shared_ptr<OpenPartManager> partManager, std::optional<ChangePoint> change) noexcept;

    bool abandon() override;
    void store() override;
    void storeAtClose() noexcept override;
    void resize(std::uint64_t size) override;
    void detach() override;

    /// Throw ByteStreamWriteFailure when the stream is closed.
    void requireOpen() const;

private:
    std::int64_t doRead(char* buffer, std::int64_t count) override;
    std::int64_t doWrite(const char* data, std::int64_t count) override;
    std::streampos doSeek(std::int64_t offset, std::ios_base::seekdir way) override;
    void doClose() override;

    std::uint64_t copyFromDevice(const OpenPartBuffer::View& view, char* target, std::uint64_t count);
    std::optional<std::uint64_t> putIntoFile(const char* source, std::uint64_t count);
    std::uint64_t appendToDevice(const char* source, std::uint64_t count);
    std::uint64_t writeToDevice(const char* source, std::uint64_t count);
    void putIntoDevice(const char* source, std::uint64_t count);
    void openDeviceForWriting();
    void giveDeviceBack();
    void readAhead();
    void stopReadingAhead();
    std::uint64_t seekTarget(std::int64_t offset, std::ios_base::seekdir way) const;

    std::uint64_t m_fileOffset = 0;
    bool m_isAtEnd = false;  // no part could be opened at the position
    bool m_storesAtClose = false;
    std::optional<ChangePoint> m_lastChange;
    const WriteMode m_writeMode;
    std::unique_ptr<OpenPartDevice> m_device;        // the part that the position lies in, or empty
    std::shared_ptr<OpenPartManager> m_partManager;  // empty when closed
    std::shared_ptr<ReadAhead> m_readAhead;          // empty until a part was read to its end, and where none is wanted
    bool m_isReadingOn = false;                      // the last part was read to its end
};

}  // namespace storage::cloudprovider
