#include "tools/fleet/Database.h"

#include "tools/fleet/Schema.h"

#include <chrono>
#include <filesystem>
#include <system_error>
#include <thread>

#include <sqlite3.h>

namespace NimaPost {

namespace {

/// How long another writer is waited for.
constexpr int kPatienceMilliseconds = 10'000;
constexpr int kPaceMilliseconds = 20;
/// "Nima"
constexpr std::int64_t kApplication = 0x4E696D61;

constexpr const char* kWayOut = "; --db with another name begins a new one";

} // namespace

void Database::Closed::operator()(sqlite3* handle) const {
    sqlite3_close_v2(handle);
}

Database::Database(const std::string& path, int flags) : path_(path) {
    std::error_code error;
    if (path.empty() || std::filesystem::is_directory(path, error)) {
        throw DatabaseError(path.empty() ? "--db: no name" : path + ": a folder, no database");
    }
    sqlite3* handle = nullptr;
    // Some names, such as ":memory:", mean something else than a file when they stand alone.
    const std::string name = path.front() == '/' ? path : "./" + path;
    const int code = sqlite3_open_v2(name.c_str(), &handle, flags, nullptr);
    handle_.reset(handle);
    if (code != SQLITE_OK) {
        Fail(code);
    }
    sqlite3_extended_result_codes(handle, 0);
    sqlite3_busy_timeout(handle, kPatienceMilliseconds);
}

void Database::Fail(int code) const {
    switch (code & 0xFF) {
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
            throw DatabaseError(path_ + ": another program has kept it locked for " +
                                std::to_string(kPatienceMilliseconds / 1000) +
                                " seconds; call again when that one is done");
        case SQLITE_NOTADB:
            throw DatabaseError(path_ + ": no database" + kWayOut);
        case SQLITE_CORRUPT:
            throw DatabaseError(path_ + ": the database is damaged" + kWayOut);
        default:
            throw DatabaseError(path_ + ": " +
                                (handle_ ? sqlite3_errmsg(handle_.get()) : sqlite3_errstr(code)));
    }
}

void Database::Execute(const char* sql) const {
    const int code = sqlite3_exec(handle_.get(), sql, nullptr, nullptr, nullptr);
    if (code != SQLITE_OK) {
        Fail(code);
    }
}

std::int64_t Database::LastId() const {
    return sqlite3_last_insert_rowid(handle_.get());
}

bool Database::IsNew() const {
    // In one statement, since another may be making it right now.
    Statement state(*this,
                    "SELECT (SELECT count(*) FROM sqlite_master), "
                    "(SELECT application_id FROM pragma_application_id), "
                    "(SELECT user_version FROM pragma_user_version)");
    state.Start();
    state.Next();
    const bool isEmpty = state.Number(0) == 0;
    const std::int64_t application = state.Number(1);
    const std::int64_t version = state.Number(2);
    if (application == kApplication && version == kVersion) {
        return false;
    }
    if (application == kApplication) {
        throw DatabaseError(path_ + ": a database of version " + std::to_string(version) +
                            ", and this is nima-post for version " + std::to_string(kVersion) +
                            ": index the folders into a new one (--db with another name), or use the "
                            "nima-post that wrote it");
    }
    if (application != 0 || !isEmpty) {
        throw DatabaseError(path_ + ": a database of another program" + kWayOut);
    }
    return true;
}

Database Database::ForWriting(const std::string& path) {
    Database database(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
    if (database.IsNew()) {
        Transaction transaction(database);
        // Another may have been faster.
        if (database.IsNew()) {
            database.Execute(kSchema);
            database.Execute(("PRAGMA application_id = " + std::to_string(kApplication) +
                              ";PRAGMA user_version = " + std::to_string(kVersion))
                                 .c_str());
        }
        transaction.Commit();
    }
    // Transactions then cost no waiting for the disk. It is refused at once, not after a while, where others
    // are at work.
    for (int waited = 0;; waited += kPaceMilliseconds) {
        const int code =
            sqlite3_exec(database.Handle(), "PRAGMA journal_mode = WAL", nullptr, nullptr, nullptr);
        if (code == SQLITE_OK) {
            break;
        }
        if (code != SQLITE_BUSY || waited >= kPatienceMilliseconds) {
            database.Fail(code);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(kPaceMilliseconds));
    }
    database.Execute("PRAGMA synchronous = NORMAL");
    return database;
}

Database Database::ForReading(const std::string& path) {
    std::error_code error;
    if (!std::filesystem::exists(path, error)) {
        throw DatabaseError(path + ": there is no such database; nima-post index makes one");
    }
    Database database(path, SQLITE_OPEN_READONLY);
    if (database.IsNew()) {
        throw DatabaseError(path + ": nothing in it; nima-post index fills it");
    }
    // All of one moment, whoever writes meanwhile.
    database.Execute("BEGIN");
    return database;
}

void Database::Settle() {
    sqlite3_busy_timeout(handle_.get(), 0);
    // Where it is refused, the last one to close the database does what matters.
    sqlite3_exec(handle_.get(), "PRAGMA journal_mode = DELETE", nullptr, nullptr, nullptr);
}

void Statement::Finalized::operator()(sqlite3_stmt* statement) const {
    sqlite3_finalize(statement);
}

Statement::Statement(const Database& database, const char* sql) : database_(&database) {
    sqlite3_stmt* statement = nullptr;
    const int code = sqlite3_prepare_v2(database.Handle(), sql, -1, &statement, nullptr);
    statement_.reset(statement);
    if (code != SQLITE_OK) {
        database.Fail(code);
    }
}

bool Statement::Next() {
    const int code = sqlite3_step(statement_.get());
    if (code == SQLITE_ROW) {
        return true;
    }
    // A statement that is not reset holds locks.
    Reset();
    if (code != SQLITE_DONE) {
        database_->Fail(code);
    }
    return false;
}

void Statement::Reset() {
    sqlite3_reset(statement_.get());
}

void Statement::BindNull(int place) {
    sqlite3_bind_null(statement_.get(), place);
}

void Statement::Bind(int place, std::int64_t value) {
    sqlite3_bind_int64(statement_.get(), place, value);
}

void Statement::Bind(int place, std::string_view text) {
    sqlite3_bind_text64(statement_.get(), place, text.data() != nullptr ? text.data() : "", text.size(),
                        SQLITE_TRANSIENT, SQLITE_UTF8);
}

std::int64_t Statement::Number(int column) const {
    return sqlite3_column_int64(statement_.get(), column);
}

std::optional<std::string> Statement::Text(int column) const {
    const unsigned char* const text = sqlite3_column_text(statement_.get(), column);
    if (text == nullptr) {
        return std::nullopt;
    }
    return std::string(reinterpret_cast<const char*>(text),
                       static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column)));
}

Transaction::Transaction(const Database& database) : database_(database) {
    database_.Execute("BEGIN IMMEDIATE");
}

Transaction::~Transaction() {
    if (open_) {
        sqlite3_exec(database_.Handle(), "ROLLBACK", nullptr, nullptr, nullptr);
    }
}

void Transaction::Commit() {
    database_.Execute("COMMIT");
    open_ = false;
}

} // namespace NimaPost
