#pragma once

#include <QScopeGuard>

#include <memory>
#include <mutex>

namespace ZVPlatform {

/// Base of the delegate interfaces, through which the end of a delegate is noticed. Delegates are
/// never owned by those who call them: a delegate may be destroyed at any time, and is not called
/// afterwards.
///
/// A delegate that is called on another thread than the one that destroys it must call retire()
/// first thing in its most derived destructor.
class DelegateAnchor
{
public:
    DelegateAnchor() = default;
    ///@{
    /// The copy of a delegate is another delegate: nobody refers to it yet.
    DelegateAnchor(const DelegateAnchor &) {}
    DelegateAnchor &operator=(const DelegateAnchor &) { return *this; }
    ///@}

protected:
    ~DelegateAnchor() { retire(); }

    /// Ends the calls: waits for one that another thread is making, and lets no further one begin.
    void retire()
    {
        const std::lock_guard lock(state_->calling);
        state_->alive = false;
    }

    /// Whether the calling thread is in the middle of a call to this delegate. Never waits.
    bool isCalledHere() const
    {
        const std::unique_lock lock(state_->calling, std::try_to_lock);
        return lock && state_->calls > 0;
    }

private:
    template <class T>
    friend class DelegateRef;

    struct State
    {
        // Recursive, since a delegate may be destroyed in the middle of a call to itself.
        std::recursive_mutex calling;
        bool alive = true;
        int calls = 0; // Each within the one before it.
    };

    std::shared_ptr<State> state_ = std::make_shared<State>();
};

/// A reference to a delegate that notices its end. Copies refer to the same delegate. May be used
/// on any thread; replacing one object by assignment needs the usual care.
template <class T>
class DelegateRef
{
public:
    /// Refers to nobody.
    DelegateRef() = default;
    /// Refers to a delegate, or to nobody when that is null.
    explicit DelegateRef(T *delegate) : delegate_(delegate)
    {
        if (delegate)
            state_ = static_cast<DelegateAnchor *>(delegate)->state_;
    }

    /// The delegate, or null when there is none or it has ended. The answer holds for as long as
    /// the delegate is not destroyed by another thread.
    T *get() const
    {
        if (!state_)
            return nullptr;
        const std::lock_guard lock(state_->calling);
        return state_->alive ? delegate_ : nullptr;
    }

    /// Calls the delegate, unless there is none or it has ended; keeps it from ending meanwhile.
    template <class Call>
    void call(Call &&call) const
    {
        if (!state_)
            return;
        const auto state = state_;
        const std::lock_guard lock(state->calling);
        if (!state->alive)
            return;
        ++state->calls;
        const auto end = qScopeGuard([&state] { --state->calls; });
        call(*delegate_);
    }

private:
    T *delegate_ = nullptr;
    std::shared_ptr<DelegateAnchor::State> state_;
};

} // namespace ZVPlatform
