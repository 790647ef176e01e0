// Failures and checkpoints.
//
// A failure is a C++ exception carrying a 32-bit result code. A checkpoint is a C++ scope:
// clean-ups armed inside it run only when the scope is left by a failure and are dropped when
// it completes. The outermost guard at the C boundary turns the failure into the function's
// documented failure result (see guard.h).
#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <utility>

namespace vx {

using ResultCode = std::uint32_t;

// Result codes shared by interface methods and the last-failure record.
namespace rc {
inline constexpr ResultCode ok = 0;
inline constexpr ResultCode failed = 0x80000001;
inline constexpr ResultCode no_memory = 0x80000002;
inline constexpr ResultCode bad_argument = 0x80000003;
inline constexpr ResultCode refused = 0x80000009;
inline constexpr ResultCode not_found = 0x80000017;  // no current element, or end of list
inline constexpr ResultCode type_mismatch = 0x8000001C;
}  // namespace rc

// The exception behind every failure. It carries its text in a fixed buffer so that raising a
// failure never allocates (a failure is often raised because memory ran out).
class Failure : public std::exception {
  public:
    Failure(ResultCode code, const char *text) noexcept;
    ResultCode code() const noexcept { return code_; }
    const char *what() const noexcept override { return text_; }

  private:
    ResultCode code_;
    char text_[160];
};

// Raises a failure. The text is copied; it may be null.
[[noreturn]] void fail(ResultCode code, const char *text = nullptr);

// True while clean-ups run after a failure. Code that would announce changes (mesh events)
// stays quiet then, since the data is being put back as it was.
bool recovering() noexcept;

// Marks the current thread as running failure clean-ups for the lifetime of the object.
class RecoveryScope {
  public:
    RecoveryScope() noexcept;
    ~RecoveryScope();
    RecoveryScope(const RecoveryScope &) = delete;
    RecoveryScope &operator=(const RecoveryScope &) = delete;
};

// Runs `fn` if, and only if, the enclosing scope is left by a failure, unless disarmed first.
template <class Fn>
class OnFailure {
  public:
    explicit OnFailure(Fn fn) noexcept : fn_(std::move(fn)), entry_(std::uncaught_exceptions()) {}
    ~OnFailure() {
        if (armed_ && std::uncaught_exceptions() > entry_) {
            RecoveryScope recovery;
            fn_();
        }
    }
    void disarm() noexcept { armed_ = false; }
    OnFailure(const OnFailure &) = delete;
    OnFailure &operator=(const OnFailure &) = delete;

  private:
    Fn fn_;
    int entry_;
    bool armed_ = true;
};

// A checkpoint level with clean-ups armed by function pointer, for the places where an RAII
// guard does not fit (a block freed with its size, an object released through a C table).
// Clean-ups run in reverse order of arming when the scope unwinds; end() drops them.
class Checkpoint {
  public:
    using Cleanup = void (*)(void *object, std::size_t size);

    Checkpoint() noexcept : entry_(std::uncaught_exceptions()) {}
    ~Checkpoint();
    Checkpoint(const Checkpoint &) = delete;
    Checkpoint &operator=(const Checkpoint &) = delete;

    // Arms a clean-up. Arming never allocates; should the fixed table be full, the clean-up is
    // run at once and a failure raised, so the object is never left unowned.
    void arm(Cleanup fn, void *object, std::size_t size = 0);
    // Arms the release of a block from StdAlloc, given with its size.
    void arm_free(void *block, std::size_t size);
    // Closes the level: armed clean-ups are dropped, not run.
    void end() noexcept { count_ = 0; }
    std::size_t armed() const noexcept { return count_; }

    static constexpr std::size_t capacity = 16;

  private:
    struct Entry {
        Cleanup fn;
        void *object;
        std::size_t size;
    };
    Entry entries_[capacity];
    std::size_t count_ = 0;
    int entry_;
};

// The last failure of the calling thread, kept for hosts (VxLastFailure) and reported to the
// installed failure callback.
struct FailureRecord {
    ResultCode code = rc::ok;
    char text[160] = {};
};
const FailureRecord &last_failure() noexcept;
void clear_last_failure() noexcept;
// Records a failure that reached the C boundary and calls the host's callback, if any.
void note_failure(ResultCode code, const char *text) noexcept;
using FailureCallback = void (*)(ResultCode code, const char *text, void *client);
void set_failure_callback(FailureCallback callback, void *client) noexcept;

}  // namespace vx
