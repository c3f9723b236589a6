// SPDX-License-Identifier: Apache-2.0
#include "TraceGate.hpp"

#include "support/Trace.hpp"

#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/core/core.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sinks/unlocked_frontend.hpp>
#include <boost/smart_ptr/make_shared.hpp>

#include <atomic>
#include <utility>

namespace storage::cloudprovider::test {

namespace {

namespace logging = boost::log;

class Backend : public logging::sinks::basic_sink_backend<logging::sinks::concurrent_feeding> {
public:
    Backend(std::shared_ptr<Gate> gate, std::string signature)
        : m_gate(std::move(gate)), m_signature(std::move(signature)) {}

    void consume(const logging::record_view& record) {
        const auto message = logging::extract_or_default<std::string>("Message", record, std::string());
        if (message.find(m_signature) != std::string::npos && !m_hasHeld.exchange(true)) {
            m_gate->pass();
        }
    }

private:
    const std::shared_ptr<Gate> m_gate;
    const std::string m_signature;
    std::atomic<bool> m_hasHeld{false};
};

using Frontend = logging::sinks::unlocked_sink<Backend>;

}  // namespace

class TraceGate::Sink {
public:
    Sink(const std::shared_ptr<Gate>& gate, const std::string& signature)
        : m_frontend(boost::make_shared<Frontend>(boost::make_shared<Backend>(gate, signature))) {
        logging::core::get()->add_sink(m_frontend);
        trace::logger().setMask(trace::kEntry);
    }
    Sink(const Sink&) = delete;
    Sink& operator=(const Sink&) = delete;
    ~Sink() {
        trace::logger().setMask(0);
        logging::core::get()->remove_sink(m_frontend);
    }

private:
    const boost::shared_ptr<Frontend> m_frontend;
};

TraceGate::TraceGate(const std::string& signature) : m_sink(std::make_unique<Sink>(m_gate, signature)) {}

TraceGate::~TraceGate() {
    open();
}

}  // namespace storage::cloudprovider::test
