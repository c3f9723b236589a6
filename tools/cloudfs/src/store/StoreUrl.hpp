// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace cloudfs {

/// Which store to use, as told on the command line. A plain value.
struct StoreUrl {
    /// The file of an embedded store; empty for a bucket.
    std::string file;
    /// The bucket of an S3-compatible store, and what its keys begin with: empty, or with a "/" at the end.
    std::string bucket;
    std::string prefix;

    /// Read "sqlite:FILE" or "s3://BUCKET[/PREFIX]".
    ///
    /// Errors   UsageError for any other text, and for a kind of store that the program is built without.
    static StoreUrl parse(const std::string& text);

    /// What parse reads in this build, for people.
    static const char* forms();

    bool isBucket() const { return !bucket.empty(); }

    /// How messages name the store: its file, or s3://BUCKET/PREFIX.
    std::string name() const;
};

}  // namespace cloudfs
