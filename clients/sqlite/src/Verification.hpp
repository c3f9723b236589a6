// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Connection.hpp"

#include <storage/cloudprovider/sqlite/storeMaintenance.hpp>

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>

namespace storage::cloudprovider::sqlite {

/// Reads what is stored and compares the checksums; each object in a transaction of its own, as it is then. Damage is
/// told to an observer, and what comes after it is read nevertheless. Threads: one at a time.
///
/// Errors   SQLite::Exception for what is no damage; whatever the observer throws.
class Verification {
public:
    /// observer has to outlive this.
    Verification(Connection& connection, const VerificationObserver& observer);

    /// Read the object of a key, if there is one.
    void readObject(const std::string& key);

    /// Read all objects whose keys begin so, and see that none is lost between them.
    void readObjects(const std::string& prefix);

    /// Read what was sent to uploads, and see that the tables belong together, and, when nothing is damaged, that
    /// all bytes belong to something.
    void readRest();

    const VerificationResult& result() const { return m_result; }

private:
    template <class Action>
    bool check(const std::string& key, const Action& action);
    void tellDamage(const std::string& key, const std::string& cause);
    std::optional<std::string> readNext(const std::string& start, const std::string& prefix);
    void readStored(const std::string& key);
    std::int64_t readNextUpload(std::int64_t after);
    void checkTables();
    void checkOwners();

    Connection& m_connection;
    const VerificationObserver& m_observer;
    VerificationResult m_result;
    bool m_isLastSound = true;  // the row of the object that was read last
};

}  // namespace storage::cloudprovider::sqlite
