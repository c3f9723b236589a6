// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <storage/cloudprovider/testing/CallControl.hpp>

#include <memory>
#include <string>

namespace storage::cloudprovider::test {

/// Holds the first thread that enters an operation of the library, found by a piece of its signature, at its
/// function-entry record: between two steps where no client is called. One at a time; the thread that makes it may be
/// held, too.
class TraceGate {
public:
    explicit TraceGate(const std::string& signature);
    TraceGate(const TraceGate&) = delete;
    TraceGate& operator=(const TraceGate&) = delete;
    ~TraceGate();

    [[nodiscard]] bool waitForArrival() { return m_gate->waitForArrivals(); }
    void open() { m_gate->open(); }

private:
    class Sink;

    const std::shared_ptr<Gate> m_gate = std::make_shared<Gate>();
    const std::unique_ptr<Sink> m_sink;
};

}  // namespace storage::cloudprovider::test
