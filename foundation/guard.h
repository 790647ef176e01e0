// The one catch at the C boundary. Every exported body that can fail runs inside guard(): a
// failure or an exhausted allocation becomes the function's documented failure result, and is
// recorded as the thread's last failure. Nothing C++ escapes into the host.
#pragma once

#include <new>
#include <type_traits>

#include "foundation/failure.h"

namespace vx {

namespace detail {
template <class Body>
bool run_guarded(Body &body) noexcept {
    try {
        body();
        return true;
    } catch (const Failure &failure) {
        note_failure(failure.code(), failure.what());
    } catch (const std::bad_alloc &) {
        note_failure(rc::no_memory, "out of memory");
    } catch (...) {
        note_failure(rc::failed, "unexpected failure");
    }
    return false;
}

template <class Body>
ResultCode code_of_failure(Body &body) noexcept {
    try {
        body();
        return rc::ok;
    } catch (const Failure &failure) {
        note_failure(failure.code(), failure.what());
        return failure.code();
    } catch (const std::bad_alloc &) {
        note_failure(rc::no_memory, "out of memory");
        return rc::no_memory;
    } catch (...) {
        note_failure(rc::failed, "unexpected failure");
        return rc::failed;
    }
}
}  // namespace detail

// For functions with a result: returns the body's result, or `failure_result` on a failure.
template <class Result, class Body>
Result guard(Result failure_result, Body &&body) noexcept {
    Result result = failure_result;
    auto run = [&] { result = body(); };
    return detail::run_guarded(run) ? result : failure_result;
}

// For functions without a result.
template <class Body>
void guard(Body &&body) noexcept {
    detail::run_guarded(body);
}

// For methods of component objects, which return result codes: a failure returns its code
// (the latched code); a body that returns a code has it passed through; otherwise 0.
template <class Body>
ResultCode latch(Body &&body) noexcept {
    if constexpr (std::is_same_v<std::invoke_result_t<Body>, void>) {
        return detail::code_of_failure(body);
    } else {
        ResultCode result = rc::ok;
        auto run = [&] { result = static_cast<ResultCode>(body()); };
        ResultCode code = detail::code_of_failure(run);
        return code != rc::ok ? code : result;
    }
}

}  // namespace vx
