// The frame every undoable edit of the library travels in.
//
// An edit is a small record type R with
//     void apply(int direction);   // 1 = do or redo, 0 = undo
//     void release(int state);     // optional: frees what the record keeps alive for undo
//                                  // (state 0: the edit is in effect; non-zero: undone)
//     void prepare(int direction); // optional: allocates what apply(direction) will need,
//                                  // changing nothing observable; apply must not fail after it
// The apply step either swaps the stored value with the record's (so one call toggles), or
// chooses the structural operation by direction, and raises the object's change note so
// observers hear of undo and redo exactly as of the first application. An apply step that can
// fail must fail before it changes anything.
//
// The frame: the record is allocated and armed, room for it in the undo history is reserved,
// then (form A) it is applied forward and handed over as complete, or (form B) handed over
// unapplied with a direction. Everything that can fail happens before the data changes; the
// surrounding EditTransaction takes back earlier edits of a compound edit if a later one fails.
// When undo is not recording, the record is freed as in effect once the outermost edit ends.
#pragma once

#include <new>
#include <type_traits>
#include <utility>

#include "foundation/memory.h"
#include "foundation/undo.h"

namespace vx {

namespace edit_detail {

template <class R>
concept Releasing = requires(R &record, int state) {
    record.release(state);
};

template <class R>
concept Preparing = requires(R &record, int direction) {
    record.prepare(direction);
};

template <class R>
void prepare_record(void *record, int direction) {
    static_cast<R *>(record)->prepare(direction);
}

template <class R>
constexpr UndoPrepareFn preparer() {
    if constexpr (Preparing<R>) {
        return &prepare_record<R>;
    } else {
        return nullptr;
    }
}

template <class R>
void apply_record(void *record, int direction, int) {
    static_cast<R *>(record)->apply(direction);
}

template <class R>
void free_record(void *block, int state) {
    R *record = static_cast<R *>(block);
    if constexpr (Releasing<R>) record->release(state);
    record->~R();
    FreeHeap(record, sizeof(R));
}

}  // namespace edit_detail

// A prepared edit: its record allocated and armed, its room in the undo history reserved.
// Preparing every record of a compound edit before applying any of them keeps a failure from
// ever reaching the data (or sending a change note). A prepared edit that is never handed over
// is dropped as an edit not in effect (its free step sees a non-zero state), so a record that
// owns something it would have inserted frees it.
template <class R>
class Edit {
    static_assert(std::is_nothrow_destructible_v<R>);

  public:
    template <class... Args>
    explicit Edit(Args &&...args) : record_(create(std::forward<Args>(args)...)) {}
    ~Edit() {
        if (record_ != nullptr) edit_detail::free_record<R>(record_, 1);
    }
    Edit(const Edit &) = delete;
    Edit &operator=(const Edit &) = delete;

    R *operator->() noexcept { return record_; }
    R &operator*() noexcept { return *record_; }

    // Form A: apply forward, then hand over as complete with the edit's undo flag.
    void apply_then_record(int flag) {
        if constexpr (edit_detail::Preparing<R>) record_->prepare(1);
        record_->apply(1);
        slot_.add_complete(flag, &edit_detail::apply_record<R>, take(),
                           &edit_detail::free_record<R>, edit_detail::preparer<R>());
    }

    // Form B: hand over unapplied; the undo system applies it in `direction`.
    void hand_over(int direction) {
        slot_.apply_pending(direction, &edit_detail::apply_record<R>, take(),
                            &edit_detail::free_record<R>, edit_detail::preparer<R>());
    }

  private:
    template <class... Args>
    static R *create(Args &&...args) {
        void *block = StdAlloc(sizeof(R));
        static_assert(std::is_nothrow_constructible_v<R, Args...> || std::is_aggregate_v<R>);
        // Records list only the fields an edit sets; the rest start value-initialised.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"
        return new (block) R{std::forward<Args>(args)...};
#pragma GCC diagnostic pop
    }
    R *take() noexcept {
        return std::exchange(record_, nullptr);
    }

    UndoSlot slot_;  // reserved first, so a failed record allocation releases it
    R *record_;
};

// Form A in one call: allocate, apply forward, record with the edit's undo flag.
template <class R, class... Args>
void edit_apply(int flag, Args &&...args) {
    EditTransaction transaction;
    Edit<R> edit(std::forward<Args>(args)...);
    edit.apply_then_record(flag);
}

// Form B in one call: allocate, hand over to be applied in `direction`.
template <class R, class... Args>
void edit_pending(int direction, Args &&...args) {
    EditTransaction transaction;
    Edit<R> edit(std::forward<Args>(args)...);
    edit.hand_over(direction);
}

}  // namespace vx
