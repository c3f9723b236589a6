// SPDX-License-Identifier: Apache-2.0
#include "terminal/TraceSink.hpp"

#include "terminal/escapeText.hpp"

#include <foundation/services/DiagnosticLogger.hpp>

#include <boost/core/null_deleter.hpp>
#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/core/core.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/log/sinks/text_ostream_backend.hpp>
#include <boost/log/utility/formatting_ostream.hpp>
#include <boost/make_shared.hpp>

#include <iostream>
#include <string>

namespace cloudfs {

namespace {

namespace logging = boost::log;

constexpr std::size_t kSpacesPerLevel = 2;

void format(const logging::record_view& record, logging::formatting_ostream& stream) {
    const auto indent = logging::extract_or_default<unsigned int>("Indent", record, 0U);
    const auto message = logging::extract_or_default<std::string>("Message", record, std::string());
    stream << std::string(indent * kSpacesPerLevel, ' ') << escapeText(message);
}

}  // namespace

void startTrace(std::uint32_t mask) {
    using Backend = logging::sinks::text_ostream_backend;
    const auto backend = boost::make_shared<Backend>();
    backend->add_stream(boost::shared_ptr<std::ostream>(&std::cerr, boost::null_deleter()));
    backend->auto_flush(true);
    const auto sink = boost::make_shared<logging::sinks::synchronous_sink<Backend>>(backend);
    sink->set_formatter(&format);
    logging::core::get()->add_sink(sink);
    foundation::DiagnosticLogger::get("storage::cloudprovider").setMask(mask);
}

}  // namespace cloudfs
