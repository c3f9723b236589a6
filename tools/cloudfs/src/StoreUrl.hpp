// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace cloudfs {

/// Which store to use, as told on the command line. A plain value.
struct StoreUrl {
    /// The file of an embedded store.
    std::string file;

    /// Read "sqlite:FILE".
    ///
    /// Errors   UsageError for any other text, and for "s3://BUCKET[/PREFIX]" in a program built without it.
    static StoreUrl parse(const std::string& text);
};

}  // namespace cloudfs
