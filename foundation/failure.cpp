#include "foundation/failure.h"

#include <atomic>
#include <cstring>

#include "foundation/memory.h"

namespace vx {

namespace {

thread_local int recovery_depth = 0;
thread_local FailureRecord thread_failure;

struct CallbackSlot {
    std::atomic<FailureCallback> callback{nullptr};
    std::atomic<void *> client{nullptr};
};
CallbackSlot failure_callback;

template <std::size_t N>
void copy_text(char (&to)[N], const char *from) noexcept {
    if (from == nullptr) from = "";
    std::size_t n = std::strlen(from);
    if (n >= N) n = N - 1;
    std::memcpy(to, from, n);
    to[n] = '\0';
}

}  // namespace

Failure::Failure(ResultCode code, const char *text) noexcept : code_(code) {
    copy_text(text_, text != nullptr ? text : "failure");
}

void fail(ResultCode code, const char *text) {
    throw Failure(code, text);
}

bool recovering() noexcept {
    return recovery_depth > 0;
}

RecoveryScope::RecoveryScope() noexcept {
    ++recovery_depth;
}
RecoveryScope::~RecoveryScope() {
    --recovery_depth;
}

Checkpoint::~Checkpoint() {
    if (count_ == 0 || std::uncaught_exceptions() <= entry_) return;
    RecoveryScope recovery;
    while (count_ > 0) {
        const Entry &e = entries_[--count_];
        e.fn(e.object, e.size);
    }
}

void Checkpoint::arm(Cleanup fn, void *object, std::size_t size) {
    if (count_ == capacity) {
        {
            RecoveryScope recovery;
            fn(object, size);
        }
        fail(rc::failed, "checkpoint: too many armed clean-ups");
    }
    entries_[count_++] = Entry{fn, object, size};
}

void Checkpoint::arm_free(void *block, std::size_t size) {
    arm(StdFreeArm, block, size);
}

const FailureRecord &last_failure() noexcept {
    return thread_failure;
}

void clear_last_failure() noexcept {
    thread_failure = FailureRecord{};
}

void note_failure(ResultCode code, const char *text) noexcept {
    thread_failure.code = code;
    copy_text(thread_failure.text, text);
    FailureCallback callback = failure_callback.callback.load(std::memory_order_acquire);
    if (callback != nullptr) {
        callback(code, thread_failure.text,
                 failure_callback.client.load(std::memory_order_acquire));
    }
}

void set_failure_callback(FailureCallback callback, void *client) noexcept {
    failure_callback.client.store(client, std::memory_order_release);
    failure_callback.callback.store(callback, std::memory_order_release);
}

}  // namespace vx
