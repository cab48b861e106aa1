// What the store's operations know of registered tags.
//
// gTagInfo is a map that changes under gRigisterMutex, and no operation of the store waits for that mutex. So the
// address of each entry of the map is published in a table that is read without a lock: a slot that has an entry never
// loses it, and a table that is full is replaced whole by a larger one. Replaced tables and entries stay until the
// library is unloaded, since a reader may still use them. While there is no store, a program may change the map as it
// likes, so the table is not trusted then.
// tests/protocol/tag_table.pml is a model of this.

#ifndef PARAMSET_TAG_TABLE_H
#define PARAMSET_TAG_TABLE_H

#include <atomic>
#include <memory>
#include <optional>

#include "include/paramset.h"

namespace zarn {

constexpr int32_t kTagTypeStatic = 1;  // frame 0 only
constexpr int32_t kTagTypeQueue = 2;   // history trimmed to the retain number

// An entry of the map.
struct RegisteredTag {
    uint32_t id;
    const tag_info_t& info;
    // The creator that a C registration function made; null if the program brought its own. Owned here, so that its
    // address cannot be reused: hasLibraryCreator compares addresses.
    std::shared_ptr<creator_base_t> libraryCreator;

    bool hasLibraryCreator() const { return libraryCreator != nullptr && libraryCreator == info.mCreator; }
};

class TagTable {
public:
    // Whether the map has the tag; nullopt if the answer would have to wait for gRigisterMutex.
    static std::optional<bool> isRegistered(uint32_t id);
    // The map's creator of the tag; null if there is none.
    static std::shared_ptr<creator_base_t> creatorOf(uint32_t id);
    // Copies the map.
    static void copyTo(std::map<uint32_t, tag_info_t>& out);

    // gRigisterMutex held. Adds a tag to the map and publishes it. Returns whether it did: not after the library was
    // unloaded, and not if the map has the tag and it may not be replaced.
    static bool add(uint32_t id, tag_info_t&& info, bool hasLibraryCreator, bool mayReplace);

    // Called when the library is unloaded. After it nothing is registered; calls that still run can read on.
    static void end(bool callsStillRun);
    static bool hasEnded() { return sHasEnded.load(); }

private:
    friend class TagReader;

    // A hash table with open addressing. At most half of it is taken.
    struct Slots {
        explicit Slots(size_t tags);
        std::atomic<const RegisteredTag*>& of(uint32_t id) const;

        size_t mask;
        int shift;         // 32 minus the bits of the mask
        size_t count = 0;  // gRigisterMutex held
        std::unique_ptr<std::atomic<const RegisteredTag*>[]> slots;
    };
    struct Storage;
    class MapUse;
    class Reading;
    class RegistryTry;
    class EntryCopy;

    static const RegisteredTag* find(uint32_t id) {
        const Slots* slots = sSlots.load(std::memory_order_acquire);
        return slots != nullptr ? slots->of(id).load(std::memory_order_acquire) : nullptr;
    }

    // Returns false if the map cannot be read now.
    static bool copyMapTo(std::vector<EntryCopy>& out);
    static void copyPublishedTo(std::vector<EntryCopy>& out);

    // Whether a store that has read the map is still there. While it is, the map only grows, so the table stays right.
    static bool isTrusted() { return sReaders.load(std::memory_order_acquire) != 0; }

    static bool isMapReadable(bool isMutexHeld);

    // gRigisterMutex held, or the library is being unloaded.
    static Storage& storage();
    // gRigisterMutex held.
    static bool isMapPublished();
    // Makes an empty entry in the map. An earlier entry is taken out, but not freed: readers may still use it.
    static tag_info_t& newEntry(uint32_t id);
    static void publish(uint32_t id, const tag_info_t& info, bool hasLibraryCreator);
    static void rebuild();
    static void publishMissing();
    static void put(Slots& slots, const RegisteredTag& tag);

    static std::atomic<Slots*> sSlots;
    static std::atomic<int> sReaders;  // stores that have read the map
    static std::atomic<bool> sHasEnded;
};

// The table as one store reads it. It begins with what the map holds when the store is built.
class TagReader {
public:
    // If gRigisterMutex is held elsewhere, and no other store is still in use, the new store knows no tags at first.
    TagReader();
    ~TagReader();
    TagReader(const TagReader&) = delete;
    TagReader& operator=(const TagReader&) = delete;

    // Null if the map does not have the tag. Never waits: while gRigisterMutex is held elsewhere, it does not find what
    // a program itself put into the map.
    const RegisteredTag* find(uint32_t id) {
        const RegisteredTag* tag = TagTable::find(id);
        return tag != nullptr && TagTable::isTrusted() ? tag : lookUp(id);
    }

    // As find, but a tag that the map does not have gets an empty entry there. While gRigisterMutex is held elsewhere
    // the map stays as it is, and the empty entry that is returned is not in it.
    const tag_info_t& findOrInsert(uint32_t id);

private:
    [[gnu::cold]] const RegisteredTag* lookUp(uint32_t id);
    void readMap();  // gRigisterMutex held

    bool mHasRead = false;  // gRigisterMutex held
};

inline std::atomic<const RegisteredTag*>& TagTable::Slots::of(uint32_t id) const {
    constexpr uint32_t kSpread = 0x9E3779B1u;  // 2^32 divided by the golden ratio: spreads neighbouring ids
    for (size_t i = (id * kSpread) >> shift;; i = (i + 1) & mask) {
        std::atomic<const RegisteredTag*>& slot = slots[i];
        const RegisteredTag* tag = slot.load(std::memory_order_acquire);
        if (tag == nullptr || tag->id == id) return slot;
    }
}

}  // namespace zarn

#endif  // PARAMSET_TAG_TABLE_H
