// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <storage/cloudprovider/CloudClient.hpp>
#include <storage/cloudprovider/testing/export.hpp>

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace storage::cloudprovider::test {

/// One call of a client's operation, as its caller made it. What an operation does not take is empty or 0.
struct Call {
    std::string operation{};        ///< "getObject", ...
    std::string key{};              ///< key, name or prefix; of copyObject the source's key
    std::string detail{};           ///< upload id, continuation token, last tag, or the key of copyObject's destination
    PartInfo part{};                ///< of uploadPart, copyPart and copyRange
    std::vector<PartInfo> parts{};  ///< of completeMultipartUpload, completeUploadOver and copyRun
    ListOptions options{};          ///< of listObjects
    std::uint64_t first = 0;        ///< of getObject and getRange: position of the first byte
    std::uint64_t last = 0;         ///< of getObject and getRange: position of the last byte
    std::uint64_t size = 0;         ///< of putObject and putObjectOver, in bytes; of deleteObjects the number of keys
    std::string version{};          ///< of getRange, copyRange, copyRun, copyObject and removeObject
    /// Of putObjectOver, completeUploadOver and copyObject: "anything", "absent" or a version.
    std::string expected{};
};

/// Holds the threads that reach it until the test lets them go, once and for all. Threads: any.
class CLOUDPROVIDER_TESTING_EXPORT Gate {
public:
    /// Wait until that many have arrived since the gate was made, held or not; false when they have not within a
    /// minute.
    [[nodiscard]] bool waitForArrivals(std::size_t count = 1);

    /// Let those held and all later ones pass. Again does nothing. A thread still held when the gate goes is an error
    /// of the test: open it first.
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
/// it, then fails if it is told to, and only then does its work. Gates and failures are looked up when the call begins:
/// what is placed later is for later calls.
///
/// A client is put under such control by deriving it from this class and passing each of its operations to perform.
///
/// Values   operations have the names of CloudClient's and ExtendedCloudClient's, such as "putObject".
/// Threads  any.
class CLOUDPROVIDER_TESTING_EXPORT CallControl {
public:
    /// When a call fails: before it has done anything, or after all of its work, so that only its answer is lost.
    enum class When { Before, After };
    /// How many calls fail: one, or that one and all such calls after it.
    enum class Repeat { Once, Forever };

    /// The calls since the last clearCalls, in the order of their beginning; those that failed or are held, too.
    std::vector<Call> calls() const;
    /// How many those are.
    std::size_t callCount() const { return calls().size(); }
    /// How many of those are of that operation.
    std::size_t count(const std::string& operation) const;
    /// Forget the calls so far. Failures to come and gates stay.
    void clearCalls();

    /// Let the nth call from now (1 is the next) fail, of whatever operation. Several of these count side by side.
    void failCall(std::size_t nth, When when = When::Before, Repeat repeat = Repeat::Once) {
        failOperation({}, nth, when, repeat);
    }
    /// Let the nth call from now of that operation fail.
    void failOperation(const std::string& operation, std::size_t nth = 1, When when = When::Before,
                       Repeat repeat = Repeat::Once);
    /// Forget the failures still to come. faultCount stays.
    void clearFaults();
    /// What a failing call throws: UnknownErrorException("injected fault") unless told otherwise. raise has to throw;
    /// it runs on the threads of the failing calls, which may be several at once.
    void setFault(std::function<void()> raise);
    /// Calls that failed so far by failCall and failOperation: a sweep is over when a run has met none.
    std::size_t faultCount() const;

    /// Hold the calls of an operation, for that key or, if key is empty, for any, from now on until the gate is opened.
    /// With several gates on it, a call passes one after the other. The gate lives as long as this object.
    Gate& gate(const std::string& operation, const std::string& key = {});

protected:
    CallControl();
    ~CallControl() = default;

    /// Run a call through all this.
    ///
    /// Values   action: what the call does; without arguments. No lock of this class is held meanwhile.
    /// Result   what action returns.
    /// Errors   what action throws, or setFault's.
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
