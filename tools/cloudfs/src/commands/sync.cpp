// SPDX-License-Identifier: Apache-2.0
#include "commands/sync.hpp"

#include "commands/FileTransfers.hpp"
#include "commands/GetPlan.hpp"
#include "commands/LocalSide.hpp"
#include "commands/PutPlan.hpp"
#include "commands/StoreSide.hpp"
#include "commands/SyncPlan.hpp"
#include "commands/localOperands.hpp"
#include "commands/sameBytes.hpp"
#include "local/localPlaces.hpp"
#include "store/operands.hpp"
#include "store/patterns.hpp"
#include "terminal/ProgressBar.hpp"
#include "terminal/StandardOutput.hpp"
#include "terminal/failures.hpp"

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <algorithm>
#include <string_view>

namespace cloudfs::commands {

using foundation::storage::provider::ErrorCode;

namespace {

// A pattern without "/" is about names, wherever they are; one with it about paths from the root on.
bool fits(const std::string& pattern, const std::string& name) {
    const bool isPath = pattern.find('/') != std::string::npos;
    for (std::size_t begin = 0; begin < name.size();) {
        const auto end = std::min(name.find('/', begin), name.size());
        if (matches(pattern, isPath ? name.substr(0, end) : name.substr(begin, end - begin))) {
            return true;
        }
        begin = end + 1;
    }
    return false;
}

ExcludedNames makeExcluded(const std::vector<std::string>& patterns) {
    return [&patterns](const std::string& name) {
        return std::any_of(patterns.begin(), patterns.end(), [&](std::string_view pattern) {
            while (pattern.starts_with('/')) {
                pattern.remove_prefix(1);
            }
            while (pattern.ends_with('/')) {
                pattern.remove_suffix(1);
            }
            return fits(std::string(pattern), name);
        });
    };
}

struct Operands {
    bool isUp;
    std::string local;
    StorePath path;
};

Operands readOperands(const SyncRequest& request) {
    constexpr std::string_view kMark = "store:";
    const bool isUp = request.to.starts_with(kMark);
    if (isUp == request.from.starts_with(kMark)) {
        throw UsageError("sync takes a local folder and a folder of the store, such as store:/photos");
    }
    const auto& path = isUp ? request.to : request.from;
    return {isUp, isUp ? request.from : request.to, StorePath(std::string_view(path).substr(kMark.size()))};
}

boost::posix_time::ptime toTime(std::int64_t microseconds) {
    if (microseconds == kUnknownTime) {
        return {};
    }
    return boost::posix_time::ptime(boost::gregorian::date(1970, 1, 1)) + boost::posix_time::microseconds(microseconds);
}

// One run of the command.
class Sync {
public:
    Sync(const Session& session, const SyncRequest& request)
        : m_request(request),
          m_operands(readOperands(request)),
          m_transfers(request.transfers),
          m_local(m_operands.local, filesOf(session), request.links),
          m_store(session, m_operands.path, mayMakeStore() ? MissingStore::Create : MissingStore::Refuse) {}

    void run() {
        const auto plan = makePlan();
        if (m_request.isDryRun) {
            show(plan);
        } else {
            transfer(plan);
            if (m_request.deletes) {
                removeSurplus(plan);
            }
        }
        m_transfers.finish();
    }

private:
    const SyncSide& source() const { return m_operands.isUp ? static_cast<const SyncSide&>(m_local) : m_store; }
    const SyncSide& destination() const { return m_operands.isUp ? static_cast<const SyncSide&>(m_store) : m_local; }

    // The source is looked at before: a mistyped one leaves no empty store behind.
    bool mayMakeStore() const {
        if (!m_operands.isUp) {
            return false;
        }
        if (!isLocalFolder(m_operands.local)) {
            throw Failure(ErrorCode::InvalidLocation, m_operands.local, "is no folder");
        }
        return !m_request.isDryRun;
    }

    SyncPlan makePlan() {
        const auto isExcluded = makeExcluded(m_request.excluded);
        const auto from = source().list(isExcluded, m_transfers);
        if (from.entries.empty() && m_request.deletes && !m_request.isForced) {
            throw Failure(ErrorCode::Unsupported, source().textOf(""),
                          "is empty, so that --delete would remove everything; --force allows it");
        }
        SyncPlan plan(from, listDestination(isExcluded), m_request.comparesBytes);
        if (!m_operands.isUp) {
            plan.refuse([](const std::string& name) { return whyNotLocal(name); }, m_store, m_transfers);
        }
        compare(plan);
        return plan;
    }

    SyncListing listDestination(const ExcludedNames& isExcluded) {
        const bool isMissing = m_operands.isUp
                                   ? !m_operands.path.isRoot() && !isFolder(m_store.provider(), m_operands.path)
                                   : !isThere(m_operands.local);
        return isMissing ? SyncListing() : destination().list(isExcluded, m_transfers);
    }

    void compare(SyncPlan& plan) {
        const auto candidates = plan.takeCandidates();
        ProgressBar progress(plan.size(candidates), candidates.size());
        std::vector<char> isChanged(candidates.size(), 1);
        m_transfers.run(candidates.size(), progress, [&](std::size_t index) {
            const auto& name = candidates[index];
            isChanged[index] =
                haveSameBytes(m_store.provider(), m_store.pathOf(name), m_local.textOf(name), progress) ? 0 : 1;
        });
        for (std::size_t index = 0; index < candidates.size(); ++index) {
            if (isChanged[index] != 0) {
                plan.addFile(candidates[index]);
            }
        }
    }

    void transfer(SyncPlan plan) {
        plan.dropBelow(destination().makeFolders(plan.folders(), m_transfers));
        const auto& files = plan.files();
        ProgressBar progress(plan.size(files), files.size());
        m_transfers.run(files.size(), progress, [&](std::size_t index) {
            const auto& name = files[index];
            const auto& entry = plan.sourceOf(name);
            if (m_operands.isUp) {
                putFile(m_store.provider(), {m_local.textOf(name), m_store.pathOf(name), entry.size}, progress);
            } else {
                m_local.failIfStore(name);
                getFile(m_store.provider(),
                        {m_store.pathOf(name), m_local.textOf(name), LocalTarget::Links::Replace, entry.size,
                         toTime(entry.time)},
                        progress);
            }
        });
    }

    void removeSurplus(const SyncPlan& plan) {
        if (m_transfers.failureCount() != 0) {
            m_transfers.addFailure(std::make_exception_ptr(
                Failure(ErrorCode::Unsupported, destination().textOf(""), "nothing is removed after a failure")));
            return;
        }
        const auto& files = plan.surplusFiles();
        ProgressBar progress(0, files.size());
        m_transfers.run(files.size(), progress, [&](std::size_t index) {
            destination().remove(files[index], plan.destinationOf(files[index]));
        });
        for (const auto& folder : plan.surplusFolders()) {
            m_transfers.attempt([&] { destination().removeFolder(folder); });
        }
    }

    void show(const SyncPlan& plan) const {
        StandardOutput output;
        const auto line = [&](const char* verb, const std::string& name, const char* end) {
            output.write(verb);
            output.writeName(destination().textOf(name));
            output.write(end);
        };
        for (const auto& name : plan.files()) {
            line(m_operands.isUp ? "put " : "get ", name, "\n");
        }
        if (m_request.deletes) {
            for (const auto& name : plan.surplusFiles()) {
                line("rm ", name, "\n");
            }
            for (const auto& name : plan.surplusFolders()) {
                line("rmdir ", name, "/\n");
            }
        }
        output.flush();
    }

    const SyncRequest& m_request;
    const Operands m_operands;
    FileTransfers m_transfers;
    const LocalSide m_local;
    const StoreSide m_store;
};

}  // namespace

void sync(const Session& session, const SyncRequest& request) {
    Sync(session, request).run();
}

}  // namespace cloudfs::commands
