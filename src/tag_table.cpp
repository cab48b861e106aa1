// Publishing the registry. Registrations wait for gRigisterMutex; everything else only tries to take it.

#include "src/tag_table.h"

#include <pthread.h>

#include <deque>
#include <vector>

#include "src/attempts.h"

namespace zarn {

namespace {

constexpr int kFewestBits = 6;
// The time after which no further attempt to take gRigisterMutex begins.
constexpr std::chrono::microseconds kInOperation(20);  // the store's mutex is held meanwhile
constexpr std::chrono::milliseconds kOutside(1);
constexpr std::chrono::milliseconds kForProgram(500);  // without a store, or at the end
// The longest wait for other threads of this library. They never block, but may lose their processors.
constexpr std::chrono::seconds kForOwnThreads(10);

// This very thread may hold it already: POSIX lets a thread try a mutex that it holds, std::mutex::try_lock does not.
bool tryRegistryMutex() {
    return pthread_mutex_trylock(gRigisterMutex.native_handle()) == 0;
}

// Not gRigisterMutex.unlock: clang does not know that tryRegistryMutex has locked it.
void releaseRegistryMutex() {
    pthread_mutex_unlock(gRigisterMutex.native_handle());
}

}  // namespace

// Lives while this library looks into the map or changes it. The end of the registry waits for it, so nothing in its
// scope may block or call the program. Begin one, then ask hasEnded.
class TagTable::MapUse {
public:
    MapUse() {
        ++sUses;
        ++sBegun;
    }
    ~MapUse() { --sUses; }
    MapUse(const MapUse&) = delete;
    MapUse& operator=(const MapUse&) = delete;

    static bool isAny() { return sUses != 0; }
    static uint32_t countBegun() { return sBegun; }

private:
    static inline std::atomic<int> sUses{0};
    static inline std::atomic<uint32_t> sBegun{0};
};

// Takes gRigisterMutex for a scope, if it becomes free in time and the library has not been unloaded.
class TagTable::RegistryTry {
public:
    explicit RegistryTry(std::chrono::microseconds atMost) {
        uint32_t begun = MapUse::countBegun();
        takeIn(atMost);
        if (atMost < kForProgram) return;
        // If threads of this library have used the map meanwhile, no program holds the mutex: go on.
        const Attempts attempts(kForOwnThreads);
        while (!mUse && !hasEnded() && (MapUse::isAny() || MapUse::countBegun() != begun) && attempts.another()) {
            begun = MapUse::countBegun();
            takeIn(atMost);
        }
    }
    ~RegistryTry() {
        if (mUse) releaseRegistryMutex();
    }
    RegistryTry(const RegistryTry&) = delete;
    RegistryTry& operator=(const RegistryTry&) = delete;

    explicit operator bool() const { return mUse.has_value(); }

private:
    void takeIn(std::chrono::microseconds atMost) {
        if (take()) return;
        const Attempts attempts(atMost);
        while (!hasEnded() && attempts.another() && !take()) {
        }
    }
    bool take() {
        if (hasEnded() || !tryRegistryMutex()) return false;
        mUse.emplace();
        if (!hasEnded()) return true;
        releaseRegistryMutex();  // the registry has ended meanwhile
        mUse.reset();
        return false;
    }

    std::optional<MapUse> mUse;  // while the mutex is held
};

// While there is one, entries may be read without gRigisterMutex, and the end of the registry keeps them.
class TagTable::Reading {
public:
    Reading() { ++sReadings; }
    ~Reading() { --sReadings; }
    Reading(const Reading&) = delete;
    Reading& operator=(const Reading&) = delete;

    static bool isAny() { return sReadings != 0; }

private:
    static inline std::atomic<int> sReadings{0};
};

// A copy of an entry of the map, whose texts are not std::string. Copying a std::string may throw inside the C++
// library; the exception would pass through this library, which is built without them, and leave gRigisterMutex locked.
class TagTable::EntryCopy {
public:
    EntryCopy(uint32_t id, const tag_info_t& info)
        : mID(id),
          mDataType(info.mDataType.begin(), info.mDataType.end()),
          mName(info.mName.begin(), info.mName.end()) {
        mInfo.mCreator = info.mCreator;
        mInfo.mTagType = info.mTagType;
        mInfo.mSize = info.mSize;
        mInfo.mRetainNum = info.mRetainNum;
    }

    // gRigisterMutex not held.
    void addTo(std::map<uint32_t, tag_info_t>& out) const {
        tag_info_t& info = out[mID] = mInfo;
        info.mDataType.assign(mDataType.data(), mDataType.size());
        info.mName.assign(mName.data(), mName.size());
    }

private:
    uint32_t mID;
    tag_info_t mInfo;  // without its texts
    std::vector<char> mDataType;
    std::vector<char> mName;
};

// Everything that a reader may still use; never freed.
struct TagTable::Storage {
    std::deque<RegisteredTag> tags;
    std::deque<Slots> tables;
    std::deque<std::map<uint32_t, tag_info_t>::node_type> replaced;  // entries of the map
    std::map<uint32_t, tag_info_t> kept;                             // the map, after the end
};

std::atomic<TagTable::Slots*> TagTable::sSlots{nullptr};
std::atomic<int> TagTable::sReaders{0};
std::atomic<bool> TagTable::sHasEnded{false};

TagTable::Storage& TagTable::storage() {
    static Storage* sStorage = nullptr;
    if (sStorage == nullptr) sStorage = new Storage;
    return *sStorage;
}

TagTable::Slots::Slots(size_t tags) {
    size_t length = size_t{1} << kFewestBits;
    for (shift = 32 - kFewestBits; length < 4 * tags; --shift) length *= 2;
    mask = length - 1;
    slots = std::make_unique<std::atomic<const RegisteredTag*>[]>(length);
}

TagReader::TagReader() {
    if (const TagTable::RegistryTry registry{kForProgram}) readMap();
}

TagReader::~TagReader() {
    if (mHasRead) TagTable::sReaders.fetch_sub(1, std::memory_order_relaxed);
}

void TagReader::readMap() {
    if (TagTable::isTrusted()) {
        TagTable::publishMissing();
    } else if (!TagTable::isMapPublished()) {
        TagTable::rebuild();
    }
    if (!mHasRead) TagTable::sReaders.fetch_add(1, std::memory_order_release);
    mHasRead = true;
}

const RegisteredTag* TagReader::lookUp(uint32_t id) {
    if (const TagTable::RegistryTry registry{kInOperation}) readMap();
    return TagTable::isTrusted() ? TagTable::find(id) : nullptr;
}

const tag_info_t& TagReader::findOrInsert(uint32_t id) {
    if (const RegisteredTag* tag = find(id)) return tag->info;
    if (const TagTable::RegistryTry registry{kInOperation}) {
        const tag_info_t& info = gTagInfo[id];
        readMap();
        return info;
    }
    static const tag_info_t& sEmpty = *new tag_info_t;
    return sEmpty;
}

std::optional<bool> TagTable::isRegistered(uint32_t id) {
    if (isTrusted() && find(id) != nullptr) return true;
    if (const RegistryTry registry{kOutside}) return gTagInfo.count(id) != 0;
    return std::nullopt;
}

// Whether the map may be read after an attempt to take the mutex. Without a store the attempt lasts so long that it
// only fails if this thread itself holds the mutex, or if the library has been unloaded.
bool TagTable::isMapReadable(bool isMutexHeld) {
    return isMutexHeld || (!isTrusted() && !hasEnded());
}

std::shared_ptr<creator_base_t> TagTable::creatorOf(uint32_t id) {
    const Reading reading;
    const RegisteredTag* tag = isTrusted() && !hasEnded() ? find(id) : nullptr;
    if (tag != nullptr) return tag->info.mCreator;
    const RegistryTry registry(isTrusted() ? kOutside : kForProgram);
    const MapUse use;
    if (!isMapReadable(static_cast<bool>(registry))) return nullptr;
    const auto it = gTagInfo.find(id);
    return it != gTagInfo.end() ? it->second.mCreator : nullptr;
}

void TagTable::copyTo(std::map<uint32_t, tag_info_t>& out) {
    if (&out == &gTagInfo) return;
    std::vector<EntryCopy> copies;
    if (!copyMapTo(copies)) copyPublishedTo(copies);
    out.clear();
    for (const EntryCopy& copy : copies) copy.addTo(out);
}

bool TagTable::copyMapTo(std::vector<EntryCopy>& out) {
    const RegistryTry registry(isTrusted() ? kOutside : kForProgram);
    const MapUse use;
    if (!isMapReadable(static_cast<bool>(registry))) return false;
    for (const auto& [id, info] : gTagInfo) out.emplace_back(id, info);
    return true;
}

void TagTable::copyPublishedTo(std::vector<EntryCopy>& out) {
    const Reading reading;
    if (!isTrusted() || hasEnded()) return;
    const Slots* slots = sSlots.load(std::memory_order_acquire);
    for (size_t i = 0; i <= slots->mask; ++i) {
        const RegisteredTag* tag = slots->slots[i].load(std::memory_order_acquire);
        if (tag != nullptr) out.emplace_back(tag->id, tag->info);
    }
}

bool TagTable::isMapPublished() {
    const Slots* slots = sSlots.load(std::memory_order_relaxed);
    if (slots == nullptr || slots->count != gTagInfo.size()) return false;
    for (const auto& [id, info] : gTagInfo) {
        const RegisteredTag* tag = find(id);
        if (tag == nullptr || &tag->info != &info) return false;
    }
    return true;
}

void TagTable::publishMissing() {
    if (sSlots.load(std::memory_order_relaxed)->count >= gTagInfo.size()) return;
    for (const auto& [id, info] : gTagInfo) {
        if (find(id) == nullptr) publish(id, info, false);
    }
}

bool TagTable::add(uint32_t id, tag_info_t&& info, bool hasLibraryCreator, bool mayReplace) {
    const MapUse use;
    if (hasEnded() || (!mayReplace && gTagInfo.count(id) != 0)) return false;
    tag_info_t& entry = newEntry(id);
    entry = std::move(info);
    publish(id, entry, hasLibraryCreator);
    return true;
}

tag_info_t& TagTable::newEntry(uint32_t id) {
    const auto it = gTagInfo.find(id);
    if (it == gTagInfo.end()) return gTagInfo[id];
    storage().replaced.push_back(gTagInfo.extract(it));
    return gTagInfo[id];
}

void TagTable::publish(uint32_t id, const tag_info_t& info, bool hasLibraryCreator) {
    if (sSlots.load(std::memory_order_relaxed) == nullptr) rebuild();
    Slots& slots = *sSlots.load(std::memory_order_relaxed);
    std::shared_ptr<creator_base_t> libraryCreator = hasLibraryCreator ? info.mCreator : nullptr;
    put(slots, storage().tags.emplace_back(RegisteredTag{id, info, std::move(libraryCreator)}));
    if (2 * slots.count > slots.mask) rebuild();
}

// Publishes a new table that has exactly the entries of the map.
void TagTable::rebuild() {
    Slots& slots = storage().tables.emplace_back(gTagInfo.size());
    for (const auto& [id, info] : gTagInfo) {
        const RegisteredTag* tag = find(id);
        if (tag == nullptr || &tag->info != &info) {
            tag = &storage().tags.emplace_back(RegisteredTag{id, info, nullptr});
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
    sHasEnded = true;  // from now on nobody begins to look into the map or to change it
    const Attempts forOwnThreads(kForOwnThreads);
    while (MapUse::isAny() && forOwnThreads.another()) {
    }
    const Attempts forProgram(kForProgram);
    bool isHeld = tryRegistryMutex();
    while (!isHeld && forProgram.another()) isHeld = tryRegistryMutex();
    if (callsStillRun || Reading::isAny()) storage().kept.swap(gTagInfo);
    if (isHeld) releaseRegistryMutex();
}

}  // namespace zarn
