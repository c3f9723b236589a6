// SPDX-License-Identifier: Apache-2.0
#include "commandline/CommandLine.hpp"

#include "commandline/values.hpp"
#include "commands/append.hpp"
#include "commands/cat.hpp"
#include "commands/compact.hpp"
#include "commands/cp.hpp"
#include "commands/du.hpp"
#include "commands/get.hpp"
#include "commands/ls.hpp"
#include "commands/mkdir.hpp"
#include "commands/mv.hpp"
#include "commands/put.hpp"
#include "commands/rm.hpp"
#include "commands/rmdir.hpp"
#include "commands/stat.hpp"
#include "commands/sync.hpp"
#include "commands/touch.hpp"
#include "commands/upgrade.hpp"
#include "commands/uploads.hpp"
#include "commands/verify.hpp"
#include "commands/write.hpp"
#ifdef CLOUDFS_WITH_MOUNT
#include "commands/mount.hpp"
#endif
#include "local/temporaryFolder.hpp"
#include "store/Session.hpp"
#include "terminal/TraceSink.hpp"
#include "terminal/escapeText.hpp"
#include "terminal/failures.hpp"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <iostream>
#include <map>
#include <optional>
#include <sstream>
#include <string>

namespace cloudfs {

namespace {

using storage::cloudprovider::FolderPolicy;

constexpr int kWrongUsage = 2;

// What the parser gives a flag without a value.
const char* const kFlagWithoutValue = "true";

const char* const kPathHelp = "A path in the store, such as /a/b.txt";
const char* const kHumanHelp = "Show sizes short, in powers of 1024, such as 1.5K";
const char* const kJsonHelp = "Write a JSON document: an array, one entry a line";
const char* const kRepetitionHelp =
    "Begins again, for up to a minute, when somebody else changes the file meanwhile.\n";
const char* const kPathsHelp = "Paths in the store, which may be patterns such as '/logs/*.gz'";
const char* const kDryRunHelp = "Only tell what would be done";
const char* const kLocalInHelp = "A local file, or - for standard input";

// So many operands are more than the system passes on.
constexpr int kManyOperands = 1 << 20;

const std::map<std::string, Links> kLinks{{"skip", Links::Skip}, {"follow", Links::Follow}, {"error", Links::Fail}};

template <typename Request>
void addTransferOptions(CLI::App& app, Request& request) {
    constexpr std::size_t kUsual = 8;
    constexpr std::size_t kMost = 64;
    request.transfers = kUsual;
    app.add_option("--transfers", request.transfers, "How many files are copied at once")
        ->check(CLI::Range(std::size_t{1}, kMost))
        ->type_name("NUMBER")
        ->capture_default_str();
    app.add_flag("--dry-run", request.isDryRun, kDryRunHelp);
}

template <typename Request>
void addLinksOption(CLI::App& app, Request& request) {
    app.add_option("--links", request.links, "What to do about symbolic links in folders: skip, follow or error")
        ->transform(CLI::CheckedTransformer(kLinks).description(""))
        ->type_name("WHAT");
}

// Breaks a text at blanks; what has lines of its own keeps them.
std::string wrap(const std::string& text, std::size_t width) {
    std::string result;
    std::size_t lineBegin = 0;
    std::size_t lastBlank = std::string::npos;
    for (const char character : text) {
        if (character == ' ') {
            lastBlank = result.size();
        }
        result.push_back(character);
        if (character == '\n') {
            lineBegin = result.size();
            lastBlank = std::string::npos;
        } else if (result.size() - lineBegin > width && lastBlank != std::string::npos) {
            result[lastBlank] = '\n';
            lineBegin = lastBlank + 1;
            lastBlank = std::string::npos;
        }
    }
    return result;
}

// Help that fits a terminal of 80 columns. Behind an option's name stands only what its value is called: what the
// parser adds (what excludes what, defaults, variables) reads as if it belonged to the value.
class HelpFormat : public CLI::Formatter {
public:
    HelpFormat() {
        column_width(kNameWidth);
        label("TEXT", "");
        label("SUBCOMMAND", "COMMAND");
    }

    std::string make_option_opts(const CLI::Option* option) const override {
        const auto& text = option->get_option_text();
        if (!text.empty() || option->get_type_size() == 0) {
            return text;
        }
        return ' ' + get_label(option->get_type_name());
    }

    std::string make_option_desc(const CLI::Option* option) const override {
        return wrap(option->get_description(), kTextWidth);
    }

    std::string make_subcommand(const CLI::App* command) const override {
        std::ostringstream text;
        CLI::detail::format_help(text, command->get_name(), wrap(command->get_description(), kTextWidth), kNameWidth);
        return text.str();
    }

private:
    static constexpr std::size_t kNameWidth = 22;
    static constexpr std::size_t kTextWidth = 80 - kNameWidth;
};

// How sizes are shown, for people or for programs. human: the names of the flag for people.
template <typename Request>
void addFormat(CLI::App& app, const std::string& human, Request& request) {
    auto* const forPeople = app.add_flag_callback(
        human, [&style = request.sizeStyle] { style = SizeStyle::Short; }, kHumanHelp);
    app.add_flag("--json", request.isJson, kJsonHelp)->excludes(forPeople);
}

}  // namespace

// What the arguments may be, and what they ask for. Each command's request is filled in by the parser.
class CommandLine::Grammar {
public:
    Grammar();
    Grammar(const Grammar&) = delete;
    Grammar& operator=(const Grammar&) = delete;
    ~Grammar() = default;

    std::optional<int> parse(int argc, const char* const* argv);
    void run() const;

private:
    template <typename Request>
    using Command = void (*)(const Session&, const Request&);

    template <typename Request>
    struct Definition {
        CLI::App& app;
        Request& request;
    };

    template <typename Request>
    Definition<Request> define(Command<Request> command, const std::string& name, const std::string& description,
                               const std::string& example);
    std::string commandList() const;
    void applySettings() const;
    void defineGlobalOptions();
    void defineSizes();
    void defineLs();
    void defineStat();
    void defineDu();
    void defineCat();
    void defineGet();
    void definePut();
    void defineSync();
    void defineAppend();
    void defineWrite();
    void defineTouch();
    void defineMkdir();
    void defineRm();
    void defineRmdir();
    void defineMoving();
    void defineUploads();
    void defineVerify();
    void defineCompact();
    void defineUpgrade();
    void defineMount();

    CLI::App m_app;
    std::string m_store = "sqlite:cloudfs.db";
    std::string m_folderPolicy = "markers";
    std::optional<std::uint64_t> m_partSize;
    std::optional<std::uint64_t> m_cacheSize;
    std::optional<std::string> m_temporaryFolder;
    std::string m_traceMask;
    bool m_isVerbose = false;
    std::function<void(const Session&)> m_action;
};

CommandLine::Grammar::Grammar() : m_app("Work with the files of an object store", "cloudfs") {
    m_app.formatter(std::make_shared<HelpFormat>());
    m_app.require_subcommand(1);
    m_app.failure_message(
        [](const CLI::App* /*app*/, const CLI::Error& error) { return escapeText(error.what()) + kUsageHint; });
    m_app.footer(
        "cloudfs COMMAND --help tells more about a command.\n"
        "Exit status: 0 done, 1 the operation failed, 2 wrong usage, 128 + the signal\n"
        "when interrupted.\n"
        "Example: cloudfs --store sqlite:photos.db ls -l /2024");
    defineGlobalOptions();
    defineLs();
    defineStat();
    defineDu();
    defineCat();
    defineGet();
    definePut();
    defineSync();
    defineAppend();
    defineWrite();
    defineTouch();
    defineMkdir();
    defineRm();
    defineRmdir();
    defineMoving();
    defineUploads();
    defineVerify();
    defineCompact();
    defineUpgrade();
#ifdef CLOUDFS_WITH_MOUNT
    defineMount();
#endif
}

std::optional<int> CommandLine::Grammar::parse(int argc, const char* const* argv) {
    try {
        m_app.parse(argc, argv);
        return std::nullopt;
    } catch (const CLI::RequiredError& error) {
        // The parser would say only that a command is missing.
        if (m_app.get_subcommands().empty() && !m_app.remaining().empty()) {
            throw UsageError("there is no such command or option: " + m_app.remaining().front());
        }
        if (m_app.get_subcommands().empty()) {
            std::cerr << "Which command?" << commandList() << kUsageHint;
            return kWrongUsage;
        }
        m_app.exit(error);
        return kWrongUsage;
    } catch (const CLI::ExtrasError& error) {
        m_app.exit(error);
        return kWrongUsage;
    } catch (const CLI::ParseError& error) {
        return m_app.exit(error) == 0 ? 0 : kWrongUsage;
    }
}

// One a line, with what it does.
std::string CommandLine::Grammar::commandList() const {
    constexpr std::size_t kNameWidth = 10;
    std::string list;
    for (const auto* const command : m_app.get_subcommands({})) {
        auto name = command->get_name();
        name.resize(std::max(name.size() + 1, kNameWidth), ' ');
        list.append("\n  ").append(name).append(command->get_description());
    }
    return list;
}

void CommandLine::Grammar::applySettings() const {
    if (!m_partSize) {
        checkPartSizeVariable();
    }
    if (!m_cacheSize) {
        checkCacheSizeVariable();
    }
    if (m_temporaryFolder) {
        useTemporaryFolder(*m_temporaryFolder);
    }
}

void CommandLine::Grammar::run() const {
    applySettings();
    const Session session{StoreUrl::parse(m_store),
                          m_folderPolicy == "implicit" ? FolderPolicy::ImplicitFolders : FolderPolicy::MarkerObjects,
                          m_partSize, m_cacheSize, m_isVerbose ? std::make_shared<TrafficReport>() : nullptr};
    if (!m_traceMask.empty()) {
        startTrace(m_traceMask == kFlagWithoutValue ? kDefaultTraceMask : parseMask(m_traceMask));
    }
    // Also when the command fails: what it has cost is worth knowing then, too.
    const auto report = [](const TrafficReport* traffic) { std::cerr << traffic->text() << '\n'; };
    const std::unique_ptr<TrafficReport, decltype(report)> reported(session.traffic.get(), report);
    m_action(session);
}

template <typename Request>
CommandLine::Grammar::Definition<Request> CommandLine::Grammar::define(Command<Request> command,
                                                                       const std::string& name,
                                                                       const std::string& description,
                                                                       const std::string& example) {
    auto* const app = m_app.add_subcommand(name, description);
    app->group("Commands");
    app->fallthrough();
    app->footer("Example: " + example);
    const auto request = std::make_shared<Request>();
    app->callback([this, command, request] {
        m_action = [command, request](const Session& session) { command(session, *request); };
    });
    return {*app, *request};
}

void CommandLine::Grammar::defineGlobalOptions() {
    m_app.set_version_flag("--version", std::string(CLOUDFS_VERSION), "Print the version and exit");
    m_app
        .add_option("--store", m_store,
                    std::string("The store, ") + StoreUrl::forms() + "; $CLOUDFS_STORE, else sqlite:cloudfs.db")
        ->envname("CLOUDFS_STORE")
        ->type_name("URL");
    m_app
        .add_option("--folder-policy", m_folderPolicy,
                    "Keep folders as marker objects, the default, or see them only in the names of files")
        ->check(CLI::IsMember({"markers", "implicit"}))
        ->option_text(" markers|implicit");
    defineSizes();
    m_app.add_flag("-v,--verbose", m_isVerbose, "Tell the requests and bytes that the command took");
    m_app
        .add_flag("--trace", m_traceMask,
                  "Show the provider's diagnostic records on standard error; the mask, after \"=\", adds up "
                  "0x2 arguments, 0x10 caught exceptions, 0x20 entry and 0x40 exit of functions")
        ->type_name("[=MASK]");
}

void CommandLine::Grammar::defineSizes() {
    m_app
        .add_option_function<std::string>(
            "--part-size", [this](const std::string& text) { m_partSize = parsePartSize(text); },
            "Store files in parts of that size, such as 8M, at least 64K; else 5M")
        ->type_name("SIZE");
    m_app
        .add_option_function<std::string>(
            "--cache-size", [this](const std::string& text) { m_cacheSize = parseSize(text); },
            "Keep so much of what was read of an open file, such as 1G; else 100M")
        ->type_name("SIZE");
    m_app.add_option("--temp", m_temporaryFolder, "The folder for temporary files; else $TMPDIR, or /tmp")
        ->type_name("DIR");
}

void CommandLine::Grammar::defineLs() {
    auto [ls, request] = define(commands::ls, "ls", "List a folder, one entry a line, folders with a / at the end",
                                "cloudfs ls -l -R /photos");
    ls.set_help_flag("--help", "Print this help message and exit");  // -h means what it means to others' ls
    ls.add_flag("-l", request.isLong, "Show sizes and times, too");
    ls.add_flag("-R", request.isRecursive, "List everything below the folder");
    auto* const files = ls.add_flag("--files", request.onlyFiles, "Only files");
    ls.add_flag("--folders", request.onlyFolders, "Only folders")->excludes(files);
    addFormat(ls, "-h,--human", request);
    ls.add_option("PATH", request.path, "The folder, the root unless told otherwise; or a pattern of what to list");
}

void CommandLine::Grammar::defineStat() {
    auto [stat, request] =
        define(commands::stat, "stat", "Show kind, size and time of files and folders", "cloudfs stat /photos/cat.jpg");
    stat.add_flag("--json", request.isJson, kJsonHelp);
    stat.add_option("PATH", request.paths, kPathsHelp)->required();
}

void CommandLine::Grammar::defineDu() {
    auto [du, request] =
        define(commands::du, "du", "Show bytes and number of files of a folder and of each one directly in it",
               "cloudfs du --human /photos");
    addFormat(du, "--human", request);
    du.add_option("PATH", request.path, "The folder, or a file; the root unless told otherwise");
}

void CommandLine::Grammar::defineCat() {
    auto [cat, request] = define(commands::cat, "cat", "Write files, or a range of each, to standard output",
                                 "cloudfs cat /notes/today.txt | less");
    cat.add_option_function<std::string>(
           "--at", [&offset = request.range.offset](const std::string& text) { offset = parseOffset(text); },
           "Where to begin, in bytes; there is nothing beyond the end")
        ->type_name("OFFSET");
    cat.add_option_function<std::string>(
           "--size", [&size = request.range.size](const std::string& text) { size = parseOffset(text); },
           "How many bytes at most; else up to the end")
        ->type_name("SIZE");
    cat.add_option("PATH", request.paths, kPathsHelp)->required();
}

void CommandLine::Grammar::defineGet() {
    auto [get, request] = define(commands::get, "get", "Copy files out of the store; existing local files are replaced",
                                 "cloudfs get -r /photos/2024 backup");
    get.add_flag("-r", request.isRecursive, "Copy folders with all they hold");
    addTransferOptions(get, request);
    get.add_option("PATH", request.operands,
                   "Paths in the store, which may be patterns such as '/logs/*.gz'; last, after one or more of them,\n"
                   "the local file or folder to copy to, . unless told, or - for standard output")
        ->option_text("PATH... [LOCAL]")
        ->required();
}

void CommandLine::Grammar::definePut() {
    auto [put, request] = define(commands::put, "put", "Copy local files into the store; existing files are replaced",
                                 "cloudfs put -r photos /");
    put.add_flag("-r", request.isRecursive, "Copy folders with all they hold");
    addTransferOptions(put, request);
    addLinksOption(put, request);
    put.add_option("LOCAL", request.operands, "Local files, or - for standard input; last, the path in the store")
        ->option_text("LOCAL... PATH")
        ->required()
        ->expected(2, kManyOperands);
}

void CommandLine::Grammar::defineSync() {
    auto [sync, request] =
        define(commands::sync, "sync", "Make a folder hold what another one holds; only what has changed is copied",
               "cloudfs sync --delete photos store:/photos");
    sync.add_flag("--delete", request.deletes, "Remove what only B has, when all else has succeeded");
    sync.add_flag("--force", request.isForced, "Allow an empty A to remove everything in B");
    sync.add_flag("--checksum", request.comparesBytes, "Compare bytes instead of times; B is read for it");
    sync.add_option("--exclude", request.excluded,
                    "Leave out what has such a name, or such a path when it has a /; may be repeated")
        ->type_name("PATTERN")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    addTransferOptions(sync, request);
    addLinksOption(sync, request);
    sync.add_option("A", request.from, "A local folder, or a folder of the store such as store:/photos")->required();
    sync.add_option("B", request.to, "The other one")->required();
}

void CommandLine::Grammar::defineAppend() {
    auto [append, request] =
        define(commands::append, "append", "Add bytes at the end of a file, which is made if absent",
               "date | cloudfs append - /log.txt");
    append.footer(kRepetitionHelp + append.get_footer());
    append.add_option("LOCAL", request.local, kLocalInHelp)->required();
    append.add_option("PATH", request.path, kPathHelp)->required();
}

void CommandLine::Grammar::defineWrite() {
    auto [write, request] =
        define(commands::write, "write", "Overwrite bytes of an existing file in place and keep the rest",
               "cloudfs write --at 4096 patch.bin /disk.img");
    write.footer(kRepetitionHelp + write.get_footer());
    write
        .add_option_function<std::string>(
            "--at", [&offset = request.offset](const std::string& text) { offset = parseOffset(text); },
            "Where to begin, in bytes; what lies beyond the end reads as zeros")
        ->type_name("OFFSET")
        ->required();
    write.add_option("LOCAL", request.local, kLocalInHelp)->required();
    write.add_option("PATH", request.path, kPathHelp)->required();
}

void CommandLine::Grammar::defineTouch() {
    auto [touch, request] = define(commands::touch, "touch", "Create an empty file", "cloudfs touch /notes/empty.txt");
    touch.add_option("PATH", request.path, kPathHelp)->required();
}

void CommandLine::Grammar::defineMkdir() {
    auto [mkdir, request] = define(commands::mkdir, "mkdir", "Create a folder", "cloudfs mkdir -p /a/b");
    mkdir.add_flag("-p", request.withParents, "Create missing folders above it; an existing one is fine");
    mkdir.add_option("PATH", request.path, kPathHelp)->required();
}

void CommandLine::Grammar::defineRm() {
    auto [rm, request] = define(commands::rm, "rm", "Remove files", "cloudfs rm -r /photos/2023 '/logs/*.gz'");
    rm.add_flag("-r", request.isRecursive, "Remove folders with all they hold");
    rm.add_flag("-f,--force", request.isForced, "What is missing is fine; never ask");
    rm.add_flag("--dry-run", request.isDryRun, kDryRunHelp);
    rm.add_option("PATH", request.paths, kPathsHelp)->required();
}

void CommandLine::Grammar::defineRmdir() {
    auto [rmdir, request] = define(commands::rmdir, "rmdir", "Remove an empty folder", "cloudfs rmdir /photos/empty");
    rmdir.add_option("PATH", request.path, kPathHelp)->required();
}

void CommandLine::Grammar::defineMoving() {
    const auto addOperands = [](CLI::App& app, auto& request, const std::string& recursion) {
        app.add_flag("-r", request.isRecursive, recursion);
        app.add_flag("--replace", request.mayReplace, "Replace existing files");
        app.add_option("A", request.operands,
                       "Files and folders in the store, or patterns of them; last, the new path, or\nthe folder to put "
                       "them into, which several of them need")
            ->option_text("A... B")
            ->required()
            ->expected(2, kManyOperands);
    };
    const auto mv = define(commands::mv, "mv", "Move a file: store it at its new path, then remove it at the old one",
                           "cloudfs mv /draft.txt /notes/");
    addOperands(mv.app, mv.request, "Move a folder with all it holds");
    const auto cp = define(commands::cp, "cp", "Copy a file", "cloudfs cp --replace /notes/a.txt /notes/b.txt");
    addOperands(cp.app, cp.request, "Copy a folder with all it holds");
}

void CommandLine::Grammar::defineUploads() {
    auto [uploads, request] =
        define(commands::uploads, "uploads", "List uploads that were begun and never finished: size, time and file",
               "cloudfs uploads --abort --older-than 1d");
    uploads.add_flag("--abort", request.isAborting, "End them; somebody may still be at work on young ones");
    uploads
        .add_option_function<std::string>(
            "--older-than", [&olderThan = request.olderThan](const std::string& text) { olderThan = parseAge(text); },
            "Only those that are so old; a number and s, m, h or d")
        ->type_name("AGE");
    uploads.add_option("PATH", request.path,
                       "Of that file, or of all files below that folder; of all unless told otherwise");
}

void CommandLine::Grammar::defineVerify() {
    auto [verify, request] =
        define(commands::verify, "verify", "Read everything in an embedded store, and list what is damaged",
               "cloudfs verify /photos");
    verify.add_option("PATH", request.path, "Only that file, or what is below that folder; all unless told otherwise");
}

void CommandLine::Grammar::defineCompact() {
    define(commands::compact, "compact", "Give the room of what was removed from an embedded store back to the disk",
           "cloudfs compact --store sqlite:photos.db");
}

void CommandLine::Grammar::defineUpgrade() {
    define(commands::upgrade, "upgrade", "Convert an embedded store that an older version made",
           "cloudfs upgrade --store sqlite:old.db");
}

#ifdef CLOUDFS_WITH_MOUNT
void CommandLine::Grammar::defineMount() {
    auto [mount, request] =
        define(commands::mount, "mount", "Let programs use the store as a folder, until it is unmounted",
               "cloudfs --store s3://archive mount /mnt/archive");
    mount.footer("Unmount with fusermount3 -u MOUNTPOINT, or end the command by Ctrl-C.\n" + mount.get_footer());
    mount
        .add_option("-o", request.options, "ro: read only; allow_other: for other users, too; with a comma in between")
        ->type_name("OPTIONS")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    mount.add_flag("--allow-other", request.allowsOthers, "As -o allow_other; /etc/fuse.conf must allow it");
    mount.add_option("--umask", request.umask, "The modes that files and folders do not have, octal; else the shell's")
        ->type_name("MODE");
    mount.add_option("--uid", request.uid, "Whose they seem to be; else who mounts")->type_name("NUMBER");
    mount.add_option("--gid", request.gid, "Of which group they seem to be")->type_name("NUMBER");
    mount
        .add_option("--attr-timeout", request.attributesCount,
                    "For how many seconds listings and attributes count, 1 unless told")
        ->check(CLI::Validator(CLI::NonNegativeNumber).description(""))
        ->type_name("SECONDS");
    mount
        .add_option_function<std::string>(
            "--unmount-timeout",
            [&timeout = request.unmountTimeout](const std::string& text) { timeout = parseAge(text); },
            "How long unmounting tries to store what is not stored, 60s unless told; a number and s, m, h or d")
        ->type_name("TIME");
    mount
        .add_option("--unsaved", request.unsavedFolder,
                    "The folder for what could not be stored; else ~/.local/state/cloudfs/unsaved")
        ->type_name("DIR");
    mount.add_option("MOUNTPOINT", request.mountPoint, "An empty folder of this machine")->required();
}
#endif

CommandLine::CommandLine() : m_grammar(std::make_unique<Grammar>()) {}

CommandLine::~CommandLine() = default;

std::optional<int> CommandLine::parse(int argc, const char* const* argv) {
    return m_grammar->parse(argc, argv);
}

void CommandLine::run() const {
    m_grammar->run();
}

}  // namespace cloudfs
