// SPDX-License-Identifier: Apache-2.0
#include "support/Trace.hpp"
#include "support/translateException.hpp"

#include <gtest/gtest.h>
#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/core/core.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/smart_ptr/make_shared.hpp>

#include <stdexcept>
#include <string>
#include <vector>

namespace storage::cloudprovider {

namespace {

namespace logging = boost::log;

// Keeps "indent severity message" of each record.
class Backend : public logging::sinks::basic_sink_backend<logging::sinks::synchronized_feeding> {
public:
    void consume(const logging::record_view& record) {
        const auto channel = logging::extract_or_throw<std::string>("Channel", record);
        EXPECT_EQ(channel, "storage::cloudprovider");
        std::ostringstream text;
        text << logging::extract_or_throw<unsigned int>("Indent", record) << std::hex << ' '
             << logging::extract_or_throw<std::uint32_t>("Severity", record) << ' '
             << logging::extract_or_throw<std::string>("Message", record);
        m_records.push_back(text.str());
    }

    std::vector<std::string> m_records;
};

class TraceTest : public ::testing::Test {
protected:
    TraceTest() { logging::core::get()->add_sink(m_sink); }
    ~TraceTest() override {
        trace::logger().setMask(0);
        logging::core::get()->remove_sink(m_sink);
    }

    boost::shared_ptr<Backend> m_backend = boost::make_shared<Backend>();
    boost::shared_ptr<logging::sinks::synchronous_sink<Backend>> m_sink =
        boost::make_shared<logging::sinks::synchronous_sink<Backend>>(m_backend);
};

void inner(bool fails) {
    CLOUDPROVIDER_TRACE_FUNCTION(" fails=", fails, " ratio=", 0.5, " size=", 255);
    if (fails) {
        throw std::runtime_error("broken");
    }
}

void outer(bool fails) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    try {
        inner(fails);
    } catch (...) {
        traceCaughtException();
        throw;
    }
}

// Whether each record begins and ends as expected.
void expectRecords(const std::vector<std::string>& records,
                   const std::vector<std::pair<std::string, std::string>>& expected) {
    ASSERT_EQ(records.size(), expected.size());
    for (std::size_t at = 0; at < records.size(); ++at) {
        const auto& [start, end] = expected[at];
        EXPECT_EQ(records[at].substr(0, start.size()), start);
        EXPECT_GE(records[at].size(), end.size());
        EXPECT_EQ(records[at].substr(records[at].size() - end.size()), end) << records[at];
    }
}

TEST_F(TraceTest, RecordsNestAndSayHowAFunctionWasLeft) {
    trace::logger().setMask(trace::kArguments | trace::kCaughtException | trace::kEntry | trace::kExit);
    outer(false);
    EXPECT_THROW(outer(true), std::runtime_error);
    const std::string arguments = " ratio=0.500000 size=255";
    expectRecords(m_backend->m_records, {{"0 20 void ", "]"},
                                         {"1 20 void ", "]"},
                                         {"2 2  fails=false", arguments},
                                         {"1 40 void ", "inner(bool)"},
                                         {"0 40 void ", "outer(bool)"},
                                         {"0 20 void ", "]"},
                                         {"1 20 void ", "]"},
                                         {"2 2  fails=true", arguments},
                                         {"1 40 void ", "inner(bool) [throw]"},
                                         {"1 10 Exception caught: ", "broken"},
                                         {"0 40 void ", "outer(bool) [throw]"}});
    EXPECT_NE(m_backend->m_records[0].find(" [storage/cloudprovider/test/TraceTest.cpp:"), std::string::npos);
}

TEST_F(TraceTest, SeveritiesAreChosenByTheMask) {
    trace::logger().setMask(trace::kArguments);
    outer(false);
    trace::logger().setMask(trace::kCaughtException);
    EXPECT_THROW(outer(true), std::runtime_error);
    try {
        throw 42;
    } catch (...) {
        traceCaughtException();
    }
    trace::logger().setMask(trace::kExit);  // a function that was not recorded at entry is not at exit
    outer(false);
    expectRecords(m_backend->m_records, {{"0 2  fails=false", ""},
                                         {"0 10 Exception caught: broken", ""},
                                         {"0 10 Exception caught: No diagnostic information available.", ""}});
}

struct Unprintable {};

std::ostream& operator<<(std::ostream& /*stream*/, const Unprintable& /*value*/) {
    throw std::runtime_error("unprintable");
}

TEST_F(TraceTest, FormattingHappensOnlyWhenWantedAndNeverFailsTheOperation) {
    int evaluations = 0;
    const auto piece = [&] { return ++evaluations; };
    CLOUDPROVIDER_TRACE_VALUES(" piece=", piece());
    EXPECT_EQ(evaluations, 0);
    trace::logger().setMask(trace::kArguments);
    CLOUDPROVIDER_TRACE_VALUES(" piece=", piece(), Unprintable());
    CLOUDPROVIDER_TRACE_VALUES(" piece=", piece());
    EXPECT_EQ(evaluations, 2);
    expectRecords(m_backend->m_records, {{"0 2  piece=2", ""}});
}

}  // namespace

}  // namespace storage::cloudprovider
