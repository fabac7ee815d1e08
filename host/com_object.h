// SPDX-License-Identifier: MIT
// ComObject<T>: what makes T an object that COM counts and hands out: references, aggregation, the table of interfaces.
//
// T lists its interfaces in a table `T::interfaces`, which is searched in order. Everybody meets T through IUnknown's three
// operations of those interfaces; they go on to the controlling unknown: the outer object's when T is part of another one,
// else `inner`, which counts, searches the table and destroys. IUnknown itself is always `inner`, so that every question for
// it gives one pointer.
#pragma once

#include "host/audio_interfaces.h"

#include <atomic>
#include <cstdint>
#include <new>

namespace quorel {

// Objects and server locks that keep the module loaded.
inline std::atomic<std::int32_t> moduleUses{0};

// One of them, as long as it lives.
class ModuleUse {
public:
    ModuleUse() noexcept { ++moduleUses; }
    ~ModuleUse() { --moduleUses; }
    ModuleUse(const ModuleUse&) = delete;
    ModuleUse& operator=(const ModuleUse&) = delete;
};

// The identifier stands in the table itself; `get` gives the object's pointer to that interface.
template <class T>
struct InterfaceEntry {
    IID id;
    void* (*get)(T& object);
};

template <class Interface, class T>
void* interfaceOf(T& object)
{
    return static_cast<Interface*>(&object);
}

template <class T>
class ComObject {
public:
    ComObject(const ComObject&) = delete;
    ComObject& operator=(const ComObject&) = delete;

    // A new T and its interface `id`. With an outer object `id` must be IUnknown, whose pointer the outer object keeps for
    // itself.
    static HRESULT create(IUnknown* outer, REFIID id, void** object);

protected:
    explicit ComObject(IUnknown* outer) noexcept : inner(*this), controlling(outer != nullptr ? outer : &inner) {}
    ~ComObject() = default;

private:
    struct Inner final : IUnknown {
        explicit Inner(ComObject& owner) noexcept : owner(owner) {}

        HRESULT QueryInterface(REFIID id, void** object) override;
        ULONG AddRef() override { return ++references; }
        ULONG Release() override;

        ComObject& owner;
        std::atomic<ULONG> references{1}; // the creator's
    };

    const ModuleUse use; // given up last
    Inner inner;

protected:
    IUnknown* const controlling; // an outer object is not counted: it outlives its parts
};

// ---------------------------------------------------------------------------------------------------------------------

template <class T>
HRESULT ComObject<T>::create(IUnknown* outer, REFIID id, void** object)
{
    if (object == nullptr)
        return E_POINTER;
    *object = nullptr;
    if (outer != nullptr && !(id == IID_IUnknown))
        return CLASS_E_NOAGGREGATION;
    auto* made = new (std::nothrow) T(outer);
    if (made == nullptr)
        return E_OUTOFMEMORY;
    IUnknown& unknown = static_cast<ComObject*>(made)->inner;
    const HRESULT result = unknown.QueryInterface(id, object);
    unknown.Release();
    return result;
}

template <class T>
HRESULT ComObject<T>::Inner::QueryInterface(REFIID id, void** object)
{
    if (object == nullptr)
        return E_POINTER;
    *object = nullptr;
    if (id == IID_IUnknown) {
        AddRef();
        *object = static_cast<IUnknown*>(this);
        return S_OK;
    }
    for (const InterfaceEntry<T>& entry : T::interfaces) {
        if (entry.id == id) {
            owner.controlling->AddRef();
            *object = entry.get(static_cast<T&>(owner));
            return S_OK;
        }
    }
    return E_NOINTERFACE;
}

template <class T>
ULONG ComObject<T>::Inner::Release()
{
    const ULONG left = --references;
    if (left == 0)
        delete static_cast<T*>(&owner);
    return left;
}

} // namespace quorel
