// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "commands/listing.hpp"
#include "commands/uploads.hpp"
#include "store/Session.hpp"

#include <CLI/App.hpp>

#include <functional>
#include <optional>
#include <string>

namespace cloudfs {

/// Reads the program's arguments: parse once, then run.
class CommandLine {
public:
    CommandLine();
    CommandLine(const CommandLine&) = delete;
    CommandLine& operator=(const CommandLine&) = delete;

    /// Read the arguments. What is wrong with them, and help that was asked for, is shown at once.
    ///
    /// Result   the exit status when there is nothing to run.
    /// Errors   UsageError.
    std::optional<int> parse(int argc, const char* const* argv);

    /// Do what was asked for. Errors: see main.cpp.
    void run() const;

private:
    // The arguments of all commands; each uses some of them.
    struct Arguments {
        ListRequest listing;
        UploadsRequest uploads;
        std::string local;
        std::string path;
        std::string folder = "/";
        std::string destination;
        std::string offset;
        bool isRecursive = false;
        bool withParents = false;
        bool mayReplace = false;
    };

    using Action = std::function<void(const Session&, const Arguments&)>;

    CLI::App& define(const std::string& name, const std::string& description, const std::string& example,
                     Action action);
    bool isSurplusOfPut() const;
    void defineGlobalOptions();
    void defineListing();
    void defineReading();
    void defineWriting();
    void defineCreation();
    void defineRemoval();
    void defineMoving();
    void defineUploads();
    void defineMaintenance();

    CLI::App m_app;
    std::string m_store = "sqlite:cloudfs.db";
    std::string m_folderPolicy = "markers";
    std::string m_traceMask;
    bool m_isVerbose = false;
    Arguments m_arguments;
    Action m_action;
};

}  // namespace cloudfs
