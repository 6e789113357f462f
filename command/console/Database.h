// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// SQLite, with errors as exceptions.
#ifndef OSX_COMMAND_CONSOLE_DATABASE_H
#define OSX_COMMAND_CONSOLE_DATABASE_H

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace command {

class DatabaseError : public std::runtime_error {
public:
    DatabaseError(int aCode, const std::string& aWhat) : std::runtime_error(aWhat), mCode(aCode) {}
    /// @return whether the file is no database, or no sound one.
    bool isDamage() const;
    /// @return whether the call was interrupted.
    bool isInterrupt() const;

private:
    int mCode;
};

/// A connection to a file. One thread at a time uses it.
class Database {
public:
    /// @param aIsWriter makes the file if it is not there.
    Database(const std::string& aFile, bool aIsWriter);

    void run(const std::string& aSql) const;
    /// @return the number that a query has for an answer.
    std::int64_t number(const std::string& aSql) const;

    sqlite3* get() const { return mDatabase.get(); }

private:
    struct Closer {
        void operator()(sqlite3* aDatabase) const;
    };
    std::unique_ptr<sqlite3, Closer> mDatabase;
};

class Statement {
public:
    Statement(const Database& aDatabase, const std::string& aSql);

    /// Sets a parameter, from 1 on.
    Statement& bind(int aIndex, std::int64_t aNumber);
    Statement& bind(int aIndex, std::uint64_t aNumber);
    Statement& bind(int aIndex, double aNumber);
    Statement& bind(int aIndex, std::string_view aText);
    Statement& bindNull(int aIndex);

    /// @return whether there is a row.
    bool step();
    /// Runs to the end, and is ready for other parameters.
    void finish();

    /// A value of the row, from 0 on.
    std::int64_t number(int aColumn) const;
    std::optional<double> real(int aColumn) const;
    std::string text(int aColumn) const;

private:
    struct Finalizer {
        void operator()(sqlite3_stmt* aStatement) const;
    };
    void check(int aResult) const;

    std::unique_ptr<sqlite3_stmt, Finalizer> mStatement;
};

/// A transaction, which is undone unless it was committed.
class Transaction {
public:
    explicit Transaction(const Database& aDatabase);
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;
    void commit();

private:
    const Database& mDatabase;
    bool mIsOpen = true;
};

}  // namespace command

#endif
