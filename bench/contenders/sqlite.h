// SQLite in memory: one table with the key (camera, pipe, tag, frame), and prepared statements under a mutex; SQLite's
// own mutexes are switched off. A read selects the newest frame up to its own.

#ifndef PARAMSET_BENCH_SQLITE_H
#define PARAMSET_BENCH_SQLITE_H

#include <sqlite3.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "bench/contender.h"

namespace bench {

class Sqlite {
public:
    static constexpr char kName[] = "SQLite";
    static constexpr Abilities kAbilities{"yes", "by erase", "no", "yes", "no"};

    Sqlite(uint32_t tags, uint32_t size) : mTags(tags), mSize(size) {
        check(sqlite3_open_v2(":memory:", &mDb, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX,
                              nullptr));
        run("PRAGMA journal_mode = OFF; PRAGMA locking_mode = EXCLUSIVE;");
        run("CREATE TABLE v(cam INT, pipe INT, tag INT, frame INT, value BLOB, PRIMARY KEY(cam, pipe, tag, frame)) "
            "WITHOUT ROWID");
        mSet = prepare("INSERT INTO v VALUES(?1, ?2, ?3, ?4, ?5) ON CONFLICT DO UPDATE SET value = excluded.value");
        mGet = prepare(
            "SELECT value FROM v WHERE cam = ?1 AND pipe = ?2 AND tag = ?3 AND frame <= ?4 ORDER BY frame DESC LIMIT "
            "1");
        mErase = prepare("DELETE FROM v WHERE cam = ?1 AND pipe = ?2 AND tag = ?3 AND frame <= ?4");
    }
    ~Sqlite() {
        for (sqlite3_stmt* statement : {mSet, mGet, mErase}) sqlite3_finalize(statement);
        sqlite3_close(mDb);
    }
    Sqlite(const Sqlite&) = delete;
    Sqlite& operator=(const Sqlite&) = delete;

    void set(uint32_t cam, uint32_t frame, uint32_t tag, const void* value) {
        const std::lock_guard<std::mutex> lock(mMutex);
        bind(mSet, cam, tag, frame);
        sqlite3_bind_blob(mSet, 5, value, static_cast<int>(mSize), SQLITE_STATIC);
        sqlite3_step(mSet);
        check(sqlite3_reset(mSet));
    }
    bool get(uint32_t cam, uint32_t frame, uint32_t tag, void* value) {
        const std::lock_guard<std::mutex> lock(mMutex);
        bind(mGet, cam, tag, frame);
        const bool found = sqlite3_step(mGet) == SQLITE_ROW;
        if (found) std::memcpy(value, sqlite3_column_blob(mGet, 0), mSize);
        check(sqlite3_reset(mGet));
        return found;
    }
    void erase(uint32_t cam, uint32_t frame) {
        const std::lock_guard<std::mutex> lock(mMutex);
        run("BEGIN");
        for (uint32_t tag = 0; tag < mTags; ++tag) {
            bind(mErase, cam, tag, frame - kRetained);
            sqlite3_step(mErase);
            check(sqlite3_reset(mErase));
        }
        run("COMMIT");
    }

private:
    void check(int code) {
        if (code == SQLITE_OK) return;
        std::fprintf(stderr, "SQLite: %s\n", sqlite3_errmsg(mDb));
        std::exit(1);
    }
    void run(const char* text) { check(sqlite3_exec(mDb, text, nullptr, nullptr, nullptr)); }
    sqlite3_stmt* prepare(const char* text) {
        sqlite3_stmt* statement = nullptr;
        check(sqlite3_prepare_v3(mDb, text, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr));
        return statement;
    }
    static void bind(sqlite3_stmt* statement, uint32_t cam, uint32_t tag, uint32_t frame) {
        sqlite3_bind_int64(statement, 1, cam);
        sqlite3_bind_int64(statement, 2, kPipe);
        sqlite3_bind_int64(statement, 3, tag);
        sqlite3_bind_int64(statement, 4, frame);
    }

    const uint32_t mTags;
    const uint32_t mSize;
    std::mutex mMutex;  // only one thread at a time may use a statement
    sqlite3* mDb = nullptr;
    sqlite3_stmt* mSet = nullptr;
    sqlite3_stmt* mGet = nullptr;
    sqlite3_stmt* mErase = nullptr;
};

}  // namespace bench

#endif  // PARAMSET_BENCH_SQLITE_H
