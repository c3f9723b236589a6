// SPDX-License-Identifier: Apache-2.0
#include <foundation/services/DiagnosticLogger.hpp>

#include <boost/log/attributes/attribute_set.hpp>
#include <boost/log/attributes/constant.hpp>
#include <boost/log/core/core.hpp>
#include <boost/log/core/record.hpp>

#include <map>
#include <memory>
#include <mutex>
#include <utility>

namespace foundation {

namespace {

thread_local unsigned int t_indent = 0;

}  // namespace

void DiagnosticLogger::Indentation::increase() noexcept {
    ++t_indent;
}

void DiagnosticLogger::Indentation::decrease() noexcept {
    if (t_indent > 0) {
        --t_indent;
    }
}

unsigned int DiagnosticLogger::Indentation::depth() noexcept {
    return t_indent;
}

DiagnosticLogger& DiagnosticLogger::get(const std::string& name) {
    // Never destroyed: destructors of static objects may still write records.
    static auto* const mutex = new std::mutex;  // guards loggers; a leaf in the lock order
    static auto* const loggers = new std::map<std::string, std::unique_ptr<DiagnosticLogger>>;
    const std::lock_guard lock(*mutex);
    auto& logger = (*loggers)[name];
    if (!logger) {
        logger.reset(new DiagnosticLogger(name));
    }
    return *logger;
}

DiagnosticLogger::DiagnosticLogger(std::string name) : m_name(std::move(name)) {}

void DiagnosticLogger::submit(std::uint32_t severity, std::string_view message) {
    namespace logging = boost::log;
    const auto core = logging::core::get();
    logging::attribute_set attributes;
    attributes.insert("Channel", logging::attributes::make_constant(m_name));
    attributes.insert("Severity", logging::attributes::make_constant(severity));
    attributes.insert("Indent", logging::attributes::make_constant(Indentation::depth()));
    attributes.insert("Message", logging::attributes::make_constant(std::string(message)));
    if (auto record = core->open_record(attributes)) {
        core->push_record(std::move(record));
    }
}

}  // namespace foundation
