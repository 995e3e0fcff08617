// Owning pointers.
//
// A scoped_ptr owns one object, a scoped_array one array; each disposes of it when it goes out of scope. Ownership
// moves, it is never shared. A pointer is used by one thread at a time.
//
//     lumo::scoped_ptr<Sender> spSender(new Sender);
//     spSender->Start();
//     Sender* given = spSender.Detach();   // now the caller must delete it
//
// Nothing here throws but what a destructor of the owned object does, which ends the program.
#pragma once

#include <cstddef>
#include <utility>

namespace lumo {

/// How a scoped_ptr releases its object: with delete, unless its type names another functor (a C library's release
/// function). Such a functor is made anew for each use, has no state, and is never called with null.
template <class T>
struct DisposeFunctor
{
    /// Deletes one object; its type must be complete here.
    void operator()(T* object) const { delete object; }
};

/// How a scoped_array releases its array.
template <class T>
struct DisposeArrayFunctor
{
    /// Deletes the array.
    void operator()(T* objects) const { delete[] objects; }
};

/// Owns one object made with new, or anything that Dispose can release.
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
    /// Releases the object owned so far and takes over that of `other`.
    scoped_ptr& operator=(scoped_ptr&& other) noexcept
    {
        Reset(other.Detach());
        return *this;
    }

    scoped_ptr(const scoped_ptr&) = delete;
    scoped_ptr& operator=(const scoped_ptr&) = delete;

    /// Releases what is owned.
    ~scoped_ptr() { Reset(nullptr); }

    /// The object, still owned here; null when empty. Valid until the next Reset() or move.
    T* Get() const noexcept { return _object; }

    /// Takes `object` over and releases the one owned before; resetting to the object already owned changes nothing.
    /// The pointer is switched before the old object is released, so that its destructor never finds itself here.
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

/// Owns an array made with new[], whose length it does not know. Everything that scoped_ptr has, and elements by index.
template <class T>
class scoped_array : public scoped_ptr<T, DisposeArrayFunctor<T>>
{
public:
    using scoped_ptr<T, DisposeArrayFunctor<T>>::scoped_ptr;

    /// The element at `index`, unchecked.
    T& operator[](std::size_t index) const noexcept { return this->Get()[index]; }
};

} // namespace lumo
