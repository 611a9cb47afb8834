// Base of everything that a package offers to the host.
#pragma once

#include "Oxbeam/OxTypes.h"

#include <cstddef>

// Life of an object: default constructor, Init (defaults), parameter values written by the host, then NewFrame
// before every frame and the operations of the derived class during it. The host creates objects through their
// factory and destroys them through the virtual destructor. No operation may throw.
class OXBEAM_API OxLoadableObject {
public:
    virtual ~OxLoadableObject();

    // The object's self-description: an XML document in read-only memory, the same for every instance of a class.
    virtual char* GetShaderInfo();
    // Runs alone, between frames: derives what the frame needs from the parameters.
    virtual void NewFrame();
    // Declares the object's parameters; called on a prototype only, while its package is registered.
    virtual void Register();
    // Sets the defaults.
    virtual void Init();
};

// Makes a new object on the heap; the host owns it.
using OxFactory = OxLoadableObject* (*)();

// Binds a parameter to the member of the object being registered at `offset` bytes from its start, `size` bytes
// wide. A second declaration of the same member under another id is an alias. `kind` is always 2: plain data.
OXBEAM_API Oxvoid oxsDeclareParameter(const char* id, int kind, std::ptrdiff_t offset, int size);

// Binds all parameters declared since the last definition to a factory; nonzero on success.
OXBEAM_API int oxsDefine_NewLoadableObject_Fct(OxFactory factory);

// Declares `member` of `*self` under an id: its position and size are taken from the member itself.
template <class T>
inline void oxsDeclareMember(const OxLoadableObject* self, const char* id, const T& member, int size = sizeof(T)) {
    const auto* base = reinterpret_cast<const char*>(self);
    oxsDeclareParameter(id, 2, reinterpret_cast<const char*>(&member) - base, size);
}
