// Milliseconds between two readings of the performance counter: the one conversion that the
// packet timestamp, the input clock and the engine-call timing share. Pure; any thread.
#ifndef ORBPERIX_SRC_UTIL_ELAPSED_H_
#define ORBPERIX_SRC_UTIL_ELAPSED_H_

#include <cstdint>
#include <limits>

namespace OrbPerix {

// (now - start) * 1000 / frequency in signed 64-bit arithmetic, truncated toward zero.
// Defined for every input: the product wraps instead of overflowing, and a zero frequency
// (no time base) gives 0 instead of a division by zero. Inline: it lies on the encoder's hot path.
inline int64_t ElapsedMilliseconds(int64_t now, int64_t start, int64_t frequency) {
    if (frequency == 0) {
        return 0;
    }
    // Unsigned arithmetic wraps where the signed formula would overflow and is bit-identical
    // to it everywhere else; the conversions back are modular on every supported compiler.
    const uint64_t ticks = static_cast<uint64_t>(now) - static_cast<uint64_t>(start);
    const int64_t signedTicks = static_cast<int64_t>(ticks);
    constexpr int64_t kNoOverflow = std::numeric_limits<int64_t>::max() / 1000;
    if (signedTicks >= -kNoOverflow && signedTicks <= kNoOverflow) {
        // The counter frequencies of the supported platforms (the monotonic clock's 1 GHz,
        // Windows' usual 10 MHz): ticks * 1000 / f equals ticks / (f / 1000) here, and a
        // constant divisor compiles to a multiplication. A run-time 64-bit division would
        // cost as much as the rest of a small packet's encoding.
        if (frequency == 1'000'000'000) {
            return signedTicks / 1'000'000;
        }
        if (frequency == 10'000'000) {
            return signedTicks / 10'000;
        }
    }
    const int64_t scaled = static_cast<int64_t>(ticks * 1000u);
    if (frequency == -1) {
        // INT64_MIN / -1 overflows; negation by wrapping gives the same low 32 bits.
        return static_cast<int64_t>(0u - static_cast<uint64_t>(scaled));
    }
    return scaled / frequency;
}

}  // namespace OrbPerix

#endif  // ORBPERIX_SRC_UTIL_ELAPSED_H_
