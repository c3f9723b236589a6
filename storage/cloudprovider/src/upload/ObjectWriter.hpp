// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "buffers/Buffer.hpp"
#include "context/OpenFileContext.hpp"
#include "upload/MultipartUploadManager.hpp"

#include <foundation/threads/Mutex.hpp>
#include <storage/cloudprovider/PartInfo.hpp>

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace storage::cloudprovider {

/// Replaces the object of an open file, if the store still has the version that the file is an edit of, and finds out
/// what became of it when the answer is lost.
///
/// When put or complete return, the object is stored, and the context's version is the one that was stored. When they
/// throw, it is not, as far as the store could be asked; settle asks again.
/// Errors   ObjectReplacedException when the store has what somebody else stored; else what the client throws.
/// Threads  one at a time.
class ObjectWriter {
public:
    /// Whether anybody may change the bytes while they are put.
    enum class Bytes { Stay, MayChange };

    explicit ObjectWriter(std::shared_ptr<OpenFileContext> context);

    /// Find out what became of an attempt whose outcome is not known; call before anything is stored again, and before
    /// another version in the store is taken for somebody else's. Threads: any, but not while something is stored.
    ///
    /// Result   whether there was one; it is settled now. ObjectReplacedException when something else is stored.
    bool settle();

    /// Store size bytes as the object.
    void put(const char* data, std::uint64_t size, Bytes bytes);

    /// Complete an upload with the records of its parts. When it fails the upload is gone, too, with all that it had.
    void complete(MultipartUploadManager& upload, std::vector<PartInfo> records);

private:
    // What was to be stored: parts with the upload's tags, or bytes.
    struct Attempt {
        std::vector<PartInfo> records;
        const char* data = nullptr;
        std::uint64_t size = 0;
        std::unique_ptr<Buffer> copy;  // of the bytes, where they may have changed since
    };
    enum class Outcome { Stored, NotStored, Replaced };

    Outcome look(const Attempt& attempt) const;
    bool wasStored(Attempt attempt);
    bool isOurs(const ObjectDescription& stored, const Attempt& attempt) const;
    bool hasBytes(const ObjectDescription& stored, const Attempt& attempt) const;
    void keepUnsettled(Attempt attempt) noexcept;
    void copyBytes(Attempt& attempt) const;

    const std::shared_ptr<OpenFileContext> m_context;
    foundation::Mutex m_settling;  // guards what follows, while the store is asked, too: the answer is for all who wait
    std::optional<Attempt> m_unsettled CLOUDPROVIDER_GUARDED_BY(m_settling);
};

}  // namespace storage::cloudprovider
