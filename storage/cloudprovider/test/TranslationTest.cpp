// SPDX-License-Identifier: Apache-2.0
#include "support/translateException.hpp"

#include <foundation/storage/provider/Exception.hpp>
#include <storage/cloudprovider/CloudException.hpp>

#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <stdexcept>
#include <string>

namespace storage::cloudprovider {

namespace {

using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::Exception;
using foundation::storage::provider::ExceptionContext;
using foundation::storage::provider::StorageIRI;

class ThrottledException : public ResourceInUseException {
public:
    using ResourceInUseException::ResourceInUseException;
};

template <typename Cause>
std::function<void()> throwing(const Cause& cause) {
    return [cause] { throw cause; };
}

TEST(TranslationTest, WhateverIsThrownBecomesTheHostsExceptionForTheOperation) {
    const ExceptionContext context("why");
    const Exception host(ErrorCode::AlreadyExists, StorageIRI(u"/other"));
    const auto recorded = std::make_exception_ptr(PermissionDeniedException(context));
    const struct {
        const char* name;
        std::function<void()> raise;
        int code;
        std::string message;
    } rows[] = {
        {"folder not empty", throwing(FolderNotEmptyException()), 0, "Cloud Folder was not empty"},
        {"location", throwing(InvalidLocationException(context)), 1, "why"},
        {"credentials", throwing(InvalidCredentialsException(context)), 2, "why"},
        {"permission", throwing(PermissionDeniedException(context)), 2, "why"},
        {"exists", throwing(ResourceAlreadyExistsException()), 3, "Cloud Resource already exists"},
        {"not found", throwing(ResourceNotFoundException()), 4, "Cloud Resource not found"},
        {"in use", throwing(ResourceInUseException()), 6, "Resource is in use"},
        {"a derived class", throwing(ThrottledException(context)), 6, "why"},
        {"unknown", throwing(UnknownErrorException(context)), 9, "why"},
        {"the base class", throwing(CloudException(context)), 9, "why"},
        {"unsupported", throwing(UnsupportedOperationException()), 11, "Unsupported Cloud operation"},
        {"standard", throwing(std::runtime_error("broken")), 9, "broken"},
        {"memory", throwing(std::bad_alloc()), 9, std::bad_alloc().what()},
        {"a number", throwing(42), 9, ""},
        {"recorded", throwing(recorded), 2, "why"},
        {"recorded twice", throwing(std::make_exception_ptr(recorded)), 2, "why"},
        {"recorded number", throwing(std::make_exception_ptr(42)), 9, ""},
        {"nothing recorded", throwing(std::exception_ptr()), 9, ""},
    };
    const StorageIRI iri(u"/a/b");
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        try {
            translatingErrors(iri, row.raise);
            ADD_FAILURE();
        } catch (const Exception& failure) {
            EXPECT_EQ(static_cast<int>(failure.getErrorCode()), row.code);
            EXPECT_EQ(failure.getIRI(), iri);
            EXPECT_EQ(failure.getContext().getMessage(), row.message);
        }
    }
    for (const auto& raise : {throwing(host), throwing(std::make_exception_ptr(host))}) {
        try {
            translatingErrors(iri, raise);
            ADD_FAILURE();
        } catch (const Exception& failure) {
            EXPECT_STREQ(failure.what(), host.what()) << "the host's own exceptions pass unchanged";
        }
    }
}

}  // namespace

}  // namespace storage::cloudprovider
