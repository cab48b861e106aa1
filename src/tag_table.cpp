// Publishing the registry. Registrations wait for gRigisterMutex; everybody else only tries it.

#include "src/tag_table.h"

#include <pthread.h>

#include <deque>
#include <thread>

namespace zarn {

namespace {

constexpr size_t kFewestSlots = 64;
constexpr int kTriesInOperation = 8;  // the store's mutex is held meanwhile
constexpr int kTriesOutside = 1000;
constexpr int kTriesAtEnd = 100000;

// Its holder may be this very thread: POSIX lets a thread try a mutex that it holds, which std::mutex::try_lock does
// not.
bool tryRegisterMutex(int tries) {
    for (; tries > 0; --tries) {
        if (pthread_mutex_trylock(gRigisterMutex.native_handle()) == 0) return true;
        std::this_thread::yield();
    }
    return false;
}

// gRigisterMutex, if it can be had without waiting, and the library has not been unloaded.
class RegistryTry {
public:
    explicit RegistryTry(int tries) : mIsHeld(!TagTable::hasEnded() && tryRegisterMutex(tries)) {
        if (mIsHeld) TagTable::catchUp();
    }
    ~RegistryTry() {
        if (mIsHeld) gRigisterMutex.unlock();
    }
    RegistryTry(const RegistryTry&) = delete;
    RegistryTry& operator=(const RegistryTry&) = delete;

    explicit operator bool() const { return mIsHeld; }

private:
    const bool mIsHeld;
};

}  // namespace

// All that a reader may still look at.
struct TagTable::Storage {
    std::deque<RegisteredTag> tags;
    std::deque<Slots> tables;
    std::deque<std::map<uint32_t, tag_info_t>::node_type> replaced;  // entries of the map
    std::map<uint32_t, tag_info_t> kept;
};

std::atomic<TagTable::Slots*> TagTable::sSlots{nullptr};
std::atomic<bool> TagTable::sIsStale{true};
std::atomic<bool> TagTable::sHasEnded{false};
TagTable::Storage* TagTable::sStorage = nullptr;

TagTable::Slots::Slots(size_t tags) {
    size_t length = kFewestSlots;
    while (length < 4 * tags) length *= 2;
    mask = length - 1;
    slots = std::make_unique<std::atomic<const RegisteredTag*>[]>(length);
}

const RegisteredTag* TagTable::findUnpublished(uint32_t id) {
    const RegistryTry registry(kTriesInOperation);
    return findPublished(id);
}

const tag_info_t& TagTable::findOrInsert(uint32_t id) {
    if (const RegisteredTag* tag = find(id)) return tag->info;
    if (const RegistryTry registry{kTriesInOperation}) {
        const tag_info_t& info = gTagInfo[id];
        if (findPublished(id) == nullptr) publish(id, info, false);
        return info;
    }
    static const tag_info_t& sEmpty = *new tag_info_t;
    return sEmpty;
}

bool TagTable::isRegistered(uint32_t id) {
    if (const RegistryTry registry{kTriesOutside}) return gTagInfo.count(id) != 0;
    return findPublished(id) != nullptr;
}

void TagTable::copyTo(std::map<uint32_t, tag_info_t>& out) {
    if (&out == &gTagInfo) return;
    if (const RegistryTry registry{kTriesOutside}) {
        out = gTagInfo;
        return;
    }
    out.clear();
    const Slots* slots = sSlots.load(std::memory_order_acquire);
    for (size_t i = 0; slots != nullptr && i <= slots->mask; ++i) {
        if (const RegisteredTag* tag = slots->slots[i].load(std::memory_order_acquire)) out[tag->id] = tag->info;
    }
}

void TagTable::restart() {
    sIsStale.store(true, std::memory_order_relaxed);
    const RegistryTry registry(kTriesOutside);
}

void TagTable::catchUp() {
    if (sIsStale.exchange(false, std::memory_order_relaxed)) {
        if (!isMapPublished()) rebuild();
        return;
    }
    if (sSlots.load(std::memory_order_relaxed)->count < gTagInfo.size()) {
        for (const auto& [id, info] : gTagInfo) {
            if (findPublished(id) == nullptr) publish(id, info, false);
        }
    }
    if (sSlots.load(std::memory_order_relaxed)->count != gTagInfo.size()) rebuild();
}

bool TagTable::isMapPublished() {
    const Slots* slots = sSlots.load(std::memory_order_relaxed);
    if (slots == nullptr || slots->count != gTagInfo.size()) return false;
    for (const auto& [id, info] : gTagInfo) {
        const RegisteredTag* tag = findPublished(id);
        if (tag == nullptr || &tag->info != &info) return false;
    }
    return true;
}

tag_info_t& TagTable::newEntry(uint32_t id) {
    const auto it = gTagInfo.find(id);
    if (it != gTagInfo.end()) sStorage->replaced.push_back(gTagInfo.extract(it));
    return gTagInfo[id];
}

void TagTable::publish(uint32_t id, const tag_info_t& info, bool hasLibraryCreator) {
    Slots& slots = *sSlots.load(std::memory_order_relaxed);
    std::shared_ptr<creator_base_t> libraryCreator = hasLibraryCreator ? info.mCreator : nullptr;
    put(slots, sStorage->tags.emplace_back(RegisteredTag{id, info, std::move(libraryCreator)}));
    if (2 * slots.count > slots.mask) rebuild();
}

// A table of what the map has, and nothing else.
void TagTable::rebuild() {
    if (sStorage == nullptr) sStorage = new Storage;
    Slots& slots = sStorage->tables.emplace_back(gTagInfo.size());
    for (const auto& [id, info] : gTagInfo) {
        const RegisteredTag* tag = findPublished(id);
        if (tag == nullptr || &tag->info != &info) {
            tag = &sStorage->tags.emplace_back(RegisteredTag{id, info, nullptr});
        }
        put(slots, *tag);
    }
    sSlots.store(&slots, std::memory_order_release);
}

void TagTable::put(Slots& slots, const RegisteredTag& tag) {
    std::atomic<const RegisteredTag*>& slot = slots.of(tag.id);
    if (slot.load(std::memory_order_relaxed) == nullptr) ++slots.count;
    slot.store(&tag, std::memory_order_release);
}

void TagTable::end(bool callsStillRun) {
    sHasEnded = true;
    // No registration begins any more. One that still runs is about to end.
    const bool isHeld = tryRegisterMutex(kTriesAtEnd);
    if (callsStillRun) sStorage->kept.swap(gTagInfo);
    if (isHeld) gRigisterMutex.unlock();
}

}  // namespace zarn
