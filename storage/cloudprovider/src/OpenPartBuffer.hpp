// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Buffer.hpp"
#include "LocalDataVersion.hpp"
#include "OpenFileContext.hpp"

#include <foundation/threads/Mutex.hpp>
#include <storage/cloudprovider/PartInfo.hpp>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace storage::cloudprovider {

/// One part of an open file: its record, where its current bytes live, and its local buffer while there is one.
///
/// Opens are counted: the first one brings the bytes local, the last close unmaps them and keeps the file.
/// See the source for the states. Threads: any. Bytes behind data() are not guarded: a part may be written
/// while its upload reads it, see OpenFileByteStream.
class OpenPartBuffer : public Buffer {
public:
    /// What a stream needs to know to copy bytes, taken in one step. data is valid while the caller has the part open.
    struct View {
        char* data;
        std::uint64_t size;
        LocalDataVersion version;
    };

    /// A part whose stored bytes are info's, if version is CLOUD; else one that holds nothing stored. capacity: what it
    /// may grow to, in bytes; at least what it has.
    OpenPartBuffer(PartInfo info, LocalDataVersion version, std::uint64_t capacity,
                   std::shared_ptr<OpenFileContext> context);
    ~OpenPartBuffer() override;

    std::uint64_t size() const override;

    /// Count an opener and bring the bytes local if they are not. Waits while another opener does so. When
    /// that fails the count is as before, and the next opener tries again.
    ///
    /// Errors   what the client and the buffer factory throw; UnknownErrorException when the client delivers fewer or
    ///          more bytes than the part has.
    void open() override;
    bool isOpen() const override;
    char* data() override;
    const char* data() const override;

    /// Make room for more than the part has, so that growing to that size needs none. Does nothing while the bytes are
    /// not local.
    void reserve(std::uint64_t size) override;
    void close() override;

    /// Count an opener. False tells the first one that it has to load the bytes.
    bool incrementOpenCount();

    /// Take an opener back; tells whether it was the last.
    bool decrementOpenCount();

    /// Hand the loaded, mapped bytes over to all openers, with room for what the part has grown to meanwhile. Throws
    /// what the buffer throws when there is none, and keeps what it had.
    void setOpenBuffer(std::unique_ptr<Buffer> buffer);

    /// Fetch the stored bytes into a new buffer; zeros follow them.
    void download();

    /// Take the stored bytes, all of them, without fetching them. For a part that nobody has opened yet.
    void fill(std::string_view stored);

    /// Make a new buffer of zeros.
    void createBlank();

    /// Open the part if it is NEW; tells whether it did.
    bool openIfModified();

    /// Give the local bytes up if nobody has the part open and the stored object has them.
    void discardIfUnmodified();

    /// Give the local bytes up if nobody has the part open and they are zeros that can be made again: nothing of the
    /// part is stored, and nothing was written. Also if it is INVALID.
    void discardIfBlank();

    /// Make the part that takes this one's place when the file is cut off inside it: its first size bytes, NEW. It
    /// shares nothing with this one, and fetches what is not local when it needs it. Nobody may write into this one
    /// meanwhile.
    ///
    /// Errors   what the buffer factory throws.
    std::shared_ptr<OpenPartBuffer> makeShortened(std::uint64_t size, std::uint64_t capacity) const;

    /// The part is no longer one of its file: INVALID, and it has nothing to send, nor to fetch. Who has it open keeps
    /// the bytes until the last close.
    void invalidate() noexcept;

    /// Wait while an opener brings the bytes local.
    void waitForLoading();

    /// Note that bytes were written into the part: it is NEW.
    void markModified();

    /// Hand the part to the upload if it is NEW: answers the record to send, taken in the same step.
    std::optional<PartInfo> markUploading();

    /// Take the part back from an upload that did not get it: it is NEW. Tells whether it was already, since somebody
    /// changed it meanwhile, so that it is sent again in any case; or whether the file has it no longer.
    bool markUploadFailed() noexcept;

    /// Note what the running upload has of the part: its first size bytes, under that tag. The part stays in its state:
    /// until the upload completes, the stored object does not have these bytes.
    void recordUpload(std::uint64_t size, std::string tag) noexcept;

    /// Note that the stored object now has what the upload had of the part, or what was handed to it. A part changed
    /// since stays NEW.
    void markUploaded() noexcept;

    /// Note that the running upload is gone: what it had of the part has to be sent again. How the store would name the
    /// part now is not known.
    void forgetUpload() noexcept;

    /// The record of the stored bytes, for a part that has not been changed since; nothing for one that has, whether it
    /// was sent or not, or is empty.
    std::optional<PartInfo> storedRecord() const;

    /// The record to complete the running upload with; nothing when the upload does not have the part.
    std::optional<PartInfo> uploadedRecord() const;

    /// Grow by amount bytes, at most to the capacity. Answers the size before, where appended bytes begin. A part that
    /// really grew is NEW, here and below, in the same step. Throws what the buffer throws when it has no room, and has
    /// changed nothing; a part that is not local needs its room when it is loaded.
    std::uint64_t increaseSize(std::uint64_t amount);

    /// Grow so that amount bytes at offset lie inside, at most to the capacity. Answers the size before.
    std::uint64_t increaseSize(std::uint64_t amount, std::uint64_t offset);

    /// Grow to the capacity. Answers the size before.
    std::uint64_t increaseSizeToMax();

    PartInfo info() const;
    View view() const;
    LocalDataVersion localDataVersion() const;
    bool hasLocalBytes() const;

    std::uint64_t index() const;

    /// Position in the file of the first byte, and of the one after the last.
    std::uint64_t offset() const;
    std::uint64_t end() const;

    /// Largest size the part may reach, and that size's end in the file; neither ever changes.
    std::uint64_t capacity() const;
    std::uint64_t capacityEnd() const;

    bool isOnlyPart() const;
    void setIsOnlyPart(bool isOnlyPart);

private:
    // What the running upload has of the part.
    struct Uploaded {
        std::uint64_t size;
        std::string tag;
    };

    bool isLoading() const CLOUDPROVIDER_REQUIRES(m_mutex);
    void loadAsFirstOpener();
    std::uint64_t growTo(std::uint64_t size) CLOUDPROVIDER_REQUIRES(m_mutex);
    std::unique_ptr<Buffer> takeUnusedBuffer() noexcept CLOUDPROVIDER_REQUIRES(m_mutex);
    std::unique_ptr<Buffer> buildOpenBuffer() const;
    void takeShortened(std::uint64_t storedSize, std::unique_ptr<Buffer> copy, bool isWritten) noexcept;

    const std::uint64_t m_capacity;
    const std::shared_ptr<OpenFileContext> m_context;

    // Taken last, never two parts' at once. Buffers are mapped, unmapped and given room under it.
    mutable foundation::Mutex m_mutex;
    foundation::ConditionVariable m_condition;  // signalled when m_openCount or m_buffer changes

    PartInfo m_info CLOUDPROVIDER_GUARDED_BY(m_mutex);
    std::unique_ptr<Buffer> m_buffer CLOUDPROVIDER_GUARDED_BY(m_mutex);
    std::uint64_t m_openCount CLOUDPROVIDER_GUARDED_BY(m_mutex) = 0;
    LocalDataVersion m_localDataVersion CLOUDPROVIDER_GUARDED_BY(m_mutex);
    // m_buffer has bytes that can be neither fetched nor made again.
    bool m_isWritten CLOUDPROVIDER_GUARDED_BY(m_mutex) = false;
    bool m_isOnlyPart CLOUDPROVIDER_GUARDED_BY(m_mutex) = false;
    std::uint64_t m_storedSize CLOUDPROVIDER_GUARDED_BY(m_mutex);  // leading bytes that the stored object has
    // The size that was handed to the upload last, else m_storedSize.
    std::uint64_t m_scheduledSize CLOUDPROVIDER_GUARDED_BY(m_mutex);
    std::optional<Uploaded> m_uploaded CLOUDPROVIDER_GUARDED_BY(m_mutex);  // m_info.Tag is that of the stored part
};

/// Keeps a part open, from construction to close or destruction. Move-only.
class OpenPartHold {
public:
    /// Opens the part; see OpenPartBuffer::open for what it throws.
    explicit OpenPartHold(std::shared_ptr<OpenPartBuffer> part);
    OpenPartHold(OpenPartHold&&) noexcept = default;
    OpenPartHold& operator=(OpenPartHold&&) = delete;
    ~OpenPartHold();

    /// Take over an open that was counted already.
    static OpenPartHold adopt(std::shared_ptr<OpenPartBuffer> part);

    const std::shared_ptr<OpenPartBuffer>& part() const noexcept { return m_part; }

    /// Close the part; tells whether nobody has it open any more. Call once.
    bool close();

private:
    struct Adopted {};
    OpenPartHold(std::shared_ptr<OpenPartBuffer> part, Adopted) noexcept;

    std::shared_ptr<OpenPartBuffer> m_part;
};

}  // namespace storage::cloudprovider
