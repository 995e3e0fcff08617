// Owning pointers.
//
// A scoped_ptr owns one object, a scoped_array one array; each disposes of it when it goes out of scope. Ownership
// moves, it is never shared. A pointer is used by one thread at a time.
//
//     lumo::scoped_ptr<Sender> spSender(new Sender);
//     spSender->Start();
//     Sender* given = spSender.Detach();   // now the caller's to end
//
// Nothing here throws but what a destructor of the owned object does, which ends the program.
#pragma once

#include <cstddef>
#include <utility>

namespace lumo {

/// How a scoped_ptr ends what it owns: with delete, unless the owner names another functor (a C library's release).
/// Such a functor is made anew for each use, has no state, and is never called for null.
template <class T>
struct DisposeFunctor
{
    /// Ends one object; its type must be complete here.
    void operator()(T* object) const { delete object; }
};

/// How a scoped_array ends what it owns.
template <class T>
struct DisposeArrayFunctor
{
    /// Ends a whole array.
    void operator()(T* objects) const { delete[] objects; }
};

/// Owns one object made with new, or anything that Dispose can end.
template <class T, class Dispose = DisposeFunctor<T>>
class scoped_ptr
{
public:
    /// Owns nothing.
    scoped_ptr() noexcept = default;

    /// Takes the object over; null owns nothing.
    explicit scoped_ptr(T* object) noexcept : _object(object) {}

    /// Leaves `other` empty.
    scoped_ptr(scoped_ptr&& other) noexcept : _object(other.Detach()) {}
    /// Ends the object owned so far and takes over that of `other`.
    scoped_ptr& operator=(scoped_ptr&& other) noexcept
    {
        Reset(other.Detach());
        return *this;
    }

    scoped_ptr(const scoped_ptr&) = delete;
    scoped_ptr& operator=(const scoped_ptr&) = delete;

    /// Ends what is owned.
    ~scoped_ptr() { Reset(nullptr); }

    /// The object, still owned here; null when empty. Valid until the next Reset() or move.
    T* Get() const noexcept { return _object; }

    /// Takes `object` over and ends the one owned before; resetting to what is owned already changes nothing. The
    /// pointer shows the new object before the old one is ended, so that an old object's destructor never finds itself
    /// here.
    void Reset(T* object = nullptr) noexcept
    {
        T* old = std::exchange(_object, object);
        if (old != nullptr && old != object)
            Dispose()(old);
    }

    /// Gives the object up: the caller owns it from now on.
    [[nodiscard]] T* Detach() noexcept { return std::exchange(_object, nullptr); }

    /// The object; must not be empty.
    T* operator->() const noexcept { return _object; }
    /// The object itself; must not be empty.
    T& operator*() const noexcept { return *_object; }

    /// Whether something is owned.
    explicit operator bool() const noexcept { return _object != nullptr; }

private:
    T* _object = nullptr;
};

/// Owns an array made with new[]; the length is the owner's to know. Everything that scoped_ptr has, and elements by
/// index.
template <class T>
class scoped_array : public scoped_ptr<T, DisposeArrayFunctor<T>>
{
public:
    using scoped_ptr<T, DisposeArrayFunctor<T>>::scoped_ptr;

    /// The element at `index`, unchecked.
    T& operator[](std::size_t index) const noexcept { return this->Get()[index]; }
};

} // namespace lumo
