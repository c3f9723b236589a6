// SPDX-License-Identifier: Apache-2.0
//
// fault_proxy PORT [OPTIONS]: a distant and unreliable line to the HTTP server on 127.0.0.1:PORT, see FaultProxy.
// Prints its own port, and what went through at each SIGUSR1 and when SIGINT or SIGTERM ends it.
#include "FaultProxy.hpp"

#include <CLI/CLI.hpp>

#include <csignal>
#include <iostream>

namespace {

using namespace storage::cloudprovider::s3::test;

void print(const FaultProxy::Counts& counts) {
    std::cout << "requests " << counts.requests << " up " << counts.bytesFromClient << " down " << counts.bytesToClient;
    for (const auto& [fault, count] : counts.faults) {
        if (count > 0) {
            std::cout << ' ' << kFaultNames.at(static_cast<std::size_t>(fault)) << ' ' << count;
        }
    }
    std::cout << std::endl;
}

void serve(const FaultProxyOptions& options, const sigset_t& signals) {
    const FaultProxy proxy(options);
    std::cout << "port " << proxy.port() << std::endl;
    int signal = SIGUSR1;
    while (signal == SIGUSR1) {
        sigwait(&signals, &signal);
        print(proxy.counts());
    }
}

}  // namespace

int main(int argc, char** argv) {
    FaultProxyOptions options;
    std::int64_t delay = 0;
    std::int64_t stall = options.stall.count();
    CLI::App app("A distant and unreliable line to an HTTP server on 127.0.0.1.");
    app.add_option("server-port", options.serverPort, "where the server listens")->required();
    app.add_option("--port", options.port, "to listen on; 0: a free one");
    app.add_option("--seed", options.seed, "decides what befalls which request");
    app.add_option("--delay", delay, "of each request, in milliseconds");
    app.add_option("--rate", options.bytesPerSecond, "of each connection, each way, in bytes a second");
    app.add_option("--stall-time", stall, "how long a stall takes, in milliseconds");
    for (std::size_t fault = 1; fault < kFaultNames.size(); ++fault) {
        app.add_option(std::string("--") + kFaultNames.at(fault), options.chances[static_cast<Fault>(fault)],
                       "chance of this fault, 0 to 1");
    }
    CLI11_PARSE(app, argc, argv);
    options.delay = std::chrono::milliseconds(delay);
    options.stall = std::chrono::milliseconds(stall);

    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGUSR1}) {
        sigaddset(&signals, signal);
    }
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);  // before there are threads: sigwait takes them
    try {
        serve(options, signals);
    } catch (const std::exception& failure) {
        std::cerr << "fault_proxy: " << failure.what() << '\n';
        return 1;
    }
    return 0;
}
