#pragma once

#include <QString>

#include <concepts>
#include <optional>
#include <utility>
#include <variant>

namespace ZVPlatform {

/// What a function returns in place of its result: the reason why there is none.
template <class E>
struct Failure
{
    E reason; ///< Why.
};

template <class E>
Failure(E) -> Failure<E>;

/// A value, or the reason why there is none: by default a sentence for people. Whoever asks for the
/// one that it does not hold has a fault.
template <class T, class E = QString>
class [[nodiscard]] Result
{
public:
    /// Holds the value.
    // NOLINTNEXTLINE(google-explicit-constructor): a function returns either as it is.
    Result(T value) : either_(std::in_place_index<0>, std::move(value)) {}
    /// Holds the reason of the failure.
    template <std::convertible_to<E> Reason>
    // NOLINTNEXTLINE(google-explicit-constructor)
    Result(Failure<Reason> failure) : either_(std::in_place_index<1>, std::move(failure.reason))
    {
    }

    /// Whether there is a value.
    explicit operator bool() const { return either_.index() == 0; }

    ///@{
    /// The value.
    T &operator*() & { return std::get<0>(either_); }
    const T &operator*() const & { return std::get<0>(either_); }
    T &&operator*() && { return std::get<0>(std::move(either_)); }
    T *operator->() { return &std::get<0>(either_); }
    const T *operator->() const { return &std::get<0>(either_); }
    ///@}

    /// The reason why there is none.
    const E &error() const { return std::get<1>(either_); }

private:
    std::variant<T, E> either_;
};

/// Success, or the reason why there is none.
template <class E>
class [[nodiscard]] Result<void, E>
{
public:
    /// A success.
    Result() = default;
    /// Holds the reason of the failure.
    template <std::convertible_to<E> Reason>
    // NOLINTNEXTLINE(google-explicit-constructor)
    Result(Failure<Reason> failure) : reason_(std::move(failure.reason))
    {
    }

    /// Whether it is a success.
    explicit operator bool() const { return !reason_; }

    /// The reason why it is none.
    const E &error() const { return reason_.value(); }

private:
    std::optional<E> reason_;
};

} // namespace ZVPlatform
