// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/storage/provider/IProvider.hpp>
#include <storage/cloudprovider/CloudClient.hpp>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

/// What scripts that measure have no other program for: work on local files and those of a provider, whose time the
/// script takes. All throw std::runtime_error when less was done than asked.
namespace bench {

/// A provider with the options of cloudfs, but for the number of threads.
std::shared_ptr<foundation::storage::provider::IProvider> makeToolProvider(
    std::shared_ptr<storage::cloudprovider::CloudClient> client, std::uint32_t threads);

/// Copy a local file into the store.
void upload(const foundation::storage::provider::IProvider& store, const std::string& local, const std::string& path);

/// Copy a file out of the store.
void download(const foundation::storage::provider::IProvider& store, const std::string& path, const std::string& local);

/// Call with each number below count, on so many threads. The first failure comes out; the others then end early.
void forEach(std::uint32_t threads, std::size_t count, const std::function<void(std::size_t)>& call);

/// Read 4 KiB at a hundred random places of a file.
void readRandomly(const foundation::storage::provider::IProvider& store, const std::string& path);

/// The same of a local file.
void readLocalRandomly(const std::string& local);

}  // namespace bench
