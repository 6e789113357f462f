// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

#include "console/Database.h"

#include <sqlite3.h>

namespace command {

namespace {

constexpr int kBusyMs = 5000;

[[noreturn]] void failWith(sqlite3* aDatabase) {
    throw DatabaseError(sqlite3_extended_errcode(aDatabase), sqlite3_errmsg(aDatabase));
}

}  // namespace

bool DatabaseError::isDamage() const {
    const int lPrimary = mCode & 0xFF;
    return lPrimary == SQLITE_CORRUPT || lPrimary == SQLITE_NOTADB;
}

bool DatabaseError::isInterrupt() const {
    return (mCode & 0xFF) == SQLITE_INTERRUPT;
}

void Database::Closer::operator()(sqlite3* aDatabase) const {
    sqlite3_close_v2(aDatabase);
}

Database::Database(const std::string& aFile, bool aIsWriter) {
    const int lFlags =
        aIsWriter ? SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE : SQLITE_OPEN_READONLY;
    sqlite3* lDatabase = nullptr;
    const int lResult = sqlite3_open_v2(aFile.c_str(), &lDatabase, lFlags, nullptr);
    mDatabase.reset(lDatabase);
    if (lResult != SQLITE_OK) {
        throw DatabaseError(lResult, sqlite3_errstr(lResult));
    }
    sqlite3_busy_timeout(lDatabase, kBusyMs);
}

void Database::run(const std::string& aSql) const {
    if (sqlite3_exec(get(), aSql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
        failWith(get());
    }
}

std::int64_t Database::number(const std::string& aSql) const {
    Statement lStatement(*this, aSql);
    return lStatement.step() ? lStatement.number(0) : 0;
}

void Statement::Finalizer::operator()(sqlite3_stmt* aStatement) const {
    sqlite3_finalize(aStatement);
}

Statement::Statement(const Database& aDatabase, const std::string& aSql) {
    sqlite3_stmt* lStatement = nullptr;
    const int lSize = static_cast<int>(aSql.size());
    if (sqlite3_prepare_v2(aDatabase.get(), aSql.c_str(), lSize, &lStatement, nullptr) !=
        SQLITE_OK) {
        failWith(aDatabase.get());
    }
    mStatement.reset(lStatement);
}

void Statement::check(int aResult) const {
    if (aResult != SQLITE_OK) {
        failWith(sqlite3_db_handle(mStatement.get()));
    }
}

Statement& Statement::bind(int aIndex, std::int64_t aNumber) {
    check(sqlite3_bind_int64(mStatement.get(), aIndex, aNumber));
    return *this;
}

Statement& Statement::bind(int aIndex, std::uint64_t aNumber) {
    return bind(aIndex, static_cast<std::int64_t>(aNumber));
}

Statement& Statement::bind(int aIndex, double aNumber) {
    check(sqlite3_bind_double(mStatement.get(), aIndex, aNumber));
    return *this;
}

Statement& Statement::bind(int aIndex, std::string_view aText) {
    // Copied: the text may be gone when the statement runs. An empty one is no null.
    const char* const lText = aText.empty() ? "" : aText.data();
    check(sqlite3_bind_text(mStatement.get(), aIndex, lText, static_cast<int>(aText.size()),
                            SQLITE_TRANSIENT));
    return *this;
}

Statement& Statement::bindNull(int aIndex) {
    check(sqlite3_bind_null(mStatement.get(), aIndex));
    return *this;
}

bool Statement::step() {
    const int lResult = sqlite3_step(mStatement.get());
    if (lResult != SQLITE_ROW && lResult != SQLITE_DONE) {
        const std::string lWhat = sqlite3_errmsg(sqlite3_db_handle(mStatement.get()));
        sqlite3_reset(mStatement.get());
        throw DatabaseError(lResult, lWhat);
    }
    return lResult == SQLITE_ROW;
}

void Statement::finish() {
    while (step()) {
    }
    sqlite3_reset(mStatement.get());
}

std::int64_t Statement::number(int aColumn) const {
    return sqlite3_column_int64(mStatement.get(), aColumn);
}

std::optional<double> Statement::real(int aColumn) const {
    if (sqlite3_column_type(mStatement.get(), aColumn) == SQLITE_NULL) {
        return std::nullopt;
    }
    return sqlite3_column_double(mStatement.get(), aColumn);
}

std::string Statement::text(int aColumn) const {
    const auto* const lText = sqlite3_column_text(mStatement.get(), aColumn);
    const int lSize = sqlite3_column_bytes(mStatement.get(), aColumn);
    return lText == nullptr
               ? ""
               : std::string(reinterpret_cast<const char*>(lText), static_cast<std::size_t>(lSize));
}

Transaction::Transaction(const Database& aDatabase) : mDatabase(aDatabase) {
    mDatabase.run("BEGIN IMMEDIATE");
}

Transaction::~Transaction() {
    // A full disc may have undone it already.
    if (mIsOpen && sqlite3_get_autocommit(mDatabase.get()) == 0) {
        sqlite3_exec(mDatabase.get(), "ROLLBACK", nullptr, nullptr, nullptr);
    }
}

void Transaction::commit() {
    mDatabase.run("COMMIT");
    mIsOpen = false;
}

}  // namespace command
