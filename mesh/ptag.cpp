// Polygon tags: the shared record set, polygon tag arrays and mesh default tags.
//
// Every change first prepares what can fail (a new array, a record found or made in the set)
// and then commits with operations that cannot fail, so a failure leaves the polygon, its mesh
// and the set as they were.
#include "mesh/ptag.h"

#include <cstring>
#include <mutex>
#include <new>
#include <set>
#include <string_view>

#include <vexor/ptag.h>

#include "foundation/failure.h"
#include "mesh/mesh.h"

namespace vx::mesh {

namespace {

struct TagKey {
    std::uint32_t type;
    std::string_view text;
};

TagKey key_of(const PTagRecord *record) noexcept {
    return {record->type, std::string_view(record->text(), record->length)};
}

// Records ordered by type, then text byte by byte.
struct TagOrder {
    using is_transparent = void;
    static bool less(const TagKey &a, const TagKey &b) noexcept {
        return a.type != b.type ? a.type < b.type : a.text < b.text;
    }
    bool operator()(const PTagRecord *a, const PTagRecord *b) const noexcept {
        return less(key_of(a), key_of(b));
    }
    bool operator()(const PTagRecord *a, const TagKey &b) const noexcept {
        return less(key_of(a), b);
    }
    bool operator()(const TagKey &a, const PTagRecord *b) const noexcept {
        return less(a, key_of(b));
    }
};

// The process-wide set. The epoch counts the records ever freed: a pointer to a record found
// while the epoch read E is still good while the epoch reads E.
struct Registry {
    std::mutex lock;
    std::set<PTagRecord *, TagOrder> records;
    std::uint64_t epoch = 0;
};

Registry &registry() {
    static Registry state;
    return state;
}

std::size_t record_bytes(std::size_t length) noexcept {
    return sizeof(PTagRecord) + length + 1;
}

void free_record(PTagRecord *record) noexcept {
    ::operator delete(static_cast<void *>(record), record_bytes(record->length));
}

// One more use of a live record (lock held).
void raise_locked(PTagRecord *record) {
    if (record->count == INT32_MAX) fail(rc::refused, "a polygon tag used too often");
    ++record->count;
}

// The record for (type, text) with one more use, made when new (lock held).
PTagRecord *acquire_locked(Registry &r, const TagKey &key) {
    auto found = r.records.find(key);
    if (found != r.records.end()) {
        raise_locked(*found);
        return *found;
    }
    auto *record = static_cast<PTagRecord *>(::operator new(record_bytes(key.text.size())));
    record->type = key.type;
    record->count = 1;
    record->length = key.text.size();
    char *text = reinterpret_cast<char *>(record + 1);
    if (!key.text.empty()) std::memcpy(text, key.text.data(), key.text.size());
    text[key.text.size()] = '\0';
    try {
        r.records.insert(record);
    } catch (...) {
        free_record(record);
        throw;
    }
    return record;
}

// One use less; the last use takes the record out of the set and frees it (lock held).
void release_locked(Registry &r, PTagRecord *record) noexcept {
    if (--record->count >= 1) return;
    r.records.erase(record);
    ++r.epoch;
    free_record(record);
}

PTagRecord *acquire(std::uint32_t type, std::string_view text) {
    Registry &r = registry();
    std::lock_guard<std::mutex> hold(r.lock);
    return acquire_locked(r, {type, text});
}

void release(PTagRecord *record) noexcept {
    Registry &r = registry();
    std::lock_guard<std::mutex> hold(r.lock);
    release_locked(r, record);
}

// The text a tag of `type` stores: smoothing groups normalised into `buffer`.
std::string_view stored_text(std::uint32_t type, const char *text, char *buffer) noexcept {
    if (type == kTagSmoothing) return {buffer, normalise_smoothing(text, buffer)};
    return text;
}

// ---- Tag arrays ---------------------------------------------------------------------------
// Up to kInlineTags entries live in the polygon record; an array of more lives in the mesh's
// 4-entry pool, or on the heap with exactly n. A new array of few entries is put together in
// the growth's staging room and moved into the record once the old array is gone (the record's
// room is shared with the pointer to a longer array).

constexpr unsigned kRecordTags = MeshPolygon::kInlineTags;

struct ArrayGrowth {
    ElementPool::Growth chunk;
    RawBlock heap;
    PTagRecord *staging[kRecordTags];
};

std::size_t heap_bytes(unsigned count) noexcept {
    return static_cast<std::size_t>(count) * sizeof(PTagRecord *);
}

void prepare_array(const Mesh *mesh, unsigned count, ArrayGrowth &growth) {
    if (count <= kRecordTags) return;
    if (count <= kPooledTagArrays) {
        mesh->tags.pool4.prepare(growth.chunk);
    } else {
        growth.heap = RawBlock(heap_bytes(count));
    }
}

PTagRecord **take_array(Mesh *mesh, unsigned count, ArrayGrowth &growth) noexcept {
    if (count <= kRecordTags) return growth.staging;
    if (count <= kPooledTagArrays) {
        return static_cast<PTagRecord **>(mesh->tags.pool4.take(growth.chunk));
    }
    ++mesh->tags.long_arrays;
    return static_cast<PTagRecord **>(growth.heap.forget());
}

// Frees the polygon's array (nothing for entries in the record).
void free_array(MeshPolygon *polygon) noexcept {
    const unsigned count = polygon->tag_count;
    Mesh *mesh = polygon->mesh;
    PTagRecord **array = polygon->tags();
    if (count <= kRecordTags) return;
    if (count <= kPooledTagArrays) {
        mesh->tags.pool4.give_back(array);
    } else {
        ::operator delete(static_cast<void *>(array), heap_bytes(count));
        --mesh->tags.long_arrays;
    }
}

// Whether arrays of a and b entries (both above 0) have the same room, so that one can become
// the other in place.
bool same_block(unsigned a, unsigned b) noexcept {
    const auto room = [](unsigned n) {
        return n <= kRecordTags ? kRecordTags : n <= kPooledTagArrays ? kPooledTagArrays : n;
    };
    return room(a) == room(b);
}

// Gives the polygon the array taken for `count` entries, its old one freed first.
void adopt_array(MeshPolygon *polygon, PTagRecord **array, unsigned count) noexcept {
    free_array(polygon);
    polygon->tag_count = static_cast<std::uint16_t>(count);
    if (count <= kRecordTags) {
        for (unsigned i = 0; i < count; ++i) polygon->tag_slots.few[i] = array[i];
    } else {
        polygon->tag_slots.many = array;
    }
}

// Where an entry of `type` is, or would go, in the polygon's sorted array.
unsigned place_of(const MeshPolygon *polygon, std::uint32_t type) noexcept {
    unsigned i = 0;
    while (i < polygon->tag_count && polygon->tags()[i]->type < type) ++i;
    return i;
}

void announce(MeshPolygon *polygon) noexcept {
    change_event(polygon->mesh, MESH_CHANGE_TAGS);
}

char *copy_text(const char *text, std::size_t length) {
    char *copy = static_cast<char *>(::operator new(length + 1));
    std::memcpy(copy, text, length);
    copy[length] = '\0';
    return copy;
}

void free_text(char *text, std::size_t length) noexcept {
    if (text != nullptr) ::operator delete(static_cast<void *>(text), length + 1);
}

}  // namespace

// ---- Smoothing groups ---------------------------------------------------------------------

std::size_t normalise_smoothing(const char *text, char *out) noexcept {
    bool seen[256] = {};
    for (const char *c = text; *c != '\0'; ++c) seen[static_cast<unsigned char>(*c)] = true;
    std::size_t length = 0;
    for (unsigned c = 1; c < 256 && length < kSmoothingLimit; ++c) {
        if (seen[c]) out[length++] = static_cast<char>(c);
    }
    out[length] = '\0';
    return length;
}

bool smoothing_different(const MeshPolygon *polygon, const char *text) noexcept {
    const char *mine = polygon != nullptr ? tag_get(polygon, kTagSmoothing) : nullptr;
    if (mine == nullptr || text == nullptr) return mine != text;
    if (*text == '\0') return true;
    bool groups[256] = {};
    for (const char *c = mine; *c != '\0'; ++c) groups[static_cast<unsigned char>(*c)] = true;
    for (const char *c = text; *c != '\0'; ++c) {
        if (groups[static_cast<unsigned char>(*c)]) return false;
    }
    return true;
}

// ---- Polygon tags -------------------------------------------------------------------------

bool tag_set(MeshPolygon *polygon, std::uint32_t type, const char *text) {
    if (polygon == nullptr || (polygon->flags & kDead) != 0) return false;
    Mesh *mesh = polygon->mesh;
    char buffer[kSmoothingLimit + 1];
    const unsigned n = polygon->tag_count;
    const unsigned at = place_of(polygon, type);
    const bool present = at < n && polygon->tags()[at]->type == type;

    if (text == nullptr) {
        // Removal of the one entry of that type.
        if (!present) return true;
        PTagRecord *old = polygon->tags()[at];
        if (n > 1 && same_block(n, n - 1)) {
            for (unsigned i = at + 1; i < n; ++i) polygon->tags()[i - 1] = polygon->tags()[i];
        } else {
            ArrayGrowth growth;
            prepare_array(mesh, n - 1, growth);
            PTagRecord **array = take_array(mesh, n - 1, growth);
            for (unsigned i = 0, k = 0; i < n; ++i) {
                if (i != at) array[k++] = polygon->tags()[i];
            }
            adopt_array(polygon, array, n - 1);
        }
        polygon->tag_count = static_cast<std::uint16_t>(n - 1);
        release(old);
        announce(polygon);
        return true;
    }

    const std::string_view value = stored_text(type, text, buffer);
    if (present) {
        PTagRecord *old = polygon->tags()[at];
        if (key_of(old).text == value) return true;
        polygon->tags()[at] = acquire(type, value);
        release(old);
        announce(polygon);
        return true;
    }

    if (n >= 0xFFFF) fail(rc::refused, "too many tags on a polygon");
    ArrayGrowth growth;
    const bool in_place = n > 0 && same_block(n, n + 1);
    if (!in_place) prepare_array(mesh, n + 1, growth);
    PTagRecord *record = acquire(type, value);
    // Nothing below can fail.
    if (in_place) {
        for (unsigned i = n; i > at; --i) polygon->tags()[i] = polygon->tags()[i - 1];
        polygon->tags()[at] = record;
    } else {
        PTagRecord **array = take_array(mesh, n + 1, growth);
        for (unsigned i = 0; i < at; ++i) array[i] = polygon->tags()[i];
        array[at] = record;
        for (unsigned i = at; i < n; ++i) array[i + 1] = polygon->tags()[i];
        adopt_array(polygon, array, n + 1);
    }
    polygon->tag_count = static_cast<std::uint16_t>(n + 1);
    announce(polygon);
    return true;
}

const char *tag_get(const MeshPolygon *polygon, std::uint32_t type) noexcept {
    for (unsigned i = 0; i < polygon->tag_count; ++i) {
        const PTagRecord *record = polygon->tags()[i];
        if (record->type == type) return record->text();
        if (record->type > type) break;  // sorted: no entry of that type further on
    }
    return nullptr;
}

const char *tag_by_index(const MeshPolygon *polygon, int index, std::uint32_t *type) noexcept {
    if (index < 0 || index >= static_cast<int>(polygon->tag_count)) return nullptr;
    const PTagRecord *record = polygon->tags()[index];
    if (type != nullptr) *type = record->type;
    return record->text();
}

void tag_delete(MeshPolygon *polygon) noexcept {
    const unsigned n = polygon->tag_count;
    if (n == 0) return;
    {
        Registry &r = registry();
        std::lock_guard<std::mutex> hold(r.lock);
        for (unsigned i = 0; i < n; ++i) release_locked(r, polygon->tags()[i]);
    }
    free_array(polygon);
    polygon->tag_count = 0;
    announce(polygon);
}

bool tag_duplicate(MeshPolygon *target, const MeshPolygon *source) {
    if (target == nullptr || source == nullptr || (target->flags & kDead) != 0) return false;
    const unsigned n = source->tag_count;
    if (n == 0 || target == source) return true;
    Mesh *mesh = target->mesh;
    ArrayGrowth growth;
    prepare_array(mesh, n, growth);
    Registry &r = registry();
    {
        std::lock_guard<std::mutex> hold(r.lock);
        unsigned raised = 0;
        try {
            for (; raised < n; ++raised) raise_locked(source->tags()[raised]);
        } catch (...) {
            while (raised > 0) release_locked(r, source->tags()[--raised]);
            throw;
        }
        // The target's own records go; a record both hold keeps the use just taken.
        for (unsigned i = 0; i < target->tag_count; ++i) release_locked(r, target->tags()[i]);
    }
    PTagRecord **array = take_array(mesh, n, growth);
    std::memcpy(static_cast<void *>(array), source->tags(), heap_bytes(n));
    adopt_array(target, array, n);
    announce(target);
    return true;
}

// ---- Mesh defaults ------------------------------------------------------------------------

MeshTags::~MeshTags() {
    clear();
}

void MeshTags::clear() noexcept {
    for (std::size_t i = 0; i < count_; ++i) free_text(defaults_[i].text, defaults_[i].length);
    if (defaults_ != nullptr) {
        ::operator delete(static_cast<void *>(defaults_), count_ * sizeof(Default));
    }
    defaults_ = nullptr;
    count_ = 0;
}

void MeshTags::set(std::uint32_t type, const char *text) {
    std::size_t at = 0;
    while (at < count_ && defaults_[at].type != type) ++at;
    const bool present = at < count_;
    if (text == nullptr && !present) return;

    // Every case ends with a list of a new length or a new text; make it first.
    char buffer[kSmoothingLimit + 1];
    std::string_view value;
    char *copy = nullptr;
    if (text != nullptr) {
        value = stored_text(type, text, buffer);
        copy = copy_text(value.data(), value.size());
    }
    if (present && copy != nullptr) {
        free_text(defaults_[at].text, defaults_[at].length);
        defaults_[at] = Default{type, copy, value.size(), nullptr, 0};
        return;
    }
    const std::size_t count = present ? count_ - 1 : count_ + 1;
    Default *list = nullptr;
    if (count != 0) {
        try {
            list = static_cast<Default *>(::operator new(count * sizeof(Default)));
        } catch (...) {
            free_text(copy, value.size());
            throw;
        }
    }
    std::size_t k = 0;
    for (std::size_t i = 0; i < count_; ++i) {
        if (i != at) list[k++] = defaults_[i];
    }
    if (present) {
        free_text(defaults_[at].text, defaults_[at].length);
    } else {
        list[k] = Default{type, copy, value.size(), nullptr, 0};
    }
    if (defaults_ != nullptr) {
        ::operator delete(static_cast<void *>(defaults_), count_ * sizeof(Default));
    }
    defaults_ = list;
    count_ = count;
}

const char *MeshTags::get(std::uint32_t type) const noexcept {
    for (std::size_t i = 0; i < count_; ++i) {
        if (defaults_[i].type == type) return defaults_[i].text;
    }
    return nullptr;
}

void MeshTags::copy_from(const MeshTags &other) {
    const std::size_t count = other.count_;
    Default *list = nullptr;
    if (count != 0) list = static_cast<Default *>(::operator new(count * sizeof(Default)));
    std::size_t made = 0;
    try {
        for (; made < count; ++made) {
            const Default &d = other.defaults_[made];
            list[made] = Default{d.type, copy_text(d.text, d.length), d.length, nullptr, 0};
        }
    } catch (...) {
        while (made > 0) {
            --made;
            free_text(list[made].text, list[made].length);
        }
        ::operator delete(static_cast<void *>(list), count * sizeof(Default));
        throw;
    }
    clear();
    defaults_ = list;
    count_ = count;
}

void init_mesh_tags(Mesh *mesh, const Mesh *source) {
    if (source != nullptr) {
        mesh->tags.copy_from(source->tags);
        return;
    }
    mesh->tags.set(kTagMaterial, MeshDefaultMaterialName());
    mesh->tags.set(kTagPart, MeshDefaultPartName());
}

DefaultTagGrowth::~DefaultTagGrowth() {
    if (count_ == 0) return;
    Registry &r = registry();
    std::lock_guard<std::mutex> hold(r.lock);
    while (count_ > 0) release_locked(r, records_[--count_]);
}

void prepare_default_tags(Mesh *mesh, DefaultTagGrowth &growth) {
    MeshTags &tags = mesh->tags;
    const std::size_t n = tags.size();
    if (n == 0) return;
    if (n > 0xFFFF) fail(rc::refused, "too many default tags");
    if (n > DefaultTagGrowth::kInline) {
        growth.heap_records_ = RawBlock(n * sizeof(PTagRecord *));
        growth.records_ = static_cast<PTagRecord **>(growth.heap_records_.get());
    }
    const auto count = static_cast<unsigned>(n);
    if (count <= kRecordTags) {
        // In the polygon record.
    } else if (count <= kPooledTagArrays) {
        tags.pool4.prepare(growth.chunk_);
    } else {
        growth.long_array_ = RawBlock(heap_bytes(count));
    }

    Registry &r = registry();
    std::lock_guard<std::mutex> hold(r.lock);
    for (std::size_t i = 0; i < n; ++i) {
        MeshTags::Default &d = tags.at(i);
        PTagRecord *record;
        if (d.cached != nullptr && d.epoch == r.epoch) {
            raise_locked(d.cached);
            record = d.cached;
        } else {
            record = acquire_locked(r, {d.type, std::string_view(d.text, d.length)});
            d.cached = record;
            d.epoch = r.epoch;
        }
        growth.records_[growth.count_++] = record;
    }
}

void commit_default_tags(Mesh *mesh, MeshPolygon *polygon, DefaultTagGrowth &growth) noexcept {
    const auto n = static_cast<unsigned>(growth.count_);
    if (n == 0) return;
    PTagRecord **array;
    if (n <= kRecordTags) {
        array = polygon->tag_slots.few;
    } else if (n <= kPooledTagArrays) {
        array = static_cast<PTagRecord **>(mesh->tags.pool4.take(growth.chunk_));
    } else {
        array = static_cast<PTagRecord **>(growth.long_array_.forget());
        ++mesh->tags.long_arrays;
    }
    // Sorted by type, one entry per type (the default list has one per type).
    for (unsigned i = 0; i < n; ++i) {
        PTagRecord *record = growth.records_[i];
        unsigned k = i;
        while (k > 0 && array[k - 1]->type > record->type) {
            array[k] = array[k - 1];
            --k;
        }
        array[k] = record;
    }
    if (n > kRecordTags) polygon->tag_slots.many = array;
    polygon->tag_count = static_cast<std::uint16_t>(n);
    growth.count_ = 0;
}

void release_mesh_tags(Mesh *mesh) noexcept {
    PolygonList &list = mesh->own_polygons;
    Registry &r = registry();
    std::lock_guard<std::mutex> hold(r.lock);
    for (std::size_t i = 0; i < list.size(); ++i) {
        MeshPolygon *polygon = list[i];
        if (polygon->mesh != mesh || polygon->tag_count == 0) continue;
        for (unsigned k = 0; k < polygon->tag_count; ++k) release_locked(r, polygon->tags()[k]);
        if (polygon->tag_count > kPooledTagArrays) {
            ::operator delete(static_cast<void *>(polygon->tags()), heap_bytes(polygon->tag_count));
        }
        polygon->tag_count = 0;
    }
}

// ---- Inspection ---------------------------------------------------------------------------

std::size_t record_count() noexcept {
    Registry &r = registry();
    std::lock_guard<std::mutex> hold(r.lock);
    return r.records.size();
}

std::int32_t record_uses(std::uint32_t type, const char *text) noexcept {
    char buffer[kSmoothingLimit + 1];
    const TagKey key{type, stored_text(type, text, buffer)};
    Registry &r = registry();
    std::lock_guard<std::mutex> hold(r.lock);
    auto found = r.records.find(key);
    return found != r.records.end() ? (*found)->count : 0;
}

}  // namespace vx::mesh
