#pragma once

#include <atomic>
#include <cstdint>

namespace ZelTracer {

// Nanoseconds of the monotonic clock: every wait is measured with it, so a wall clock set back or
// forward neither stretches nor cuts a wait.
std::int64_t monotonicNanoseconds();

// How long one bounded acquisition may take. After a wait that ran out, acquisitions only try for
// the quiet period, so a lock that another process keeps costs one wait per period.
struct LockBounds
{
    std::int64_t waitNanoseconds;
    std::int64_t quietNanoseconds;
    std::int64_t spinNanoseconds; // polled before sleeping: holds are a few microseconds
};

// The GUI thread of the tool waits at most one tick of its 50 ms timer; a traced program a few ms.
inline constexpr LockBounds s_ToolLockBounds {50000000, 50000000, 0};
inline constexpr LockBounds s_ProducerLockBounds {4000000, 100000000, 5000};

// The bookkeeping of bounded acquisitions of one lock, shared by the threads of a process. A holder
// that died must still not stop everyone for good: when acquisitions have failed without a success in
// between for as long as the self-breaking lock waits in one call (101 attempts of 10 ms), the holder
// is taken for dead and the caller breaks the lock, as that lock does.
class LockPatience
{
public:
    static constexpr std::int64_t s_BreakAfterNanoseconds = 101 * 10000000LL;

    // How long an acquisition starting now may sleep: 0 within a quiet period.
    std::int64_t allowedWait(std::int64_t now, LockBounds const& bounds) const
    {
        return now >= quietUntil.load(std::memory_order_relaxed) ? bounds.waitNanoseconds : 0;
    }
    // After an acquisition that failed; true when the caller is to break the lock now.
    bool failed(std::int64_t now, std::int64_t waited, LockBounds const& bounds)
    {
        if (waited > 0)
            quietUntil.store(now + bounds.quietNanoseconds, std::memory_order_relaxed);
        std::int64_t since = 0;
        if (failingSince.compare_exchange_strong(since, now, std::memory_order_relaxed))
            since = now;
        if (now - since < s_BreakAfterNanoseconds)
            return false;
        // The count starts again, as the self-breaking lock's does after its break.
        failingSince.store(now, std::memory_order_relaxed);
        return true;
    }
    void succeeded()
    {
        if (failingSince.load(std::memory_order_relaxed) != 0)
            failingSince.store(0, std::memory_order_relaxed);
    }

private:
    std::atomic<std::int64_t> failingSince {0}; // when the first failure since the last success began
    std::atomic<std::int64_t> quietUntil {0};
};

} // namespace ZelTracer
