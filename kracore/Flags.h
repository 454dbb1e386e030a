#pragma once

namespace kracore::utility {

/// A set of bits with a type of its own. Trivial; passed by value. [any]
template <class T>
class Flags {
public:
    constexpr Flags() = default;
    constexpr explicit Flags(T bits) : bits_(bits) {}

    constexpr bool Has(T bits) const { return (bits_ & bits) == bits; }
    constexpr bool IsEmpty() const { return bits_ == T{}; }
    constexpr void Set(T bits, bool on = true) {
        bits_ = on ? static_cast<T>(bits_ | bits) : static_cast<T>(bits_ & ~bits);
    }
    constexpr void Clear() { bits_ = T{}; }
    constexpr T GetBits() const { return bits_; }

    constexpr bool operator==(const Flags&) const = default;

private:
    T bits_{};
};

}  // namespace kracore::utility
