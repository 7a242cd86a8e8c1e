// No C++ exception may reach a C caller: each export runs its body through `guarded`.
#pragma once

namespace kelvane {

// The operation's result, or `fallback` (the export's null result) when it throws.
template <typename Result, typename Operation>
Result guarded(Result fallback, Operation&& operation) noexcept {
    try {
        return operation();
    } catch (...) {
        return fallback;
    }
}

}  // namespace kelvane
