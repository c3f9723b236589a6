// SPDX-License-Identifier: Apache-2.0
#include "mount/UnsavedFiles.hpp"

#include "local/FileDescriptor.hpp"
#include "terminal/escapeText.hpp"
#include "terminal/failures.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <boost/filesystem/operations.hpp>

#include <cerrno>
#include <cstdlib>
#include <optional>
#include <utility>

namespace cloudfs::mount {

namespace {

// A file of this machine that is written from its beginning to its end. No interrupt ends that.
class LocalWriter {
public:
    explicit LocalWriter(std::string path)
        : m_path(std::move(path)),
          m_file(::open(m_path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR)) {
        if (m_file.get() < 0) {
            throwLocalFailure(m_path, errno);
        }
    }

    void write(std::string_view data) {
        while (!data.empty()) {
            const auto count = ::write(m_file.get(), data.data(), data.size());
            if (count < 0 && errno != EINTR) {
                throwLocalFailure(m_path, errno);
            }
            data.remove_prefix(count < 0 ? 0 : static_cast<std::size_t>(count));
        }
    }

    void close() {
        if (::fsync(m_file.get()) != 0) {
            throwLocalFailure(m_path, errno);
        }
        m_file.close(m_path);
    }

private:
    const std::string m_path;
    FileDescriptor m_file;
};

}  // namespace

UnsavedFiles::UnsavedFiles(std::string folder) : m_folder(std::move(folder)) {}

bool UnsavedFiles::keep(OpenFile& file) {
    std::string name;
    std::optional<LocalWriter> bytes;
    std::string list = "{\"path\": " + toJsonString(file.path().text());
    std::uint64_t begin = 0;
    std::uint64_t end = 0;
    std::string ranges;
    const auto endRange = [&] {
        if (end > begin) {
            ranges.append(ranges.empty() ? "" : ", ");
            ranges.append("{\"offset\": " + std::to_string(begin) + ", \"size\": " + std::to_string(end - begin) + '}');
        }
    };
    const bool isUnsaved = file.tellUnsaved(
        [&](std::uint64_t size, std::uint64_t kept) {
            makePlace();
            name = m_place + '/' + std::to_string(++m_count);
            bytes.emplace(name + ".bytes");
            list.append(", \"size\": " + std::to_string(size) +
                        ", \"keptOfStored\": " + (kept == UINT64_MAX ? "null" : std::to_string(kept)));
        },
        [&](std::uint64_t offset, std::string_view data) {
            bytes->write(data);
            if (offset != end) {
                endRange();
                begin = offset;
            }
            end = offset + data.size();
        });
    if (!isUnsaved) {
        return false;
    }
    endRange();
    bytes->close();
    LocalWriter index(name + ".json");
    index.write(list + ", \"ranges\": [" + ranges + "]}\n");
    index.close();
    return true;
}

void UnsavedFiles::makePlace() {
    if (!m_place.empty()) {
        return;
    }
    boost::system::error_code error;
    boost::filesystem::create_directories(m_folder, error);
    auto pattern = m_folder + "/unsaved-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) {
        throwLocalFailure(m_folder, errno);
    }
    m_place = pattern;
}

}  // namespace cloudfs::mount
