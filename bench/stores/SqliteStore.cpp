#include <stdexcept>

#include "Store.h"
#include <sqlite3.h>

namespace Kivo::Bench {

namespace {

// A prepared statement, reset for its next use each time it is bound.
class Statement {
public:
    Statement(sqlite3* db, const char* sql) {
        if (sqlite3_prepare_v2(db, sql, -1, &m_statement, nullptr) != SQLITE_OK) {
            throw std::runtime_error(sqlite3_errmsg(db));
        }
    }
    ~Statement() { sqlite3_finalize(m_statement); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    Statement& bind(int column, const std::string& text) {
        sqlite3_bind_text(m_statement, column, text.data(), static_cast<int>(text.size()),
                          SQLITE_STATIC);
        return *this;
    }
    Statement& bind(int column, long number) {
        sqlite3_bind_int64(m_statement, column, number);
        return *this;
    }
    // Runs the statement to its end; the number of rows it gave.
    std::size_t run() {
        std::size_t rows = 0;
        while (sqlite3_step(m_statement) == SQLITE_ROW) ++rows;
        sqlite3_reset(m_statement);
        return rows;
    }

private:
    sqlite3_stmt* m_statement = nullptr;
};

sqlite3* openInMemory() {
    sqlite3* db = nullptr;
    if (sqlite3_open(":memory:", &db) != SQLITE_OK) throw std::runtime_error("sqlite3_open");
    const char* schema =
        "CREATE TABLE items(id TEXT PRIMARY KEY, name TEXT, uri TEXT, category TEXT,"
        " number INTEGER);"
        "CREATE INDEX items_name ON items(name);"
        "CREATE INDEX items_uri ON items(uri);"
        "CREATE INDEX items_category ON items(category);"
        "CREATE INDEX items_number ON items(number);";
    if (sqlite3_exec(db, schema, nullptr, nullptr, nullptr) != SQLITE_OK) {
        throw std::runtime_error(sqlite3_errmsg(db));
    }
    return db;
}

// Records as rows of one table in an in-memory database, an index per column.
class SqliteStore : public Store {
public:
    ~SqliteStore() override {
        m_insert.reset();
        m_delete.reset();
        m_update.reset();
        m_byName.reset();
        m_byPrefix.reset();
        m_byAnyValue.reset();
        sqlite3_close(m_db);
    }

    void add(const Record& r) override {
        m_insert->bind(1, r.id).bind(2, r.name).bind(3, r.uri).bind(4, r.category);
        m_insert->bind(5, r.number).run();
    }
    void remove(const Record& r) override { m_delete->bind(1, r.id).run(); }
    void writeCategory(const Record& r, const std::string& category) override {
        m_update->bind(1, category).bind(2, r.id).run();
    }
    std::size_t findName(const std::string& name) override { return m_byName->bind(1, name).run(); }
    std::size_t findNamePrefix(const std::string& prefix) override {
        return m_byPrefix->bind(1, prefix + "*").run();
    }
    std::size_t findAnyValue(const std::string& text) override {
        return m_byAnyValue->bind(1, text).run();
    }

private:
    sqlite3* m_db = openInMemory();
    std::unique_ptr<Statement> m_insert =
        make("INSERT INTO items(id, name, uri, category, number) VALUES(?1, ?2, ?3, ?4, ?5)");
    std::unique_ptr<Statement> m_delete = make("DELETE FROM items WHERE id = ?1");
    std::unique_ptr<Statement> m_update = make("UPDATE items SET category = ?1 WHERE id = ?2");
    std::unique_ptr<Statement> m_byName = make("SELECT rowid FROM items WHERE name = ?1");
    std::unique_ptr<Statement> m_byPrefix = make("SELECT rowid FROM items WHERE name GLOB ?1");
    std::unique_ptr<Statement> m_byAnyValue = make(
        "SELECT rowid FROM items WHERE id = ?1 OR name = ?1 OR uri = ?1 OR category = ?1"
        " OR number = ?1");

    std::unique_ptr<Statement> make(const char* sql) {
        return std::make_unique<Statement>(m_db, sql);
    }
};

}  // namespace

std::unique_ptr<Store> makeSqliteStore() { return std::make_unique<SqliteStore>(); }

}  // namespace Kivo::Bench
