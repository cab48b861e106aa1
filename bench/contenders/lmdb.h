// LMDB on a memory file system. Keys sort bytewise as (camera, pipe, tag, frame). A read renews its read transaction
// and moves a cursor to the key or the one before it. Each set is a transaction of its own, so that readers see it.

#ifndef PARAMSET_BENCH_LMDB_H
#define PARAMSET_BENCH_LMDB_H

#include <lmdb.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>

#include "bench/contender.h"

namespace bench {

class Lmdb {
public:
    static constexpr char kName[] = "LMDB";
    static constexpr Abilities kAbilities{"yes", "by erase", "no", "yes", "no"};

    Lmdb(uint32_t tags, uint32_t size) : mTags(tags), mSize(size) {
        char folder[] = "/dev/shm/paramset-bench-XXXXXX";
        if (mkdtemp(folder) == nullptr) check(errno);
        mFolder = folder;
        check(mdb_env_create(&mEnv));
        check(mdb_env_set_mapsize(mEnv, size_t{4} << 30));
        check(mdb_env_open(mEnv, folder, MDB_NOSYNC | MDB_WRITEMAP | MDB_NOTLS, 0600));
        MDB_txn* txn = nullptr;
        check(mdb_txn_begin(mEnv, nullptr, 0, &txn));
        check(mdb_dbi_open(txn, nullptr, 0, &mDb));
        check(mdb_txn_commit(txn));
        check(mdb_txn_begin(mEnv, nullptr, MDB_RDONLY, &mReader));
        check(mdb_cursor_open(mReader, mDb, &mCursor));
        mdb_txn_reset(mReader);
    }
    ~Lmdb() {
        mdb_cursor_close(mCursor);
        mdb_txn_abort(mReader);
        mdb_env_close(mEnv);
        for (const char* file : {"/data.mdb", "/lock.mdb"}) unlink((mFolder + file).c_str());
        rmdir(mFolder.c_str());
    }
    Lmdb(const Lmdb&) = delete;
    Lmdb& operator=(const Lmdb&) = delete;

    void set(uint32_t cam, uint32_t frame, uint32_t tag, const void* value) {
        Bytes bytes = bytesOf({cam, kPipe, tag, frame});
        MDB_val key{bytes.size(), bytes.data()};
        MDB_val data{mSize, const_cast<void*>(value)};
        MDB_txn* txn = nullptr;
        check(mdb_txn_begin(mEnv, nullptr, 0, &txn));
        check(mdb_put(txn, mDb, &key, &data, 0));
        check(mdb_txn_commit(txn));
    }
    bool get(uint32_t cam, uint32_t frame, uint32_t tag, void* value) {
        Bytes bytes = bytesOf({cam, kPipe, tag, frame});
        MDB_val key{bytes.size(), bytes.data()};
        MDB_val data{};
        const std::lock_guard<std::mutex> lock(mReaderMutex);
        check(mdb_txn_renew(mReader));
        check(mdb_cursor_renew(mReader, mCursor));
        int found = mdb_cursor_get(mCursor, &key, &data, MDB_SET_RANGE);
        if (found != 0 || std::memcmp(key.mv_data, bytes.data(), bytes.size()) != 0) {
            found = mdb_cursor_get(mCursor, &key, &data, found == 0 ? MDB_PREV : MDB_LAST);
        }
        const bool hit = found == 0 && std::memcmp(key.mv_data, bytes.data(), kPrefixBytes) == 0;
        if (hit) std::memcpy(value, data.mv_data, mSize);
        mdb_txn_reset(mReader);
        return hit;
    }
    void erase(uint32_t cam, uint32_t frame) {
        MDB_txn* txn = nullptr;
        check(mdb_txn_begin(mEnv, nullptr, 0, &txn));
        MDB_cursor* cursor = nullptr;
        check(mdb_cursor_open(txn, mDb, &cursor));
        for (uint32_t tag = 0; tag < mTags; ++tag) {
            Bytes from = bytesOf({cam, kPipe, tag, 0});
            const Bytes limit = bytesOf({cam, kPipe, tag, frame - kRetained});
            MDB_val key{from.size(), from.data()};
            MDB_val data{};
            int found = mdb_cursor_get(cursor, &key, &data, MDB_SET_RANGE);
            while (found == 0 && std::memcmp(key.mv_data, limit.data(), limit.size()) <= 0) {
                check(mdb_cursor_del(cursor, 0));
                found = mdb_cursor_get(cursor, &key, &data, MDB_GET_CURRENT);
            }
        }
        mdb_cursor_close(cursor);
        check(mdb_txn_commit(txn));
    }

private:
    using Bytes = std::array<unsigned char, 16>;
    static constexpr size_t kPrefixBytes = 12;

    static Bytes bytesOf(const Key& key) {
        Bytes bytes;
        const uint32_t parts[] = {__builtin_bswap32(key.cam), __builtin_bswap32(key.pipe), __builtin_bswap32(key.tag),
                                  __builtin_bswap32(key.frame)};
        std::memcpy(bytes.data(), parts, bytes.size());
        return bytes;
    }
    static void check(int code) {
        if (code == 0) return;
        std::fprintf(stderr, "LMDB: %s\n", mdb_strerror(code));
        std::exit(1);
    }

    const uint32_t mTags;
    const uint32_t mSize;
    std::string mFolder;
    MDB_env* mEnv = nullptr;
    MDB_dbi mDb = 0;
    std::mutex mReaderMutex;
    MDB_txn* mReader = nullptr;
    MDB_cursor* mCursor = nullptr;
};

}  // namespace bench

#endif  // PARAMSET_BENCH_LMDB_H
