// SPDX-License-Identifier: MIT
// ClassFactory<T> makes objects of T for whoever knows its class, alone or as part of an outer object. A module has one for
// each class, which is never destroyed; who holds it or locks it keeps the module loaded.
#pragma once

#include "host/com_object.h"

namespace quorel {

template <class T>
class ClassFactory final : public IClassFactory {
public:
    HRESULT QueryInterface(REFIID id, void** object) override;
    ULONG AddRef() override { return static_cast<ULONG>(++moduleUses); }
    ULONG Release() override { return static_cast<ULONG>(--moduleUses); }

    HRESULT CreateInstance(IUnknown* outer, REFIID id, void** object) override { return T::create(outer, id, object); }
    HRESULT LockServer(BOOL lock) override;
};

// ---------------------------------------------------------------------------------------------------------------------

template <class T>
HRESULT ClassFactory<T>::QueryInterface(REFIID id, void** object)
{
    if (object == nullptr)
        return E_POINTER;
    *object = nullptr;
    if (!(id == IID_IUnknown) && !(id == IID_IClassFactory))
        return E_NOINTERFACE;
    AddRef();
    *object = static_cast<IClassFactory*>(this);
    return S_OK;
}

template <class T>
HRESULT ClassFactory<T>::LockServer(BOOL lock)
{
    moduleUses += lock != FALSE ? 1 : -1;
    return S_OK;
}

} // namespace quorel
