// How a package exports an object.
#pragma once

#include "Oxbeam/OxInterface.h"
#include "Oxbeam/OxLoadableObject.h"

template <class T>
OxLoadableObject* oxNewObject() {
    return new T;
}

// Lets a prototype declare its parameters and hands the factory to the host: 1 when the host accepted it, else 0.
// Register is called directly, since the prototype's own class is meant.
template <class T>
int oxRegisterObject(OxFactory factory) noexcept {
    try {
        T prototype;
        prototype.T::Register();
        return oxsDefine_NewLoadableObject_Fct(factory) != 0 ? 1 : 0;
    } catch (...) {
        return 0;  // the prototype ran out of memory
    }
}

// Ties the package to the version of the interface that it is compiled with.
#define OX_NEED_INTERFACE(Name) [[gnu::used]] static const int* const oxInterfaceOf##Name = &OX_INTERFACE_SYMBOL;

// Exports the pair of functions by whose names the host finds objects: New<Name>LoadableObject, the factory, and
// Register_<Name>_LoadableObject. Stands last in an object's source file.
#define OX_EXPORT_OBJECT(Name, Class)                                                                                  \
    OX_NEED_INTERFACE(Name)                                                                                            \
    extern "C" OXBEAM_API OxLoadableObject* New##Name##LoadableObject();                                               \
    extern "C" OXBEAM_API int Register_##Name##_LoadableObject();                                                      \
    OxLoadableObject* New##Name##LoadableObject() { return oxNewObject<Class>(); }                                     \
    int Register_##Name##_LoadableObject() { return oxRegisterObject<Class>(&New##Name##LoadableObject); }

// Exports an object under a second name. The factory is one and the same function, and must stand in this source file.
#define OX_EXPORT_ALIAS(Name, Class, OtherName)                                                                        \
    extern "C" OXBEAM_API OxLoadableObject* New##Name##LoadableObject()                                                \
        __attribute__((alias("New" #OtherName "LoadableObject")));                                                     \
    extern "C" OXBEAM_API int Register_##Name##_LoadableObject();                                                      \
    int Register_##Name##_LoadableObject() { return oxRegisterObject<Class>(&New##OtherName##LoadableObject); }
