// SPDX-License-Identifier: Apache-2.0
#include <storage/cloudprovider/testing/CallControl.hpp>

#include <storage/cloudprovider/CloudException.hpp>

#include <algorithm>
#include <chrono>
#include <utility>

namespace storage::cloudprovider::test {

namespace {

constexpr std::chrono::minutes kArrivalLimit{1};  // only a broken test waits that long

}  // namespace

bool Gate::waitForArrivals(std::size_t count) {
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(lock, kArrivalLimit, [&] { return m_arrivals >= count; });
}

void Gate::open() {
    const std::lock_guard lock(m_mutex);
    m_isOpen = true;
    m_changed.notify_all();
}

void Gate::pass() {
    std::unique_lock lock(m_mutex);
    ++m_arrivals;
    m_changed.notify_all();
    m_changed.wait(lock, [&] { return m_isOpen; });
}

CallControl::CallControl()
    : m_raise([] { throw UnknownErrorException(foundation::storage::provider::ExceptionContext("injected fault")); }) {}

std::vector<Call> CallControl::calls() const {
    const std::lock_guard lock(m_controlMutex);
    return m_calls;
}

std::size_t CallControl::count(const std::string& operation) const {
    const std::lock_guard lock(m_controlMutex);
    const auto isOne = [&](const Call& call) { return call.operation == operation; };
    return static_cast<std::size_t>(std::count_if(m_calls.begin(), m_calls.end(), isOne));
}

void CallControl::clearCalls() {
    const std::lock_guard lock(m_controlMutex);
    m_calls.clear();
}

void CallControl::failOperation(const std::string& operation, std::size_t nth, When when, Repeat repeat) {
    const std::lock_guard lock(m_controlMutex);
    m_faults.push_back({operation, nth, when, repeat});
}

void CallControl::clearFaults() {
    const std::lock_guard lock(m_controlMutex);
    m_faults.clear();
}

void CallControl::setFault(std::function<void()> raise) {
    const std::lock_guard lock(m_controlMutex);
    m_raise = std::move(raise);
}

std::size_t CallControl::faultCount() const {
    const std::lock_guard lock(m_controlMutex);
    return m_faultCount;
}

Gate& CallControl::gate(const std::string& operation, const std::string& key) {
    const std::lock_guard lock(m_controlMutex);
    auto& placed = m_gates.emplace_back();
    placed.operation = operation;
    placed.key = key;
    return placed.gate;
}

CallControl::Verdict CallControl::admit(Call call) {
    std::unique_lock lock(m_controlMutex);
    const Verdict verdict = judge(call.operation);
    std::vector<Gate*> gates;
    for (auto& placed : m_gates) {
        if (placed.operation == call.operation && (placed.key.empty() || placed.key == call.key)) {
            gates.push_back(&placed.gate);
        }
    }
    m_calls.push_back(std::move(call));
    lock.unlock();
    for (Gate* const gate : gates) {
        gate->pass();
    }
    return verdict;
}

CallControl::Verdict CallControl::judge(const std::string& operation) {
    Verdict verdict;
    for (auto& fault : m_faults) {
        if (fault.callsLeft == 0 || (!fault.operation.empty() && fault.operation != operation)) {
            continue;
        }
        if (--fault.callsLeft == 0) {
            (fault.when == When::Before ? verdict.failsBefore : verdict.failsAfter) = true;
            fault.callsLeft = fault.repeat == Repeat::Forever ? 1 : 0;
        }
    }
    m_faultCount += verdict.failsBefore || verdict.failsAfter ? 1 : 0;
    return verdict;
}

void CallControl::raiseFault() const {
    std::unique_lock lock(m_controlMutex);
    const auto raise = m_raise;
    lock.unlock();
    raise();
}

}  // namespace storage::cloudprovider::test
