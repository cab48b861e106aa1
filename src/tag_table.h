// What the store's operations know of registered tags.
//
// gTagInfo is a map that changes under gRigisterMutex, and no operation of the store waits for that mutex. So the
// address of each entry of the map is published in a table that is read without a lock: a slot that has an entry never
// loses it, and a table that is full is replaced whole by a larger one. Replaced tables and entries stay until the
// library is unloaded, since a reader may still look at them.

#ifndef PARAMSET_TAG_TABLE_H
#define PARAMSET_TAG_TABLE_H

#include <atomic>
#include <memory>

#include "include/paramset.h"

namespace zarn {

// An entry of the map.
struct RegisteredTag {
    uint32_t id;
    const tag_info_t& info;
    // Made by a C registration function; null if a program brought its own. Shared, so that no other object can come to
    // have its address.
    std::shared_ptr<creator_base_t> libraryCreator;

    bool hasLibraryCreator() const { return libraryCreator != nullptr && libraryCreator == info.mCreator; }
};

class TagTable {
public:
    // Null if the map does not have the tag. Never waits: what a program put into the map by itself is not found while
    // gRigisterMutex is held elsewhere.
    static const RegisteredTag* find(uint32_t id) {
        const RegisteredTag* tag = findPublished(id);
        return tag != nullptr && !sIsStale.load(std::memory_order_relaxed) ? tag : findUnpublished(id);
    }

    // As find, but a tag that the map does not have gets an empty entry there. While gRigisterMutex is held elsewhere
    // the map stays as it is, and the empty entry that is returned is not in it.
    static const tag_info_t& findOrInsert(uint32_t id);

    // Whether the map has the tag.
    static bool isRegistered(uint32_t id);

    // Copies the map.
    static void copyTo(std::map<uint32_t, tag_info_t>& out);

    // A store is about to be built: begins with the map as it is, whatever a program did to it while there was none.
    static void restart();

    // gRigisterMutex held, and just taken: publishes what a program did to the map by itself.
    static void catchUp();

    // gRigisterMutex held. An entry of the map to be filled and published, in place of an earlier one.
    static tag_info_t& newEntry(uint32_t id);
    // gRigisterMutex held. Publishes an entry of the map.
    static void publish(uint32_t id, const tag_info_t& info, bool hasLibraryCreator);

    // The library is unloaded: nothing is registered any more. Calls that still run go on reading what was.
    static void end(bool callsStillRun);
    static bool hasEnded() { return sHasEnded.load(); }

private:
    // A hash table with open addressing. At most half of it is taken.
    struct Slots {
        explicit Slots(size_t tags);
        std::atomic<const RegisteredTag*>& of(uint32_t id) const;

        size_t mask;
        size_t count = 0;  // gRigisterMutex held
        std::unique_ptr<std::atomic<const RegisteredTag*>[]> slots;
    };
    struct Storage;

    static const RegisteredTag* findPublished(uint32_t id) {
        const Slots* slots = sSlots.load(std::memory_order_acquire);
        return slots != nullptr ? slots->of(id).load(std::memory_order_acquire) : nullptr;
    }
    [[gnu::cold]] static const RegisteredTag* findUnpublished(uint32_t id);

    // gRigisterMutex held.
    static bool isMapPublished();
    static void rebuild();
    static void put(Slots& slots, const RegisteredTag& tag);

    static std::atomic<Slots*> sSlots;
    static std::atomic<bool> sIsStale;  // the map may have changed at will since it was last compared
    static std::atomic<bool> sHasEnded;
    static Storage* sStorage;  // gRigisterMutex held
};

inline std::atomic<const RegisteredTag*>& TagTable::Slots::of(uint32_t id) const {
    constexpr uint32_t kSpread = 0x9E3779B1u;  // 2^32 by the golden ratio: neighbouring ids do not share a slot
    for (size_t i = (id * kSpread) >> 7;; ++i) {
        std::atomic<const RegisteredTag*>& slot = slots[i & mask];
        const RegisteredTag* tag = slot.load(std::memory_order_acquire);
        if (tag == nullptr || tag->id == id) return slot;
    }
}

}  // namespace zarn

#endif  // PARAMSET_TAG_TABLE_H
