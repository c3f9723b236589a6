// SPDX-License-Identifier: Apache-2.0
#include "commandline/CommandLine.hpp"

#include "commands/download.hpp"
#include "commands/maintenance.hpp"
#include "commands/namespaceChanges.hpp"
#include "commands/upload.hpp"
#include "terminal/TraceSink.hpp"
#include "terminal/escapeText.hpp"
#include "terminal/failures.hpp"

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <iostream>
#include <memory>
#include <string_view>
#include <utility>

namespace cloudfs {

namespace {

using storage::cloudprovider::FolderPolicy;

constexpr int kWrongUsage = 2;

// What the parser gives a flag without a value.
const char* const kFlagWithoutValue = "true";

const char* const kPathHelp = "A path in the store, such as /a/b.txt";
const char* const kRepetitionHelp =
    "Begins again, for up to a minute, when somebody else changes the file meanwhile.\n";
const char* const kLocalInHelp = "A local file, or - for standard input";

template <typename Number>
Number parseNumber(std::string_view text, int base, const std::string& what) {
    Number number{};
    const auto* const end = text.data() + text.size();
    const auto [at, error] = std::from_chars(text.data(), end, number, base);
    if (text.empty() || error != std::errc() || at != end || number < Number{}) {
        throw UsageError(what + ": " + std::string(text));
    }
    return number;
}

std::uint32_t parseMask(std::string_view text) {
    constexpr int kDecimal = 10;
    constexpr int kHexadecimal = 16;
    const auto beginning = text.substr(0, 2);
    const bool isHexadecimal = beginning == "0x" || beginning == "0X";
    return parseNumber<std::uint32_t>(isHexadecimal ? text.substr(2) : text, isHexadecimal ? kHexadecimal : kDecimal,
                                      "a trace mask is a number of 32 bits, such as 0x72, not");
}

std::int64_t parseOffset(std::string_view text) {
    constexpr int kDecimal = 10;
    return parseNumber<std::int64_t>(text, kDecimal, "an offset is a count of bytes below 2^63, not");
}

ReplacementPolicy toPolicy(bool mayReplace) {
    return mayReplace ? ReplacementPolicy::Replace : ReplacementPolicy::Fail;
}

}  // namespace

CommandLine::CommandLine() : m_app("Work with the files of an object store", "cloudfs") {
    m_app.require_subcommand(1);
    m_app.get_formatter()->label("REQUIRED", "");
    m_app.get_formatter()->label("TEXT", "");
    m_app.get_formatter()->label("SUBCOMMAND", "COMMAND");
    m_app.failure_message(
        [](const CLI::App* /*app*/, const CLI::Error& error) { return escapeText(error.what()) + kUsageHint; });
    m_app.footer(
        "cloudfs COMMAND --help tells more about a command.\n"
        "Exit status: 0 done, 1 the operation failed, 2 wrong usage, 128 + the signal when interrupted.\n"
        "Example: cloudfs --store sqlite:photos.db ls -l /2024");
    defineGlobalOptions();
    defineListing();
    defineReading();
    defineWriting();
    defineCreation();
    defineRemoval();
    defineMoving();
    defineUploads();
    defineMaintenance();
}

std::optional<int> CommandLine::parse(int argc, const char* const* argv) {
    try {
        m_app.parse(argc, argv);
        return std::nullopt;
    } catch (const CLI::RequiredError& error) {
        // The parser would say only that a command is missing.
        if (m_app.get_subcommands().empty() && !m_app.remaining().empty()) {
            throw UsageError("there is no such command or option: " + m_app.remaining().front());
        }
        m_app.exit(error);
        return kWrongUsage;
    } catch (const CLI::ExtrasError& error) {
        if (isSurplusOfPut()) {
            throw UsageError("put takes one local file, or with -r one folder, and a path in the store");
        }
        m_app.exit(error);
        return kWrongUsage;
    } catch (const CLI::ParseError& error) {
        return m_app.exit(error) == 0 ? 0 : kWrongUsage;
    }
}

// What a shell makes of "put *.jpg /".
bool CommandLine::isSurplusOfPut() const {
    const auto surplus = m_app.remaining(true);
    const auto isOption = [](const std::string& argument) { return argument.size() > 1 && argument.front() == '-'; };
    return m_app.got_subcommand("put") && std::none_of(surplus.begin(), surplus.end(), isOption);
}

void CommandLine::run() const {
    const Session session{StoreUrl::parse(m_store),
                          m_folderPolicy == "implicit" ? FolderPolicy::ImplicitFolders : FolderPolicy::MarkerObjects,
                          m_isVerbose ? std::make_shared<TrafficReport>() : nullptr};
    if (!m_traceMask.empty()) {
        startTrace(m_traceMask == kFlagWithoutValue ? kDefaultTraceMask : parseMask(m_traceMask));
    }
    // Also when the command fails: what it has cost is worth knowing then, too.
    const auto report = [](const TrafficReport* traffic) { std::cerr << traffic->text() << '\n'; };
    const std::unique_ptr<TrafficReport, decltype(report)> reported(session.traffic.get(), report);
    m_action(session, m_arguments);
}

CLI::App& CommandLine::define(const std::string& name, const std::string& description, const std::string& example,
                              Action action) {
    auto* const command = m_app.add_subcommand(name, description);
    command->group("Commands");
    command->fallthrough();
    command->footer("Example: " + example);
    command->callback([this, action = std::move(action)] { m_action = action; });
    return *command;
}

void CommandLine::defineGlobalOptions() {
    m_app.set_version_flag("--version", std::string(CLOUDFS_VERSION), "Print the version and exit");
    m_app.add_option("--store", m_store, "The store: sqlite:FILE or s3://BUCKET[/PREFIX]")
        ->envname("CLOUDFS_STORE")
        ->type_name("URL")
        ->capture_default_str();
    m_app
        .add_option("--folder-policy", m_folderPolicy,
                    "Keep folders as marker objects, or see them only in the names of files")
        ->check(CLI::IsMember({"markers", "implicit"}))
        ->capture_default_str();
    m_app.add_flag("-v,--verbose", m_isVerbose, "Tell the requests and bytes that the command took");
    m_app
        .add_flag("--trace", m_traceMask,
                  "Show the provider's diagnostic records on standard error; the mask, after \"=\", adds up\n"
                  "0x2 arguments, 0x10 caught exceptions, 0x20 entry and 0x40 exit of functions")
        ->type_name("[=MASK]");
}

void CommandLine::defineListing() {
    auto& ls = define("ls", "List a folder, one entry a line, folders with a / at the end", "cloudfs ls -l -R /photos",
                      [](const Session& session, const Arguments& arguments) { list(session, arguments.listing); });
    auto& request = m_arguments.listing;
    ls.add_flag("-l", request.isLong, "Show sizes and times, too");
    ls.add_flag("-R", request.isRecursive, "List everything below the folder");
    auto* const files = ls.add_flag("--files", request.onlyFiles, "Only files");
    ls.add_flag("--folders", request.onlyFolders, "Only folders")->excludes(files);
    ls.add_option("PATH", request.path, "The folder")->capture_default_str();

    auto& stat =
        define("stat", "Show kind, size and time of a file or folder", "cloudfs stat /photos/cat.jpg",
               [](const Session& session, const Arguments& arguments) { showStatus(session, arguments.path); });
    stat.add_option("PATH", m_arguments.path, kPathHelp)->required();
}

void CommandLine::defineReading() {
    auto& catCommand = define("cat", "Write a file to standard output", "cloudfs cat /notes/today.txt | less",
                              [](const Session& session, const Arguments& arguments) { cat(session, arguments.path); });
    catCommand.add_option("PATH", m_arguments.path, kPathHelp)->required();

    auto& getCommand =
        define("get", "Copy a file out of the store; an existing local file is replaced",
               "cloudfs get -r /photos/2024 backup", [](const Session& session, const Arguments& arguments) {
                   get(session, arguments.path, arguments.local, arguments.isRecursive);
               });
    getCommand.add_flag("-r", m_arguments.isRecursive, "Copy a folder with all it holds");
    getCommand.add_option("PATH", m_arguments.path, kPathHelp)->required();
    getCommand.add_option("LOCAL", m_arguments.local, "A local file or folder to copy to, or - for standard output")
        ->required();
}

void CommandLine::defineWriting() {
    auto& putCommand = define("put", "Copy a local file into the store; an existing file is replaced",
                              "cloudfs put -r photos /", [](const Session& session, const Arguments& arguments) {
                                  put(session, arguments.local, arguments.path, arguments.isRecursive);
                              });
    putCommand.add_flag("-r", m_arguments.isRecursive, "Copy a folder with all it holds");
    putCommand.add_option("LOCAL", m_arguments.local, kLocalInHelp)->required();
    putCommand.add_option("PATH", m_arguments.path, kPathHelp)->required();

    auto& appendCommand = define(
        "append", "Add bytes at the end of a file, which is made if absent", "date | cloudfs append - /log.txt",
        [](const Session& session, const Arguments& arguments) { append(session, arguments.local, arguments.path); });
    appendCommand.footer(kRepetitionHelp + appendCommand.get_footer());
    appendCommand.add_option("LOCAL", m_arguments.local, kLocalInHelp)->required();
    appendCommand.add_option("PATH", m_arguments.path, kPathHelp)->required();

    auto& writeCommand =
        define("write", "Overwrite bytes of an existing file in place and keep the rest",
               "cloudfs write --at 4096 patch.bin /disk.img", [](const Session& session, const Arguments& arguments) {
                   writeAt(session, parseOffset(arguments.offset), arguments.local, arguments.path);
               });
    writeCommand.footer(kRepetitionHelp + writeCommand.get_footer());
    writeCommand
        .add_option("--at", m_arguments.offset, "Where to begin, in bytes; what lies beyond the end reads as zeros")
        ->type_name("OFFSET")
        ->required();
    writeCommand.add_option("LOCAL", m_arguments.local, kLocalInHelp)->required();
    writeCommand.add_option("PATH", m_arguments.path, kPathHelp)->required();
}

void CommandLine::defineCreation() {
    auto& touchCommand =
        define("touch", "Create an empty file", "cloudfs touch /notes/empty.txt",
               [](const Session& session, const Arguments& arguments) { touch(session, arguments.path); });
    touchCommand.add_option("PATH", m_arguments.path, kPathHelp)->required();

    auto& mkdir = define("mkdir", "Create a folder", "cloudfs mkdir -p /a/b",
                         [](const Session& session, const Arguments& arguments) {
                             makeFolder(session, arguments.path, arguments.withParents);
                         });
    mkdir.add_flag("-p", m_arguments.withParents, "Create missing folders above it; an existing one is fine");
    mkdir.add_option("PATH", m_arguments.path, kPathHelp)->required();
}

void CommandLine::defineRemoval() {
    auto& rm = define("rm", "Remove a file", "cloudfs rm -r /photos/2023",
                      [](const Session& session, const Arguments& arguments) {
                          remove(session, arguments.path, arguments.isRecursive);
                      });
    rm.add_flag("-r", m_arguments.isRecursive, "Remove a folder with all it holds");
    rm.add_option("PATH", m_arguments.path, kPathHelp)->required();

    auto& rmdir =
        define("rmdir", "Remove an empty folder", "cloudfs rmdir /photos/empty",
               [](const Session& session, const Arguments& arguments) { removeFolder(session, arguments.path); });
    rmdir.add_option("PATH", m_arguments.path, kPathHelp)->required();
}

void CommandLine::defineMoving() {
    const auto addOperands = [this](CLI::App& command) {
        command.add_flag("--replace", m_arguments.mayReplace, "Replace an existing file");
        command.add_option("A", m_arguments.path, "The file in the store")->required();
        command.add_option("B", m_arguments.destination, "Its new path, or the folder to put it into")->required();
    };
    addOperands(define("mv", "Move a file", "cloudfs mv /draft.txt /notes/",
                       [](const Session& session, const Arguments& arguments) {
                           move(session, arguments.path, arguments.destination, toPolicy(arguments.mayReplace));
                       }));
    addOperands(define("cp", "Copy a file", "cloudfs cp --replace /notes/a.txt /notes/b.txt",
                       [](const Session& session, const Arguments& arguments) {
                           copy(session, arguments.path, arguments.destination, toPolicy(arguments.mayReplace));
                       }));
}

void CommandLine::defineUploads() {
    auto& uploads =
        define("uploads", "List uploads that were begun and never finished: size, time and file",
               "cloudfs uploads --abort --older-than 1d",
               [](const Session& session, const Arguments& arguments) { showUploads(session, arguments.uploads); });
    auto& request = m_arguments.uploads;
    uploads.add_flag("--abort", request.isAborting, "End them; somebody may still be at work on young ones");
    uploads.add_option("--older-than", request.olderThan, "Only those that are so old; a number and s, m, h or d")
        ->type_name("AGE");
    uploads.add_option("PATH", request.path, "Of that file, or of all files below that folder")->capture_default_str();
}

void CommandLine::defineMaintenance() {
    auto& verifyCommand =
        define("verify", "Read everything in an embedded store, and list what is damaged", "cloudfs verify /photos",
               [](const Session& session, const Arguments& arguments) { verify(session, arguments.folder); });
    verifyCommand.add_option("PATH", m_arguments.folder, "Only that file, or what is below that folder")
        ->capture_default_str();
    define("compact", "Give the room of what was removed from an embedded store back to the disk",
           "cloudfs compact --store sqlite:photos.db",
           [](const Session& session, const Arguments& /*arguments*/) { compact(session); });
    define("upgrade", "Convert an embedded store that an older version made", "cloudfs upgrade --store sqlite:old.db",
           [](const Session& session, const Arguments& /*arguments*/) { upgrade(session); });
}

}  // namespace cloudfs
