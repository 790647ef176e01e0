#include "foundation/undo.h"

#include <atomic>
#include <exception>
#include <thread>

#include "foundation/failure.h"
#include "foundation/log.h"

namespace vx {

namespace {

// A step lives inside the node of its first record, so one allocation per record covers
// everything the history needs to keep it.
struct Step {
    UndoSlot::Node *first;
    UndoSlot::Node *last;
    Step *older;
    Step *newer;
    std::uint64_t group;
    std::uint32_t records;
    std::uint32_t structural;
};

}  // namespace

struct UndoSlot::Node {
    UndoPrepareFn prepare;
    UndoApplyFn apply;
    void *record;
    UndoFreeFn free;
    int direction;  // the direction of the first application
    int flag;
    bool recorded;
    std::uint64_t group;
    Node *prev;
    Node *next;
    Step step;  // used when this record starts a step
};

namespace {

using Node = UndoSlot::Node;

struct History {
    std::atomic<std::thread::id> owner{};
    std::atomic<int> startups{0};
    bool enabled = false;
    int suspends = 0;
    int applying = 0;
    int block_depth = 0;
    std::uint64_t block_group = 0;
    std::uint64_t next_group = 0;
    Step *oldest = nullptr;
    Step *newest = nullptr;
    Step *current = nullptr;  // the newest step in effect
    std::size_t done = 0;
    std::size_t undone = 0;
    std::uint32_t limit = 0;
    std::atomic<std::uint32_t> code{0};
};

History history;

// Records handed over by edits in flight on this thread, oldest first.
struct Transaction {
    Node *head = nullptr;
    Node *tail = nullptr;
    int depth = 0;
};
thread_local Transaction transaction;

bool is_owner() noexcept {
    return history.startups.load(std::memory_order_acquire) > 0 &&
           history.owner.load(std::memory_order_acquire) == std::this_thread::get_id();
}

std::uint32_t owner_state() noexcept {
    std::uint32_t state = 0;
    if (history.enabled) state |= kUndoEnabled;
    if (history.suspends > 0 || history.applying > 0) state |= kUndoSuspended;
    if (history.applying > 0) state |= kUndoApplying;
    return state;
}

int reverse(int direction) noexcept {
    return direction != 0 ? 0 : 1;
}

void delete_node(Node *node) noexcept {
    delete node;
}

// Frees every record of a step; the step itself goes with its first node.
void free_step(Step *step, int state) noexcept {
    Node *node = step->first;
    while (node != nullptr) {
        Node *next = node->next;
        node->free(node->record, state);
        delete_node(node);
        node = next;
    }
}

void unlink_step(Step *step) noexcept {
    (step->older != nullptr ? step->older->newer : history.oldest) = step->newer;
    (step->newer != nullptr ? step->newer->older : history.newest) = step->older;
}

void drop_redo() noexcept {
    Step *step = history.current != nullptr ? history.current->newer : history.oldest;
    while (step != nullptr) {
        Step *newer = step->newer;
        unlink_step(step);
        free_step(step, 1);
        step = newer;
    }
    history.undone = 0;
}

void trim_to_limit() noexcept {
    while (history.limit != 0 && history.done + history.undone > history.limit) {
        Step *oldest = history.oldest;
        const bool in_effect = history.done > 0;
        if (oldest == history.current) history.current = nullptr;
        unlink_step(oldest);
        if (in_effect) {
            --history.done;
        } else {
            --history.undone;
        }
        free_step(oldest, in_effect ? 0 : 1);
    }
}

void append_to_history(Node *node) noexcept {
    drop_redo();
    node->prev = node->next = nullptr;
    Step *current = history.current;
    if (current != nullptr && current->group == node->group) {
        node->prev = current->last;
        current->last->next = node;
        current->last = node;
    } else {
        Step *step = &node->step;
        *step = Step{node, node, current, nullptr, node->group, 0, 0};
        (current != nullptr ? current->newer : history.oldest) = step;
        history.newest = step;
        history.current = step;
        ++history.done;
        current = step;
    }
    ++current->records;
    if (node->flag == 0) ++current->structural;
    trim_to_limit();
}

// The final fate of one record once no edit in flight can take it back.
void settle(Node *node) noexcept {
    if (node->recorded) {
        append_to_history(node);
    } else {
        node->free(node->record, 0);
        delete_node(node);
    }
}

void take(Node *node) noexcept {
    node->recorded = is_owner() && undo_recording(owner_state());
    if (node->recorded) {
        node->group = history.block_depth > 0 ? history.block_group : ++history.next_group;
    }
    if (transaction.depth == 0) {
        settle(node);
        return;
    }
    node->next = nullptr;
    node->prev = transaction.tail;
    (transaction.tail != nullptr ? transaction.tail->next : transaction.head) = node;
    transaction.tail = node;
}

void revert(Node *node) noexcept {
    RecoveryScope recovery;
    try {
        const int direction = reverse(node->direction);
        if (node->prepare != nullptr) node->prepare(node->record, direction);
        node->apply(node->record, direction, 0);
    } catch (const std::exception &e) {
        VX_FAIL_LINE("undo: reverting a record failed:", e.what());
    } catch (...) {
        VX_FAIL_LINE("undo: reverting a record failed", nullptr);
    }
}

struct ApplyingScope {
    ApplyingScope() noexcept { ++history.applying; }
    ~ApplyingScope() { --history.applying; }
};

bool may_move_in_history() noexcept {
    return is_owner() && history.applying == 0 && history.block_depth == 0 &&
           transaction.depth == 0;
}

void hand_over_complete(Node *node, int flag, UndoApplyFn apply, void *record, UndoFreeFn free,
                        UndoPrepareFn prepare) noexcept {
    node->prepare = prepare;
    node->apply = apply;
    node->record = record;
    node->free = free;
    node->direction = 1;
    node->flag = flag;
    take(node);
}

void hand_over_pending(Node *node, int direction, UndoApplyFn apply, void *record, UndoFreeFn free,
                       UndoPrepareFn prepare) {
    try {
        if (prepare != nullptr) prepare(record, direction);
        apply(record, direction, 0);
    } catch (...) {
        delete_node(node);
        free(record, 1);
        throw;
    }
    node->apply = apply;
    node->prepare = prepare;
    node->record = record;
    node->free = free;
    node->direction = direction;
    node->flag = 1;
    take(node);
}

}  // namespace

std::uint32_t UndoSysState() noexcept {
    return is_owner() ? owner_state() : 0;
}

UndoSlot::UndoSlot() : node_(new Node{}) {}

UndoSlot::~UndoSlot() {
    delete_node(node_);
}

void UndoSlot::add_complete(int flag, UndoApplyFn apply, void *record, UndoFreeFn free,
                            UndoPrepareFn prepare) noexcept {
    Node *node = node_;
    node_ = nullptr;
    hand_over_complete(node, flag, apply, record, free, prepare);
}

void UndoSlot::apply_pending(int direction, UndoApplyFn apply, void *record, UndoFreeFn free,
                             UndoPrepareFn prepare) {
    Node *node = node_;
    node_ = nullptr;
    hand_over_pending(node, direction, apply, record, free, prepare);
}

void UndoAddComplete(int flag, UndoApplyFn apply, void *record, UndoFreeFn free) {
    Node *node = nullptr;
    try {
        node = new Node{};
    } catch (...) {
        // The change is already made but cannot be kept for undo: take it back, so that the
        // edit either happens completely or not at all.
        {
            RecoveryScope recovery;
            apply(record, 0, 0);
        }
        free(record, 1);
        throw;
    }
    hand_over_complete(node, flag, apply, record, free, nullptr);
}

void UndoApplyPending(int direction, UndoApplyFn apply, void *record, UndoFreeFn free) {
    Node *node = nullptr;
    try {
        node = new Node{};
    } catch (...) {
        free(record, 1);  // never applied: the edit is not in effect
        throw;
    }
    hand_over_pending(node, direction, apply, record, free, nullptr);
}

void UndoBlockBegin() noexcept {
    if (!is_owner()) return;
    if (history.block_depth++ == 0) history.block_group = ++history.next_group;
}

void UndoBlockEnd() noexcept {
    if (!is_owner()) return;
    if (history.block_depth == 0) {
        log::debug("undo", "UndoBlockEnd without UndoBlockBegin\n");
        return;
    }
    --history.block_depth;
}

void UndoNewCode(int undoing) noexcept {
    history.code.fetch_add(1, std::memory_order_acq_rel);
    log::debug("undo", "new code (%s)\n", undoing != 0 ? "undoing" : "doing");
}

std::uint32_t UndoSysCode() noexcept {
    return history.code.load(std::memory_order_acquire);
}

EditTransaction::EditTransaction() noexcept
    : mark_(transaction.tail), entry_exceptions_(std::uncaught_exceptions()) {
    ++transaction.depth;
}

EditTransaction::~EditTransaction() {
    --transaction.depth;
    if (std::uncaught_exceptions() > entry_exceptions_) {
        while (transaction.tail != mark_) {
            Node *node = transaction.tail;
            transaction.tail = node->prev;
            (transaction.tail != nullptr ? transaction.tail->next : transaction.head) = nullptr;
            revert(node);
            node->free(node->record, 1);
            delete_node(node);
        }
    }
    if (transaction.depth > 0) return;
    Node *node = transaction.head;
    transaction.head = transaction.tail = nullptr;
    while (node != nullptr) {
        Node *next = node->next;
        settle(node);
        node = next;
    }
}

void UndoSysStartup() noexcept {
    if (history.startups.load() == 0) {
        history.owner.store(std::this_thread::get_id(), std::memory_order_release);
        history.enabled = true;
        history.suspends = 0;
        history.block_depth = 0;
    }
    history.startups.fetch_add(1, std::memory_order_acq_rel);
}

void UndoSysShutdown() noexcept {
    if (history.startups.load() == 0) return;
    if (history.startups.load() == 1) {
        UndoSysClear();
        history.enabled = false;
        history.suspends = 0;
        history.block_depth = 0;
        history.owner.store(std::thread::id{}, std::memory_order_release);
    }
    history.startups.fetch_sub(1, std::memory_order_acq_rel);
}

void UndoSysEnable(bool on) noexcept {
    if (is_owner()) history.enabled = on;
}

void UndoSysSuspend() noexcept {
    if (is_owner()) ++history.suspends;
}

void UndoSysResume() noexcept {
    if (is_owner() && history.suspends > 0) --history.suspends;
}

bool UndoSysUndo() {
    if (!may_move_in_history() || history.current == nullptr) return false;
    Step *step = history.current;
    {
        ApplyingScope applying;
        for (Node *node = step->last; node != nullptr; node = node->prev) {
            if (node->prepare != nullptr) node->prepare(node->record, reverse(node->direction));
        }
        Node *node = step->last;
        try {
            for (; node != nullptr; node = node->prev) {
                node->apply(node->record, reverse(node->direction), 0);
            }
        } catch (...) {
            RecoveryScope recovery;
            for (Node *done = node->next; done != nullptr; done = done->next) {
                done->apply(done->record, done->direction, 0);
            }
            throw;
        }
    }
    history.current = step->older;
    --history.done;
    ++history.undone;
    log::debug("undo", "undo: step of %u records (%u structural)\n", step->records,
               step->structural);
    return true;
}

bool UndoSysRedo() {
    if (!may_move_in_history()) return false;
    Step *step = history.current != nullptr ? history.current->newer : history.oldest;
    if (step == nullptr) return false;
    {
        ApplyingScope applying;
        for (Node *node = step->first; node != nullptr; node = node->next) {
            if (node->prepare != nullptr) node->prepare(node->record, node->direction);
        }
        Node *node = step->first;
        try {
            for (; node != nullptr; node = node->next) {
                node->apply(node->record, node->direction, 0);
            }
        } catch (...) {
            RecoveryScope recovery;
            for (Node *done = node->prev; done != nullptr; done = done->prev) {
                done->apply(done->record, reverse(done->direction), 0);
            }
            throw;
        }
    }
    history.current = step;
    ++history.done;
    --history.undone;
    log::debug("undo", "redo: step of %u records (%u structural)\n", step->records,
               step->structural);
    return true;
}

bool UndoSysCanUndo() noexcept {
    return is_owner() && history.current != nullptr;
}

bool UndoSysCanRedo() noexcept {
    if (!is_owner()) return false;
    return (history.current != nullptr ? history.current->newer : history.oldest) != nullptr;
}

void UndoSysClear() noexcept {
    drop_redo();
    Step *step = history.current;
    while (step != nullptr) {
        Step *older = step->older;
        free_step(step, 0);
        step = older;
    }
    history.oldest = history.newest = history.current = nullptr;
    history.done = history.undone = 0;
}

void UndoSysSetLimit(std::uint32_t steps) noexcept {
    history.limit = steps;
    trim_to_limit();
}

std::uint32_t UndoSysLimit() noexcept {
    return history.limit;
}
std::size_t UndoSysUndoCount() noexcept {
    return is_owner() ? history.done : 0;
}
std::size_t UndoSysRedoCount() noexcept {
    return is_owner() ? history.undone : 0;
}

}  // namespace vx
