#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace NimaPost {

/// Something that a database refuses, in words for people.
class DatabaseError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// A database of devices, doc/fleet.md. Everything that fails is thrown as a `DatabaseError`.
class Database {
  public:
    /// The version of the tables.
    static constexpr std::int64_t kVersion = 1;

    /// One that may be written to, and is made if there is none. Others may write to it meanwhile.
    static Database ForWriting(const std::string& path);
    static Database ForReading(const std::string& path);

    /// Makes it one plain file again, unless others have it open.
    void Settle();
    void Execute(const char* sql) const;
    std::int64_t LastId() const;

    [[noreturn]] void Fail(int code) const;
    sqlite3* Handle() const { return handle_.get(); }

  private:
    struct Closed {
        void operator()(sqlite3* handle) const;
    };

    Database(const std::string& path, int flags);
    /// Whether nothing has been written yet. Throws for what is no database of this version.
    bool IsNew() const;

    std::string path_;
    std::unique_ptr<sqlite3, Closed> handle_;
};

/// A statement, prepared once and run often.
class Statement {
  public:
    Statement(const Database& database, const char* sql);

    /// Runs it to its end with these values, which stand in the order of the statement's.
    template <class... Values>
    void Run(const Values&... values) {
        Start(values...);
        while (Next()) {
        }
    }
    /// The first column of its first row; empty where there is no row.
    template <class... Values>
    std::optional<std::int64_t> First(const Values&... values) {
        Start(values...);
        const auto number = Next() ? std::optional(Number(0)) : std::nullopt;
        Reset();
        return number;
    }
    /// For one whose rows are asked for with `Next`, to the last: until then it holds on to what the database
    /// was, and nothing can be written.
    template <class... Values>
    void Start(const Values&... values) {
        Reset();
        int place = 0;
        (Bind(++place, values), ...);
    }
    /// False after the last row.
    bool Next();

    std::int64_t Number(int column) const;
    /// Empty for null.
    std::optional<std::string> Text(int column) const;

  private:
    struct Finalized {
        void operator()(sqlite3_stmt* statement) const;
    };

    void Reset();
    void BindNull(int place);
    void Bind(int place, std::int64_t value);
    void Bind(int place, std::string_view text);
    void Bind(int place, const std::string& text) { Bind(place, std::string_view(text)); }
    template <class Value>
    void Bind(int place, const std::optional<Value>& value) {
        if (value) {
            Bind(place, *value);
        } else {
            BindNull(place);
        }
    }

    const Database* database_;
    std::unique_ptr<sqlite3_stmt, Finalized> statement_;
};

/// Everything or nothing. The writers of a database come one after the other.
class Transaction {
  public:
    explicit Transaction(const Database& database);
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;
    ~Transaction();

    void Commit();

  private:
    const Database& database_;
    bool open_ = true;
};

} // namespace NimaPost
