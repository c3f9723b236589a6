// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "buffers/Buffer.hpp"
#include "context/OpenFileContext.hpp"
#include "openfile/LocalDataVersion.hpp"

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
class OpenPartBuffer {
public:
    /// What a stream needs to know to copy bytes, taken in one step. data is valid while the caller has the part open.
    struct View {
        char* data;
        std::uint64_t size;
        LocalDataVersion version;
    };

    /// A part whose stored bytes are info's, if version is CLOUD; else one that holds nothing stored. capacity: what it
    /// may grow to, in bytes; at least what it has.
    OpenPartBuffer(const PartInfo& info, LocalDataVersion version, std::uint64_t capacity,
                   std::shared_ptr<OpenFileContext> context);
    OpenPartBuffer(const OpenPartBuffer&) = delete;
    OpenPartBuffer& operator=(const OpenPartBuffer&) = delete;
    ~OpenPartBuffer();

    // --- where it is in the file; see below for its size -----------------------------------------------------------

    std::uint64_t index() const;

    /// Position in the file of the first byte.
    std::uint64_t offset() const;

    /// Largest size the part may reach, and that size's end in the file.
    std::uint64_t capacity() const;
    std::uint64_t capacityEnd() const;

    // --- its bytes -------------------------------------------------------------------------------------------------

    /// Count an opener and bring the bytes local if they are not. Waits while another opener does so. When
    /// that fails the count is as before, and the next opener tries again.
    ///
    /// Errors   what the client and the buffer factory throw; UnknownErrorException when the client delivers fewer or
    ///          more bytes than the part has.
    void open();

    /// Open the part if it is NEW; tells whether it did.
    bool openIfModified();

    /// Take an opener back; tells whether it was the last.
    bool close();

    bool isOpen() const;

    /// The first byte, while anybody has the part open.
    char* data() const;
    View view() const;

    /// Make room for more than the part has, so that growing to that size needs none. Does nothing while the bytes are
    /// not local.
    void reserve(std::uint64_t size);

    /// Take the stored bytes, all of them, without fetching them. For a part that nobody has opened yet.
    void fill(std::string_view stored);

    bool hasLocalBytes() const;

    /// Wait while an opener brings the bytes local.
    void waitForLoading();

    /// Give the local bytes up if nobody has the part open and the stored object has them.
    void discardIfUnmodified();

    /// Give the local bytes up if nobody has the part open and they are zeros that can be made again: nothing of the
    /// part is stored, and nothing was written. Also if it is INVALID.
    void discardIfBlank();

    // --- its size --------------------------------------------------------------------------------------------------

    std::uint64_t size() const;

    /// Position in the file after the last byte.
    std::uint64_t end() const;

    /// Grow by amount bytes, at most to the capacity. Answers the size before, where appended bytes begin. A part that
    /// really grew is NEW, here and below, in the same step. Throws what the buffer throws when it has no room, and has
    /// changed nothing; a part that is not local needs its room when it is loaded.
    std::uint64_t increaseSize(std::uint64_t amount);

    /// Grow so that amount bytes at offset lie inside, at most to the capacity. Answers the size before.
    std::uint64_t increaseSize(std::uint64_t amount, std::uint64_t offset);

    /// Grow to the capacity. Answers the size before.
    std::uint64_t increaseSizeToMax();

    /// Make the part that takes this one's place when the file is cut off inside it: its first size bytes, NEW. It
    /// shares nothing with this one, and fetches what is not local when it needs it. Nobody may write into this one
    /// meanwhile.
    ///
    /// Errors   what the buffer factory throws.
    std::shared_ptr<OpenPartBuffer> makeShortened(std::uint64_t size, std::uint64_t capacity) const;

    /// Whether the file has no other part: the store is asked for all of it then.
    void setIsOnlyPart(bool isOnlyPart);

    // --- its state -------------------------------------------------------------------------------------------------

    LocalDataVersion localDataVersion() const;

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

    /// The part is no longer one of its file: INVALID, and it has nothing to send, nor to fetch. Who has it open keeps
    /// the bytes until the last close.
    void invalidate() noexcept;

private:
    // What the running upload has of the part.
    struct Uploaded {
        std::uint64_t size;
        std::string tag;
    };

    bool countOpener();
    void loadAsFirstOpener();
    void download();
    std::unique_ptr<Buffer> buildOpenBuffer() const;
    void setOpenBuffer(std::unique_ptr<Buffer> buffer);
    void takeShortened(std::uint64_t storedSize, std::unique_ptr<Buffer> copy, bool isWritten) noexcept;

    PartInfo record() const CLOUDPROVIDER_REQUIRES(m_mutex);
    bool isLoading() const CLOUDPROVIDER_REQUIRES(m_mutex);
    std::uint64_t growTo(std::uint64_t size) CLOUDPROVIDER_REQUIRES(m_mutex);
    std::unique_ptr<Buffer> takeUnusedBuffer() noexcept CLOUDPROVIDER_REQUIRES(m_mutex);

    // Set by the constructor, never changed.
    const std::uint64_t m_index;
    const std::uint64_t m_offset;
    const std::uint64_t m_capacity;
    const std::shared_ptr<OpenFileContext> m_context;

    // Taken last, never two parts' at once. Buffers are mapped, unmapped and given room under it.
    mutable foundation::Mutex m_mutex;
    foundation::ConditionVariable m_condition;  // signalled when m_openCount or m_buffer changes

    // The bytes.
    std::unique_ptr<Buffer> m_buffer CLOUDPROVIDER_GUARDED_BY(m_mutex);
    std::uint64_t m_openCount CLOUDPROVIDER_GUARDED_BY(m_mutex) = 0;
    std::uint64_t m_size CLOUDPROVIDER_GUARDED_BY(m_mutex);
    // m_buffer has bytes that can be neither fetched nor made again.
    bool m_isWritten CLOUDPROVIDER_GUARDED_BY(m_mutex) = false;

    // What the store has of them, and what is on its way there.
    LocalDataVersion m_localDataVersion CLOUDPROVIDER_GUARDED_BY(m_mutex);
    std::string m_tag CLOUDPROVIDER_GUARDED_BY(m_mutex);           // of the stored part
    std::uint64_t m_storedSize CLOUDPROVIDER_GUARDED_BY(m_mutex);  // leading bytes that the stored object has
    // The size that was handed to the upload last, else m_storedSize.
    std::uint64_t m_scheduledSize CLOUDPROVIDER_GUARDED_BY(m_mutex);
    std::optional<Uploaded> m_uploaded CLOUDPROVIDER_GUARDED_BY(m_mutex);
    bool m_isOnlyPart CLOUDPROVIDER_GUARDED_BY(m_mutex) = false;
};

}  // namespace storage::cloudprovider
