// SPDX-License-Identifier: Apache-2.0
#include "mount/fuseOperations.hpp"

#include "mount/RequestInterrupt.hpp"
#include "mount/errnoOf.hpp"
#include "mount/log.hpp"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <exception>
#include <string>
#include <vector>

namespace cloudfs::mount {

namespace {

using ErrnoOf = int (*)(const std::exception&) noexcept;

// What statfs tells: so much room that no program refuses to write.
constexpr std::uint64_t kBlockSize = 4096;
constexpr std::uint64_t kBlocks = std::uint64_t{1} << 38U;
constexpr std::uint64_t kFiles = std::uint64_t{1} << 31U;

// What programs should read and write at once.
constexpr blksize_t kGoodSize = 128 * 1024;

RequestContext& contextOf(fuse_req_t request) {
    return *static_cast<RequestContext*>(fuse_req_userdata(request));
}

void refuse(fuse_req_t request, const std::exception& failure, ErrnoOf toErrno) {
    const int error = toErrno(failure);
    if (error == EIO) {
        logLine(std::string("an operation failed: ") + failure.what());
    }
    fuse_reply_err(request, error);
}

// Runs what answers a request, up to its end: only a requested end of everything interrupts it.
template <typename Action>
void answer(fuse_req_t request, Action action, ErrnoOf toErrno = errnoOf) {
    auto& context = contextOf(request);
    try {
        const foundation::InterruptScope scope(context.all);
        action(context);
    } catch (const std::exception& failure) {
        refuse(request, failure, toErrno);
    } catch (...) {
        fuse_reply_err(request, EIO);
    }
}

// The same for what the kernel may interrupt: ask gets what is to be answered, which reply tells.
template <typename Ask, typename Reply>
void answerInterruptibly(fuse_req_t request, Ask ask, Reply reply, ErrnoOf toErrno = errnoOf) {
    answer(
        request,
        [&](RequestContext& context) {
            const auto result = [&] {
                const RequestInterrupt interrupt(request, context.all);
                try {
                    return ask(context);
                } catch (const std::exception&) {
                    // The provider may put it into terms of its own.
                    if (interrupt.isRequested()) {
                        throw ErrnoError(EINTR);
                    }
                    throw;
                }
            }();
            reply(context, result);
        },
        toErrno);
}

timespec toTimespec(std::chrono::system_clock::time_point time) {
    const auto sinceEpoch = std::chrono::duration_cast<std::chrono::nanoseconds>(time.time_since_epoch());
    const auto seconds = std::chrono::floor<std::chrono::seconds>(sinceEpoch);
    return {seconds.count(), (sinceEpoch - seconds).count()};
}

struct stat toStat(const Attributes& attributes, const MountOptions& options) {
    constexpr mode_t kFolderMode = 0777;
    constexpr mode_t kFileMode = 0666;
    constexpr std::uint64_t kCountedSize = 512;
    struct stat result {};
    result.st_ino = attributes.shown;
    result.st_mode =
        attributes.isFolder ? S_IFDIR | (kFolderMode & ~options.umask) : S_IFREG | (kFileMode & ~options.umask);
    result.st_nlink = attributes.isLinked ? 1 : 0;  // of a folder 1, too: how many folders it has nobody knows
    result.st_uid = options.uid;
    result.st_gid = options.gid;
    result.st_size = static_cast<off_t>(attributes.size);
    result.st_blksize = kGoodSize;
    result.st_blocks = static_cast<blkcnt_t>((attributes.size + kCountedSize - 1) / kCountedSize);
    result.st_mtim = toTimespec(attributes.modified);
    result.st_ctim = result.st_mtim;
    result.st_atim = result.st_mtim;
    return result;
}

double timeoutOf(const MountOptions& options) {
    return std::chrono::duration<double>(options.attributesCount).count();
}

fuse_entry_param toEntry(const Attributes& attributes, const MountOptions& options) {
    fuse_entry_param entry{};
    entry.ino = attributes.node;
    entry.generation = 1;  // nodes are never used again
    entry.attr = toStat(attributes, options);
    entry.attr_timeout = timeoutOf(options);
    entry.entry_timeout = entry.attr_timeout;
    return entry;
}

OpenMode toMode(int flags) {
    const int access = flags & O_ACCMODE;
    return {.reads = access != O_WRONLY, .writes = access != O_RDONLY, .truncates = (flags & O_TRUNC) != 0};
}

void describe(const Opened& opened, const OpenMode& mode, fuse_file_info& info) {
    info.fh = opened.handle;
    info.keep_cache = opened.keepsCache && !mode.truncates ? 1 : 0;
    info.noflush = mode.writes ? 0 : 1;
}

// One reader at a time for each description: requests come in the order of the bytes, as the provider fetches ahead.
// Pages are dropped when a file is opened, not when its time changes, which storing it does.
void init(void* /*context*/, fuse_conn_info* connection) {
    connection->want &= ~static_cast<unsigned>(FUSE_CAP_ASYNC_READ | FUSE_CAP_AUTO_INVAL_DATA);
}

void replyEntry(fuse_req_t request, RequestContext& context, const Attributes& attributes) {
    const auto entry = toEntry(attributes, context.options);
    if (fuse_reply_entry(request, &entry) == -ENOENT) {  // the kernel has forgotten the request
        context.files.forget(attributes.node, 1);
    }
}

void lookup(fuse_req_t request, fuse_ino_t parent, const char* name) {
    answerInterruptibly(
        request, [&](RequestContext& context) { return context.files.lookup(parent, name); },
        [&](RequestContext& context, const Attributes& attributes) { replyEntry(request, context, attributes); });
}

void forget(fuse_req_t request, fuse_ino_t node, std::uint64_t references) {
    contextOf(request).files.forget(node, references);
    fuse_reply_none(request);
}

void forgetMany(fuse_req_t request, std::size_t count, fuse_forget_data* forgotten) {
    for (std::size_t at = 0; at < count; ++at) {
        contextOf(request).files.forget(forgotten[at].ino, forgotten[at].nlookup);
    }
    fuse_reply_none(request);
}

void replyAttributes(fuse_req_t request, RequestContext& context, const Attributes& attributes) {
    const auto status = toStat(attributes, context.options);
    fuse_reply_attr(request, &status, timeoutOf(context.options));
}

void getAttributes(fuse_req_t request, fuse_ino_t node, fuse_file_info* /*info*/) {
    answerInterruptibly(
        request, [&](RequestContext& context) { return context.files.attributes(node); },
        [&](RequestContext& context, const Attributes& attributes) { replyAttributes(request, context, attributes); });
}

// Modes, owners and times cannot be kept. Who sets them goes on, as programs that copy files would fail else.
void setAttributes(fuse_req_t request, fuse_ino_t node, struct stat* wanted, int which, fuse_file_info* info) {
    answer(
        request,
        [&](RequestContext& context) {
            if ((which & FUSE_SET_ATTR_SIZE) != 0) {
                context.files.resize(node, info != nullptr ? std::optional(info->fh) : std::nullopt,
                                     static_cast<std::uint64_t>(wanted->st_size));
            }
            replyAttributes(request, context, context.files.attributes(node));
        },
        errnoOfWrite);
}

void makeNode(fuse_req_t request, fuse_ino_t parent, const char* name, mode_t mode, dev_t /*device*/) {
    answer(request, [&](RequestContext& context) {
        if (!S_ISREG(mode)) {
            throw ErrnoError(ENOTSUP);
        }
        const auto [attributes, opened] = context.files.create(parent, name, {.reads = true}, true);
        context.files.release(opened.handle);
        replyEntry(request, context, attributes);
    });
}

void makeFolder(fuse_req_t request, fuse_ino_t parent, const char* name, mode_t /*mode*/) {
    answer(request,
           [&](RequestContext& context) { replyEntry(request, context, context.files.makeFolder(parent, name)); });
}

void removeFile(fuse_req_t request, fuse_ino_t parent, const char* name) {
    answer(request, [&](RequestContext& context) {
        context.files.removeFile(parent, name);
        fuse_reply_err(request, 0);
    });
}

void removeFolder(fuse_req_t request, fuse_ino_t parent, const char* name) {
    answer(request, [&](RequestContext& context) {
        context.files.removeFolder(parent, name);
        fuse_reply_err(request, 0);
    });
}

void rename(fuse_req_t request, fuse_ino_t fromParent, const char* fromName, fuse_ino_t toParent, const char* toName,
            unsigned int flags) {
    answer(request, [&](RequestContext& context) {
        if ((flags & ~static_cast<unsigned>(RENAME_NOREPLACE)) != 0) {
            throw ErrnoError(EINVAL);
        }
        context.files.rename(fromParent, fromName, toParent, toName, flags == 0);
        fuse_reply_err(request, 0);
    });
}

void makeLink(fuse_req_t request, fuse_ino_t /*node*/, fuse_ino_t /*parent*/, const char* /*name*/) {
    fuse_reply_err(request, ENOTSUP);
}

void makeSymbolicLink(fuse_req_t request, const char* /*target*/, fuse_ino_t /*parent*/, const char* /*name*/) {
    fuse_reply_err(request, ENOTSUP);
}

void create(fuse_req_t request, fuse_ino_t parent, const char* name, mode_t /*mode*/, fuse_file_info* info) {
    answer(request, [&](RequestContext& context) {
        const auto mode = toMode(info->flags);
        const auto [attributes, opened] = context.files.create(parent, name, mode, (info->flags & O_EXCL) != 0);
        describe(opened, mode, *info);
        const auto entry = toEntry(attributes, context.options);
        if (fuse_reply_create(request, &entry, info) == -ENOENT) {
            context.files.release(opened.handle);
            context.files.forget(attributes.node, 1);
        }
    });
}

void open(fuse_req_t request, fuse_ino_t node, fuse_file_info* info) {
    const auto mode = toMode(info->flags);
    const auto ask = [&](RequestContext& context) { return context.files.open(node, mode); };
    const auto reply = [&](RequestContext& context, const Opened& opened) {
        describe(opened, mode, *info);
        if (fuse_reply_open(request, info) == -ENOENT) {
            context.files.release(opened.handle);
        }
    };
    if (mode.writes) {
        answer(request, [&](RequestContext& context) { reply(context, ask(context)); });
    } else {
        answerInterruptibly(request, ask, reply);
    }
}

void read(fuse_req_t request, fuse_ino_t /*node*/, std::size_t size, off_t offset, fuse_file_info* info) {
    thread_local std::vector<char> buffer;
    answerInterruptibly(
        request,
        [&](RequestContext& context) {
            buffer.resize(std::max(buffer.size(), size));
            return context.files.read(info->fh, buffer.data(), size, static_cast<std::uint64_t>(offset));
        },
        [&](RequestContext& /*context*/, std::size_t count) { fuse_reply_buf(request, buffer.data(), count); },
        errnoOfRead);
}

void write(fuse_req_t request, fuse_ino_t /*node*/, const char* data, std::size_t size, off_t offset,
           fuse_file_info* info) {
    answer(
        request,
        [&](RequestContext& context) {
            context.files.write(info->fh, {data, size}, static_cast<std::uint64_t>(offset));
            fuse_reply_write(request, size);
        },
        errnoOfWrite);
}

void flush(fuse_req_t request, fuse_ino_t /*node*/, fuse_file_info* info) {
    answer(
        request,
        [&](RequestContext& context) {
            context.files.flush(info->fh);
            fuse_reply_err(request, 0);
        },
        errnoOfWrite);
}

void release(fuse_req_t request, fuse_ino_t /*node*/, fuse_file_info* info) {
    answer(request, [&](RequestContext& context) {
        context.files.release(info->fh);
        fuse_reply_err(request, 0);
    });
}

void synchronise(fuse_req_t request, fuse_ino_t /*node*/, int /*onlyData*/, fuse_file_info* info) {
    answer(
        request,
        [&](RequestContext& context) {
            context.files.store(info->fh);
            fuse_reply_err(request, 0);
        },
        errnoOfWrite);
}

void openFolder(fuse_req_t request, fuse_ino_t node, fuse_file_info* info) {
    answerInterruptibly(
        request, [&](RequestContext& context) { return context.files.openFolder(node); },
        [&](RequestContext& context, HandleId handle) {
            info->fh = handle;
            if (fuse_reply_open(request, info) == -ENOENT) {
                context.files.releaseFolder(handle);
            }
        });
}

std::size_t addPlain(fuse_req_t request, RequestContext& /*context*/, HandleId /*handle*/, std::uint64_t place,
                     const FileSystem::Listed& entry, char* buffer, std::size_t room) {
    struct stat status {};
    status.st_ino = entry.shown;
    status.st_mode = entry.isFolder ? S_IFDIR : S_IFREG;
    return fuse_add_direntry(request, buffer, room, entry.name.c_str(), &status, static_cast<off_t>(place + 1));
}

// With the attributes of each entry, whose node gets a reference only if there is room for it.
std::size_t addWithAttributes(fuse_req_t request, RequestContext& context, HandleId handle, std::uint64_t place,
                              const FileSystem::Listed& entry, char* buffer, std::size_t room) {
    fuse_entry_param param{};
    param.attr.st_ino = entry.shown;
    param.attr.st_mode = entry.isFolder ? S_IFDIR : S_IFREG;
    const auto next = static_cast<off_t>(place + 1);
    const auto needed = fuse_add_direntry_plus(request, nullptr, 0, entry.name.c_str(), &param, next);
    if (needed > room) {
        return needed;
    }
    if (const auto attributes = context.files.lookupListed(handle, place)) {
        param = toEntry(*attributes, context.options);
    }
    return fuse_add_direntry_plus(request, buffer, room, entry.name.c_str(), &param, next);
}

template <typename Add>
void list(fuse_req_t request, std::size_t size, off_t offset, fuse_file_info* info, Add add) {
    std::vector<char> buffer(size);
    answerInterruptibly(
        request,
        [&](RequestContext& context) {
            if (offset == 0) {
                context.files.rewind(info->fh);
            }
            std::size_t used = 0;
            for (auto place = static_cast<std::uint64_t>(offset);; ++place) {
                const auto entry = context.files.listed(info->fh, place);
                if (!entry) {
                    return used;
                }
                const auto room = size - used;
                std::size_t needed = 0;
                try {
                    needed = add(request, context, info->fh, place, *entry, buffer.data() + used, room);
                } catch (const std::exception&) {
                    if (used != 0) {
                        return used;  // what has references is answered; the next request meets the failure
                    }
                    throw;
                }
                if (needed > room) {
                    return used;
                }
                used += needed;
            }
        },
        [&](RequestContext& /*context*/, std::size_t used) { fuse_reply_buf(request, buffer.data(), used); });
}

void readFolder(fuse_req_t request, fuse_ino_t /*node*/, std::size_t size, off_t offset, fuse_file_info* info) {
    list(request, size, offset, info, addPlain);
}

void readFolderPlus(fuse_req_t request, fuse_ino_t /*node*/, std::size_t size, off_t offset, fuse_file_info* info) {
    list(request, size, offset, info, addWithAttributes);
}

void releaseFolder(fuse_req_t request, fuse_ino_t /*node*/, fuse_file_info* info) {
    contextOf(request).files.releaseFolder(info->fh);
    fuse_reply_err(request, 0);
}

// What is made or removed in a folder is in the store already.
void synchroniseFolder(fuse_req_t request, fuse_ino_t /*node*/, int /*onlyData*/, fuse_file_info* /*info*/) {
    fuse_reply_err(request, 0);
}

void statfs(fuse_req_t request, fuse_ino_t /*node*/) {
    struct statvfs status {};
    status.f_bsize = kBlockSize;
    status.f_frsize = kBlockSize;
    status.f_blocks = kBlocks;
    status.f_bfree = kBlocks;
    status.f_bavail = kBlocks;
    status.f_files = kFiles;
    status.f_ffree = kFiles;
    status.f_favail = kFiles;
    status.f_namemax = kLongestName;
    fuse_reply_statfs(request, &status);
}

fuse_lowlevel_ops makeOperations() {
    fuse_lowlevel_ops operations{};
    operations.init = init;
    operations.lookup = lookup;
    operations.forget = forget;
    operations.forget_multi = forgetMany;
    operations.getattr = getAttributes;
    operations.setattr = setAttributes;
    operations.mknod = makeNode;
    operations.mkdir = makeFolder;
    operations.unlink = removeFile;
    operations.rmdir = removeFolder;
    operations.symlink = makeSymbolicLink;
    operations.rename = rename;
    operations.link = makeLink;
    operations.open = open;
    operations.read = read;
    operations.write = write;
    operations.flush = flush;
    operations.release = release;
    operations.fsync = synchronise;
    operations.opendir = openFolder;
    operations.readdir = readFolder;
    operations.readdirplus = readFolderPlus;
    operations.releasedir = releaseFolder;
    operations.fsyncdir = synchroniseFolder;
    operations.statfs = statfs;
    operations.create = create;
    return operations;
}

}  // namespace

const fuse_lowlevel_ops& fuseOperations() {
    static const fuse_lowlevel_ops operations = makeOperations();
    return operations;
}

}  // namespace cloudfs::mount
