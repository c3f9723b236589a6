// SPDX-License-Identifier: Apache-2.0
#include <foundation/services/DiagnosticLogger.hpp>
#include <foundation/threads/Mutex.hpp>

#include <boost/log/attributes/attribute_set.hpp>
#include <boost/log/attributes/constant.hpp>
#include <boost/log/core/core.hpp>
#include <boost/log/core/record.hpp>

#include <map>
#include <memory>
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
    struct Loggers {
        Mutex mutex;  // a leaf in the lock order
        std::map<std::string, std::unique_ptr<DiagnosticLogger>> byName CLOUDPROVIDER_GUARDED_BY(mutex);
    };
    static auto& loggers = *new Loggers;  // never destroyed: destructors of static objects may still write records
    const MutexLock lock(loggers.mutex);
    auto& logger = loggers.byName[name];
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
