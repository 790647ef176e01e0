// A small editable object for proving the edit frame and the test helpers: a shelf of items
// (a linked list of heap records) with a label, whose edits are undoable, announce themselves
// on a port, and keep removed items alive for undo exactly as the library's objects do.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "foundation/edit_frame.h"
#include "foundation/failure.h"
#include "foundation/port.h"
#include "foundation/undo.h"

namespace vx::test {

struct ShelfItem {
    ShelfItem *next = nullptr;
    ShelfItem *prev = nullptr;
    int value = 0;
};

enum ShelfEvent : std::uint32_t {
    kShelfInserted = 1,
    kShelfChanged = 2,
    kShelfRemoving = 3,
    kShelfLabel = 4,
};

struct Shelf {
    ShelfItem *head = nullptr;
    ShelfItem *tail = nullptr;
    int label = 0;
    std::vector<std::string> tags;  // adding a tag allocates, even when undone and redone
    Port *port = nullptr;

    Shelf() = default;
    Shelf(const Shelf &) = delete;
    Shelf &operator=(const Shelf &) = delete;
    ~Shelf() {
        while (head != nullptr) delete std::exchange(head, head->next);
    }

    void notify(std::uint32_t code, ShelfItem *item) noexcept {
        if (port != nullptr) PortNotify(port, this, code, item);
    }
    void link_after(ShelfItem *after, ShelfItem *item) noexcept {
        item->prev = after;
        item->next = after != nullptr ? after->next : head;
        (item->next != nullptr ? item->next->prev : tail) = item;
        (after != nullptr ? after->next : head) = item;
    }
    void unlink(ShelfItem *item) noexcept {
        (item->prev != nullptr ? item->prev->next : head) = item->next;
        (item->next != nullptr ? item->next->prev : tail) = item->prev;
        item->next = item->prev = nullptr;
    }
    ShelfItem *at(int index) const noexcept {
        ShelfItem *item = head;
        while (item != nullptr && index-- > 0) item = item->next;
        return item;
    }
    int size() const noexcept {
        int n = 0;
        for (ShelfItem *item = head; item != nullptr; item = item->next) ++n;
        return n;
    }
    std::string snapshot() const {
        std::string text = "label " + std::to_string(label) + ":";
        for (ShelfItem *item = head; item != nullptr; item = item->next) {
            text += ' ';
            text += std::to_string(item->value);
        }
        for (const std::string &tag : tags) text += " #" + tag;
        return text;
    }
};

// A shelf that hears its own notes on a port of its own. The list keeps its capacity, so hearing
// a note never allocates inside an edit under test.
struct HeardShelf : Shelf {
    std::vector<std::uint32_t> heard;
    HeardShelf() {
        heard.reserve(64);
        port = PortCreate(nullptr);
        PortAttach(port, listen, &heard, nullptr);
    }
    ~HeardShelf() { PortDestroy(std::exchange(port, nullptr)); }
    static void listen(void *client, void *, std::uint32_t code, void *) {
        static_cast<std::vector<std::uint32_t> *>(client)->push_back(code);
    }
    // The codes heard since the last call.
    std::vector<std::uint32_t> take() {
        std::vector<std::uint32_t> codes = heard;
        heard.clear();
        return codes;
    }
};

// Swaps one stored value (form A, flag 1).
struct ShelfSetValue {
    Shelf *shelf;
    ShelfItem *item;
    int value;
    void apply(int) noexcept {
        std::swap(item->value, value);
        shelf->notify(kShelfChanged, item);
    }
};

// Inserts or removes an item by direction. `forward_inserts` tells which one direction 1 is;
// the record frees the item when it is dropped in the state where the item is out of the list.
struct ShelfLink {
    Shelf *shelf;
    ShelfItem *item;
    ShelfItem *after;
    bool forward_inserts;
    void apply(int direction) noexcept {
        const bool insert = (direction != 0) == forward_inserts;
        if (insert) {
            shelf->link_after(after, item);
            shelf->notify(kShelfInserted, item);
        } else {
            shelf->notify(kShelfRemoving, item);
            after = item->prev;
            shelf->unlink(item);
        }
        UndoNewCode(direction == 0 ? 1 : 0);
    }
    void release(int state) noexcept {
        const bool item_out = (state == 0) != forward_inserts;
        if (item_out) delete item;
    }
};

// Swaps the label (form B, flag 1).
struct ShelfLabel {
    Shelf *shelf;
    int label;
    void apply(int) noexcept {
        std::swap(shelf->label, label);
        shelf->notify(kShelfLabel, nullptr);
    }
};

// Adds or drops the last tag by direction. Adding needs memory (a copy of the text and room
// in the list), which the prepare step takes, so applying cannot fail.
struct ShelfTag {
    Shelf *shelf;
    std::string text;
    bool forward_adds;
    std::string copy;
    bool adds(int direction) const noexcept { return (direction != 0) == forward_adds; }
    void prepare(int direction) {
        if (!adds(direction)) return;
        copy = text;
        shelf->tags.reserve(shelf->tags.size() + 1);
    }
    void apply(int direction) noexcept {
        if (adds(direction)) {
            shelf->tags.push_back(std::move(copy));
        } else {
            shelf->tags.pop_back();
        }
        shelf->notify(kShelfLabel, nullptr);
    }
};

inline void shelf_add_tag(Shelf &shelf, const std::string &text) {
    EditTransaction transaction;
    Edit<ShelfTag> edit(&shelf, std::string(), true, std::string());
    edit->text = text;
    edit.hand_over(1);
}

inline void shelf_drop_tag(Shelf &shelf) {
    if (shelf.tags.empty()) return;
    EditTransaction transaction;
    Edit<ShelfTag> edit(&shelf, std::string(), false, std::string());
    edit->text = shelf.tags.back();
    edit.apply_then_record(0);
}

inline void shelf_set(Shelf &shelf, ShelfItem *item, int value) {
    if (item->value == value) return;
    edit_apply<ShelfSetValue>(1, &shelf, item, value);
}

inline ShelfItem *shelf_insert(Shelf &shelf, ShelfItem *after, int value) {
    EditTransaction transaction;
    auto *item = new ShelfItem{nullptr, nullptr, value};
    OnFailure drop_item([&] { delete item; });
    Edit<ShelfLink> edit(&shelf, item, after, true);
    drop_item.disarm();  // from here on the record owns the item
    edit.apply_then_record(0);
    return item;
}

inline void shelf_remove(Shelf &shelf, ShelfItem *item) {
    edit_apply<ShelfLink>(0, &shelf, item, item->prev, false);
}

inline void shelf_set_label(Shelf &shelf, int label) {
    if (shelf.label == label) return;
    edit_pending<ShelfLabel>(1, &shelf, label);
}

// A compound edit done right: every record is prepared before any is applied, so a failure
// never reaches the data, and one undo step takes both items back.
inline void shelf_append_pair(Shelf &shelf, int first, int second) {
    EditTransaction transaction;
    UndoBlock block;
    auto *a = new ShelfItem{nullptr, nullptr, first};
    OnFailure drop_a([&] { delete a; });
    Edit<ShelfLink> link_a(&shelf, a, shelf.tail, true);
    drop_a.disarm();  // the prepared insertion owns the item now
    auto *b = new ShelfItem{nullptr, nullptr, second};
    OnFailure drop_b([&] { delete b; });
    Edit<ShelfLink> link_b(&shelf, b, a, true);
    drop_b.disarm();
    link_a.apply_then_record(0);
    link_b.apply_then_record(0);
}

}  // namespace vx::test
