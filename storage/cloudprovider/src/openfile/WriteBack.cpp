// SPDX-License-Identifier: Apache-2.0
#include "openfile/WriteBack.hpp"

#include "openfile/OpenPartHold.hpp"
#include "support/Trace.hpp"
#include "support/host.hpp"
#include "support/translateException.hpp"

#include <storage/cloudprovider/CloudException.hpp>

#include <algorithm>
#include <iterator>
#include <utility>

namespace storage::cloudprovider {

namespace {

// How often a write-back tries to transfer a part that others change meanwhile.
constexpr int kMostRounds = 4;

// Runs of parts that are reused end at multiples of so many bytes of the file: several can be copied at once, and a
// second try makes the same pieces.
constexpr std::uint64_t kRunBoundary = std::uint64_t{128} * 1024 * 1024;

bool isNextOfRun(const OpenPartBuffer& last, const OpenPartBuffer& next) {
    return next.index() == last.index() + 1 && next.offset() / kRunBoundary == last.offset() / kRunBoundary;
}

}  // namespace

WriteBack::WriteBack(std::shared_ptr<OpenFileContext> context, std::shared_ptr<MultipartUploadManager> uploadManager)
    : m_context(std::move(context)), m_uploadManager(std::move(uploadManager)), m_objectWriter(m_context) {}

void WriteBack::run(const std::vector<Part>& parts, Cut cut, ObjectWriter::Bytes bytes) {
    m_objectWriter.settle();
    if (isPutAsWhole(parts, cut)) {
        flushSinglePartFile(parts.front(), bytes);
    } else {
        flushMultiPartFile(parts, cut);
    }
}

void WriteBack::cancelUpload() noexcept {
    CLOUDPROVIDER_TRACE_FUNCTION();
    try {
        m_uploadManager->cancel();
    } catch (...) {
        traceCaughtException();
    }
}

// What is left of a file that was cut after its first part is in the store, which copies it as a part of an upload.
bool WriteBack::isPutAsWhole(const std::vector<Part>& parts, Cut cut) const {
    const auto& part = parts.front();
    return parts.size() == 1 && !(cut == Cut::Yes && part->storedRecord()) &&
           part->size() <= m_context->client->limits().LargestPut;
}

// The file may have had several parts before it was cut off, some of them sent.
void WriteBack::flushSinglePartFile(const Part& part, ObjectWriter::Bytes bytes) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    if (m_uploadManager->isActive()) {
        cancelUpload();
        part->forgetUpload();
    }
    if (!part->openIfModified()) {
        return;
    }
    const auto hold = OpenPartHold::adopt(part);
    if (const auto record = part->markUploading()) {
        try {
            m_objectWriter.put(part->data(), record->Size, bytes);
        } catch (...) {
            part->markUploadFailed();
            throw;
        }
        part->markUploaded();
    }
}

void WriteBack::flushMultiPartFile(const std::vector<Part>& parts, Cut cut) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    std::vector<Part> stored;  // stores refuse parts without bytes
    std::copy_if(parts.begin(), parts.end(), std::back_inserter(stored),
                 [](const Part& part) { return part->size() != 0; });
    if (m_uploadManager->reachesPast(stored.empty() ? 0 : stored.back()->index() + 1)) {
        // Parts were cut off that had been sent. Stores refuse to complete an upload with parts that are not listed, as
        // Ceph's gateway does.
        cancelUpload();
        for (const auto& part : parts) {
            part->forgetUpload();
        }
    }
    // What fails while it is changed is left for transferMissing, so that afterwards nothing may have been started.
    bool isChanged = cut == Cut::Yes || m_uploadManager->isActive();
    for (const auto& part : stored) {
        if (part->localDataVersion() == LocalDataVersion::NEW) {
            isChanged = true;
            sendPart(*m_uploadManager, part);
        }
    }
    if (!isChanged) {
        return;
    }
    const auto runs = std::make_shared<ReusedRuns>();
    scheduleReuse(stored, runs);     // the store copies what was not changed while the rest travels
    m_uploadManager->joinUploads();  // until its task has begun a changed part has the record of its former bytes
    transferMissing(stored, runs);

    std::vector<PartInfo> records;
    records.reserve(stored.size());
    const ReusedRuns::Run* former = nullptr;
    for (const auto& part : stored) {
        if (const auto* const run = runs->find(part->index()); run == nullptr) {
            records.push_back(part->uploadedRecord().value());
        } else if (run != std::exchange(former, run)) {
            records.insert(records.end(), run->records.begin(), run->records.end());
        }
    }
    try {
        m_objectWriter.complete(*m_uploadManager, std::move(records));
    } catch (...) {
        for (const auto& part : parts) {
            part->forgetUpload();
        }
        throw;
    }
    for (const auto& part : parts) {
        part->markUploaded();
    }
}

// Reuses what was not changed. A part may be changed before the store is asked for that, or while it fails to be sent:
// it takes another round, in which it is sent.
void WriteBack::transferMissing(const std::vector<Part>& parts, const std::shared_ptr<ReusedRuns>& runs) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    for (int round = 0;; ++round) {
        std::vector<Part> missing;
        std::copy_if(parts.begin(), parts.end(), std::back_inserter(missing),
                     [&](const Part& part) { return runs->find(part->index()) == nullptr && !part->uploadedRecord(); });
        if (missing.empty()) {
            return;
        }
        if (round == kMostRounds) {
            throw UnknownErrorException(
                host::ExceptionContext("parts of " + m_context->key + " failed to be sent while they were changed"));
        }
        scheduleReuse(missing, runs);
        for (const auto& part : missing) {
            if (!part->storedRecord()) {
                sendPart(*m_uploadManager, part);
            }
        }
        m_uploadManager->joinUploads();
    }
}

// In runs of neighbours, each of which is one piece of the new object.
void WriteBack::scheduleReuse(const std::vector<Part>& parts, const std::shared_ptr<ReusedRuns>& runs) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    std::vector<Part> run;
    for (const auto& part : parts) {
        const bool isStored = part->storedRecord().has_value();
        if (!run.empty() && !(isStored && isNextOfRun(*run.back(), *part))) {
            scheduleRun(std::exchange(run, {}), runs);
        }
        if (isStored) {
            run.push_back(part);
        }
    }
    scheduleRun(std::move(run), runs);
}

void WriteBack::scheduleRun(std::vector<Part> run, const std::shared_ptr<ReusedRuns>& runs) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    if (!run.empty()) {
        const auto index = run.front()->index();
        m_uploadManager->asyncReusePart(index, std::make_unique<RunReuse>(std::move(run), runs));
    }
}

}  // namespace storage::cloudprovider
