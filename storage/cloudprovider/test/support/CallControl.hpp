// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <storage/cloudprovider/CloudClient.hpp>

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <type_traits>
#include <vector>

namespace storage::cloudprovider::test {

/// One call of a client's operation, as its caller made it.
struct Call {
    std::string operation{};        ///< "getObject", ...
    std::string key{};              ///< key, name or prefix
    std::string detail{};           ///< upload id, continuation token or last tag
    PartInfo part{};                ///< of uploadPart, copyPart and copyRange
    std::vector<PartInfo> parts{};  ///< of completeMultipartUpload and completeUploadOver
    ListOptions options{};          ///< of listObjects
    std::uint64_t first = 0;        ///< of getObject and getRange
    std::uint64_t last = 0;         ///< of getObject and getRange
    std::uint64_t size = 0;         ///< of putObject and putObjectOver
    std::string version{};          ///< of getRange and copyRange
    std::string expected{};         ///< of putObjectOver and completeUploadOver: "anything", "absent" or a version
};

/// Holds the threads that reach it until the test lets them go. Threads: any.
class Gate {
public:
    /// Wait until that many have arrived; false when they have not within a minute.
    [[nodiscard]] bool waitForArrivals(std::size_t count = 1);

    /// Let those held and all later ones pass.
    void open();

    /// Arrive, and wait until it is open.
    void pass();

private:
    std::mutex m_mutex;  // guards what follows
    std::condition_variable m_changed;
    std::size_t m_arrivals = 0;
    bool m_isOpen = false;
};

/// What a test sees of a client's calls, and does to them: each is recorded, then held by the gates placed on
/// it, then fails if it is told to, and only then does its work. Threads: any.
class CallControl {
public:
    enum class When { Before, After };  ///< After: the call has done its work, and its answer is lost
    enum class Repeat { Once, Forever };

    /// The calls since the last clearCalls, in the order of their beginning.
    std::vector<Call> calls() const;
    std::size_t callCount() const { return calls().size(); }
    std::size_t count(const std::string& operation) const;
    void clearCalls();

    /// Let the nth call from now (1 is the next) fail, of whatever operation or of the named one; with
    /// Forever, all such calls behind it, too.
    void failCall(std::size_t nth, When when = When::Before, Repeat repeat = Repeat::Once) {
        failOperation({}, nth, when, repeat);
    }
    void failOperation(const std::string& operation, std::size_t nth = 1, When when = When::Before,
                       Repeat repeat = Repeat::Once);
    /// Forget the failures still to come.
    void clearFaults();
    /// What a failing call throws: UnknownErrorException("injected fault") unless told otherwise.
    void setFault(std::function<void()> raise);
    /// Failures so far: a sweep is over when a run has met none.
    std::size_t faultCount() const;

    /// Hold the calls of an operation, for that key or for any, from now on until the gate is opened. The
    /// gate lives as long as the client.
    Gate& gate(const std::string& operation, const std::string& key = {});

protected:
    CallControl();
    ~CallControl() = default;

    /// Run a call through all this; action is what it does, without any lock of this class held.
    template <typename Action>
    auto perform(Call call, Action action) {
        const Verdict verdict = admit(std::move(call));
        if (verdict.failsBefore) {
            raiseFault();
        }
        if constexpr (std::is_void_v<decltype(action())>) {
            action();
            if (verdict.failsAfter) {
                raiseFault();
            }
        } else {
            auto result = action();
            if (verdict.failsAfter) {
                raiseFault();
            }
            return result;
        }
    }

private:
    struct Fault {
        std::string operation;  // empty: any
        std::size_t callsLeft;  // 0: done
        When when;
        Repeat repeat;
    };
    struct PlacedGate {
        std::string operation;
        std::string key;  // empty: any
        Gate gate;
    };
    struct Verdict {
        bool failsBefore = false;
        bool failsAfter = false;
    };

    Verdict admit(Call call);
    Verdict judge(const std::string& operation);
    void raiseFault() const;

    mutable std::mutex m_controlMutex;  // guards all below; a gate locks itself
    std::vector<Call> m_calls;
    std::vector<Fault> m_faults;
    std::size_t m_faultCount = 0;
    std::function<void()> m_raise;
    std::deque<PlacedGate> m_gates;
};

}  // namespace storage::cloudprovider::test
