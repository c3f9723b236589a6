// SPDX-License-Identifier: Apache-2.0
#include "Peer.hpp"

#include "soaking.hpp"

#include <spawn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <system_error>
#include <vector>

namespace soak {

namespace {

constexpr const char* kOption = "--peer";
constexpr int kArguments = 7;  // the program, the option and what describes a lap

}  // namespace

Peer::Peer(const Lap& lap) {
    std::vector<std::string> words = {"soak",
                                      kOption,
                                      lap.store,
                                      lap.sharedFolder,
                                      lap.ownFolder,
                                      std::to_string(lap.seed),
                                      std::to_string(lap.duration.count())};
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (auto& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    const int error = ::posix_spawn(&m_process, "/proc/self/exe", nullptr, nullptr, arguments.data(), environ);
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), "starting a second process");
    }
}

Peer::~Peer() {
    kill();
    if (m_process > 0) {
        ::waitpid(m_process, nullptr, 0);
    }
}

void Peer::kill() {
    if (m_process > 0 && !m_wasKilled) {
        m_wasKilled = true;
        ::kill(m_process, SIGKILL);
    }
}

void Peer::wait() {
    int status = 0;
    while (::waitpid(m_process, &status, 0) < 0 && errno == EINTR) {
    }
    m_process = -1;
    if (!m_wasKilled && status != 0) {
        throw Finding("the second process ended with the status " + std::to_string(status) + ", as told above");
    }
}

bool Peer::isMeant(int count, char** arguments) {
    return count == kArguments && std::strcmp(arguments[1], kOption) == 0;
}

int Peer::runAs(char** arguments) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);  // never outlives the first one
    std::signal(SIGINT, SIG_IGN);        // which decides what to do then
    Lap lap;
    lap.store = arguments[2];
    lap.sharedFolder = arguments[3];
    lap.ownFolder = arguments[4];
    lap.seed = std::strtoull(arguments[5], nullptr, 10);
    lap.duration = std::chrono::milliseconds(std::strtoll(arguments[6], nullptr, 10));
    try {
        run(lap);
        return EXIT_SUCCESS;
    } catch (const std::exception& failure) {
        std::cerr << "soak: the second process found: " << failure.what() << std::endl;
        return EXIT_FAILURE;
    }
}

}  // namespace soak
